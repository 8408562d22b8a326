#include "core/pose/Poser.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "tests/pose/Character.h"
#include "tests/support/Matchers.h"

using namespace ZeltoCore;
using Imath::M44d;
using Imath::M44f;
using Imath::V3d;

namespace {

// A chain 0 -> 1 -> 2 (reversed: 1 -> 2 -> 0), each joint translated by (0, 1, 0).
Skeleton chain(bool reversed) {
    Skeleton s(3);
    s[reversed ? 2 : 0].addChild(&s[reversed ? 0 : 1]);
    s[1].addChild(&s[2]);
    for (unsigned short i = 0; i < 3; ++i)
        s[i].setTranslation(V3d(0, 1, 0));
    return s;
}

}  // namespace

TEST(Poser, SingleJointAgreesWithAllJoints) {
    // Children are transformed by their parents: the quarter turn of joint 0 swings the chain.
    Skeleton line = chain(false);
    line[0].setRotation(ZeltoTest::axisAngle(V3d(0, 0, 1), M_PI / 2));
    const Poser linePoser(&line);
    const Pose linePose(&line, true);
    EXPECT_V3_NEAR(linePoser.getWorldMatrix(linePose, 2).translation(), V3d(-2, 1, 0), 1e-12);
    EXPECT_V3_NEAR(linePoser.getAllWorldMatrix(linePose)[2].translation(), V3d(-2, 1, 0), 1e-12);
    EXPECT_V3_NEAR(linePoser.getWorldBindMatrix(2).translation(), V3d(-2, 1, 0), 1e-12);

    const Skeleton s = ZeltoTest::makeCharacter();
    const Poser poser(&s);
    for (bool parentSpace : {true, false}) {
        const Pose pose = ZeltoTest::makeMovedPose(s, parentSpace);
        const std::vector<M44d> all = poser.getAllWorldMatrix(pose);
        std::vector<M44f> allFloat;
        poser.getAllWorldMatrixInPlace(pose, allFloat);
        ASSERT_TRUE(all.size() == s.numJoints() && allFloat.size() == s.numJoints());
        for (unsigned short j = 0; j < s.numJoints(); ++j) {
            EXPECT_M44_NEAR(poser.getWorldMatrix(pose, j), all[j], 1e-12);
            EXPECT_M44_NEAR(M44d(allFloat[j]), all[j], 1e-4);
        }
    }
}

TEST(Poser, BindPoseEqualities) {
    const Skeleton s = ZeltoTest::makeCharacter();
    const Poser poser(&s);
    std::vector<M44d> bind(3, M44d(2.0));  // reused: resized and overwritten
    poser.getAllWorldBindMatrixInPlace(bind);
    ASSERT_EQ(bind.size(), s.numJoints());
    EXPECT_EQ(poser.getAllWorldBindMatrix(), bind);
    Pose pose(&s, true);
    EXPECT_EQ(poser.getAllWorldMatrix(pose), bind);
    pose.convertToLocalSpace(&s);
    const std::vector<M44d> local = poser.getAllWorldMatrix(pose);
    for (unsigned short j = 0; j < s.numJoints(); ++j) {
        EXPECT_M44_NEAR(poser.getWorldBindMatrix(j), bind[j], 1e-12);
        EXPECT_M44_NEAR(local[j], bind[j], 1e-12);
    }
}

TEST(Poser, MismatchedPosesAndIds) {
    const Skeleton s = ZeltoTest::makeCharacter();
    const unsigned short n = s.numJoints();
    const Poser poser(&s);
    const Pose pose = ZeltoTest::makeMovedPose(s, true);
    EXPECT_EQ(poser.getWorldMatrix(pose, n), M44d());
    EXPECT_EQ(poser.getWorldBindMatrix(n), M44d());
    Pose bad = pose;
    poser.setWorldMatrix(bad, M44d(3.0), n);
    EXPECT_EQ(poser.getAllWorldMatrix(bad), poser.getAllWorldMatrix(pose));

    Pose tooBig;
    tooBig.setNumberJoints(n + 1);
    std::vector<M44d> out(2, M44d(5.0));
    poser.getAllWorldMatrixInPlace(tooBig, out);
    EXPECT_EQ(out, std::vector<M44d>(2, M44d(5.0)));
    std::vector<M44f> outFloat(1, M44f(5.f));
    poser.getAllWorldMatrixInPlace(tooBig, outFloat);
    EXPECT_EQ(outFloat[0], M44f(5.f));
    EXPECT_EQ(poser.getAllWorldMatrix(tooBig), std::vector<M44d>(n + 1, M44d()));
    poser.setWorldMatrix(tooBig, M44d(3.0), 0);
    EXPECT_EQ(tooBig.jointPose(0).matrix(), M44d());
}

TEST(Poser, SetWorldMatrixRoundTrips) {
    const Skeleton s = ZeltoTest::makeCharacter();
    const Poser poser(&s);
    M44d target = ZeltoTest::axisAngle(V3d(1, 1, 0), 0.7).toMatrix44();
    target.scale(V3d(1.1, 1.1, 1.1));
    target[3][0] = 0.5;
    for (bool parentSpace : {true, false}) {
        SCOPED_TRACE(parentSpace ? "parent space" : "local space");
        const Pose original = ZeltoTest::makeMovedPose(s, parentSpace);
        Pose pose = original;
        for (unsigned short j = 0; j < s.numJoints(); ++j) {
            poser.setWorldMatrix(pose, poser.getWorldMatrix(pose, j), j);
            EXPECT_M44_NEAR(pose.jointPose(j).matrix(), original.jointPose(j).matrix(), 1e-10);
        }
        // The knee reaches the target; its ancestors and the other leg stay where they were.
        const std::vector<M44d> before = poser.getAllWorldMatrix(pose);
        poser.setWorldMatrix(pose, target, 3);
        const std::vector<M44d> after = poser.getAllWorldMatrix(pose);
        EXPECT_M44_NEAR(after[3], target, 1e-10);
        for (unsigned short j : {0, 1, 2, 6, 7, 8, 9})
            EXPECT_EQ(after[j], before[j]);
        poser.setWorldMatrix(pose, target, 0);  // no parent
        EXPECT_M44_NEAR(poser.getWorldMatrix(pose, 0), target, 1e-10);
    }
}

TEST(Poser, ParentsAfterChildrenStayInBounds) {
    // Joint 0 hangs below joint 2: the one-pass form combines with what out[2] held (identity),
    // the walking form is right, and a pose that stops before the parent is never overrun.
    const Skeleton s = chain(true);
    const Poser poser(&s);
    Pose pose(&s, true);
    EXPECT_EQ(poser.getWorldMatrix(pose, 0).translation(), V3d(0, 3, 0));
    std::vector<M44d> out(3);
    poser.getAllWorldMatrixInPlace(pose, out);
    EXPECT_EQ(out[0].translation(), V3d(0, 1, 0));
    EXPECT_EQ(out[2].translation(), V3d(0, 2, 0));
    pose.setNumberJoints(2);
    pose.jointPose(0).translation = V3d(0, 1, 0);
    EXPECT_EQ(poser.getAllWorldMatrix(pose)[0].translation(), V3d(0, 1, 0));
    EXPECT_EQ(poser.getWorldMatrix(pose, 0).translation(), V3d(0, 1, 0));
}
