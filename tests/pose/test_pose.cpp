// Tests of the pose subsystem: joint poses, poses and the poser, on a small test character.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <vector>

#include "core/Init.h"
#include "core/pose/Pose.h"
#include "core/pose/Poser.h"
#include "core/skeleton/Skeleton.h"
#include "tests/metadata/ValueSamples.h"
#include "tests/support/Matchers.h"

using namespace ZeltoCore;
using Imath::M44d;
using Imath::M44f;
using Imath::Quatd;
using Imath::V3d;
using Ids = std::vector<unsigned short>;

namespace {

Quatd axisAngle(const V3d& axis, double angle) {
    Quatd q;
    q.setAxisAngle(axis.normalized(), angle);
    return q;
}

// Pelvis, spine and two legs (hip, knee, ankle, toe), parents before children, every joint
// rotated, translated and uniformly scaled so that no product is trivial.
Skeleton makeCharacter() {
    Skeleton s(10);
    const unsigned short parents[] = {0, 0, 0, 2, 3, 4, 0, 6, 7, 8};
    for (unsigned short i = 0; i < 10; ++i) {
        if (i) s[parents[i]].addChild(&s[i]);
        s[i].setTranslation(V3d(i < 6 ? 1.0 : -1.0, -0.5 - i % 4, 0.1 * i));
        s[i].setRotation(axisAngle(V3d(1, 0.2 * i, 0.1), 0.1 * i - 0.3));
        s[i].setScale(V3d(1.0 + 0.1 * (i % 3)));
    }
    return s;
}

// A pose of the character with every joint moved away from its bind transform.
Pose makeMovedPose(const Skeleton& s, bool parentSpace) {
    Pose pose(&s, true);
    for (unsigned short i = 0; i < s.numJoints(); ++i) {
        JointPose& p = pose.jointPose(i);
        p.rotation = axisAngle(V3d(0.3 * i, 1, -0.2), 0.15 * (i + 1)) * p.rotation;
        p.translation += V3d(0.01 * i, -0.02, 0.03 * i);
        p.scale *= 1.0 + 0.05 * (i % 3);
    }
    pose.setInParentSpace(parentSpace);
    return pose;
}

// Joint i of poseOf(n, base) is translated by base + i on every axis.
Pose poseOf(unsigned short n, double base, const std::vector<unsigned short>& withMetadata = {}) {
    Pose p;
    p.setNumberJoints(n);
    for (unsigned short i = 0; i < n; ++i)
        p.jointPose(i).translation = V3d(base + i);
    for (unsigned short id : withMetadata)
        p.addJointMetadata(id, "k" + std::to_string(int(base) + id),
                           std::make_shared<MapMetadata>());
    return p;
}

}  // namespace

TEST(Pose, MaskedAssignmentAndActiveFlags) {
    Pose p = poseOf(3, 0);
    p.setActiveJoints({1, 0});   // wrong length: ignored
    p.setActiveJoint(3, false);  // beyond the list: ignored
    EXPECT_TRUE(p.isJointActive(1));
    p.setActiveJoints({1, 0, -1});
    EXPECT_FALSE(p.isJointActive(2));  // negative counts as inactive here
    EXPECT_TRUE(p.isJointActive(7));   // beyond the list

    Pose b = poseOf(5, 10, {1, 3});
    b.setActiveJoints({1, 1, 0, 0, -1});  // a negative flag still copies
    b.setInParentSpace(false);
    b.setDirection(V3d(0, 0, 1));
    b.addPoseMetadata("whole", std::make_shared<MapMetadata>().get());

    // Equal counts: joints 2 and 3 and their maps are kept; 0 was active and absent in b.
    Pose a = poseOf(5, 0, {0, 1, 2});
    a = b;
    const double markers[] = {10, 11, 2, 3, 14};
    for (unsigned short i = 0; i < 5; ++i)
        EXPECT_EQ(a.jointPose(i).translation.x, markers[i]);
    EXPECT_EQ(a.jointMetadataIds(), (Ids{1, 2}));
    EXPECT_TRUE(a.jointMetadata(1).hasKey("k11") && !a.jointMetadata(1).hasKey("k1"));
    EXPECT_TRUE(!a.isJointActive(2) && !a.inParentSpace());
    EXPECT_TRUE(a.getDirection() == V3d(0, 0, 1) && a.poseMetadata().hasKey("whole"));

    Pose other = poseOf(3, 0);
    other = b;
    ASSERT_EQ(other.numJoints(), 5);
    EXPECT_TRUE(other.jointPose(2).translation.x == 12 && !other.isJointActive(2));
}

TEST(Pose, SpaceConversionsRoundTrip) {
    const Skeleton s = makeCharacter();
    EXPECT_TRUE(Pose(&s, false).numJoints() == 0 && !Pose(&s, false).inParentSpace());
    Pose pose(&s, true);
    ASSERT_EQ(pose.numJoints(), s.numJoints());
    pose.convertToLocalSpace(&s);
    pose.convertToLocalSpace(&s);  // already local: nothing happens
    EXPECT_FALSE(pose.inParentSpace());
    for (unsigned short i = 0; i < pose.numJoints(); ++i)
        EXPECT_M44_NEAR(pose.jointPose(i).matrix(), Imath::M44d(), 1e-12);
    pose.convertToParentSpace(&s);
    EXPECT_TRUE(pose.inParentSpace());
    for (unsigned short i = 0; i < pose.numJoints(); ++i)
        EXPECT_M44_NEAR(pose.jointPose(i).matrix(), s[i].matrix(), 1e-12);

    Pose mismatched = poseOf(3, 1);
    mismatched.convertToLocalSpace(&s);
    EXPECT_TRUE(mismatched.inParentSpace() && mismatched.jointPose(1).translation.x == 2);
}

TEST(Pose, HashRules) {
    EXPECT_EQ(poseOf(1, 5).hash(10), 0u);
    const double r = 0.7071067811865476;
    Pose golden = poseOf(3, 0);
    golden.jointPose(1).translation = V3d(1, 2.5, -3);
    golden.jointPose(2) = JointPose(Quatd(r, 0, r, 0), V3d(0.1, 0, 0), V3d(2, 2, 2));
    const size_t expected = 0x5d734a0853395a03ull;
    EXPECT_EQ(golden.hash(10), expected);
    EXPECT_EQ(golden.hash(3), expected);  // precision is not used by the rounding

    const std::pair<std::function<void(Pose&)>, bool> changes[] = {
        {[](Pose& p) { p.jointPose(0).translation = V3d(-1, 0, 7); }, true},
        {[](Pose& p) { p.jointPose(1).translation.x = 1.00001; }, true},  // same half
        {[](Pose& p) { p.jointPose(2).translation.y = -0.0; }, true},
        {[](Pose& p) { p.jointPose(1).translation.x = 1.01; }, false},
        {[](Pose& p) { std::swap(p.jointPose(1), p.jointPose(2)); }, false},
    };
    for (size_t i = 0; i < std::size(changes); ++i) {
        Pose p = golden;
        changes[i].first(p);
        EXPECT_EQ(p.hash(10) == expected, changes[i].second) << "change " << i;
    }
}

TEST(Pose, ArchiveLayoutRoundTripVersionRuleAndDamage) {
    initZeltoCore();
    Pose p = poseOf(2, 0);
    p.jointPose(1) = JointPose(Quatd(0.5, 0.1, 0.2, 0.3), V3d(1, 2, 3), V3d(4, 5, 6));
    p.jointMetadata(1);
    p.setDirection(V3d(7, 8, 9));
    p.setActiveJoint(1, false);
    ASSERT_EQ(p.memSize(), 2u + 160 + 20 + (8 + 2) + 20 + 25);
    Archive a(p.memSize(), 0);
    a << p;
    ASSERT_EQ(a.position, p.memSize());

    const double joints[20] = {0, 0, 0, 1, 0, 0, 0, 1, 1, 1, 0.1, 0.2, 0.3, 0.5, 1, 2, 3, 4, 5, 6};
    const unsigned char emptyMap[20] = {1};
    const double direction[3] = {7, 8, 9};
    const std::vector<unsigned char> expected = ZeltoTest::bytes(
        uint16_t(2), joints, emptyMap, uint64_t(1), uint16_t(1), emptyMap, direction, uint8_t(1));
    ASSERT_EQ(expected.size(), p.memSize());
    EXPECT_EQ(std::memcmp(a.data, expected.data(), expected.size()), 0);

    for (uint64_t version : {5, 3}) {
        a.reset();
        a.version = version;
        Pose back = poseOf(4, 9, {0});
        a >> back;
        EXPECT_TRUE(!a.failed() && a.position == a.size - (version < 4));
        ASSERT_EQ(back.numJoints(), 2);
        EXPECT_EQ(back.jointPose(1).matrix(), p.jointPose(1).matrix());
        EXPECT_TRUE(back.isJointActive(1));  // flags are not stored
        EXPECT_TRUE(back.jointMetadataIds() == Ids{1} && back.getDirection() == V3d(7, 8, 9));
        EXPECT_EQ(back.inParentSpace(), version >= 4);
    }
    for (size_t length = 0; length < a.size; ++length) {
        Archive cut(length, 0);
        if (length) std::memcpy(cut.data, a.data, length);
        Pose back = poseOf(4, 9, {0});
        cut >> back;
        EXPECT_TRUE(cut.failed()) << "truncated to " << length;
        EXPECT_EQ(back.numJoints(), 4) << "a damaged stream keeps the held pose";
    }

    // Counts far beyond the bytes that follow: 65535 joints, 2^60 joint-metadata entries.
    Archive absurd(Pose().memSize(), 0);
    absurd << Pose();
    const uint64_t entries = 1ull << 60;
    std::memcpy(absurd.data + 2 + 20, &entries, 8);
    for (const uint16_t joints : {uint16_t(0), uint16_t(0xffff)}) {
        std::memcpy(absurd.data, &joints, 2);
        absurd.reset();
        Pose back = poseOf(2, 0, {1});
        absurd >> back;
        EXPECT_TRUE(absurd.failed());
        EXPECT_EQ(back.numJoints(), 2);
        EXPECT_EQ(back.jointMetadataIds(), Ids{1});
    }
}

TEST(Pose, MovesTakeFullPosesAndKeepTheMaskOtherwise) {
    Pose full = poseOf(3, 2, {1});
    full.setDirection(V3d(1, 2, 3));
    const JointPose second = full.jointPose(2);
    Pose moved(std::move(full));
    EXPECT_EQ(moved.numJoints(), 3);
    EXPECT_EQ(moved.jointPose(2).matrix(), second.matrix());
    EXPECT_EQ(moved.getDirection(), V3d(1, 2, 3));

    // With a joint inactive in the source, a move assignment is the masked assignment.
    Pose target = poseOf(3, 5);
    const JointPose kept = target.jointPose(1);
    Pose masked = poseOf(3, 2);
    masked.setActiveJoint(1, false);
    target = std::move(masked);
    EXPECT_EQ(target.jointPose(1).matrix(), kept.matrix());
    EXPECT_EQ(target.jointPose(2).matrix(), second.matrix());
}

TEST(JointPose, MatrixRows) {
    EXPECT_EQ(JointPose(Quatd(0, 1, 0, 0), V3d(1, 2, 3), V3d(2, 2, 2)).matrix(),
              M44d(2, 0, 0, 0, 0, -2, 0, 0, 0, 0, -2, 0, 1, 2, 3, 1));
    // Row i carries scale[i]; the quaternion is used as stored (|q|^2 = 4 here).
    EXPECT_EQ(JointPose(Quatd(2, 0, 0, 0), V3d(0, 0, 0), V3d(1, 2, 3)).matrix(),
              M44d(1, 0, 0, 0, 0, 2, 0, 0, 0, 0, 3, 0, 0, 0, 0, 1));
    // 120 degrees about (1, 1, 1): x -> y -> z -> x.
    EXPECT_EQ(JointPose(Quatd(0.5, 0.5, 0.5, 0.5), V3d(0, 0, 0), V3d(1, 10, 100)).matrix(),
              M44d(0, 1, 0, 0, 0, 0, 10, 0, 100, 0, 0, 0, 0, 0, 0, 1));
}

TEST(Poser, ChildrenFollowTheirParents) {
    // The quarter turn of joint 0 swings the chain, in every form of the poser.
    // A chain 0 -> 1 -> 2, each joint translated by (0, 1, 0).
    Skeleton line(3);
    for (unsigned short i = 0; i < 3; ++i) {
        line[i].setTranslation(V3d(0, 1, 0));
        if (i) line[i - 1].addChild(&line[i]);
    }
    line[0].setRotation(axisAngle(V3d(0, 0, 1), M_PI / 2));
    const Poser linePoser(&line);
    const Pose linePose(&line, true);
    EXPECT_V3_NEAR(linePoser.getWorldMatrix(linePose, 2).translation(), V3d(-2, 1, 0), 1e-12);
    EXPECT_V3_NEAR(linePoser.getAllWorldMatrix(linePose)[2].translation(), V3d(-2, 1, 0), 1e-12);
    EXPECT_V3_NEAR(linePoser.getWorldBindMatrix(2).translation(), V3d(-2, 1, 0), 1e-12);

    // The identity in local space is the bind pose.
    const Skeleton s = makeCharacter();
    const Poser poser(&s);
    Pose bindLocal(&s, true);
    bindLocal.convertToLocalSpace(&s);
    const std::vector<M44d> bind = poser.getAllWorldBindMatrix(),
                            world = poser.getAllWorldMatrix(bindLocal);
    for (unsigned short j = 0; j < s.numJoints(); ++j)
        EXPECT_M44_NEAR(world[j], bind[j], 1e-12);
}

TEST(Poser, MismatchedPosesAndIdsChangeNothing) {
    const Skeleton s = makeCharacter();
    const unsigned short n = s.numJoints();
    const Poser poser(&s);
    Pose pose = makeMovedPose(s, true);
    EXPECT_TRUE(poser.getWorldMatrix(pose, n) == M44d() && poser.getWorldBindMatrix(n) == M44d());
    const std::vector<M44d> before = poser.getAllWorldMatrix(pose);
    poser.setWorldMatrix(pose, M44d(3.0), n);
    EXPECT_EQ(poser.getAllWorldMatrix(pose), before);

    pose.setNumberJoints(n + 1);
    std::vector<M44f> out(1, M44f(5.f));
    poser.getAllWorldMatrixInPlace(pose, out);
    EXPECT_EQ(out, std::vector<M44f>(1, M44f(5.f)));
    EXPECT_EQ(poser.getAllWorldMatrix(pose), std::vector<M44d>(n + 1, M44d()));
    poser.setWorldMatrix(pose, M44d(3.0), 0);
    EXPECT_EQ(pose.jointPose(0).matrix(), M44d());
}

TEST(Poser, SetWorldMatrixRoundTrips) {
    const Skeleton s = makeCharacter();
    const Poser poser(&s);
    M44d target = axisAngle(V3d(1, 1, 0), 0.7).toMatrix44();
    target.scale(V3d(1.1, 1.1, 1.1));
    target[3][0] = 0.5;
    for (bool parentSpace : {true, false}) {
        SCOPED_TRACE(parentSpace ? "parent space" : "local space");
        const Pose original = makeMovedPose(s, parentSpace);
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
