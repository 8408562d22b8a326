#include "core/metadata/ImathTraits.h"

#include <cmath>

#include "core/math/Transform.h"

namespace ZeltoCore {
namespace detail {

Imath::Quat<double> blendQuat(const Imath::Quat<double>& a, const Imath::Quat<double>& b, float t) {
    Imath::Quat<double> q1 = a;
    double d = q1.r * b.r + (q1.v ^ b.v);
    // Take the short way round: q and -q are the same rotation.
    if (d < 0) {
        q1 = Imath::Quat<double>(-q1.r, -q1.v);
        d = -d;
    }
    double s1 = double(1.0f - t);
    double s2 = t;
    if (1.0 - d > 0.0001) {
        const double theta = std::acos(d);
        const double sinTheta = std::sin(theta);
        s1 = std::sin(s1 * theta) / sinTheta;
        s2 = std::sin(s2 * theta) / sinTheta;
    }
    return Imath::Quat<double>(s1 * q1.r + s2 * b.r, q1.v * s1 + b.v * s2);
}

Imath::Matrix44<double> blendMatrix(const Imath::Matrix44<double>& a,
                                    const Imath::Matrix44<double>& b, float t) {
    Imath::V3d s1(0.0), s2(0.0), p1(0.0), p2(0.0);
    Imath::Quatd q1, q2;
    extractSRT(a, s1, q1, p1);
    extractSRT(b, s2, q2, p2);

    const double u = double(1.0f - t);
    const double w = t;
    const Imath::V3d s = s1 * u + s2 * w;
    const Imath::V3d p = p1 * u + p2 * w;
    const Imath::Quatd q = blendQuat(q1, q2, t);

    // Row vectors: scale, then rotate, then translate (M = S * R * T).
    Imath::M44d m;
    m.setTranslation(p);
    m = q.toMatrix44() * m;
    for (int row = 0; row < 3; ++row) {
        for (int col = 0; col < 4; ++col)
            m[row][col] *= s[row];
    }
    return m;
}

}  // namespace detail
}  // namespace ZeltoCore
