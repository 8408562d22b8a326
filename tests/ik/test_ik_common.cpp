// Tests of the operations the IK solvers share: chain evaluation, world rotations, write-back,
// metadata keys and the input guard.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "core/ik/FabrikIK.h"
#include "core/ik/SphereIK.h"
#include "core/ik/TwoJointsIK.h"
#include "core/ik/internal/IkCommon.h"
#include "core/ik/internal/SmallVector.h"
#include "core/metadata/MetadataImpl.h"
#include "tests/ik/IkRig.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Matchers.h"

using namespace ZeltoCore;
using namespace ZeltoTest;
using Ids = std::vector<unsigned short>;

namespace {

// The world matrix of a joint turned by q about its own world position.
M44d rotatedAboutPosition(const M44d& world, const Quatd& q) {
    M44d toOrigin, back;
    toOrigin.setTranslation(-world.translation());
    back.setTranslation(world.translation());
    return world * toOrigin * q.toMatrix44() * back;
}

}  // namespace

TEST(IkCommon, ChainWalksMatchThePoser) {
    const Skeleton s = makeLeg();
    const Poser poser(&s);
    for (bool parentSpace : {true, false}) {
        SCOPED_TRACE(parentSpace);
        const Pose pose = movedPose(s, parentSpace);
        const M44d parent = detail::parentWorldMatrix(pose, s, kHip);
        EXPECT_M44_NEAR(parent, poser.getWorldMatrix(pose, kPelvis), 1e-12);
        // A top joint as parent is taken without the poser: the same transform.
        EXPECT_M44_NEAR(detail::parentWorldMatrix(pose, s, kPelvis),
                        poser.getWorldMatrix(pose, kWorld), 1e-15);
        EXPECT_EQ(detail::parentWorldMatrix(pose, s, kWorld), M44d());
        const M44d hip = detail::localMatrix(pose, s, kHip, parentSpace) * parent;
        EXPECT_M44_NEAR(hip, poser.getWorldMatrix(pose, kHip), 1e-12);
        // The twist joint between hip and knee is not named but takes part.
        const M44d knee = detail::worldMatrixBelow(pose, s, kHip, hip, kKnee, parentSpace);
        EXPECT_M44_NEAR(knee, poser.getWorldMatrix(pose, kKnee), 1e-12);
        EXPECT_M44_NEAR(detail::worldMatrixBelow(pose, s, kKnee, knee, kToe, parentSpace),
                        poser.getWorldMatrix(pose, kToe), 1e-12);
        EXPECT_V3_NEAR(detail::worldPositionBelow(pose, s, kHip, hip, kAnkle, parentSpace),
                       poser.getWorldMatrix(pose, kAnkle).translation(), 1e-12);

        // Scaling the knee's offset moves it along the twist-to-knee line; the rest stays.
        Pose scaled = pose;
        detail::scaleJointOffset(scaled, s, kKnee, 1.5, parentSpace);
        const V3d twist = poser.getWorldMatrix(pose, kTwist).translation();
        EXPECT_V3_NEAR(worldPosition(s, scaled, kKnee), twist + (knee.translation() - twist) * 1.5,
                       1e-12);
        EXPECT_EQ(scaled.jointPose(kKnee).rotation, pose.jointPose(kKnee).rotation);
    }
    // Identity joint poses in local space are the bind pose.
    Pose identity(&s, false);
    identity.setNumberJoints(s.numJoints());
    const M44d hip = detail::localMatrix(identity, s, kHip, false) *
                     detail::parentWorldMatrix(identity, s, kHip);
    EXPECT_M44_NEAR(detail::worldMatrixBelow(identity, s, kHip, hip, kAnkle, false),
                    poser.getWorldBindMatrix(kAnkle), 1e-12);
    EXPECT_V3_NEAR(detail::bindPositionBelow(s, kHip, poser.getWorldBindMatrix(kHip), kToe),
                   poser.getWorldBindMatrix(kToe).translation(), 1e-12);
    // A chain starting at a top joint hangs under the identity.
    EXPECT_M44_NEAR(detail::parentWorldMatrix(identity, s, kWorld), M44d(), 0.0);
}

TEST(IkCommon, AffineHelpersMatchImath) {
    // A scaled, rotated, translated joint transform and one with a negative determinant.
    M44d m = Quatd(0.8, 0.2, -0.5, 0.26).normalized().toMatrix44();
    m.scale(V3d(1.5, 0.7, 2.0));
    m.setTranslation(V3d(0.3, -1.2, 4.0));
    M44d mirrored = m;
    mirrored.scale(V3d(-1, 1, 1));
    const V3d v(0.4, -2.0, 0.9);
    for (const M44d& a : {m, mirrored}) {
        V3d expected;
        a.inverse().multDirMatrix(v, expected);
        EXPECT_V3_NEAR(detail::multDirInverse(a, v), expected, 1e-12);
        // Same sums as the plain product, so the same bits.
        EXPECT_EQ(detail::multiplyAffine(a, m), a * m);
        EXPECT_EQ(detail::productTranslation(a, m), (a * m).translation());
    }
    // A singular frame leaves the direction as it is, like the identity Imath's inverse gives.
    M44d flat = m;
    flat.scale(V3d(1, 0, 1));
    EXPECT_EQ(detail::multDirInverse(flat, v), v);
}

TEST(IkCommon, WorldRotationTurnsTheJointAboutItsPosition) {
    const Skeleton s = makeLeg();
    const Poser poser(&s);
    const Quatd q = axisAngle(V3d(0.2, -1, 0.5), 0.7);
    for (bool parentSpace : {true, false}) {
        SCOPED_TRACE(parentSpace);
        Pose pose = movedPose(s, parentSpace);
        const M44d before = poser.getWorldMatrix(pose, kKnee);
        const M44d expected = rotatedAboutPosition(before, q);

        Pose byQuat = pose;
        detail::applyWorldRotation(byQuat, kKnee, before, q);
        EXPECT_M44_NEAR(poser.getWorldMatrix(byQuat, kKnee), expected, 1e-12);
        EXPECT_M44_NEAR(poser.getWorldMatrix(byQuat, kHip), poser.getWorldMatrix(pose, kHip), 0.0);

        Pose byAxis = pose;
        detail::applyWorldRotation(byAxis, kKnee, before, q.axis(), q.angle());
        EXPECT_M44_NEAR(poser.getWorldMatrix(byAxis, kKnee), expected, 1e-12);

        // Angle 0, a zero axis and the identity change nothing.
        Pose same = pose;
        detail::applyWorldRotation(same, kKnee, before, V3d(1, 0, 0), 0.0);
        detail::applyWorldRotation(same, kKnee, before, V3d(0, 0, 0), 1.0);
        detail::applyWorldRotation(same, kKnee, before, Quatd());
        EXPECT_EQ(same.jointPose(kKnee).rotation, pose.jointPose(kKnee).rotation);
    }
}

TEST(IkCommon, WritingAWorldMatrixBack) {
    const Skeleton s = makeLeg();
    const Poser poser(&s);
    for (bool parentSpace : {true, false}) {
        SCOPED_TRACE(parentSpace);
        Pose pose = movedPose(s, parentSpace);
        const M44d parent = poser.getWorldMatrix(pose, kTwist);
        const M44d knee = poser.getWorldMatrix(pose, kKnee);
        const M44d ankle = poser.getWorldMatrix(pose, kAnkle);

        detail::writeWorldMatrix(pose, s, kKnee, knee, parent, parentSpace);
        EXPECT_M44_NEAR(poser.getWorldMatrix(pose, kKnee), knee, 1e-12);
        EXPECT_M44_NEAR(poser.getWorldMatrix(pose, kAnkle), ankle, 1e-12);

        const M44d moved = rotatedAboutPosition(knee, axisAngle(V3d(1, 0, 0), 0.5));
        detail::writeWorldMatrix(pose, s, kKnee, moved, parent, parentSpace);
        EXPECT_M44_NEAR(poser.getWorldMatrix(pose, kKnee), moved, 1e-12);
        EXPECT_M44_NEAR(poser.getWorldMatrix(pose, kTwist), parent, 0.0);
    }
}

TEST(IkCommon, MetadataKeysAreReadWithoutInserting) {
    Skeleton s = makeLeg();
    EXPECT_FALSE(detail::hasSkipIk(s, kKnee));
    const detail::JointLimits defaults = detail::jointLimits(s, kKnee);
    EXPECT_EQ(defaults.min, V3d(-180));
    EXPECT_EQ(defaults.max, V3d(180));
    EXPECT_TRUE(s.jointMetadataIds().empty());

    s.addJointMetadata(kHip, "skipIk", std::make_shared<MetadataImpl<int>>(0));
    s.addJointMetadata(kKnee, "zelto_skipIk", std::make_shared<MetadataImpl<std::string>>(""));
    s.addJointMetadata(kAnkle, "jointLimitRotationMin",
                       std::make_shared<MetadataImpl<V3d>>(V3d(-10, -20, -30)));
    // The wrong type keeps the default.
    s.addJointMetadata(kAnkle, "jointLimitRotationMax",
                       std::make_shared<MetadataImpl<Imath::V3f>>(Imath::V3f(1, 2, 3)));
    EXPECT_TRUE(detail::hasSkipIk(s, kHip));
    EXPECT_TRUE(detail::hasSkipIk(s, kKnee));
    EXPECT_FALSE(detail::hasSkipIk(s, kAnkle));
    const detail::JointLimits limits = detail::jointLimits(s, kAnkle);
    EXPECT_EQ(limits.min, V3d(-10, -20, -30));
    EXPECT_EQ(limits.max, V3d(180));
    EXPECT_EQ(s.jointMetadataIds(), (Ids{kHip, kKnee, kAnkle}));
}

// The solvers' tests cover each refusal; here what they do not reach.
TEST(IkCommon, GuardRefusesLongPosesAndCyclicLinks) {
    const Skeleton s = makeLeg();
    Pose longPose = movedPose(s, false);
    longPose.setNumberJoints(kLegJoints + 1);
    Skeleton cyclic = makeLeg();
    cyclic[kPelvis].setParent(&cyclic[kAnkle]);

    LogCapture log;
    EXPECT_TRUE(detail::checkIkInput(movedPose(s, false), s, {kHip}, V3d(0), nullptr));
    EXPECT_TRUE(detail::checkIkChain(s, {kHip, kKnee, kAnkle}));
    EXPECT_FALSE(detail::checkIkInput(longPose, s, {kHip}, V3d(0), nullptr));
    EXPECT_FALSE(detail::checkIkChain(s, {kKnee, kKnee}));
    EXPECT_FALSE(detail::checkIkChain(cyclic, {kHip, kKnee}));  // instead of walking forever
    detail::ikWarning("Could not compute because of", 1, "given joints.");
    EXPECT_EQ(log.warnings,
              (std::vector<std::string>{std::string(detail::kPoseSizeWarning) + " ",
                                        std::string(detail::kNotAChainWarning) + " ",
                                        std::string(detail::kNotAChainWarning) + " ",
                                        "Could not compute because of 1 given joints. "}));
}

bool finite(const Pose& pose) {
    for (unsigned short j = 0; j < pose.numJoints(); ++j) {
        const JointPose& p = pose.jointPose(j);
        if (!std::isfinite(p.rotation.r) || !detail::isFinite(p.rotation.v) ||
            !detail::isFinite(p.translation) || !detail::isFinite(p.scale))
            return false;
    }
    return true;
}

TEST(IkCommon, ResultsThatAreNotFiniteArePutBack) {
    const Skeleton s = makeLeg();
    Pose pose = movedPose(s, false);
    const Pose before = pose;
    LogCapture log;
    {
        detail::FiniteResultGuard guard(pose, s, kHip, {kAnkle});
        pose.jointPose(kKnee).rotation.r = std::nan("");
        pose.jointPose(kHip).translation.x = 2;
    }
    EXPECT_EQ(pose.jointPose(kKnee).matrix(), before.jointPose(kKnee).matrix());
    EXPECT_EQ(pose.jointPose(kHip).translation, before.jointPose(kHip).translation);
    EXPECT_EQ(log.warnings,
              std::vector<std::string>{std::string(detail::kNotFiniteResultWarning) + " "});
}

TEST(IkCommon, GuardAndBuffersBeyondTheirInlineSize) {
    // A twelve-joint chain: the guard keeps more joint poses than it holds inline.
    Skeleton s(12);
    for (unsigned short i = 1; i < 12; ++i) {
        s[i - 1].addChild(&s[i]);
        s[i].setTranslation(V3d(0, 1, 0));
    }
    Pose pose(&s, true);
    pose.jointPose(3).translation.z = 0.5;
    const Pose before = pose;
    LogCapture log;
    {
        detail::FiniteResultGuard guard(pose, s, 0, {11});
        for (unsigned short i = 0; i < 12; ++i)
            pose.jointPose(i).translation.x = 7;
        pose.jointPose(11).scale.y = std::nan("");
    }
    for (unsigned short i = 0; i < 12; ++i)
        EXPECT_EQ(pose.jointPose(i).translation, before.jointPose(i).translation) << i;
    EXPECT_EQ(log.warnings.size(), 1u);

    detail::SmallVector<int, 4> v{1, 2, 3};
    v.resize(5);  // value-initialised, like std::vector
    for (int k = 6; k <= 10; ++k)
        v.push_back(k);  // moves to the heap at the fifth element
    v.resize(11);
    EXPECT_EQ(std::vector<int>(v.begin(), v.end()),
              (std::vector<int>{1, 2, 3, 0, 0, 6, 7, 8, 9, 10, 0}));
}

TEST(IkCommon, OverflowingInputsNeverLeaveANaN) {
    // Finite but huge: the geometry overflows inside the solve; whatever a solver computes, no
    // joint pose may come out with a value that is not finite.
    const Skeleton s = makeLeg();
    LogCapture log;
    for (const bool hugeJoint : {false, true}) {
        for (int solver = 0; solver < 6; ++solver) {
            Pose pose = movedPose(s, false);
            V3d target = hugeJoint ? V3d(0.3, -0.2, 0.1) : V3d(3.8e180, 30, 20);
            if (hugeJoint) pose.jointPose(kKnee).translation = V3d(1e300, 1e300, 0);
            V3d pole(0, 0, 1);
            switch (solver) {
                case 0:
                    solveTwoJointsIK(pose, s, target, kHip, kKnee, kAnkle, 1.0, true, 0.1, &pole);
                    break;
                case 1:
                    solveTwoJointsIKNoPoleVector(pose, s, target, kHip, kKnee, kAnkle, 1, 0, 0);
                    break;
                case 2:
                    sphereIKSolver(pose, s, target, kHip, {kTwist, kKnee}, kAnkle, &pole);
                    break;
                case 3:
                    fabrikIKSolver(pose, s, target, kHip, {kTwist, kKnee}, kAnkle, 1e-4, 20, 2,
                                   &pole);
                    break;
                case 4:
                    fabrikIKSolver2(pose, s, target, {kHip, kTwist, kKnee, kAnkle}, 1.0, 1e-4, 20,
                                    1, &pole);
                    break;
                default:
                    fabrikIK3DSolver(pose, s, target, kHip, {kKnee}, {kKnee, kAnkle}, kAnkle, 1e-4,
                                     20, 1, &pole);
                    break;
            }
            EXPECT_TRUE(finite(pose)) << "solver " << solver << (hugeJoint ? " huge knee" : "");
        }
    }
}

TEST(IkCommon, ConcurrentSolvesOnOneSkeleton) {
    // One shared skeleton, one pose per thread: the solvers keep no shared state.
    const Skeleton s = makeLeg();
    std::vector<Pose> poses(4, movedPose(s, false));
    std::vector<std::thread> threads;
    for (size_t t = 0; t < poses.size(); ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 50; ++i) {
                V3d pole(0, 0, 1);
                const V3d target(0.25, 0.1 - 0.01 * i, 0.05 * double(t));
                solveTwoJointsIK(poses[t], s, target, kHip, kKnee, kAnkle, 0.0, false, 0.0, &pole);
                fabrikIKSolver2(poses[t], s, target, {kHip, kTwist, kKnee, kAnkle}, 1.0, 1e-6, 20,
                                1, &pole);
            }
        });
    }
    for (std::thread& t : threads)
        t.join();
    for (size_t t = 1; t < poses.size(); ++t)
        EXPECT_NE(worldPosition(s, poses[t], kAnkle), worldPosition(s, poses[0], kAnkle));
}
