#include "core/math/Transform.h"

#include <Imath/ImathMatrixAlgo.h>
#include <Imath/half.h>

#include <algorithm>
#include <cmath>

namespace ZeltoCore {

namespace {

template <class T>
void extractSRTImpl(const Imath::Matrix44<T>& m, Imath::Vec3<T>& s, Imath::Quat<T>& r,
                    Imath::Vec3<T>& t) {
    // Going through XYZ Euler angles (rather than a direct matrix-to-quaternion conversion) keeps
    // the rotation identical to what the rest of the toolkit extracts from the same matrix.
    Imath::Euler<T> euler(T(0), T(0), T(0), Imath::Euler<T>::XYZ);
    Imath::Vec3<T> shear;
    Imath::extractSHRT(m, s, shear, euler, t, false);
    r = euler.toQuat();
}

}  // namespace

void extractSRT(const Imath::Matrix44<float>& m, Imath::Vec3<float>& s, Imath::Quat<float>& r,
                Imath::Vec3<float>& t) {
    extractSRTImpl(m, s, r, t);
}

void extractSRT(const Imath::Matrix44<double>& m, Imath::Vec3<double>& s, Imath::Quat<double>& r,
                Imath::Vec3<double>& t) {
    extractSRTImpl(m, s, r, t);
}

void extractSHRT(Imath::Matrix44<float>& m, Imath::Vec3<float>& s, Imath::Vec3<float>& h,
                 Imath::Euler<float>& r, Imath::Vec3<float>& t) {
    Imath::extractSHRT(m, s, h, r, t, false);
}

void extractSHRT(Imath::Matrix44<double>& m, Imath::Vec3<double>& s, Imath::Vec3<double>& h,
                 Imath::Euler<double>& r, Imath::Vec3<double>& t) {
    Imath::extractSHRT(m, s, h, r, t, false);
}

Imath::Matrix44<float> matrixInverse(const Imath::Matrix44<float>& m) {
    return m.inverse();
}

Imath::Matrix44<double> matrixInverse(const Imath::Matrix44<double>& m) {
    return m.inverse();
}

void invertMatrix(Imath::Matrix44<float>& m) {
    m = matrixInverse(m);
}

void invertMatrix(Imath::Matrix44<double>& m) {
    m = matrixInverse(m);
}

Imath::Quat<double> mirrorQuat(const Imath::Quat<double>& q, unsigned int axis) {
    Imath::Quat<double> out = q;
    switch (axis) {
        case 0:
            out.v.y = -out.v.y;
            out.v.z = -out.v.z;
            break;
        case 1:
            out.v.x = -out.v.x;
            out.v.z = -out.v.z;
            break;
        case 2:
            out.v.x = -out.v.x;
            out.v.y = -out.v.y;
            break;
        default:
            break;
    }
    return out;
}

bool isParallel(const Imath::Vec3<double>& a, const Imath::Vec3<double>& b) {
    // Compared squared where the squares and their product stay in the normal range, which
    // spares two roots and six divisions. Elsewhere through unit vectors, each first divided by
    // its largest component so that its length neither overflows nor underflows; a zero or
    // non-finite vector is parallel to nothing.
    constexpr double k = 0.99999, lo = 1e-140, hi = 1e140;
    const double aa = a ^ a, bb = b ^ b;
    if (aa > lo && aa < hi && bb > lo && bb < hi) {
        const double ab = a ^ b;
        return ab * ab > k * k * aa * bb;
    }
    const auto unit = [](const Imath::Vec3<double>& v) {
        const double m = std::max(std::abs(v.x), std::max(std::abs(v.y), std::abs(v.z)));
        return m > 0.0 && std::isfinite(m) ? (v / m).normalized() : Imath::Vec3<double>(0.0);
    };
    return std::abs(unit(a) ^ unit(b)) > k;
}

int circleCircleIntersection(const Imath::Vec2<double>& c1, double r1,
                             const Imath::Vec2<double>& c2, double r2, Imath::Vec2<double>& p1,
                             Imath::Vec2<double>& p2) {
    const double dx = c2.x - c1.x;
    const double dy = c2.y - c1.y;
    const double d = std::sqrt(dx * dx + dy * dy);
    if (d > r1 + r2) return 0;
    if (std::abs(r1 - r2) > d) return 0;
    if (d == 0.0) {
        // Only equal radii get here. Circles of positive radius coincide along their whole length;
        // radius 0 is one shared point.
        if (r1 != 0.0) return 0;
        p1 = c1;
        p2 = c1;
        return 1;
    }
    const double a = (r1 * r1 - r2 * r2 + d * d) / (2.0 * d);
    const double px = c1.x + a * dx / d;
    const double py = c1.y + a * dy / d;
    // Touching circles can leave r1^2 - a^2 a rounding error below zero; they meet in one point.
    const double k = std::sqrt(std::max(0.0, r1 * r1 - a * a)) / d;
    p1 = Imath::Vec2<double>(px - dy * k, py + dx * k);
    p2 = Imath::Vec2<double>(px + dy * k, py - dx * k);
    return 1;
}

float valueBitRound(float value, unsigned int /*bits*/) {
    return float(Imath::half(value));
}

}  // namespace ZeltoCore
