#include "core/skeleton/Skeleton.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

using namespace ZeltoCore;
using Imath::V3d;
using Ids = std::vector<unsigned short>;

namespace {

// A map value with one nested entry, so tests can tell copies from shared objects.
std::shared_ptr<MapMetadata> bagWith(const std::string& key) {
    auto bag = std::make_shared<MapMetadata>();
    bag->insertEntry(key, std::make_shared<MapMetadata>());
    return bag;
}

}  // namespace

TEST(Skeleton, JointMetadataAndClear) {
    EXPECT_EQ(Skeleton(0).root(), nullptr);
    Skeleton s(5);

    static_cast<const Skeleton&>(s).jointMetadata(2);  // the const accessor inserts too
    auto value = bagWith("a");
    s.addJointMetadata(3, "shared", value);
    MapMetadata raw;
    s.addJointMetadata(1, "raw", &raw);
    EXPECT_EQ(s.jointMetadataIds(), (Ids{1, 2, 3}));
    EXPECT_NE(s.jointMetadata(3).getEntry("shared"), value);
    EXPECT_NE(s.jointMetadata(1).getEntry("raw").get(), &raw);

    s.addFoot(1, 0, 2);
    s.addPelvis(0);
    s.lods().push_back(SkeletonLod{{1, 2}, 7, true, false});
    s.buildDetachedJointsList();
    s.clear();
    EXPECT_TRUE(s.numJoints() == 0 && s.numFeet() == 0 && !s.isPelvis(0));
    EXPECT_TRUE(s.jointMetadataIds().empty());
    EXPECT_TRUE(s.lods().size() == 1u && s.detachedJoints().size() == 5u);
    s.setNumJoints(70000);  // the low 16 bits, array included
    EXPECT_EQ(s.numJoints(), 70000 - 65536);
    EXPECT_EQ(s[4463].id(), 4463);
}

TEST(Skeleton, CopyRelinksIntoOwnJoints) {
    Skeleton src(8);
    for (unsigned short i = 0; i < 8; ++i)
        src[i].setName("j" + std::to_string(i));
    src[1].addChild(&src[3]);
    src[3].addChild(&src[5]);
    src[3].addChild(&src[6]);
    src.addFoot(5, 1, 6);
    src.addPelvis(1);
    src.addJointMetadata(3, "limits", bagWith("x"));
    src.buildJointNameMap();

    Skeleton constructed(src), sameCount(8), otherCount(2);
    sameCount.addJointMetadata(6, "stale", bagWith("y"));
    sameCount = src;
    otherCount = src;
    otherCount = static_cast<Skeleton&>(otherCount);
    for (Skeleton* copy : {&constructed, &sameCount, &otherCount}) {
        Skeleton& c = *copy;
        ASSERT_EQ(c.numJoints(), 8);
        EXPECT_EQ(c[3].parent(), &c[1]);
        EXPECT_TRUE(c[3].numChildren() == 2 && c[3].child(0) == &c[5] && c[3].child(1) == &c[6]);
        EXPECT_TRUE(c.jointId("j6") == 6 && c.footIK(0) == &c[5] && c.isPelvis(1));
        EXPECT_EQ(c.jointMetadataIds(), Ids{3});
        EXPECT_NE(c.jointMetadata(3).getEntry("limits"), src.jointMetadata(3).getEntry("limits"));
    }
}

TEST(Skeleton, NamesMapAndSanitising) {
    Skeleton s(5);
    const char* names[] = {"rig:arm.L", "a.b:c.d", "x:y:z", "arm_L", "tail:"};
    const char* sanitised[] = {"arm_L", "c_d", "y:z", "arm_L", ""};
    for (unsigned short i = 0; i < 5; ++i)
        s[i].setName(names[i]);
    EXPECT_EQ(s.jointId("arm_L"), -1);  // no map built yet
    s.sanitizeJointNames();
    for (unsigned short i = 0; i < 5; ++i)
        EXPECT_EQ(s[i].name(), sanitised[i]);
    EXPECT_EQ(s.jointId("arm_L"), 3);  // shared name: the later joint wins
}

TEST(Skeleton, FeetAndPelvisRegistration) {
    Skeleton s(12);
    s.addFoot(10, 8, 12);  // tip out of range
    s.addFoot(10, 8, 11);
    ASSERT_EQ(s.numFeet(), 1);
    EXPECT_TRUE(s.footRoot(0) == &s[8] && s.footTip(0) == &s[11] && s.footIK(0) == &s[10]);
    s.setFootPoleVector(1, V3d(1, 2, 3));  // no such foot
    EXPECT_FALSE(s.footHasPoleVector(0));

    s.setRoot(4);
    EXPECT_TRUE(s.numPelvises() == 1 && &s.pelvis(5) == &s[0]);  // joint 0, not the root
    EXPECT_FALSE(s.isPelvis(0));
    for (unsigned short id : {7, 3, 7, 12})
        s.addPelvis(id);
    EXPECT_EQ(s.numPelvises(), 2);
    EXPECT_TRUE(&s.pelvis(0) == &s[3] && &s.pelvis(1) == &s[7]);
    EXPECT_TRUE(s.numPelvisChains(7) == 0u && s.pelvisChain(0, 0) == nullptr);
}
