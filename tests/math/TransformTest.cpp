#include "core/math/Transform.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/support/Matchers.h"

using namespace ZeltoCore;
using Imath::M44d;
using Imath::Quatd;
using Imath::V2d;
using Imath::V3d;

namespace {

// S * R * T for row vectors.
template <class T>
Imath::Matrix44<T> srt(const Imath::Vec3<T>& s, const Imath::Quat<T>& q, const Imath::Vec3<T>& t) {
    Imath::Matrix44<T> m = q.toMatrix44();
    m.scale(s);
    m[3][0] = t.x;
    m[3][1] = t.y;
    m[3][2] = t.z;
    return m;
}

}  // namespace

TEST(ExtractSRT, RecoversComponentsOrIdentityWhenDegenerate) {
    // The second rotation is a half turn, which must survive the XYZ Euler path.
    for (const Quatd& rotation : {Quatd(0.9, 0.1, -0.3, 0.2).normalized(), Quatd(0, 1, 0, 0)}) {
        const V3d scale(1.5, 0.5, 2), translation(1, -2, 3);
        V3d s, t;
        Quatd q;
        extractSRT(srt(scale, rotation, translation), s, q, t);
        EXPECT_V3_NEAR(s, scale, 1e-12);
        EXPECT_EQ(t, translation);
        EXPECT_QUAT_NEAR(q, rotation, 1e-12);
    }

    M44d m = srt(V3d(1, 1, 1), Quatd(0.5, 0.5, 0.5, 0.5), V3d(4, 5, 6));
    m[0][0] = m[0][1] = m[0][2] = 0;
    V3d s, t(7, 8, 9);
    Quatd r(0, 0, 1, 0);
    extractSRT(m, s, r, t);
    EXPECT_EQ(r, Quatd());
    EXPECT_EQ(t, V3d(7, 8, 9));
}

TEST(ExtractSHRT, UsesTheCallersEulerOrderAndKeepsTheMatrix) {
    const Imath::Eulerd source(0.3, -0.4, 1.1, Imath::Eulerd::ZYX);
    M44d m = source.toMatrix44();
    V3d s, h, t;
    Imath::Eulerd e(0, 0, 0, Imath::Eulerd::ZYX);
    extractSHRT(m, s, h, e, t);
    EXPECT_EQ(m, source.toMatrix44());
    EXPECT_EQ(e.order(), Imath::Eulerd::ZYX);
    // Imath leaves the angles about x, y and z in the Euler's three members.
    const Imath::Eulerd asXyz(e.x, e.y, e.z, Imath::Eulerd::ZYX, Imath::Eulerd::XYZLayout);
    EXPECT_M44_NEAR(asXyz.toMatrix44(), m, 1e-12);
}

TEST(MatrixInverse, AffineProjectiveAndSingular) {
    M44d translate, expected;
    translate.setTranslation(V3d(1, 2, 3));
    expected.setTranslation(V3d(-1, -2, -3));
    EXPECT_EQ(matrixInverse(translate), expected);
    EXPECT_EQ(matrixInverse(M44d(0.0)), M44d());
    Imath::M44f zero(0.f);
    invertMatrix(zero);
    EXPECT_EQ(zero, Imath::M44f());
    const M44d projective(2, 0, 0, 0.5, 0, 1, 0, 0, 0, 0, 4, 0, 1, 2, 3, 1);
    EXPECT_M44_NEAR(matrixInverse(projective) * projective, M44d(), 1e-12);
}

TEST(SmallHelpers, MirrorAndParallel) {
    const Quatd q(0.1, 0.2, 0.3, 0.4);
    EXPECT_EQ(mirrorQuat(q, 0), Quatd(0.1, 0.2, -0.3, -0.4));
    EXPECT_EQ(mirrorQuat(q, 1), Quatd(0.1, -0.2, 0.3, -0.4));
    EXPECT_EQ(mirrorQuat(q, 2), Quatd(0.1, -0.2, -0.3, 0.4));
    EXPECT_EQ(mirrorQuat(q, 5), q);

    EXPECT_TRUE(isParallel(V3d(1, 0, 0), V3d(-2, 0, 0)));
    EXPECT_TRUE(isParallel(V3d(1, 0.001, 0), V3d(1, 0, 0)));  // |cos| = 0.9999995
    EXPECT_FALSE(isParallel(V3d(1, 0, 0), V3d(1, 0.01, 0)));  // |cos| ~ 0.99995
    EXPECT_FALSE(isParallel(V3d(0, 0, 0), V3d(0, 0, 0)));
}

TEST(CircleCircleIntersection, Results) {
    const double h = std::sqrt(0.75);
    const V2d none(-9, -9);
    auto check = [none](V2d c1, double r1, V2d c2, double r2, int result, V2d e1, V2d e2) {
        V2d p1 = none, p2 = none;
        EXPECT_EQ(circleCircleIntersection(c1, r1, c2, r2, p1, p2), result);
        EXPECT_V2_NEAR(p1, e1, 1e-15);
        EXPECT_V2_NEAR(p2, e2, 1e-15);
    };
    check(V2d(0, 0), 1, V2d(2, 0), 1, 1, V2d(1, 0), V2d(1, 0));  // touching
    check(V2d(0, 0), 1, V2d(1, 0), 1, 1, V2d(0.5, h), V2d(0.5, -h));
    check(V2d(0, 0), 1, V2d(0, 1), 1, 1, V2d(-h, 0.5), V2d(h, 0.5));  // p1 on the left
    check(V2d(0, 0), 3, V2d(1, 0), 1, 0, none, none);                 // inside
    check(V2d(0, 0), 1, V2d(5, 0), 1, 0, none, none);                 // apart
    check(V2d(1, 1), 2, V2d(1, 1), 2, 0, none, none);                 // coincident
    check(V2d(1, 1), 0, V2d(1, 1), 0, 1, V2d(1, 1), V2d(1, 1));       // one point
}

TEST(ValueBitRound, RoundsToHalf) {
    const float tie = 1.0f + 1.0f / 2048;  // rounds to the even mantissa
    const float in[] = {0.1f, 1.0f, 1.00001f, tie, 1e6f};
    const float out[] = {0.0999755859375f, 1.0f, 1.0f, 1.0f,
                         std::numeric_limits<float>::infinity()};
    for (int i = 0; i < 5; ++i) {
        for (unsigned bits : {0u, 10u, 32u})
            EXPECT_EQ(valueBitRound(in[i], bits), out[i]) << in[i];
    }
    EXPECT_TRUE(std::signbit(valueBitRound(-0.0f, 10)));
}
