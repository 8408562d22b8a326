#include "core/pose/JointPose.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace ZeltoCore;
using Imath::M44d;
using Imath::Quatd;
using Imath::V3d;

TEST(JointPose, MatrixRows) {
    EXPECT_EQ(JointPose().matrix(), M44d());
    EXPECT_EQ(JointPose(Quatd(0, 1, 0, 0), V3d(1, 2, 3), V3d(2, 2, 2)).matrix(),
              M44d(2, 0, 0, 0, 0, -2, 0, 0, 0, 0, -2, 0, 1, 2, 3, 1));
    // Row i carries scale[i]; the quaternion is used as stored (|q|^2 = 4 here).
    EXPECT_EQ(JointPose(Quatd(2, 0, 0, 0), V3d(0, 0, 0), V3d(1, 2, 3)).matrix(),
              M44d(1, 0, 0, 0, 0, 2, 0, 0, 0, 0, 3, 0, 0, 0, 0, 1));
    // 120 degrees about (1, 1, 1): x -> y -> z -> x.
    EXPECT_EQ(JointPose(Quatd(0.5, 0.5, 0.5, 0.5), V3d(0, 0, 0), V3d(1, 10, 100)).matrix(),
              M44d(0, 1, 0, 0, 0, 0, 10, 0, 100, 0, 0, 0, 0, 0, 0, 1));
}

TEST(JointPose, ArchiveBytes) {
    ASSERT_EQ(JointPose::memSize(), 80u);
    Archive a(80, 0);
    a << JointPose(Quatd(0.4, 0.1, 0.2, 0.3), V3d(5, 6, 7), V3d(8, 9, 10));
    ASSERT_EQ(a.position, 80u);
    const double expected[10] = {0.1, 0.2, 0.3, 0.4, 5, 6, 7, 8, 9, 10};
    EXPECT_EQ(std::memcmp(a.data, expected, 80), 0);

    a.reset();
    JointPose back;
    a >> back;
    EXPECT_EQ(back.rotation, Quatd(0.4, 0.1, 0.2, 0.3));
    EXPECT_EQ(back.translation, V3d(5, 6, 7));
    EXPECT_EQ(back.scale, V3d(8, 9, 10));

    Archive shortArchive(79, 0);  // one byte short: the joint pose keeps its values
    std::memcpy(shortArchive.data, a.data, 79);
    JointPose kept;
    shortArchive >> kept;
    EXPECT_TRUE(shortArchive.failed());
    EXPECT_EQ(kept.matrix(), M44d());
}
