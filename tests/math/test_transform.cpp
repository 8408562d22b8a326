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

TEST(ExtractSRT, RecoversComponentsOrIdentityWhenDegenerate) {
    // The second rotation is a half turn, which must survive the XYZ Euler path.
    for (const Quatd& rotation : {Quatd(0.9, 0.1, -0.3, 0.2).normalized(), Quatd(0, 1, 0, 0)}) {
        const V3d scale(1.5, 0.5, 2), translation(1, -2, 3);
        V3d s, t;
        Quatd q;
        // S * R * T for row vectors.
        extractSRT(
            M44d().setScale(scale) * rotation.toMatrix44() * M44d().setTranslation(translation), s,
            q, t);
        EXPECT_V3_NEAR(s, scale, 1e-12);
        EXPECT_EQ(t, translation);
        EXPECT_M44_NEAR(q.toMatrix44(), rotation.toMatrix44(), 1e-12);
    }

    M44d m = Quatd(0.5, 0.5, 0.5, 0.5).toMatrix44();
    m[0][0] = m[0][1] = m[0][2] = 0;
    V3d s, t(7, 8, 9);
    Quatd r(0, 0, 1, 0);
    extractSRT(m, s, r, t);
    EXPECT_EQ(r, Quatd());
    EXPECT_EQ(t, V3d(7, 8, 9));
}

TEST(MatrixInverse, SingularGivesIdentity) {
    EXPECT_EQ(matrixInverse(M44d(0.0)), M44d());
    Imath::M44f zero(0.f);
    invertMatrix(zero);
    EXPECT_EQ(zero, Imath::M44f());
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
    // The same answers where squares leave the double range (huge, tiny, mixed, zero).
    for (double scale : {1e200, 1e-200}) {
        SCOPED_TRACE(scale);
        EXPECT_TRUE(isParallel(V3d(1, 0.001, 0) * scale, V3d(1, 0, 0)));
        EXPECT_FALSE(isParallel(V3d(1, 0.01, 0) * scale, V3d(1, 0, 0) * scale));
        EXPECT_TRUE(isParallel(V3d(-3, 0, 0) * scale, V3d(1, 0, 0) * scale));
        EXPECT_FALSE(isParallel(V3d(0, 0, 0), V3d(1, 0, 0) * scale));
    }
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
    check(V2d(0, 0), 1, V2d(2, 0), 1, 1, V2d(1, 0), V2d(1, 0));       // touching
    check(V2d(0, 0), 1, V2d(0, 1), 1, 1, V2d(-h, 0.5), V2d(h, 0.5));  // p1 on the left
    check(V2d(0, 0), 3, V2d(1, 0), 1, 0, none, none);                 // inside
    check(V2d(0, 0), 1, V2d(5, 0), 1, 0, none, none);                 // apart
    check(V2d(1, 1), 2, V2d(1, 1), 2, 0, none, none);                 // coincident
    check(V2d(1, 1), 0, V2d(1, 1), 0, 1, V2d(1, 1), V2d(1, 1));       // one point
}

TEST(ValueBitRound, RoundsToHalf) {
    const float tie = 1.0f + 1.0f / 2048;  // rounds to the even mantissa
    const float in[] = {0.1f, 1.00001f, tie, 1e6f};
    const float out[] = {0.0999755859375f, 1.0f, 1.0f, std::numeric_limits<float>::infinity()};
    for (int i = 0; i < 4; ++i) {
        for (unsigned bits : {0u, 10u, 32u})
            EXPECT_EQ(valueBitRound(in[i], bits), out[i]) << in[i];
    }
    EXPECT_TRUE(std::signbit(valueBitRound(-0.0f, 10)));
}
