#include "core/pose/Pose.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <vector>

#include "core/Init.h"
#include "tests/pose/Character.h"
#include "tests/support/Matchers.h"

using namespace ZeltoCore;
using Imath::Quatd;
using Imath::V3d;
using Ids = std::vector<unsigned short>;

namespace {

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

// The in-memory bytes of the values, one after another.
template <class... T>
std::vector<unsigned char> bytesOf(const T&... values) {
    std::vector<unsigned char> out;
    (out.insert(out.end(), reinterpret_cast<const unsigned char*>(&values),
                reinterpret_cast<const unsigned char*>(&values) + sizeof(values)),
     ...);
    return out;
}

double marker(const Pose& p, unsigned short id) {
    return p.jointPose(id).translation.x;
}

}  // namespace

TEST(Pose, ConstructorsAndActiveFlags) {
    const Skeleton s = ZeltoTest::makeCharacter();
    const Pose unfilled(&s, false), bind(&s, true);
    EXPECT_TRUE(Pose().inParentSpace() && unfilled.numJoints() == 0 && !unfilled.inParentSpace());
    ASSERT_EQ(bind.numJoints(), s.numJoints());
    EXPECT_TRUE(bind.inParentSpace());
    EXPECT_EQ(bind.jointPose(4).matrix(), s[4].matrix());

    Pose p = poseOf(3, 0);
    p.setActiveJoints({1, 0});   // wrong length: ignored
    p.setActiveJoint(3, false);  // beyond the list: ignored
    EXPECT_TRUE(p.isJointActive(1));
    p.setActiveJoints({1, 0, -1});
    EXPECT_FALSE(p.isJointActive(2));  // negative counts as inactive here
    EXPECT_TRUE(p.isJointActive(7));   // beyond the list
}

TEST(Pose, MaskedAssignment) {
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
        EXPECT_EQ(marker(a, i), markers[i]);
    EXPECT_EQ(a.jointMetadataIds(), (Ids{1, 2}));
    EXPECT_TRUE(a.jointMetadata(1).hasKey("k11") && !a.jointMetadata(1).hasKey("k1"));
    EXPECT_TRUE(!a.isJointActive(2) && !a.inParentSpace());
    EXPECT_EQ(a.getDirection(), V3d(0, 0, 1));
    EXPECT_TRUE(a.poseMetadata().hasKey("whole"));

    Pose other = poseOf(3, 0);
    other = b;
    ASSERT_EQ(other.numJoints(), 5);
    EXPECT_EQ(marker(other, 2), 12);
    EXPECT_FALSE(other.isJointActive(2));

    // Removal runs only when the entry counts differ after copying.
    Pose d = poseOf(5, 0, {4});
    Pose e = poseOf(5, 0, {3});
    e.setActiveJoint(3, false);
    d = e;
    EXPECT_EQ(d.jointMetadataIds(), (Ids{4}));
}

TEST(Pose, SpaceConversionsRoundTrip) {
    const Skeleton s = ZeltoTest::makeCharacter();
    Pose pose(&s, true);
    pose.convertToLocalSpace(&s);
    EXPECT_FALSE(pose.inParentSpace());
    for (unsigned short i = 0; i < pose.numJoints(); ++i)
        EXPECT_M44_NEAR(pose.jointPose(i).matrix(), Imath::M44d(), 1e-12);
    const Pose local = pose;
    pose.convertToLocalSpace(&s);  // already local: nothing happens
    EXPECT_EQ(pose.jointPose(4).matrix(), local.jointPose(4).matrix());

    pose.convertToParentSpace(&s);
    EXPECT_TRUE(pose.inParentSpace());
    for (unsigned short i = 0; i < pose.numJoints(); ++i)
        EXPECT_M44_NEAR(pose.jointPose(i).matrix(), s[i].matrix(), 1e-12);

    Pose mismatched = poseOf(3, 1);
    mismatched.convertToLocalSpace(&s);
    EXPECT_TRUE(mismatched.inParentSpace());
    EXPECT_EQ(marker(mismatched, 1), 2);
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

TEST(Pose, ArchiveLayoutRoundTripAndVersionRule) {
    initZeltoCore();
    EXPECT_EQ(Pose().memSize(), 2u + MapMetadata().memSize() + 8 + 25);
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
    const std::vector<unsigned char> expected = bytesOf(
        uint16_t(2), joints, emptyMap, uint64_t(1), uint16_t(1), emptyMap, direction, uint8_t(1));
    ASSERT_EQ(expected.size(), p.memSize());
    EXPECT_EQ(std::memcmp(a.data, expected.data(), expected.size()), 0);

    for (uint64_t version : {5, 3}) {
        a.reset();
        a.version = version;
        Pose back = poseOf(4, 9, {0});
        a >> back;
        EXPECT_FALSE(a.failed());
        EXPECT_EQ(a.position, a.size - (version < 4));
        ASSERT_EQ(back.numJoints(), 2);
        EXPECT_EQ(back.jointPose(1).matrix(), p.jointPose(1).matrix());
        EXPECT_TRUE(back.isJointActive(1));  // flags are not stored
        EXPECT_EQ(back.jointMetadataIds(), (Ids{1}));
        EXPECT_EQ(back.getDirection(), V3d(7, 8, 9));
        EXPECT_EQ(back.inParentSpace(), version >= 4);
    }

    Archive small(p.memSize() - 1, 0);
    small << p;
    EXPECT_TRUE(small.failed());
    EXPECT_EQ(small.position, 0u);
}

TEST(Pose, DamagedArchiveFailsCleanly) {
    initZeltoCore();
    Pose p = poseOf(3, 1, {2});
    Archive full(p.memSize(), 0);
    full << p;
    for (size_t length = 0; length < full.size; ++length) {
        Archive cut(length, 0);
        if (length) std::memcpy(cut.data, full.data, length);
        Pose back;
        cut >> back;
        EXPECT_TRUE(cut.failed()) << "truncated to " << length;
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
        EXPECT_TRUE(back.numJoints() == 0 && back.jointMetadataIds().empty());
    }
}
