#include "core/math/Transform.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/support/Matchers.h"

using namespace ZeltoCore;
using Imath::M44d;
using Imath::M44f;
using Imath::Quatd;
using Imath::V2d;
using Imath::V3d;

namespace {

// S * R * T for row vectors: rows of the rotation scaled by s, translation in the last row.
template <class T>
Imath::Matrix44<T> srt(const Imath::Vec3<T>& s, const Imath::Quat<T>& q, const Imath::Vec3<T>& t) {
    Imath::Matrix44<T> m = q.toMatrix44();
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            m[i][j] *= s[i];
    m[3][0] = t.x;
    m[3][1] = t.y;
    m[3][2] = t.z;
    return m;
}

}  // namespace

TEST(ExtractSRT, RecoversScaleRotationTranslation) {
    const Quatd q = Quatd(0.9, 0.1, -0.3, 0.2).normalized();
    const V3d s(1.5, 0.5, 2.0), t(1, -2, 3);
    V3d so, to;
    Quatd qo;
    extractSRT(srt(s, q, t), so, qo, to);
    EXPECT_V3_NEAR(so, s, 1e-12);
    EXPECT_V3_NEAR(to, t, 0);
    EXPECT_QUAT_NEAR(qo, q, 1e-12);

    // A half turn about x: the XYZ Euler path must still land on the same rotation.
    const Quatd flip(0, 1, 0, 0);
    extractSRT(srt(V3d(2, 2, 2), flip, V3d(1, 2, 3)), so, qo, to);
    EXPECT_QUAT_NEAR(qo, flip, 1e-12);
    EXPECT_V3_NEAR(so, V3d(2, 2, 2), 1e-12);

    const Imath::Quatf qf = Imath::Quatf(0.8f, 0.2f, 0.4f, -0.1f).normalized();
    Imath::V3f sf, tf(9, 9, 9);
    Imath::Quatf qfo;
    extractSRT(srt(Imath::V3f(1, 2, 3), qf, Imath::V3f(4, 5, 6)), sf, qfo, tf);
    EXPECT_V3_NEAR(sf, Imath::V3f(1, 2, 3), 1e-5);
    EXPECT_V3_NEAR(tf, Imath::V3f(4, 5, 6), 0);
    EXPECT_QUAT_NEAR(qfo, qf, 1e-5);
}

TEST(ExtractSRT, DegenerateMatrixGivesIdentityRotationAndKeepsTranslation) {
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
    m[3][0] = 1;
    m[3][1] = 2;
    m[3][2] = 3;
    const M44d before = m;
    V3d s, h, t;
    Imath::Eulerd e(0, 0, 0, Imath::Eulerd::ZYX);
    extractSHRT(m, s, h, e, t);
    EXPECT_EQ(m, before);
    EXPECT_EQ(e.order(), Imath::Eulerd::ZYX);
    // Imath writes the angles about x, y and z into the Euler's three members.
    const Imath::Eulerd asXyz(e.x, e.y, e.z, Imath::Eulerd::ZYX, Imath::Eulerd::XYZLayout);
    EXPECT_M44_NEAR(asXyz.toMatrix44(), source.toMatrix44(), 1e-12);
    EXPECT_V3_NEAR(s, V3d(1, 1, 1), 1e-12);
    EXPECT_V3_NEAR(h, V3d(0, 0, 0), 1e-12);
    EXPECT_EQ(t, V3d(1, 2, 3));
}

TEST(MatrixInverse, ExactAndSingularCases) {
    M44d translate;
    translate.setTranslation(V3d(1, 2, 3));
    M44d expected;
    expected.setTranslation(V3d(-1, -2, -3));
    EXPECT_EQ(matrixInverse(translate), expected);

    M44d zero(0.0);
    EXPECT_EQ(matrixInverse(zero), M44d());
    M44f zerof(0.f);
    invertMatrix(zerof);
    EXPECT_EQ(zerof, M44f());

    // A projective matrix takes the Gauss-Jordan path.
    M44d projective(2, 0, 0, 0.5, 0, 1, 0, 0, 0, 0, 4, 0, 1, 2, 3, 1);
    EXPECT_M44_NEAR(matrixInverse(projective) * projective, M44d(), 1e-12);

    M44d affine = srt(V3d(2, 3, 4), Quatd(0.5, 0.5, -0.5, 0.5), V3d(7, -1, 2));
    M44d inv = affine;
    invertMatrix(inv);
    EXPECT_EQ(inv, matrixInverse(affine));
    EXPECT_M44_NEAR(affine * inv, M44d(), 1e-12);
}

TEST(MirrorQuat, NegatesTheTwoOtherAxes) {
    const Quatd q(0.1, 0.2, 0.3, 0.4);
    EXPECT_EQ(mirrorQuat(q, 0), Quatd(0.1, 0.2, -0.3, -0.4));
    EXPECT_EQ(mirrorQuat(q, 1), Quatd(0.1, -0.2, 0.3, -0.4));
    EXPECT_EQ(mirrorQuat(q, 2), Quatd(0.1, -0.2, -0.3, 0.4));
    EXPECT_EQ(mirrorQuat(q, 3), q);
    EXPECT_EQ(mirrorQuat(q, 5), q);
}

TEST(IsParallel, ThresholdAndZeroVectors) {
    EXPECT_TRUE(isParallel(V3d(1, 0, 0), V3d(-2, 0, 0)));
    EXPECT_TRUE(isParallel(V3d(1, 0.001, 0), V3d(1, 0, 0)));  // |cos| = 0.9999995
    EXPECT_FALSE(isParallel(V3d(1, 0, 0), V3d(1, 0.01, 0)));  // |cos| ~ 0.99995
    EXPECT_FALSE(isParallel(V3d(0, 0, 0), V3d(0, 0, 0)));
    EXPECT_FALSE(isParallel(V3d(0, 0, 0), V3d(1, 0, 0)));
}

TEST(CircleCircleIntersection, Results) {
    V2d p1(-9, -9), p2(-9, -9);
    EXPECT_EQ(circleCircleIntersection(V2d(0, 0), 1, V2d(2, 0), 1, p1, p2), 1);
    EXPECT_EQ(p1, V2d(1, 0));
    EXPECT_EQ(p2, V2d(1, 0));

    EXPECT_EQ(circleCircleIntersection(V2d(0, 0), 1, V2d(1, 0), 1, p1, p2), 1);
    EXPECT_V2_NEAR(p1, V2d(0.5, std::sqrt(0.75)), 1e-15);
    EXPECT_V2_NEAR(p2, V2d(0.5, -std::sqrt(0.75)), 1e-15);

    // p1 stays on the left when looking from c1 towards c2.
    EXPECT_EQ(circleCircleIntersection(V2d(0, 0), 1, V2d(0, 1), 1, p1, p2), 1);
    EXPECT_V2_NEAR(p1, V2d(-std::sqrt(0.75), 0.5), 1e-15);
    EXPECT_V2_NEAR(p2, V2d(std::sqrt(0.75), 0.5), 1e-15);

    // Non-meeting cases leave the outputs untouched.
    p1 = p2 = V2d(-9, -9);
    EXPECT_EQ(circleCircleIntersection(V2d(0, 0), 3, V2d(1, 0), 1, p1, p2), 0);  // inside
    EXPECT_EQ(circleCircleIntersection(V2d(0, 0), 1, V2d(5, 0), 1, p1, p2), 0);  // apart
    EXPECT_EQ(circleCircleIntersection(V2d(1, 1), 2, V2d(1, 1), 2, p1, p2), 0);  // coincident
    EXPECT_EQ(p1, V2d(-9, -9));
    EXPECT_EQ(p2, V2d(-9, -9));

    EXPECT_EQ(circleCircleIntersection(V2d(1, 1), 0, V2d(1, 1), 0, p1, p2), 1);  // one point
    EXPECT_EQ(p1, V2d(1, 1));
    EXPECT_EQ(p2, V2d(1, 1));
}

TEST(ValueBitRound, RoundsToHalf) {
    for (unsigned bits : {0u, 3u, 10u, 32u}) {
        EXPECT_EQ(valueBitRound(0.1f, bits), 0.0999755859375f);
        EXPECT_EQ(valueBitRound(1.0f, bits), 1.0f);
    }
    EXPECT_EQ(valueBitRound(1.00001f, 10), 1.0f);
    EXPECT_EQ(valueBitRound(1.0f + 1.0f / 2048, 10), 1.0f);  // tie goes to the even mantissa
    EXPECT_TRUE(std::signbit(valueBitRound(-0.0f, 10)));
    EXPECT_EQ(valueBitRound(65504.f, 10), 65504.f);
    EXPECT_EQ(valueBitRound(1e6f, 10), std::numeric_limits<float>::infinity());
    EXPECT_EQ(valueBitRound(std::ldexp(1.0f, -24), 10),
              std::ldexp(1.0f, -24));  // smallest denormal
    EXPECT_TRUE(std::isnan(valueBitRound(std::numeric_limits<float>::quiet_NaN(), 10)));
}
