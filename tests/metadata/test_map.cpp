#include "core/metadata/MapMetadata.h"

#include <gtest/gtest.h>

#include "core/metadata/ArrayMetadata.h"
#include "core/metadata/MetadataImpl.h"
#include "core/metadata/TypedArrayMetadata.h"
#include "tests/metadata/ProbeMetadata.h"

namespace {

using namespace ZeltoCore;
using namespace ZeltoTest;
using Keys = std::vector<std::string>;
using MapTest = ContainerTest;

MapMetadata sample() {
    MapMetadata m;
    m.insertEntry("a", intProbe(9));
    m.insertEntry("B", intProbe(7));
    m.insertEntry("ab", doubleProbe(0.5));
    return m;
}

TEST_F(MapTest, GoldenLayouts) {
    MapMetadata withHoles = sample();
    withHoles.addEmptyEntry("hole");  // left out of the plain layout
    const MapMetadata empty;
    MapMetadata ints;
    ints.insertEntry("a", std::make_shared<MetadataImpl<int>>(5));
    // clang-format off
    const struct {
        const MapMetadata& map;
        std::string bytes;
    } cases[] = {
        {empty, Bytes().u32(1).u64(0).u64(0).b},
        // Keys in byte order "B" < "a" < "ab"; rows: key length, key, size, offset.
        {withHoles, Bytes().u32(1).u64(3).u64(3 * 24 + 4)
             .u64(1).str("B").u64(8).u64(0)
             .u64(1).str("a").u64(8).u64(8)
             .u64(2).str("ab").u64(12).u64(16)
             .u32(901).num<int32_t>(7).u32(901).num<int32_t>(9).u32(902).num(0.5).b},
        {ints, Bytes().u32(1).u64(1).u64(25).u64(1).str("a").u64(8).u64(0).u32(3).num<int32_t>(5).b},
    };
    // clang-format on
    for (const auto& c : cases) {
        EXPECT_EQ(serialised(c.map, 0), c.bytes);
        EXPECT_EQ(serialised(c.map, 4), c.bytes);
        auto back = std::static_pointer_cast<MapMetadata>(readBack(1, c.bytes, 0));
        EXPECT_EQ(serialised(*back, 0), c.bytes);
    }

    // Written at an offset inside a larger archive; refused when the room is short.
    const std::string bytes = cases[1].bytes;
    Archive big(bytes.size() + 5, 0);
    big.position = 5;
    EXPECT_TRUE(sample().serialise(big));
    EXPECT_EQ(bytesOf(big).substr(5), bytes);
    Archive small(bytes.size() - 1, 0);
    EXPECT_FALSE(sample().serialise(small));
    EXPECT_EQ(small.position, 0u);
}

TEST_F(MapTest, SharingAndCloningOfEachAddOperation) {
    MapMetadata m;
    auto v = intProbe(1);
    IntProbe raw(2);
    m.addEntry("shared", v, false);
    m.insertEntry("inserted", v);
    m.addEntry("deep", v, true);
    m.addEntry("const", std::shared_ptr<const Metadata>(v));
    m.addEntry("raw", &raw);
    static_cast<IntProbe&>(*v).value = 5;
    EXPECT_EQ(m.getEntry("shared"), v);
    EXPECT_EQ(m.getEntry("inserted"), v);
    EXPECT_EQ(intOf(m.getEntry("deep")), 1);
    EXPECT_EQ(intOf(m.getEntry("const")), 1);
    EXPECT_EQ(intOf(m.getEntry("raw")), 2);

    // A deep copy onto a value of the same type keeps the held object; another type replaces it.
    auto held = m.getEntry("deep");
    m.addEntry("deep", intProbe(3), true);
    EXPECT_EQ(m.getEntry("deep"), held);
    EXPECT_EQ(intOf(held), 3);
    m.addEntry("deep", doubleProbe(2.5), true);
    EXPECT_NE(m.getEntry("deep"), held);

    // Empty values change nothing; an empty entry is a key without value.
    m.addEntry("none", std::shared_ptr<Metadata>(), true);
    m.insertEntry("none", nullptr);
    m.addEntry("none", static_cast<Metadata*>(nullptr));
    EXPECT_FALSE(m.hasKey("none"));
    m.addEmptyEntry("shared");
    EXPECT_TRUE(m.hasKey("shared"));
    EXPECT_FALSE(m.getEntry("shared"));
    m.eraseEntry("absent");
    EXPECT_EQ(m.getKeys(), (Keys{"const", "deep", "inserted", "raw", "shared"}));
}

TEST_F(MapTest, CopyConstructionAndSynchronisingCopy) {
    MapMetadata source;
    source.insertEntry("same", intProbe(1));
    source.insertEntry("retyped", doubleProbe(2));
    source.insertEntry("new", intProbe(3));
    source.addEmptyEntry("hole");
    source.addEmptyEntry("hole2");
    const MapMetadata built(source);
    EXPECT_EQ(built.getKeys(), (Keys{"new", "retyped", "same"}));
    EXPECT_NE(built.getEntry("same"), source.getEntry("same"));

    MapMetadata target;
    target.insertEntry("same", intProbe(10));
    target.insertEntry("retyped", intProbe(20));
    target.insertEntry("hole", intProbe(30));
    target.insertEntry("gone", intProbe(40));
    auto same = target.getEntry("same");
    auto hole = target.getEntry("hole");
    target = source;
    EXPECT_EQ(target.getKeys(), (Keys{"hole", "new", "retyped", "same"}));
    EXPECT_EQ(target.getEntry("same"), same);
    EXPECT_EQ(intOf(same), 1);
    EXPECT_EQ(target.getEntry("retyped")->typeId(), 902u);
    EXPECT_EQ(target.getEntry("hole"), hole);  // the source has no value: left as it was
    EXPECT_NE(target.getEntry("new"), source.getEntry("new"));
    target.copy(nullptr);
    target.copy(&target);
    EXPECT_EQ(target.size(), 4u);
}

TEST_F(MapTest, HashCountsEmptyEntriesOnlyInTheCount) {
    MapMetadata m;
    m.insertEntry("b", intProbe(2));
    m.insertEntry("a", doubleProbe(1.5));
    m.addEmptyEntry("c");
    MurmurHash3 expected;
    expected.append(uint64_t(3));
    expected.append(std::string("a"));
    expected.append(1.5);
    expected.append(std::string("b"));
    expected.append(int32_t(2));
    MurmurHash3 h;
    m.hash(h);
    EXPECT_EQ(h, expected);
}

TEST_F(MapTest, ReadReusesHeldValuesOnlyForTheSameKeys) {
    const std::string bytes = serialised(sample(), 0);
    MapMetadata m;
    m.insertEntry("a", intProbe(0));
    m.insertEntry("B", intProbe(0));
    m.insertEntry("ab", doubleProbe(0));
    const auto a = m.getEntry("a");
    const auto ab = m.getEntry("ab");
    for (uint64_t flags : {0u, 4u}) {
        Archive archive;
        loadBytes(archive, bytes);
        archive.flags = flags;
        const int before = IntProbe::created + DoubleProbe::created;
        EXPECT_TRUE(m.deserialise(archive));
        EXPECT_EQ(IntProbe::created + DoubleProbe::created, before);
        EXPECT_EQ(m.getEntry("a"), a);
        EXPECT_EQ(intOf(a), 9);
    }
    // A held value of another type gives way to the stored type; an empty entry stays empty.
    m.insertEntry("a", doubleProbe(0));
    m.addEmptyEntry("B");
    Archive archive;
    loadBytes(archive, bytes);
    EXPECT_TRUE(m.deserialise(archive));
    EXPECT_EQ(intOf(m.getEntry("a")), 9);
    EXPECT_FALSE(m.getEntry("B"));
    EXPECT_EQ(m.getEntry("ab"), ab);

    // One key more or one less: every value is new.
    for (bool extra : {true, false}) {
        MapMetadata other;
        other.insertEntry("a", a);
        other.insertEntry("ab", ab);
        if (extra) {
            other.insertEntry("B", intProbe(0));
            other.insertEntry("z", intProbe(0));
        }
        loadBytes(archive, bytes);
        EXPECT_TRUE(other.deserialise(archive));
        EXPECT_EQ(other.getKeys(), (Keys{"B", "a", "ab"}));
        EXPECT_NE(other.getEntry("a"), a);
        EXPECT_NE(other.getEntry("ab"), ab);
    }
}

TEST_F(MapTest, UnknownTypeAndWrongTypeId) {
    std::string bytes = serialised(sample(), 0);
    bytes[20 + 3 * 24 + 4] = char(0x77);  // "B" now has type id 0x0377, which nobody registered
    for (uint64_t flags : {0u, 4u}) {
        bool ok = false;
        auto m = std::static_pointer_cast<MapMetadata>(readBack(1, bytes, flags, &ok));
        EXPECT_TRUE(ok);
        EXPECT_TRUE(m->hasKey("B"));
        EXPECT_FALSE(m->getEntry("B"));
        EXPECT_EQ(intOf(m->getEntry("a")), 9);
    }
    Archive a;
    loadBytes(a, Bytes().u32(0).u32(2).u64(0).u64(0).b);
    a.position = 4;
    MapMetadata m = sample();
    EXPECT_FALSE(m.deserialise(a));
    EXPECT_EQ(a.position, 4u);
    EXPECT_EQ(m.size(), 3u);
    // An absurd entry count is refused before anything is allocated for it.
    bool ok = true;
    readBack(1, Bytes().u32(1).u64(uint64_t(1) << 60).u64(0).b, 0, &ok);
    EXPECT_FALSE(ok);
}

TEST_F(MapTest, NestedBagIsIdenticalSequentialAndParallel) {
    MapMetadata joint;
    joint.insertEntry("weight", std::make_shared<MetadataImpl<double>>(0.5));
    joint.insertEntry("name", std::make_shared<MetadataImpl<std::string>>("knee"));
    ArrayMetadata list;
    list.push_back(joint.clone());
    list.push_back(std::make_shared<TypedArrayMetadata<double>>(std::vector<double>{1, 2, 3}));
    MapMetadata bag;
    bag.insertEntry("joints", list.clone());
    bag.insertEntry("", joint.clone());
    for (int i = 0; i < 200; ++i) {
        bag.insertEntry("samples" + std::to_string(i),
                        std::make_shared<TypedArrayMetadata<double>>(std::vector<double>(i, i)));
    }
    MurmurHash3 expected;
    bag.hash(expected);
    const std::string seq = serialised(bag, 0);
    EXPECT_EQ(serialised(bag, 4), seq);
    for (uint64_t flags : {0u, 4u}) {
        auto back = std::static_pointer_cast<MapMetadata>(readBack(1, seq, flags));
        MurmurHash3 h;
        back->hash(h);
        EXPECT_EQ(h, expected);
        EXPECT_EQ(serialised(*back, 0), seq);
    }
}

TEST_F(MapTest, DamagedInputNeverReadsOutsideTheBuffer) {
    MapMetadata m = sample();
    m.insertEntry("nested", sample().clone());
    const std::string bytes = serialised(m, 0);
    sweepDamaged(1, bytes, 0);
    // A table cut short changes nothing; a cut value area keeps the keys and the whole values.
    const size_t tableEnd = 20 + 4 * 24 + 10;
    for (size_t n : {tableEnd - 1, tableEnd + 8}) {
        Archive a;
        loadBytes(a, bytes.substr(0, n));
        MapMetadata back;
        back.insertEntry("old", intProbe(1));
        EXPECT_FALSE(back.deserialise(a));
        EXPECT_EQ(back.size(), n < tableEnd ? 1u : 4u);
        if (n > tableEnd) {
            EXPECT_EQ(intOf(back.getEntry("B")), 7);
        }
    }
}

}  // namespace
