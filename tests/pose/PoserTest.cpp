#include "core/pose/Poser.h"

#include <gtest/gtest.h>

#include <vector>

#include "core/math/Transform.h"
#include "tests/pose/Character.h"
#include "tests/support/Matchers.h"

using namespace ZeltoCore;
using Imath::M44d;
using Imath::M44f;
using Imath::Quatd;
using Imath::V3d;

TEST(Poser, ChainTranslationsAccumulate) {
    Skeleton s(3);
    s[0].addChild(&s[1]);
    s[1].addChild(&s[2]);
    for (unsigned short i = 0; i < 3; ++i)
        s[i].setTranslation(V3d(0, 1, 0));
    const Poser poser(&s);
    EXPECT_EQ(poser.skeleton(), &s);
    const Pose pose(&s, true);
    EXPECT_EQ(poser.getWorldMatrix(pose, 2).translation(), V3d(0, 3, 0));
    EXPECT_EQ(poser.getAllWorldMatrix(pose)[2].translation(), V3d(0, 3, 0));
    EXPECT_EQ(poser.getWorldBindMatrix(2).translation(), V3d(0, 3, 0));
}

TEST(Poser, SingleJointAgreesWithAllJoints) {
    const Skeleton s = ZeltoTest::makeCharacter();
    const Poser poser(&s);
    for (bool parentSpace : {true, false}) {
        const Pose pose = ZeltoTest::makeMovedPose(s, parentSpace);
        const std::vector<M44d> all = poser.getAllWorldMatrix(pose);
        ASSERT_EQ(all.size(), s.numJoints());
        std::vector<M44f> allFloat;
        poser.getAllWorldMatrixInPlace(pose, allFloat);
        ASSERT_EQ(allFloat.size(), s.numJoints());
        for (unsigned short j = 0; j < s.numJoints(); ++j) {
            EXPECT_M44_NEAR(poser.getWorldMatrix(pose, j), all[j], 1e-12);
            EXPECT_M44_NEAR(M44d(allFloat[j]), all[j], 1e-4);
        }
        // The local-space pose really is relative to the bind: joint 4's world differs.
        if (!parentSpace) {
            const Pose asParent = ZeltoTest::makeMovedPose(s, true);
            EXPECT_GT(
                (all[4].translation() - poser.getWorldMatrix(asParent, 4).translation()).length(),
                0.1);
        }
    }
}

TEST(Poser, BindPoseEqualities) {
    const Skeleton s = ZeltoTest::makeCharacter();
    const Poser poser(&s);
    const std::vector<M44d> bind = poser.getAllWorldBindMatrix();
    ASSERT_EQ(bind.size(), s.numJoints());

    Pose pose(&s, true);
    EXPECT_EQ(poser.getAllWorldMatrix(pose), bind);
    for (unsigned short j = 0; j < s.numJoints(); ++j)
        EXPECT_M44_NEAR(poser.getWorldBindMatrix(j), bind[j], 1e-12);

    pose.convertToLocalSpace(&s);
    const std::vector<M44d> local = poser.getAllWorldMatrix(pose);
    for (unsigned short j = 0; j < s.numJoints(); ++j)
        EXPECT_M44_NEAR(local[j], bind[j], 1e-12);

    std::vector<M44d> reused(3, M44d(2.0));
    poser.getAllWorldBindMatrixInPlace(reused);
    EXPECT_EQ(reused, bind);
}

TEST(Poser, Guards) {
    const Skeleton s = ZeltoTest::makeCharacter();
    const Poser poser(&s);
    const Pose pose = ZeltoTest::makeMovedPose(s, true);
    EXPECT_EQ(poser.getWorldMatrix(pose, s.numJoints()), M44d());
    EXPECT_EQ(poser.getWorldBindMatrix(s.numJoints()), M44d());
    EXPECT_EQ(poser.getWorldMatrix(Pose(), 0), M44d());

    // A pose with more joints than the skeleton.
    Pose tooBig;
    tooBig.setNumberJoints(s.numJoints() + 1);
    tooBig.jointPose(0).translation = V3d(1, 2, 3);
    std::vector<M44d> out(2, M44d(5.0));
    poser.getAllWorldMatrixInPlace(tooBig, out);
    EXPECT_EQ(out, std::vector<M44d>(2, M44d(5.0)));
    std::vector<M44f> outFloat(1, M44f(5.f));
    poser.getAllWorldMatrixInPlace(tooBig, outFloat);
    EXPECT_EQ(outFloat, std::vector<M44f>(1, M44f(5.f)));
    EXPECT_EQ(poser.getAllWorldMatrix(tooBig), std::vector<M44d>(s.numJoints() + 1, M44d()));
    EXPECT_EQ(poser.getWorldMatrix(tooBig, 0), M44d());
    Pose unchanged = tooBig;
    poser.setWorldMatrix(unchanged, M44d(3.0), 0);
    EXPECT_EQ(unchanged.jointPose(0).translation, V3d(1, 2, 3));

    // A shorter pose covers its own joints only.
    Pose shorter = pose;
    shorter.setNumberJoints(4);
    EXPECT_EQ(poser.getAllWorldMatrix(shorter).size(), 4u);
    EXPECT_EQ(poser.getWorldMatrix(shorter, 5), M44d());

    Pose bad = pose;
    poser.setWorldMatrix(bad, M44d(3.0), s.numJoints());
    for (unsigned short j = 0; j < s.numJoints(); ++j)
        EXPECT_EQ(bad.jointPose(j).translation, pose.jointPose(j).translation);
}

TEST(Poser, SetWorldMatrixRoundTrips) {
    const Skeleton s = ZeltoTest::makeCharacter();
    const Poser poser(&s);
    for (bool parentSpace : {true, false}) {
        SCOPED_TRACE(parentSpace ? "parent space" : "local space");
        const Pose original = ZeltoTest::makeMovedPose(s, parentSpace);
        Pose pose = original;

        // Writing back a joint's own world matrix leaves its transform as it was.
        for (unsigned short j = 0; j < s.numJoints(); ++j) {
            poser.setWorldMatrix(pose, poser.getWorldMatrix(pose, j), j);
            EXPECT_QUAT_NEAR(pose.jointPose(j).rotation, original.jointPose(j).rotation, 1e-10);
            EXPECT_V3_NEAR(pose.jointPose(j).translation, original.jointPose(j).translation, 1e-10);
            EXPECT_V3_NEAR(pose.jointPose(j).scale, original.jointPose(j).scale, 1e-10);
        }

        // A new world matrix for the knee: reached, with the ancestors and others unchanged.
        const std::vector<M44d> before = poser.getAllWorldMatrix(pose);
        M44d target = ZeltoTest::axisAngle(V3d(1, 1, 0), 0.7).toMatrix44();
        target.scale(V3d(1.1, 1.1, 1.1));
        target[3][0] = 0.5;
        target[3][1] = 4;
        target[3][2] = -1;
        poser.setWorldMatrix(pose, target, 3);
        const std::vector<M44d> after = poser.getAllWorldMatrix(pose);
        EXPECT_M44_NEAR(after[3], target, 1e-10);
        EXPECT_M44_NEAR(poser.getWorldMatrix(pose, 3), target, 1e-10);
        for (unsigned short j : {0, 1, 2, 6, 7, 8, 9})
            EXPECT_EQ(after[j], before[j]);

        // A joint without parent takes the matrix directly (times the inverse bind in local space).
        poser.setWorldMatrix(pose, target, 0);
        EXPECT_M44_NEAR(poser.getWorldMatrix(pose, 0), target, 1e-10);
    }
}

TEST(Poser, ParentsAfterChildrenStayInBounds) {
    // Joint 0 hangs below joint 2: the one-pass forms read whatever out[2] held, the walking
    // form is still right, and a pose that stops before the parent never reads past its end.
    Skeleton s(3);
    s[2].addChild(&s[0]);
    s[1].addChild(&s[2]);
    for (unsigned short i = 0; i < 3; ++i)
        s[i].setTranslation(V3d(0, 1, 0));
    const Poser poser(&s);
    const Pose pose(&s, true);
    EXPECT_EQ(poser.getWorldMatrix(pose, 0).translation(), V3d(0, 3, 0));
    std::vector<M44d> out(3);  // identities: joint 0 combines with an identity
    poser.getAllWorldMatrixInPlace(pose, out);
    EXPECT_EQ(out[0].translation(), V3d(0, 1, 0));
    EXPECT_EQ(out[2].translation(), V3d(0, 2, 0));

    Pose shorter = pose;
    shorter.setNumberJoints(2);
    shorter.jointPose(0).translation = V3d(0, 1, 0);
    EXPECT_EQ(poser.getAllWorldMatrix(shorter)[0].translation(), V3d(0, 1, 0));
    EXPECT_EQ(poser.getWorldMatrix(shorter, 0).translation(), V3d(0, 1, 0));
}
