#include "core/pose/Pose.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "core/Init.h"
#include "tests/pose/Character.h"
#include "tests/support/Matchers.h"

using namespace ZeltoCore;
using Imath::Quatd;
using Imath::V3d;
using Ids = std::vector<unsigned short>;

namespace {

JointPose marked(double v) {
    return JointPose(Quatd(1, 0, 0, 0), V3d(v, v, v), V3d(1, 1, 1));
}

Pose poseOf(unsigned short n, double base) {
    Pose p;
    p.setNumberJoints(n);
    for (unsigned short i = 0; i < n; ++i)
        p.setJointPose(i, marked(base + i));
    return p;
}

std::shared_ptr<MapMetadata> tagged(const std::string& key) {
    auto bag = std::make_shared<MapMetadata>();
    bag->insertEntry(key, std::make_shared<MapMetadata>());
    return bag;
}

void expectSameJoint(const JointPose& a, const JointPose& b) {
    EXPECT_EQ(a.rotation, b.rotation);
    EXPECT_EQ(a.translation, b.translation);
    EXPECT_EQ(a.scale, b.scale);
}

}  // namespace

TEST(Pose, ConstructorsAndFlags) {
    const Skeleton s = ZeltoTest::makeCharacter();
    EXPECT_TRUE(Pose().inParentSpace());
    const Pose unfilled(&s, false);
    EXPECT_EQ(unfilled.numJoints(), 0);
    EXPECT_FALSE(unfilled.inParentSpace());
    const Pose bind(&s, true);
    ASSERT_EQ(bind.numJoints(), s.numJoints());
    EXPECT_TRUE(bind.inParentSpace());
    EXPECT_EQ(bind.jointPose(4).rotation, s[4].rotation());
    EXPECT_EQ(bind.jointPose(4).translation, s[4].translation());
    EXPECT_EQ(bind.jointPose(1).scale, s[1].scale());

    Pose p = poseOf(3, 0);
    p.setActiveJoints({1, 0});  // wrong length: ignored
    EXPECT_TRUE(p.isJointActive(1));
    p.setActiveJoints({1, 0, -1});
    EXPECT_FALSE(p.isJointActive(2));  // negative counts as inactive here
    EXPECT_TRUE(p.isJointActive(7));   // beyond the list
    p.setNumberJoints(4);
    EXPECT_TRUE(p.isJointActive(1) && p.isJointActive(2) && p.isJointActive(3));
}

TEST(PoseAssignment, InactiveJointsKeptOnlyWithEqualCounts) {
    Pose b = poseOf(4, 10);
    b.setActiveJoint(2, false);
    b.setInParentSpace(false);
    b.setDirection(V3d(0, 0, 1));
    b.addPoseMetadata("whole", tagged("x").get());

    Pose same = poseOf(4, 0);
    same = b;
    expectSameJoint(same.jointPose(2), marked(2));
    expectSameJoint(same.jointPose(3), marked(13));
    EXPECT_FALSE(same.isJointActive(2));
    EXPECT_FALSE(same.inParentSpace());
    EXPECT_EQ(same.getDirection(), V3d(0, 0, 1));
    EXPECT_TRUE(same.poseMetadata().hasKey("whole"));

    Pose other = poseOf(3, 0);
    other = b;
    ASSERT_EQ(other.numJoints(), 4);
    expectSameJoint(other.jointPose(2), marked(12));
    EXPECT_FALSE(other.isJointActive(2));

    // Negative flags are inactive for isJointActive but still copied by assignment.
    b.setActiveJoints({1, 1, -1, 1});
    Pose negative = poseOf(4, 0);
    negative = b;
    expectSameJoint(negative.jointPose(2), marked(12));
}

TEST(PoseAssignment, JointMetadataFollowsTheMask) {
    Pose b = poseOf(5, 0);
    b.addJointMetadata(1, "b1", tagged("x"));
    b.addJointMetadata(3, "b3", tagged("x"));
    b.setActiveJoint(2, false);
    b.setActiveJoint(3, false);

    Pose a = poseOf(5, 0);
    a.addJointMetadata(2, "a2", tagged("x"));  // inactive in b: kept
    a.addJointMetadata(4, "a4", tagged("x"));  // active in b, absent there: removed
    a.addJointMetadata(1, "a1", tagged("x"));
    a = b;
    EXPECT_EQ(a.jointMetadataIds(), (Ids{1, 2}));
    EXPECT_TRUE(a.jointMetadata(1).hasKey("b1"));
    EXPECT_FALSE(a.jointMetadata(1).hasKey("a1"));
    EXPECT_TRUE(a.jointMetadata(2).hasKey("a2"));
    // The entry is a copy.
    EXPECT_NE(a.jointMetadata(1).getEntry("b1"), b.jointMetadata(1).getEntry("b1"));

    // Removal only runs when the entry counts differ after copying.
    Pose c = poseOf(5, 0);
    c.addJointMetadata(4, "c4", tagged("x"));
    Pose d = poseOf(5, 0);
    d.addJointMetadata(3, "d3", tagged("x"));
    d.setActiveJoint(3, false);
    c = d;
    EXPECT_EQ(c.jointMetadataIds(), (Ids{4}));
}

TEST(Pose, SpaceConversionsRoundTrip) {
    const Skeleton s = ZeltoTest::makeCharacter();
    Pose pose(&s, true);
    pose.convertToLocalSpace(&s);
    EXPECT_FALSE(pose.inParentSpace());
    for (unsigned short i = 0; i < pose.numJoints(); ++i) {
        EXPECT_QUAT_NEAR(pose.jointPose(i).rotation, Quatd(), 1e-12);
        EXPECT_V3_NEAR(pose.jointPose(i).translation, V3d(0, 0, 0), 1e-12);
        EXPECT_V3_NEAR(pose.jointPose(i).scale, V3d(1, 1, 1), 1e-12);
    }
    const Pose local = pose;
    pose.convertToLocalSpace(&s);  // already local: nothing happens
    for (unsigned short i = 0; i < pose.numJoints(); ++i)
        expectSameJoint(pose.jointPose(i), local.jointPose(i));

    pose.convertToParentSpace(&s);
    EXPECT_TRUE(pose.inParentSpace());
    for (unsigned short i = 0; i < pose.numJoints(); ++i) {
        EXPECT_QUAT_NEAR(pose.jointPose(i).rotation, s[i].rotation(), 1e-12);
        EXPECT_V3_NEAR(pose.jointPose(i).translation, s[i].translation(), 1e-12);
        EXPECT_V3_NEAR(pose.jointPose(i).scale, s[i].scale(), 1e-12);
    }

    // A moved pose survives the trip too.
    Pose moved = ZeltoTest::makeMovedPose(s, true);
    const Pose original = moved;
    moved.convertToLocalSpace(&s);
    moved.convertToParentSpace(&s);
    for (unsigned short i = 0; i < moved.numJoints(); ++i) {
        EXPECT_QUAT_NEAR(moved.jointPose(i).rotation, original.jointPose(i).rotation, 1e-12);
        EXPECT_V3_NEAR(moved.jointPose(i).translation, original.jointPose(i).translation, 1e-12);
    }

    Pose mismatched = poseOf(3, 1);
    mismatched.convertToLocalSpace(&s);
    EXPECT_TRUE(mismatched.inParentSpace());
    expectSameJoint(mismatched.jointPose(1), marked(2));
}

TEST(PoseHash, Rules) {
    EXPECT_EQ(poseOf(0, 0).hash(10), 0u);
    EXPECT_EQ(poseOf(1, 5).hash(10), 0u);

    const double r = 0.7071067811865476;
    Pose golden;
    golden.setNumberJoints(3);
    golden.jointPose(0).translation = V3d(5, 5, 5);
    golden.jointPose(1).translation = V3d(1, 2.5, -3);
    golden.jointPose(2) = JointPose(Quatd(r, 0, r, 0), V3d(0.1, 0, 0), V3d(2, 2, 2));
    EXPECT_EQ(golden.hash(10), 0x5d734a0853395a03ull);
    EXPECT_EQ(golden.hash(3), golden.hash(10));  // precision is not used by the rounding

    Pose joint0 = golden;
    joint0.jointPose(0).translation = V3d(-1, 0, 7);
    EXPECT_EQ(joint0.hash(10), golden.hash(10));

    Pose tiny = golden;
    tiny.jointPose(1).translation.x = 1.00001;
    EXPECT_EQ(tiny.hash(10), golden.hash(10));

    Pose negativeZero = golden;
    negativeZero.jointPose(2).translation.y = -0.0;
    EXPECT_EQ(negativeZero.hash(10), golden.hash(10));

    Pose moved = golden;
    moved.jointPose(1).translation.x = 1.01;
    EXPECT_NE(moved.hash(10), golden.hash(10));

    Pose swapped = golden;  // same values, other order: the hash is order sensitive
    std::swap(swapped.jointPose(1), swapped.jointPose(2));
    EXPECT_NE(swapped.hash(10), golden.hash(10));
}

TEST(PoseArchive, ByteLayoutAndMemSize) {
    Pose empty;
    EXPECT_EQ(empty.memSize(), 2u + MapMetadata().memSize() + 8 + 25);

    Pose p;
    p.setNumberJoints(2);
    p.jointPose(1) = JointPose(Quatd(0.5, 0.1, 0.2, 0.3), V3d(1, 2, 3), V3d(4, 5, 6));
    p.jointMetadata(1);
    p.setDirection(V3d(7, 8, 9));
    ASSERT_EQ(p.memSize(), 2u + 160 + 20 + (8 + 2) + 20 + 25);

    Archive a(p.memSize(), 0);
    a << p;
    ASSERT_FALSE(a.failed());
    ASSERT_EQ(a.position, p.memSize());

    std::vector<unsigned char> expected;
    auto put = [&expected](const void* src, size_t n) {
        const auto* b = static_cast<const unsigned char*>(src);
        expected.insert(expected.end(), b, b + n);
    };
    const uint16_t count = 2;
    put(&count, 2);
    const double joints[20] = {0, 0, 0, 1, 0, 0, 0, 1, 1, 1, 0.1, 0.2, 0.3, 0.5, 1, 2, 3, 4, 5, 6};
    put(joints, sizeof(joints));
    const unsigned char emptyMap[20] = {1};
    put(emptyMap, 20);
    const uint64_t entries = 1;
    put(&entries, 8);
    const uint16_t id = 1;
    put(&id, 2);
    put(emptyMap, 20);
    const double direction[3] = {7, 8, 9};
    put(direction, 24);
    expected.push_back(1);
    ASSERT_EQ(expected.size(), p.memSize());
    EXPECT_EQ(std::memcmp(a.data, expected.data(), expected.size()), 0);

    // Too little room: nothing is written.
    Archive small(p.memSize() - 1, 0);
    small << p;
    EXPECT_TRUE(small.failed());
    EXPECT_EQ(small.position, 0u);
}

TEST(PoseArchive, RoundTripAndVersionRule) {
    initZeltoCore();
    const Skeleton s = ZeltoTest::makeCharacter();
    Pose p = ZeltoTest::makeMovedPose(s, true);
    p.addPoseMetadata("whole", tagged("x").get());
    p.addJointMetadata(4, "ankle", tagged("y"));
    p.setDirection(V3d(0, 0, -1));
    p.setActiveJoint(3, false);

    Archive a(p.memSize(), 0);
    a << p;
    a.reset();
    Pose back = poseOf(2, 0);
    a >> back;
    ASSERT_FALSE(a.failed());
    EXPECT_EQ(a.position, a.size);
    ASSERT_EQ(back.numJoints(), p.numJoints());
    for (unsigned short i = 0; i < p.numJoints(); ++i) {
        expectSameJoint(back.jointPose(i), p.jointPose(i));
        EXPECT_TRUE(back.isJointActive(i));  // flags are not stored
    }
    EXPECT_TRUE(back.poseMetadata().hasKey("whole"));
    EXPECT_EQ(back.jointMetadataIds(), (Ids{4}));
    EXPECT_TRUE(back.jointMetadata(4).hasKey("ankle"));
    EXPECT_EQ(back.getDirection(), V3d(0, 0, -1));
    EXPECT_TRUE(back.inParentSpace());
    EXPECT_EQ(back.hash(10), p.hash(10));

    a.reset();
    a.version = 3;
    Pose old;
    a >> old;
    EXPECT_FALSE(a.failed());
    EXPECT_FALSE(old.inParentSpace());
    EXPECT_EQ(a.position, a.size - 1);
}

TEST(PoseArchive, DamagedInputFailsCleanly) {
    initZeltoCore();
    Pose p = poseOf(3, 1);
    p.addPoseMetadata("whole", tagged("x").get());
    p.addJointMetadata(2, "j", tagged("y"));
    Archive full(p.memSize(), 0);
    full << p;

    for (size_t length = 0; length < full.size; ++length) {
        Archive cut(length, 0);
        if (length) std::memcpy(cut.data, full.data, length);
        Pose back;
        cut >> back;
        EXPECT_TRUE(cut.failed()) << "truncated to " << length;
        EXPECT_LE(cut.position, cut.size);
    }

    // A joint count far beyond the bytes that follow.
    Archive absurd(12, 0);
    std::memset(absurd.data, 0, 12);
    absurd.data[0] = absurd.data[1] = 0xff;
    Pose joints = poseOf(2, 0);
    absurd >> joints;
    EXPECT_TRUE(absurd.failed());
    EXPECT_EQ(joints.numJoints(), 0);

    // A joint-metadata entry count far beyond the bytes that follow.
    Pose none;
    Archive huge(none.memSize(), 0);
    huge << none;
    const uint64_t bad = 1ull << 60;
    std::memcpy(huge.data + 2 + 20, &bad, 8);
    huge.reset();
    Pose back;
    huge >> back;
    EXPECT_TRUE(huge.failed());
    EXPECT_TRUE(back.jointMetadataIds().empty());
}
