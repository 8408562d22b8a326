#include "core/pose/JointPose.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "tests/support/Matchers.h"

using namespace ZeltoCore;
using Imath::M44d;
using Imath::Quatd;
using Imath::V3d;

TEST(JointPose, DefaultIsIdentity) {
    const JointPose p;
    EXPECT_EQ(p.rotation, Quatd());
    EXPECT_EQ(p.translation, V3d(0, 0, 0));
    EXPECT_EQ(p.scale, V3d(1, 1, 1));
    EXPECT_EQ(p.matrix(), M44d());
    EXPECT_EQ(JointPose::memSize(), 80u);
}

TEST(JointPose, MatrixRows) {
    const JointPose half(Quatd(0, 1, 0, 0), V3d(1, 2, 3), V3d(2, 2, 2));
    EXPECT_EQ(half.matrix(), M44d(2, 0, 0, 0, 0, -2, 0, 0, 0, 0, -2, 0, 1, 2, 3, 1));

    // Row i carries scale[i]; the quaternion is not normalised first (|q|^2 = 4 here).
    const JointPose raw(Quatd(2, 0, 0, 0), V3d(0, 0, 0), V3d(1, 2, 3));
    EXPECT_EQ(raw.matrix(), M44d(1, 0, 0, 0, 0, 2, 0, 0, 0, 0, 3, 0, 0, 0, 0, 1));

    const Quatd q(0.5, 0.5, 0.5, 0.5);  // 120 degrees about (1,1,1): x -> y -> z -> x
    const JointPose turn(q, V3d(0, 0, 0), V3d(1, 10, 100));
    EXPECT_EQ(turn.matrix(), M44d(0, 1, 0, 0, 0, 0, 10, 0, 100, 0, 0, 0, 0, 0, 0, 1));
}

TEST(JointPose, SetMatrixRoundTrips) {
    const JointPose p(Quatd(0.3, -0.2, 0.9, 0.1).normalized(), V3d(4, -5, 6), V3d(0.5, 1, 3));
    JointPose q;
    q.setMatrix(p.matrix());
    EXPECT_QUAT_NEAR(q.rotation, p.rotation, 1e-12);
    EXPECT_V3_NEAR(q.translation, p.translation, 0);
    EXPECT_V3_NEAR(q.scale, p.scale, 1e-12);
}

TEST(JointPose, ArchiveBytes) {
    const JointPose p(Quatd(0, 1, 0, 0), V3d(1, 2, 3), V3d(2, 2, 2));
    Archive a(JointPose::memSize(), 0);
    a << p;
    ASSERT_EQ(a.position, 80u);
    ASSERT_FALSE(a.failed());
    const double expected[10] = {1, 0, 0, 0, 1, 2, 3, 2, 2, 2};
    EXPECT_EQ(std::memcmp(a.data, expected, 80), 0);

    // Distinct values catch any swapped field on the way back.
    const JointPose r(Quatd(0.1, 0.2, 0.3, 0.4), V3d(5, 6, 7), V3d(8, 9, 10));
    a.reset();
    a << r;
    a.reset();
    JointPose back;
    a >> back;
    EXPECT_EQ(back.rotation, r.rotation);
    EXPECT_EQ(back.translation, r.translation);
    EXPECT_EQ(back.scale, r.scale);
    EXPECT_EQ(a.position, 80u);
}

TEST(JointPose, ShortReadLeavesPoseUnchanged) {
    Archive a(79, 0);
    std::memset(a.data, 0x7f, 79);
    JointPose p(Quatd(0, 0, 1, 0), V3d(1, 1, 1), V3d(3, 3, 3));
    a >> p;
    EXPECT_TRUE(a.failed());
    EXPECT_EQ(p.rotation, Quatd(0, 0, 1, 0));
    EXPECT_EQ(p.translation, V3d(1, 1, 1));
    EXPECT_EQ(p.scale, V3d(3, 3, 3));
}
