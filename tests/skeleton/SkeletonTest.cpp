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

TEST(Joint, ChildListEditsLeaveParentPointers) {
    Skeleton s(10);
    Joint& p = s[1];
    EXPECT_FALSE(p.addChild(nullptr));
    p.addChild(&s[4]);
    p.addChild(&s[9]);
    EXPECT_FALSE(p.removeChild(2));
    ASSERT_TRUE(p.removeChild(0));
    ASSERT_EQ(p.numChildren(), 1);
    EXPECT_EQ(p.child(0), &s[9]);
    EXPECT_EQ(p.child(1), nullptr);
    EXPECT_EQ(s[4].parent(), &p);  // the removed child keeps its parent pointer

    s[0].addChild(&p);
    EXPECT_TRUE(s[9].isChildOf(0));
    EXPECT_FALSE(s[9].isChildOf(9));  // not its own ancestor
    EXPECT_FALSE(s[0].isChildOf(0));
}

TEST(Skeleton, ConstructionClearAndCounts) {
    EXPECT_EQ(Skeleton().numJoints(), 1);
    EXPECT_EQ(Skeleton(0).root(), nullptr);

    Skeleton s(5);
    EXPECT_EQ(s[4].id(), 4);
    s.setRoot(3);
    s.setRoot(5);  // out of range: ignored
    EXPECT_EQ(s.root()->id(), 3);
    s.addFoot(1, 0, 2);
    s.addPelvis(0);
    s.jointMetadata(2);
    s.lods().push_back(SkeletonLod{{1, 2}, 7, true, false});
    s.buildDetachedJointsList();
    s.clear();
    EXPECT_EQ(s.numJoints(), 0);
    EXPECT_EQ(s.root(), nullptr);
    EXPECT_EQ(s.numFeet(), 0);
    EXPECT_FALSE(s.isPelvis(0));
    EXPECT_TRUE(s.jointMetadataIds().empty());
    EXPECT_EQ(s.lods().size(), 1u);            // kept
    EXPECT_EQ(s.detachedJoints().size(), 5u);  // kept

    s.setNumJoints(70000);  // the low 16 bits, array included
    EXPECT_EQ(s.numJoints(), 70000 - 65536);
    EXPECT_EQ(s[4463].id(), 4463);
}

TEST(Skeleton, CopyRelinksIntoOwnJoints) {
    Skeleton src(8);
    for (unsigned short i = 0; i < 8; ++i)
        src[i].setName("j" + std::to_string(i));
    src[0].addChild(&src[1]);
    src[1].addChild(&src[3]);
    src[3].addChild(&src[5]);
    src[3].addChild(&src[6]);
    src[3].setTranslation(V3d(1, 2, 3));
    src.addFoot(5, 1, 6);
    src.addPelvis(1);
    src.addJointMetadata(3, "limits", bagWith("x"));
    src.lods().push_back(SkeletonLod{{3}, 1, false, true});
    src.buildJointNameMap();

    auto check = [&src](Skeleton& copy) {
        ASSERT_EQ(copy.numJoints(), 8);
        EXPECT_EQ(copy[3].parent(), &copy[1]);
        ASSERT_EQ(copy[3].numChildren(), 2);
        EXPECT_EQ(copy[3].child(0), &copy[5]);
        EXPECT_EQ(copy[3].child(1), &copy[6]);
        EXPECT_EQ(copy[7].parent(), nullptr);
        EXPECT_EQ(copy[3].translation(), V3d(1, 2, 3));
        EXPECT_EQ(copy.jointId("j6"), 6);
        EXPECT_EQ(copy.footIK(0), &copy[5]);
        EXPECT_TRUE(copy.isPelvis(1));
        EXPECT_EQ(copy.lods().size(), 1u);
        EXPECT_EQ(copy.jointMetadataIds(), Ids{3});
        EXPECT_NE(copy.jointMetadata(3).getEntry("limits"),
                  src.jointMetadata(3).getEntry("limits"));
        copy[3].setName("changed");
        EXPECT_EQ(src[3].name(), "j3");
    };

    Skeleton constructed(src);
    check(constructed);
    Skeleton sameCount(8);
    sameCount.addJointMetadata(6, "stale", bagWith("y"));
    sameCount = src;
    check(sameCount);
    Skeleton otherCount(2);
    otherCount = src;
    check(otherCount);
    Skeleton& self = otherCount;
    otherCount = self;
    EXPECT_EQ(otherCount[3].parent(), &otherCount[1]);
    EXPECT_EQ(otherCount[3].numChildren(), 2);
}

TEST(Skeleton, NamesMapAndSanitising) {
    Skeleton s(5);
    s[0].setName("rig:arm.L");
    s[1].setName("a.b:c.d");
    s[2].setName("x:y:z");
    s[3].setName("arm_L");
    s[4].setName("tail:");
    EXPECT_EQ(s.jointId("arm_L"), -1);  // no map built yet
    s.sanitizeJointNames();
    EXPECT_EQ(s[0].name(), "arm_L");
    EXPECT_EQ(s[1].name(), "c_d");
    EXPECT_EQ(s[2].name(), "y:z");
    EXPECT_EQ(s[4].name(), "");
    EXPECT_EQ(s.jointId("arm_L"), 3);  // shared name: the later joint wins
    EXPECT_EQ(s.jointId(""), 4);
    EXPECT_EQ(s.jointId("rig:arm.L"), -1);
    s[3].setName("other");
    s.buildJointNameMap();
    EXPECT_EQ(s.jointId("arm_L"), 0);

    s[0].addChild(&s[1]);
    s[3].addChild(&s[4]);
    s.buildDetachedJointsList();
    EXPECT_EQ(s.detachedJoints(), (Ids{0, 2, 3}));
}

TEST(Skeleton, FeetAndPelvisRegistration) {
    Skeleton s(11);
    s.addFoot(10, 8, 11);  // tip out of range
    EXPECT_EQ(s.numFeet(), 0);
    s.setNumJoints(12);
    s.addFoot(10, 8, 11);
    ASSERT_EQ(s.numFeet(), 1);
    EXPECT_EQ(s.footRoot(0), &s[8]);
    EXPECT_EQ(s.footTip(0), &s[11]);
    EXPECT_TRUE(s.isFootRoot(8) && s.isFootTip(11) && s.isFootIK(10));
    EXPECT_FALSE(s.isFootIK(8));
    s.setFootPoleVector(1, V3d(1, 2, 3));  // no such foot
    EXPECT_FALSE(s.footHasPoleVector(0));
    s.setFootPoleVector(0, V3d(1, 2, 3));
    EXPECT_TRUE(s.footHasPoleVector(0));
    EXPECT_EQ(s.footPoleVector(0), V3d(1, 2, 3));

    EXPECT_EQ(s.numPelvises(), 1);
    s.setRoot(4);
    EXPECT_EQ(&s.pelvis(5), &s[0]);  // joint 0, not the root, whatever the index
    EXPECT_FALSE(s.isPelvis(0));
    for (unsigned short id : {7, 3, 7, 12})
        s.addPelvis(id);
    EXPECT_EQ(s.numPelvises(), 2);
    EXPECT_EQ(&s.pelvis(0), &s[3]);
    EXPECT_EQ(&s.pelvis(1), &s[7]);
    EXPECT_EQ(s.numPelvisChains(7), 0u);
    EXPECT_EQ(s.pelvisChain(0, 0), nullptr);
}

TEST(Skeleton, JointMetadataHoldsCopies) {
    const Skeleton s(4);
    EXPECT_FALSE(s.jointHasMetadata(2));
    s.jointMetadata(2);  // the const accessor inserts
    EXPECT_TRUE(s.jointHasMetadata(2));

    Skeleton m(4);
    auto value = bagWith("a");
    m.addJointMetadata(3, "shared", value);
    value->insertEntry("b", std::make_shared<MapMetadata>());
    auto stored = std::static_pointer_cast<MapMetadata>(m.jointMetadata(3).getEntry("shared"));
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->size(), 1u);  // the later change to `value` is not seen
    MapMetadata raw;
    m.addJointMetadata(1, "raw", &raw);
    EXPECT_NE(m.jointMetadata(1).getEntry("raw").get(), &raw);
    m.clearJointMetadata(0);  // no entry: nothing happens
    EXPECT_EQ(m.jointMetadataIds(), (Ids{1, 3}));
}

TEST(Skeleton, MemSize) {
    Skeleton hip(1);
    hip[0].setName("hip");
    EXPECT_EQ(hip.memSize(), 115u);  // 2 + (3 + 94) + 8 + 2 + (2 + 2) + 2

    Skeleton s(3);
    s[0].addChild(&s[1]);
    s[1].addChild(&s[2]);
    s[1].setName("knee");  // joints 0 and 2 are written as "noname"
    s.addFoot(2, 0, 2);
    s.addPelvis(0);
    s.addPelvis(1);
    s.jointMetadata(1);
    EXPECT_EQ(s.memSize(),
              2u + (6 + 2 + 94) + (4 + 2 + 94) + (6 + 94) + 8 + (2 + 20) + 2 * (3 * 2 + 2));
}
