// IK data: leg walks, pole vectors with their warning, pelvis chains.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "core/metadata/MetadataImpl.h"
#include "core/pose/Poser.h"
#include "core/skeleton/Skeleton.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Matchers.h"

using namespace ZeltoCore;
using Imath::V3d;
using Ids = std::vector<unsigned short>;
using Ids32 = std::vector<unsigned int>;

namespace {

std::shared_ptr<Metadata> vec(const V3d& v) {
    return std::make_shared<MetadataImpl<V3d>>(v);
}

// hip (0) -> knee (1) -> ankle (2): the hip turned and moved so that frames matter; the knee
// sticks out along the hip's local +z by 1 at mid-leg, the ankle 8 below the hip.
Skeleton leg(const V3d& kneeOffset = V3d(0, -4, 1)) {
    Skeleton s(3);
    s[0].setName("hip");
    s[0].setTranslation(V3d(1, 2, 3));
    Imath::Quatd q;
    q.setAxisAngle(V3d(0, 1, 0), M_PI / 2);
    s[0].setRotation(q);
    s[1].setTranslation(kneeOffset);
    s[2].setTranslation(V3d(0, -8, 0) - kneeOffset);
    s[0].addChild(&s[1]);
    s[1].addChild(&s[2]);
    s.addFoot(2, 0, 2);
    return s;
}

// World point p of the hip's bind frame.
V3d inHipFrame(const Skeleton& s, const V3d& world) {
    V3d p;
    Poser(&s).getWorldBindMatrix(0).inverse().multVecMatrix(world, p);
    return p;
}

const std::string kHipWarning = "Joint  0   hip  has an invalid pole vector ";

}  // namespace

TEST(SkeletonIk, LegWalkAndAutomaticPole) {
    ZeltoTest::LogCapture log;
    Skeleton s = leg();
    s.buildIkData();
    EXPECT_EQ(s.legJoints(0), (Ids{0, 1, 2}));
    EXPECT_EQ(s.midJoints(0), Ids{1});
    EXPECT_EQ(s.numLegSegments(0), 2);
    EXPECT_FALSE(s.footHasPoleVector(0));  // no metadata on the hip: no pole

    s.jointMetadata(0);
    s.buildIkData();
    ASSERT_TRUE(s.footHasPoleVector(0));
    // 0.3 x leg length from the hip, toward the knee's side, in the hip's own frame.
    EXPECT_V3_NEAR(s.footPoleVector(0), V3d(0, 0, 2.4), 1e-12);

    s.addJointMetadata(0, "poleVector", vec(V3d(0, 0, 0)));  // rejected: automatic again
    s.setFootPoleVector(0, V3d(9, 9, 9));
    s.buildIkData();
    EXPECT_V3_NEAR(s.footPoleVector(0), V3d(0, 0, 2.4), 1e-12);
    EXPECT_TRUE(log.warnings.empty());
}

TEST(SkeletonIk, ExplicitPoleVectors) {
    Skeleton s = leg();
    s.addJointMetadata(0, "poleVector", vec(V3d(5, -3, 7)));
    s.addJointMetadata(0, "zelto_poleVector", vec(V3d(-5, 1, 1)));
    s.buildIkData();
    EXPECT_V3_NEAR(s.footPoleVector(0), inHipFrame(s, V3d(5, -3, 7)), 1e-12);

    // Another type under the first key lets the prefixed key through.
    s.addJointMetadata(0, "poleVector", std::make_shared<MetadataImpl<double>>(1.0));
    s.buildIkData();
    EXPECT_V3_NEAR(s.footPoleVector(0), inHipFrame(s, V3d(-5, 1, 1)), 1e-12);
    EXPECT_TRUE(s.footHasPoleVector(0));
}

TEST(SkeletonIk, SkippedAndStraightLegs) {
    ZeltoTest::LogCapture log;
    Skeleton skipped = leg();
    skipped.jointMetadata(0);
    skipped.addJointMetadata(1, "zelto_skipIk", std::make_shared<MetadataImpl<bool>>(false));
    skipped.buildIkData();
    EXPECT_EQ(skipped.legJoints(0), (Ids{0, 1, 2}));
    EXPECT_TRUE(skipped.midJoints(0).empty());
    EXPECT_FALSE(skipped.footHasPoleVector(0));  // nothing to derive from, nothing logged
    EXPECT_TRUE(log.warnings.empty());

    Skeleton straight = leg(V3d(0, -4, 0));
    straight.addJointMetadata(0, "poleVector", vec(V3d(0, 0, 0)));
    straight.setFootPoleVector(0, V3d(1, 2, 3));
    straight.buildIkData();
    EXPECT_EQ(log.warnings, std::vector<std::string>{kHipWarning});
    EXPECT_EQ(straight.footPoleVector(0), V3d(1, 2, 3));  // the previous pole stays
}

TEST(SkeletonIk, FootRootNotAboveAnkle) {
    // top (0) -> a (1) -> ankle (2), and the foot's root "thigh" (3) on another branch.
    ZeltoTest::LogCapture log;
    Skeleton s(4);
    s[0].addChild(&s[1]);
    s[1].addChild(&s[2]);
    s[0].addChild(&s[3]);
    s[3].setName("thigh");
    s.addFoot(2, 3, 2);
    s.addPelvis(1);
    s.setFootPoleVector(0, V3d(4, 5, 6));
    s.addJointMetadata(3, "poleVector", vec(V3d(0, 0, 10)));
    s.buildIkData();
    EXPECT_EQ(s.legJoints(0), (Ids{0, 1, 2, 3}));
    EXPECT_EQ(s.midJoints(0), (Ids{0, 1}));
    EXPECT_EQ(s.numLegSegments(0), 3);
    EXPECT_EQ(s.footPelvis(0), 0);                 // no pelvis above the root: index 0
    EXPECT_EQ(s.footPoleVector(0), V3d(4, 5, 6));  // even the explicit pole is not taken
    EXPECT_EQ(log.warnings,
              std::vector<std::string>{"Joint  3   thigh  has an invalid pole vector "});
}

TEST(SkeletonIk, PelvisChains) {
    // 0 -> 1 -> 5 -> 6 -> 9, and 0 -> 2 -> 3 -> 4 (4 a pelvis too, found on a second branch).
    Skeleton s(10);
    const unsigned short links[][2] = {{0, 1}, {1, 5}, {5, 6}, {6, 9}, {0, 2}, {2, 3}, {3, 4}};
    for (const auto& l : links)
        s[l[0]].addChild(&s[l[1]]);
    s.addPelvis(0);
    s.buildIkData();
    s.buildIkData();  // one pelvis: one record however often it runs
    ASSERT_EQ(s.numPelvisChains(0), 1u);
    const PelvisChain* only = s.pelvisChain(0, 0);
    EXPECT_TRUE(only->pelvis == 0 && only->childPelvis == 0 && only->jointIds.empty());

    for (unsigned short p : {5, 9, 4})
        s.addPelvis(p);
    s.buildIkData();
    // Depth first, last child first: the branch through 2 is searched before the one through 1.
    ASSERT_EQ(s.numPelvisChains(0), 2u);
    EXPECT_EQ(s.pelvisChain(0, 0)->childPelvis, 4u);
    EXPECT_EQ(s.pelvisChain(0, 0)->jointIds, (Ids32{0, 2, 3, 4}));
    EXPECT_EQ(s.pelvisChain(0, 1)->childPelvis, 5u);
    EXPECT_EQ(s.pelvisChain(0, 1)->jointIds, (Ids32{0, 1, 5}));  // its own path only
    EXPECT_EQ(s.numPelvisChains(1), 0u);                         // pelvis 4 has nothing below
    ASSERT_EQ(s.numPelvisChains(2), 1u);
    EXPECT_EQ(s.pelvisChain(2, 0)->jointIds, (Ids32{5, 6, 9}));
    EXPECT_EQ(s.pelvisChain(2, 0)->pelvis, 5u);
    EXPECT_EQ(s.numPelvisChains(3), 0u);
    EXPECT_EQ(s.numPelvisChains(7), 0u);
    EXPECT_EQ(s.pelvisChain(2, 1), nullptr);

    s.clearPelvises();
    s.buildIkData();  // no pelvises: the lists stay as they were
    EXPECT_EQ(s.numPelvisChains(0), 2u);
}
