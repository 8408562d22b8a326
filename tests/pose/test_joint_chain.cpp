// JointChain, and walks up hand-made parent links that no skeleton should have.
#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/pose/JointChain.h"
#include "core/pose/Pose.h"
#include "core/pose/Poser.h"
#include "core/skeleton/Skeleton.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Matchers.h"

using namespace ZeltoCore;
using Imath::M44d;
using Imath::V3d;
using Ids = std::vector<unsigned short>;

namespace {

// 0 -> 1 -> 2 -> 3 upwards by 0, 1, 1, 1 in y; chain joints 0, 1 and 3 (2 lies between them).
Skeleton column() {
    Skeleton s(4);
    const char* names[] = {"base", "low", "mid", "top"};
    for (unsigned short i = 0; i < 4; ++i) {
        s[i].setName(names[i]);
        s[i].setTranslation(V3d(0, i ? 1 : 0, 0));
        if (i) s[i - 1].addChild(&s[i]);
    }
    return s;
}

JointChain chainOf(const Skeleton& s, const Ids& ids) {
    JointChain chain(static_cast<unsigned short>(ids.size()));
    for (unsigned short i = 0; i < ids.size(); ++i)
        chain.setJoint(s.joint(ids[i]), i);
    chain.setStart();
    chain.setEnd();
    return chain;
}

}  // namespace

TEST(JointChain, IndexCheck) {
    JointChain chain(3);
    try {
        chain.joint(3);
        FAIL() << "no exception";
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "Out of range");
    }
    EXPECT_THROW(static_cast<const JointChain&>(chain).joint(3), std::out_of_range);
    EXPECT_THROW(JointChain(0).joint(0), std::out_of_range);
}

TEST(JointChain, BindDataLengthAndSkeletalIds) {
    const Skeleton s = column();
    const Poser poser(&s);
    JointChain chain = chainOf(s, {0, 1, 3});
    chain.computeWorldBindData(s, poser);
    chain.computeLength();
    chain.computeSkeletalJointIds(s);
    EXPECT_DOUBLE_EQ(chain.length(), 3.0);
    EXPECT_EQ(chain.start2endBindVector(), V3d(0, 1, 0));
    EXPECT_DOUBLE_EQ(chain.start2endBindDistance(), 3.0);
    EXPECT_V3_NEAR(chain.bindData(2).worldTranslation, V3d(0, 3, 0), 0);
    EXPECT_EQ(chain.skeletalJointIds(), (Ids{0, 1, 2, 3}));  // joint 2 is not a chain joint

    M44d m;
    V3d scale, shear, t;
    Imath::Eulerd r(Imath::Eulerd::ZYX);
    chain.getWorldBindData(poser, 2, m, scale, shear, r, t);
    EXPECT_TRUE(m == poser.getWorldBindMatrix(2) && t == V3d(0, 2, 0));
    EXPECT_EQ(r.order(), Imath::Eulerd::ZYX);

    // Copies point at their own joints and take the ids from them.
    chain.setJointId(7, 1);
    JointChain parent(1);
    parent.setName("spine");
    chain.setParent(parent);
    JointChain copy(chain), assigned(5);
    assigned = chain;
    for (const JointChain* c : {&copy, &assigned}) {
        EXPECT_TRUE(c->start() == &c->joint(0) && c->end() == &c->joint(2));
        EXPECT_EQ(c->jointIds(), (Ids{0, 1, 3}));
        EXPECT_TRUE(c->parent() == &parent && c->length() == 3.0);
        EXPECT_EQ(c->skeletalJointIds(), chain.skeletalJointIds());
    }
}

TEST(JointChain, TextDump) {
    const Skeleton s = column();
    JointChain chain = chainOf(s, {1, 3});
    chain.setName("arm");
    chain.setFullName("left arm");
    chain.setId(4);
    chain.setLength(2.5);
    chain.setIsLimb(true);
    chain.setHasPoleVector(true);
    JointChain parent(0);
    parent.setName("spine");
    chain.setParent(parent);
    std::ostringstream out;
    out << chain;
    EXPECT_EQ(out.str(),
              "JointChain object\n\tName: arm\n\tFullName: left arm\n\tId: 4\n\tLength: 2.5\n"
              "\tNumJoints: 2\n\tJoint 0 (skeleton id 1): low\n\tJoint 1 (skeleton id 3): top\n"
              "\tParent: spine\n\tIsConnectedToParent: 0\n\tIsRoot: 0\n\tIsSpine: 0\n"
              "\tIsLimb: 1\n\tIsEffector: 0\n\tIsCenter: 0\n\tForceUseFabrik: 0\n"
              "\tForceOrientEnd: 0\n\tHasFootTip: 0\n\tHasFootIk: 0\n\tHasPelvis: 0\n");
}

// Links a caller can make by hand: a parent cycle 1 <-> 2 above the ankle 3, a child list that
// leads back up, and a parent in another skeleton. Every walk ends and stays in the array.
TEST(JointChain, HandMadeCyclesEndEveryWalk) {
    ZeltoTest::LogCapture log;
    Skeleton other(2);
    Skeleton s = column();
    s[1].setParent(&s[2]);
    s[3].addChild(&s[1]);
    s[0].setParent(&other[1]);
    s.addFoot(3, 0, 3);
    s.addPelvis(0);
    s.addPelvis(3);
    s.jointMetadata(0);
    s.buildIkData();
    EXPECT_FALSE(s[3].isChildOf(0));
    EXPECT_TRUE(s[3].isChildOf(1));

    const Poser poser(&s);
    Pose pose(&s, true);
    for (unsigned short j = 0; j < 4; ++j) {
        EXPECT_EQ(poser.getWorldMatrix(pose, j), poser.getWorldBindMatrix(j));
    }
    // The foreign parent counts as none.
    EXPECT_EQ(poser.getWorldBindMatrix(0), s[0].matrix());

    JointChain chain = chainOf(s, {0, 3});
    chain.computeSkeletalJointIds(s);
    EXPECT_LE(chain.skeletalJointIds().size(), 6u);  // end, at most 4 ancestors, start

    const Skeleton copy(s);
    EXPECT_EQ(copy[0].parent(), &copy[1]);  // relinked by id, like every other link
    std::ostringstream dump;
    dump << s;
    const std::string text = dump.str();
    const size_t top = text.find("3: top\n");
    EXPECT_NE(text.find("Hierarchy\n0: base\n"), std::string::npos);
    EXPECT_TRUE(top != std::string::npos && text.find("3: top", top + 1) == std::string::npos);
    EXPECT_EQ(log.warnings,
              std::vector<std::string>{"Joint  0   base  has an invalid pole vector "});
}
