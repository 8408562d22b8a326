// The skeleton's archive form, its refusals of bad streams, its hash and its text dumps.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "core/Init.h"
#include "core/archive/Archive.h"
#include "core/hash/MurmurHash3.h"
#include "core/metadata/MetadataImpl.h"
#include "core/skeleton/SkeletonArchive.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestData.h"

using namespace ZeltoCore;
using Imath::V3d;
using Bytes = std::vector<unsigned char>;

namespace {

constexpr unsigned kNone = 65535;

// Hand-made little-endian streams.
struct Stream {
    Bytes b;
    template <class T>
    Stream& put(T v) {
        unsigned char raw[sizeof(T)];
        std::memcpy(raw, &v, sizeof(T));
        b.insert(b.end(), raw, raw + sizeof(T));
        return *this;
    }
    Stream& u16(unsigned v) { return put(static_cast<uint16_t>(v)); }
    Stream& text(const std::string& s) {
        put(static_cast<uint64_t>(s.size()));
        b.insert(b.end(), s.begin(), s.end());
        return *this;
    }
    // A joint record with the identity bind transform.
    Stream& joint(const std::string& name, unsigned id, unsigned parent,
                  const std::vector<unsigned>& children) {
        text(name).u16(id);
        for (double d : {0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0, 1.0, 1.0})
            put(d);
        u16(parent).u16(static_cast<unsigned>(children.size()));
        for (unsigned c : children)
            u16(c);
        return *this;
    }
    // No metadata, no feet, pelvis 0, root 0.
    Stream& plainTail() { return put(uint64_t(0)).u16(0).u16(1).u16(0).u16(0); }
};

Bytes written(const Skeleton& s) {
    Archive a(s.memSize(), 0);
    a << s;
    EXPECT_FALSE(a.failed());
    EXPECT_EQ(a.position, s.memSize());
    return Bytes(a.data, a.data + a.position);
}

std::string dump(const Skeleton& s) {
    std::ostringstream out;
    out << s;
    return out.str();
}

MurmurHash3 hashOf(const Skeleton& s) {
    MurmurHash3 h;
    s.hash(h);
    return h;
}

// Reads `bytes` into `s` and reports whether the archive took them.
bool read(const Bytes& bytes, Skeleton& s) {
    initZeltoCore();  // joint metadata values are made through the factory
    Archive a(bytes.size(), 0);
    if (!bytes.empty()) std::memcpy(a.data, bytes.data(), bytes.size());
    a >> s;
    EXPECT_TRUE(a.failed() || a.position == bytes.size());
    EXPECT_TRUE(!a.failed() || a.position == 0);
    return !a.failed();
}

// Ten joints in two branches, names (one empty, one literally "noname"), turned and moved joints,
// two feet, pelvises 0, 5 and 9, pole and skip markers, root 0.
Skeleton richSkeleton() {
    Skeleton s(10);
    const unsigned short links[][2] = {{0, 1}, {1, 5}, {5, 6}, {6, 9}, {0, 2}, {2, 3}, {3, 4}};
    for (const auto& l : links)
        s[l[0]].addChild(&s[l[1]]);
    for (unsigned short i = 0; i < 10; ++i) {
        s[i].setName(i == 7 ? "" : i == 8 ? "noname" : "j" + std::to_string(i));
        Imath::Quatd q;
        q.setAxisAngle(V3d(0.2, 1, 0.1 * i).normalized(), 0.1 * i);
        s[i].setRotation(q);
        s[i].setTranslation(V3d(0.5 * i, -1.0 - i, 0.25));
        s[i].setScale(V3d(1.0 + 0.01 * i));
    }
    s.addFoot(4, 2, 4);
    s.addFoot(9, 5, 9);
    for (unsigned short p : {9, 0, 5})
        s.addPelvis(p);
    s.addJointMetadata(2, "poleVector", std::make_shared<MetadataImpl<V3d>>(V3d(1, -3, 8)));
    s.jointMetadata(5);
    s.addJointMetadata(6, "skipIk", std::make_shared<MetadataImpl<bool>>(false));
    s.buildJointNameMap();
    s.buildIkData();
    s.buildDetachedJointsList();
    return s;
}

}  // namespace

TEST(SkeletonArchive, OneJointLayout) {
    Skeleton hip(1);
    hip[0].setName("hip");
    const Bytes bytes = written(hip);
    EXPECT_EQ(bytes.size(), 115u);
    EXPECT_EQ(bytes, Stream().u16(1).joint("hip", 0, kNone, {}).plainTail().b);

    // Links, and the empty name written as "noname".
    Skeleton three(3);
    three[0].setName("a");
    three[0].addChild(&three[2]);
    three[2].addChild(&three[1]);
    three.addFoot(1, 0, 2);
    three.addPelvis(2);
    three.setRoot(0);
    Stream expected;
    expected.u16(3).joint("a", 0, kNone, {2}).joint("noname", 1, 2, {}).joint("noname", 2, 0, {1});
    expected.put(uint64_t(0)).u16(1).u16(1).u16(0).u16(2).u16(1).u16(2).u16(0);
    EXPECT_EQ(written(three), expected.b);
}

// The golden file is what the writer makes of richSkeleton(); read back, it answers like it.
TEST(SkeletonArchive, GoldenFileRoundTripAnswersLikeTheSource) {
    ZeltoTest::LogCapture log;
    const Skeleton source = richSkeleton();
    Archive file;
    const std::string path = ZeltoTest::testDataPath("skeleton_v5.zelto");
    ASSERT_TRUE(file.readFromFile(path)) << path;
    const Bytes golden(file.data, file.data + file.size);
    EXPECT_EQ(golden, written(source));
    Skeleton back(3);
    back.lods().resize(2);
    ASSERT_TRUE(read(golden, back));

    // The derived data is rebuilt: name map, leg data and poles, pelvis chains, detached joints.
    // Only the literal "noname" differs: it comes back empty.
    Skeleton expected = source;
    expected[8].setName("");
    expected.buildJointNameMap();
    EXPECT_EQ(hashOf(back), hashOf(expected));
    EXPECT_EQ(dump(back), dump(expected));
    EXPECT_EQ(back.memSize(), source.memSize());  // "noname" and an empty name: 6 bytes each
    EXPECT_TRUE(back.footHasPoleVector(0) && back.numPelvisChains(0) == 1);
    EXPECT_EQ(back.legJoints(1), (std::vector<unsigned short>{5, 6, 9}));
    EXPECT_TRUE(back.midJoints(1).empty());  // 6 is skipped
    EXPECT_EQ(back.pelvisChain(1, 0)->jointIds, (std::vector<unsigned>{5, 6, 9}));
    EXPECT_TRUE(back[6].parent() == &back[5] && back[6].child(0) == &back[9]);
    EXPECT_EQ(back.jointId("j6"), 6);
    EXPECT_EQ(back.jointMetadataIds(), (std::vector<unsigned short>{2, 5, 6}));
    EXPECT_TRUE(back.jointMetadata(6).hasKey("skipIk"));
    EXPECT_EQ(back.lods().size(), 2u);  // not stored: the target's own stay

    // Without registered pelvises joint 0 is written, and comes back registered.
    Skeleton plain(2);
    plain[0].addChild(&plain[1]);
    Skeleton plainBack;
    ASSERT_TRUE(read(written(plain), plainBack));
    EXPECT_TRUE(plainBack.isPelvis(0) && plainBack.numPelvisChains(0) == 1);
    EXPECT_TRUE(log.warnings.empty());

    // The maps inside keep their plain layout when the archive asks containers to compress.
    Archive flagged(source.memSize(), Archive::kCompressedContainers);
    flagged << source;
    EXPECT_EQ(Bytes(flagged.data, flagged.data + flagged.position), written(source));
    flagged.reset();
    flagged >> back;
    EXPECT_TRUE(!flagged.failed() && flagged.flags == Archive::kCompressedContainers);

    Archive small(source.memSize() - 1, 0);
    small << source;
    EXPECT_TRUE(small.failed() && small.position == 0);
}

TEST(SkeletonArchive, RefusedStreamsLeaveTheSkeletonAsItWas) {
    Skeleton target = richSkeleton();
    const std::string before = dump(target);
    const MurmurHash3 hashBefore = hashOf(target);
    const auto refused = [&](const Bytes& bytes) {
        const bool took = read(bytes, target);
        return !took && dump(target) == before && hashOf(target) == hashBefore;
    };
    const auto joints = [](unsigned n) { return Stream().u16(n); };

    Stream good = joints(3);
    good.joint("a", 0, kNone, {1}).joint("b", 1, 0, {2}).joint("c", 2, 1, {}).plainTail();
    Skeleton check;
    ASSERT_TRUE(read(good.b, check));

    Stream s;
    s = joints(3).joint("a", 0, kNone, {1}).joint("b", 1, 0, {2}).joint("c", 2, 3, {});
    EXPECT_TRUE(refused(s.plainTail().b)) << "parent id out of range";
    s = joints(3).joint("a", 0, kNone, {1}).joint("b", 1, 0, {3}).joint("c", 2, 1, {});
    EXPECT_TRUE(refused(s.plainTail().b)) << "child id out of range";
    s = joints(3).joint("a", 0, 2, {1}).joint("b", 1, 0, {2}).joint("c", 2, 1, {0});
    EXPECT_TRUE(refused(s.plainTail().b)) << "cycle";
    s = joints(1).joint("a", 0, 0, {});
    EXPECT_TRUE(refused(s.plainTail().b)) << "own parent";
    s = joints(3).joint("a", 0, kNone, {1, 2}).joint("b", 1, 0, {2}).joint("c", 2, 1, {});
    EXPECT_TRUE(refused(s.plainTail().b)) << "child under two parents";
    s = joints(2).joint("a", 0, kNone, {1, 1}).joint("b", 1, 0, {});
    EXPECT_TRUE(refused(s.plainTail().b)) << "child listed twice";
    s = joints(2).joint("a", 0, kNone, {1}).joint("b", 1, kNone, {});
    EXPECT_TRUE(refused(s.plainTail().b)) << "child whose parent id names another";
    s = joints(2).joint("a", 0, kNone, {}).joint("b", 5, kNone, {});
    EXPECT_TRUE(refused(s.plainTail().b)) << "id that is not the index";
    EXPECT_TRUE(refused(joints(65535).joint("a", 0, kNone, {}).plainTail().b)) << "joint count";
    s = joints(1).joint("a", 0, kNone, {}).put(uint64_t(1) << 40);
    EXPECT_TRUE(refused(s.u16(0).u16(1).u16(0).u16(0).b)) << "metadata count";
    Archive emptyMap(MapMetadata().memSize(), 0);
    MapMetadata().serialise(emptyMap);
    for (unsigned id : {1u, 0u}) {  // out of range; then the same id twice
        s = joints(1).joint("a", 0, kNone, {}).put(uint64_t(2)).u16(0);
        s.b.insert(s.b.end(), emptyMap.data, emptyMap.data + emptyMap.size);
        s.u16(id).b.insert(s.b.end(), emptyMap.data, emptyMap.data + emptyMap.size);
        EXPECT_TRUE(refused(s.u16(0).u16(1).u16(0).u16(0).b)) << "metadata id " << id;
    }

    // Every truncation of a full stream, metadata included.
    const Bytes full = written(richSkeleton());
    for (size_t n = 0; n < full.size(); ++n)
        ASSERT_TRUE(refused(Bytes(full.begin(), full.begin() + n))) << n << " bytes";

    // An archive that had already failed is not read from.
    Archive failedArchive(full.size(), 0);
    std::memcpy(failedArchive.data, full.data(), full.size());
    failedArchive.setFailed();
    Skeleton untouched(1);
    failedArchive >> untouched;
    EXPECT_EQ(untouched.numJoints(), 1);
}

TEST(SkeletonHash, ByteRuns) {
    // 0 "b" -> 1 "a": names fed in joint id order, not in hash-table order.
    Skeleton s(2);
    s[0].setName("b");
    s[1].setName("a");
    s[0].addChild(&s[1]);
    s.buildJointNameMap();
    s.buildDetachedJointsList();

    MurmurHash3 expected;
    const auto run = [&expected](const void* p, size_t n) { expected.hash(p, n); };
    const double w = 1, xyz[3] = {0, 0, 0}, one[3] = {1, 1, 1};
    const uint16_t ids[] = {0, 1, 2};
    for (int j = 0; j < 2; ++j) {
        run(j ? "a" : "b", 1);
        run(&ids[j], 2);
        run(&w, 8);
        run(xyz, 24);
        run(xyz, 24);
        run(one, 24);
        if (j) run(&ids[0], 2);   // parent
        run(&ids[j ? 0 : 1], 2);  // child count
        if (!j) run(&ids[1], 2);
    }
    const int32_t named[] = {0, 1};
    run("b", 1);
    run(&named[0], 4);
    run("a", 1);
    run(&named[1], 4);
    run(nullptr, 0);  // pelvises
    run(&ids[0], 2);  // detached joints
    run(&ids[0], 2);  // root
    run(&ids[2], 2);  // joint count
    EXPECT_EQ(hashOf(s), expected);

    // Every translation component counts.
    const MurmurHash3 base = hashOf(s);
    s[1].setTranslation(V3d(0, 0, 1e-9));
    EXPECT_NE(hashOf(s), base);
    s[1].setTranslation(V3d(1e-9, 0, 0));
    EXPECT_NE(hashOf(s), base);
}

TEST(SkeletonText, JointAndHierarchy) {
    Skeleton s(4);
    const char* names[] = {"hip", "knee", "ankle", "toe"};
    for (unsigned short i = 0; i < 4; ++i)
        s[i].setName(names[i]);
    s[0].addChild(&s[1]);
    s[0].addChild(&s[2]);
    s[1].addChild(&s[3]);
    s[1].setTranslation(V3d(0, -4, 1.5));
    s.addFoot(2, 0, 3);

    std::ostringstream joint;
    joint << s[1];
    EXPECT_EQ(joint.str(),
              "Joint object\n\tName:knee\n\tId:1\n\tRotation:(1, 0, 0, 0)\n"
              "\tTranslation:(0, -4, 1.5)\n\tScale:(1, 1, 1)\n"
              "\tMatrix: (1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, -4, 1.5, 1)\tParent:hip\n"
              "\tNum children:1\n\tChild 0: toe\n");

    const std::string text = dump(s);
    EXPECT_EQ(text.substr(0, text.find("Joint object")), "Number of joints: 4\nJoint 0\n");
    const std::string tail = text.substr(text.find("\n\nNumber of feet"));
    EXPECT_EQ(tail,
              "\n\nNumber of feet: 1\nFoot 0: 2 - 0 - 3\nNumber of pelvises: 1\nPelvis 0: 0 \n"
              "Root: 0\nHierarchy\n0: hip\n    2: ankle\n    1: knee\n        3: toe\n");
}
