// Poses and skeletons as metadata values: layouts, hash sequences, the pose's space flag across
// archive versions and containers, keyed reads from a compressed file, and the golden files of
// older archive versions.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "core/ZeltoCore.h"
#include "tests/metadata/ValueSamples.h"
#include "tests/support/TestData.h"
#include "tools/DemoSkeleton.h"

namespace {

using namespace ZeltoCore;
using Imath::V3d;
using ZeltoTest::bytes;
using ZeltoTest::hashOf;
using Bytes = std::vector<unsigned char>;
using PoseValue = MetadataImpl<Pose>;
using PoseArray = TypedArrayMetadata<Pose>;
using SkeletonValue = MetadataImpl<Skeleton>;
using SkeletonArray = TypedArrayMetadata<Skeleton>;

class PoseMetadataTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { initZeltoCore(); }
};

Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts)
        out.insert(out.end(), p.begin(), p.end());
    return out;
}

template <class T>
Bytes formOf(const T& object) {
    Archive a(object.memSize(), 0);
    a << object;
    return Bytes(a.data, a.data + a.position);
}

// Three joints, a pose property, a joint property on joint 2, a direction.
Pose samplePose(bool inParentSpace) {
    Pose p;
    p.setNumberJoints(3);
    p.jointPose(1).translation = V3d(1, 2.5, -3);
    p.jointPose(2).rotation = Imath::Quatd(0.5, 0.5, 0.5, 0.5);
    p.jointPose(2).scale = V3d(2, 2, 2);
    MetadataImpl<double> speed(1.5);
    p.addPoseMetadata("speed", &speed);
    p.addJointMetadata(2, "contact", std::make_shared<MetadataImpl<bool>>(true));
    p.setDirection(V3d(0, 0, 1));
    p.setInParentSpace(inParentSpace);
    return p;
}

Skeleton character() {
    Skeleton s = ZeltoTool::buildCharacter();
    s.buildIkData();
    return s;
}

// The value hash sequences, item by item as the value types define them.
void poseSequence(MurmurHash3& h, const Pose& p, bool withSpace) {
    h.append(p.numJoints());
    h.append(uint64_t(p.hash(10)));
    p.poseMetadata().hash(h);
    h.append(uint64_t(p.jointMetadataIds().size()));
    for (unsigned short id : p.jointMetadataIds()) {
        h.append(id);
        p.jointMetadata(id).hash(h);
    }
    h.append(p.getDirection());
    if (withSpace) h.append(p.inParentSpace());
}

// root -> (unnamed) -> tip, a map on joint 1, one foot, no registered pelvis.
Skeleton threeJoints() {
    Skeleton s(3);
    s[0].setName("root");
    s[2].setName("tip");
    s[0].addChild(&s[1]);
    s[1].addChild(&s[2]);
    s[1].setTranslation(V3d(0, -4, 1));
    s[2].setRotation(Imath::Quatd(0.5, 0.5, 0.5, 0.5));
    s[2].setScale(V3d(1, 2, 3));
    s.addFoot(2, 0, 2);
    s.addJointMetadata(1, "skipIk", std::make_shared<MetadataImpl<bool>>(true));
    return s;
}

void threeJointsSequence(MurmurHash3& h, const Skeleton& s) {
    const char* names[] = {"root", "noname", "tip"};
    const unsigned short parents[] = {65535, 0, 1};
    h.append(uint16_t(3));
    for (unsigned short i = 0; i < 3; ++i) {
        h.append(std::string(names[i]));
        h.append(i);
        h.append(s[i].rotation());
        h.append(s[i].translation());
        h.append(s[i].scale());
        h.append(parents[i]);
        h.append(uint16_t(i < 2 ? 1 : 0));
        if (i < 2) h.append(uint16_t(i + 1));
    }
    h.append(uint64_t(1));
    h.append(uint16_t(1));
    s.jointMetadata(1).hash(h);
    // One foot (ik 2, root 0, tip 2), one pelvis (joint 0 stands in), root 0.
    for (const uint16_t v : {1, 2, 0, 2, 1, 0, 0})
        h.append(v);
}

TEST_F(PoseMetadataTest, FactoryMakesTheFourTypes) {
    MetadataFactory& factory = MetadataFactory::instance();
    EXPECT_EQ(factory.getRegisteredMetadata().size(), 80u);
    const std::pair<const char*, unsigned> rows[] = {{"PoseMetadata", 23},
                                                     {"PoseArrayMetadata", 24},
                                                     {"SkeletonMetadata", 25},
                                                     {"SkeletonArrayMetadata", 26}};
    for (const auto& [name, id] : rows) {
        const std::shared_ptr<Metadata> m = factory.createMetadata(id);
        ASSERT_NE(m, nullptr) << name;
        EXPECT_EQ(m->typeStr(), name);
        EXPECT_EQ(factory.getMetadataName(id), name);
    }
    EXPECT_EQ(SkeletonArray().basicTypeStr(), "SkeletonMetadata");
    // Defaults: an empty pose in parent space, a one-joint skeleton.
    EXPECT_TRUE(PoseValue().get().inParentSpace());
    EXPECT_EQ(PoseValue().get().numJoints(), 0);
    EXPECT_EQ(SkeletonValue().get().numJoints(), 1);
}

TEST_F(PoseMetadataTest, LayoutsAreTheObjectsArchiveForms) {
    const Pose pose = samplePose(true);
    const Pose local = samplePose(false);
    const Skeleton skeleton = character();
    const Bytes poseForm = formOf(pose);

    // Every value writes exactly memSize() bytes and reads back by its stored id.
    const PoseValue poseValue(pose);
    const Bytes poseGolden = cat({bytes(uint32_t(23)), poseForm});
    ZeltoTest::expectRoundTrip(poseValue, &poseGolden);
    const Bytes skeletonGolden = cat({bytes(uint32_t(25)), formOf(skeleton)});
    ZeltoTest::expectRoundTrip(SkeletonValue(skeleton), &skeletonGolden);
    const PoseArray poses({pose, local});
    const Bytes posesGolden = cat({bytes(uint32_t(24), uint64_t(2)), poseForm, formOf(local)});
    ZeltoTest::expectRoundTrip(poses, &posesGolden);
    const SkeletonArray skeletons({skeleton, threeJoints()});
    const Bytes skeletonsGolden =
        cat({bytes(uint32_t(26), uint64_t(2)), formOf(skeleton), formOf(threeJoints())});
    ZeltoTest::expectRoundTrip(skeletons, &skeletonsGolden);
    ZeltoTest::expectRoundTrip(PoseArray());

    // The element hash leaves the space flag out, so check it came back.
    PoseArray back;
    ASSERT_TRUE(back.deserialise(*ZeltoTest::archiveOf(posesGolden)));
    ASSERT_EQ(back.size(), 2u);
    EXPECT_TRUE(back.get()[0].inParentSpace() && !back.get()[1].inParentSpace());

    // Nothing sizes an empty archive for these values.
    Archive empty;
    EXPECT_FALSE(poseValue.serialise(empty));
    EXPECT_EQ(empty.size, 0u);

    // A pose written with the compressed-containers flag keeps its maps plain.
    Archive flagged(poseValue.memSize(), Archive::kCompressedContainers);
    ASSERT_TRUE(poseValue.serialise(flagged));
    EXPECT_EQ(Bytes(flagged.data, flagged.data + flagged.size), poseGolden);
    flagged.reset();
    PoseValue flaggedBack;
    EXPECT_TRUE(flaggedBack.deserialise(flagged));
    EXPECT_EQ(flagged.position, flagged.size);
    EXPECT_EQ(flagged.flags, Archive::kCompressedContainers);
    EXPECT_EQ(hashOf(flaggedBack), hashOf(poseValue));
}

TEST_F(PoseMetadataTest, HashSequences) {
    const Pose pose = samplePose(true);
    MurmurHash3 expected;
    poseSequence(expected, pose, true);
    EXPECT_EQ(hashOf(PoseValue(pose)), expected);

    const Skeleton s = threeJoints();
    expected = MurmurHash3();
    threeJointsSequence(expected, s);
    EXPECT_EQ(hashOf(SkeletonValue(s)), expected);
    expected = MurmurHash3();
    expected.append(uint64_t(2));
    threeJointsSequence(expected, s);
    threeJointsSequence(expected, s);
    EXPECT_EQ(hashOf(SkeletonArray({s, s})), expected);

    // The space flag counts for a value, not for an array element.
    const Pose local = samplePose(false);
    EXPECT_NE(hashOf(PoseValue(pose)), hashOf(PoseValue(local)));
    EXPECT_EQ(hashOf(PoseArray({pose})), hashOf(PoseArray({local})));
    expected = MurmurHash3();
    expected.append(uint64_t(1));
    poseSequence(expected, local, false);
    EXPECT_EQ(hashOf(PoseArray({local})), expected);
}

TEST_F(PoseMetadataTest, ComparisonTextAndBlends) {
    const Pose pose = samplePose(true);
    const Skeleton skeleton = threeJoints();
    PoseValue p1(pose), p2(pose);
    SkeletonValue s1(skeleton), s2(skeleton);
    PoseArray a1({pose}), a2({pose});
    SkeletonArray b1({skeleton}), b2({skeleton});
    for (auto [m, twin] : std::vector<std::pair<Metadata*, Metadata*>>{
             {&p1, &p2}, {&s1, &s2}, {&a1, &a2}, {&b1, &b2}}) {
        // Equal only to itself, never ordered, no text, no blend.
        EXPECT_TRUE(m->isEqual(m, 0.0) && !m->isEqual(twin, 1e9)) << m->typeStr();
        EXPECT_FALSE(m->isGreater(twin) || m->isLess(twin)) << m->typeStr();
        std::stringstream text;
        m->toString(text);
        EXPECT_EQ(text.str(), "") << m->typeStr();
        EXPECT_FALSE(m->setWithValuesAndWeights(std::vector<Metadata*>{twin}, {1.0}));
        EXPECT_EQ(hashOf(*m->clone()), hashOf(*m)) << m->typeStr();
    }

    // isStatic: exactly one element.
    EXPECT_FALSE(PoseArray().isStatic());
    EXPECT_TRUE(a1.isStatic());
    EXPECT_FALSE(PoseArray({pose, pose}).isStatic());
    EXPECT_FALSE(SkeletonArray({skeleton, skeleton}).isStatic());

    // Element access and blends hand out a copy of the first index.
    const PoseArray poses({pose, samplePose(false)});
    const auto parentSpace = [](const std::shared_ptr<Metadata>& m) {
        return dynamic_cast<PoseValue&>(*m).get().inParentSpace();
    };
    EXPECT_FALSE(parentSpace(poses.getBasicTypeMetadata(1)));
    EXPECT_TRUE(parentSpace(poses.getBlendedBasicTypeMetadata(0, 1, 1.0)));
    EXPECT_FALSE(parentSpace(poses.getDoubleBlendedBasicTypeMetadata(1, 0, 0.5, 0, 0, 0.5, 0.9)));
    std::shared_ptr<Metadata> into = std::make_shared<PoseValue>();
    poses.getBlendedBasicTypeMetadataInPlace(1, 0, 0.75, into);
    EXPECT_FALSE(parentSpace(into));
    const auto blended =
        SkeletonArray({threeJoints(), character()}).getBlendedBasicTypeMetadata(1, 0, 0.5);
    EXPECT_EQ(dynamic_cast<SkeletonValue&>(*blended).get().numJoints(), character().numJoints());
}

// copy() assigns through the pose's masked assignment: joints inactive in the source keep the
// target's transforms when the joint counts match.
TEST_F(PoseMetadataTest, CopyFollowsThePosesAssignment) {
    Pose source = samplePose(false);
    source.setActiveJoint(1, false);
    PoseValue target(samplePose(true));
    target.get().jointPose(1).translation = V3d(7, 7, 7);
    PoseValue from(source);
    target.copy(&from);
    EXPECT_EQ(target.get().jointPose(1).translation, V3d(7, 7, 7));
    EXPECT_FALSE(target.get().inParentSpace());
    EXPECT_EQ(target.get().jointPose(2).scale, V3d(2, 2, 2));

    SkeletonValue skeleton;
    SkeletonValue character(threeJoints());
    skeleton.copy(&character);
    skeleton.copy(nullptr);
    EXPECT_EQ(hashOf(skeleton), hashOf(character));
}

TEST_F(PoseMetadataTest, DamagedStreamsFailCleanly) {
    SkeletonValue held(character());
    const MurmurHash3 before = hashOf(held);
    Bytes stream = cat({bytes(uint32_t(25)), formOf(threeJoints())});
    stream.resize(stream.size() - 3);
    EXPECT_FALSE(held.deserialise(*ZeltoTest::archiveOf(stream)));
    EXPECT_EQ(hashOf(held), before);

    // A count no archive could hold is refused before anything is allocated.
    for (unsigned id : {24u, 26u}) {
        auto absurd = ZeltoTest::archiveOf(bytes(id, uint64_t(1) << 40, uint64_t(0)));
        const std::shared_ptr<Metadata> m = MetadataFactory::instance().createMetadata(id);
        EXPECT_FALSE(m->deserialise(*absurd)) << id;
        EXPECT_EQ(static_cast<BaseTypedArrayMetadata&>(*m).size(), 0u);
    }
}

// The pose reads its space flag only from archives of version 4 and later, also inside maps and
// the blocks of compressed maps (which carry their archive's version).
TEST_F(PoseMetadataTest, SpaceFlagFollowsTheArchiveVersionInContainers) {
    MapMetadata bag;
    bag.insertEntry("pose", std::make_shared<PoseValue>(samplePose(true)));
    bag.insertEntry("z", std::make_shared<MetadataImpl<int>>(9));
    for (uint64_t flags : {uint64_t(0), Archive::kCompressedContainers}) {
        for (uint64_t version : {3u, 5u}) {
            Archive a;
            a.flags = flags;
            a.version = version;
            ASSERT_TRUE(bag.serialise(a));
            a.reset();
            MapMetadata back;
            ASSERT_TRUE(back.deserialise(a)) << flags << " " << version;
            auto pose = std::dynamic_pointer_cast<PoseValue>(back.getEntry("pose"));
            auto z = std::dynamic_pointer_cast<MetadataImpl<int>>(back.getEntry("z"));
            ASSERT_TRUE(pose && z) << flags << " " << version;
            EXPECT_EQ(pose->get().inParentSpace(), version >= 4) << flags;
            EXPECT_EQ(pose->get().jointPose(1).translation, V3d(1, 2.5, -3));
            EXPECT_EQ(z->get(), 9);
        }
    }
}

TEST_F(PoseMetadataTest, KeyedReadOfACompressedFile) {
    const Skeleton skeleton = character();
    MapMetadata bag;
    bag.insertEntry("skeleton", std::make_shared<SkeletonValue>(skeleton));
    bag.insertEntry("pose", std::make_shared<PoseValue>(Pose(&skeleton, true)));
    bag.insertEntry("poses", std::make_shared<PoseArray>(std::vector<Pose>(3, samplePose(true))));
    ArrayMetadata list;
    list.push_back(std::make_shared<SkeletonArray>(std::vector<Skeleton>{threeJoints()}));
    list.push_back(std::make_shared<PoseValue>(samplePose(false)));
    bag.insertEntry("list", std::make_shared<ArrayMetadata>(list));

    Archive archive;
    archive.flags = Archive::kCompressedContainers | Archive::kParallel;
    ASSERT_TRUE(bag.serialise(archive));
    const std::string path = ::testing::TempDir() + "zelto_pose_values.zelto";
    ASSERT_TRUE(archive.writeToFile(path));

    MapMetadata some;
    ASSERT_TRUE(some.deserialiseKeys(path, {"skeleton", "list"}, false, false));
    std::remove(path.c_str());
    EXPECT_EQ(some.size(), 2u);
    auto back = std::dynamic_pointer_cast<SkeletonValue>(some.getEntry("skeleton"));
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(hashOf(*back), hashOf(SkeletonValue(skeleton)));
    EXPECT_EQ(back->get().legJoints(1), skeleton.legJoints(1));  // derived data rebuilt
    auto list2 = std::dynamic_pointer_cast<ArrayMetadata>(some.getEntry("list"));
    ASSERT_NE(list2, nullptr);
    ASSERT_EQ(list2->size(), 2u);
    EXPECT_EQ(hashOf(*(*list2)[0]), hashOf(*list[0]));
    EXPECT_EQ(hashOf(*(*list2)[1]), hashOf(*list[1]));
}

// Golden files of older archive versions. pose_map_v3.zelto: version 3, a plain map {"pose":
// samplePose(true), "weight": 0.5}, the pose without its space flag byte. array_v1.zelto: version
// 1, an ArrayMetadata with the version-1 table (one size per element) holding IntMetadata 7,
// StringMetadata "hip", DoubleArrayMetadata (0.5, 1) and a two-joint pose.
void readGolden(const char* name, uint64_t version, Archive& a) {
    ASSERT_TRUE(a.readFromFile(ZeltoTest::testDataPath(name))) << ZeltoTest::testDataPath(name);
    EXPECT_EQ(a.version, version);
    EXPECT_EQ(a.flags, 0u);
}

TEST_F(PoseMetadataTest, GoldenPoseInAVersion3Map) {
    Archive a;
    readGolden("pose_map_v3.zelto", 3, a);
    MapMetadata map;
    ASSERT_TRUE(map.deserialise(a));
    EXPECT_EQ(a.position, a.size);
    auto pose = std::dynamic_pointer_cast<PoseValue>(map.getEntry("pose"));
    auto weight = std::dynamic_pointer_cast<MetadataImpl<double>>(map.getEntry("weight"));
    ASSERT_TRUE(pose && weight);
    const Pose& p = pose->get();
    EXPECT_FALSE(p.inParentSpace());  // written in parent space, but version 3 has no flag
    EXPECT_EQ(p.numJoints(), 3);
    EXPECT_EQ(p.jointPose(1).translation, V3d(1, 2.5, -3));
    EXPECT_EQ(p.jointPose(2).rotation, Imath::Quatd(0.5, 0.5, 0.5, 0.5));
    EXPECT_EQ(p.getDirection(), V3d(0, 0, 1));
    auto speed =
        std::dynamic_pointer_cast<const MetadataImpl<double>>(p.poseMetadata().getEntry("speed"));
    ASSERT_NE(speed, nullptr);
    EXPECT_EQ(speed->get(), 1.5);
    EXPECT_EQ(p.jointMetadataIds(), std::vector<unsigned short>{2});
    EXPECT_EQ(weight->get(), 0.5);
}

TEST_F(PoseMetadataTest, GoldenVersion1ArrayTable) {
    Archive a;
    readGolden("array_v1.zelto", 1, a);
    a.flags = Archive::kCompressedContainers | Archive::kParallel;  // ignored for version 1
    ArrayMetadata array;
    ASSERT_TRUE(array.deserialise(a));
    EXPECT_EQ(a.position, a.size);
    ASSERT_EQ(array.size(), 4u);
    auto i = std::dynamic_pointer_cast<MetadataImpl<int>>(array[0]);
    auto s = std::dynamic_pointer_cast<MetadataImpl<std::string>>(array[1]);
    auto d = std::dynamic_pointer_cast<TypedArrayMetadata<double>>(array[2]);
    auto p = std::dynamic_pointer_cast<PoseValue>(array[3]);
    ASSERT_TRUE(i && s && d && p);
    EXPECT_EQ(i->get(), 7);
    EXPECT_EQ(s->get(), "hip");
    EXPECT_EQ(d->get(), (std::vector<double>{0.5, 1.0}));
    EXPECT_EQ(p->get().numJoints(), 2);
    EXPECT_EQ(p->get().jointPose(1).translation, V3d(0, -42, 1.5));
    EXPECT_FALSE(p->get().inParentSpace());
}

}  // namespace
