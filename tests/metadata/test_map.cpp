#include "core/metadata/MapMetadata.h"

#include <gtest/gtest.h>

#include "core/Init.h"
#include "core/metadata/ArrayMetadata.h"
#include "core/metadata/MetadataImpl.h"
#include "core/metadata/TypedArrayMetadata.h"
#include "tests/metadata/ProbeMetadata.h"

namespace {

using namespace ZeltoCore;
using namespace ZeltoTest;

class MapTest : public ::testing::Test {
protected:
    void SetUp() override {
        initMetadata();
        IntProbe::registerType();
        DoubleProbe::registerType();
    }
};

std::string write(const Metadata& m, uint64_t flags) {
    Archive a;
    a.flags = flags;
    EXPECT_TRUE(m.serialise(a));
    EXPECT_EQ(a.position, a.size);
    EXPECT_EQ(a.size, m.memSize());
    return bytesOf(a);
}

MapMetadata sample() {
    MapMetadata m;
    m.insertEntry("a", intProbe(9));
    m.insertEntry("B", intProbe(7));
    m.insertEntry("ab", doubleProbe(0.5));
    return m;
}

TEST_F(MapTest, EmptyMapIsTwentyBytesInBothModes) {
    MapMetadata m;
    const std::string expected = Bytes().u32(1).u64(0).u64(0).b;
    EXPECT_EQ(m.memSize(), 20u);
    EXPECT_EQ(write(m, 0), expected);
    EXPECT_EQ(write(m, 4), expected);
    MapMetadata back = sample();
    Archive a;
    loadBytes(a, expected);
    EXPECT_TRUE(back.deserialise(a));
    EXPECT_EQ(back.size(), 0u);
    EXPECT_EQ(a.position, 20u);
}

TEST_F(MapTest, PlainLayoutFieldByField) {
    // Byte order of keys: "B" < "a" < "ab". Rows: key length, key, value size, value offset.
    const std::string expected = Bytes()
                                     .u32(1)
                                     .u64(3)
                                     .u64(3 * 24 + 1 + 1 + 2)
                                     .u64(1)
                                     .str("B")
                                     .u64(8)
                                     .u64(0)
                                     .u64(1)
                                     .str("a")
                                     .u64(8)
                                     .u64(8)
                                     .u64(2)
                                     .str("ab")
                                     .u64(12)
                                     .u64(16)
                                     .u32(901)
                                     .num<int32_t>(7)
                                     .u32(901)
                                     .num<int32_t>(9)
                                     .u32(902)
                                     .num(0.5)
                                     .b;
    const MapMetadata m = sample();
    EXPECT_EQ(m.memSize(), 20u + 3 * 24 + 4 + 28);
    EXPECT_EQ(write(m, 0), expected);
    EXPECT_EQ(write(m, 4), expected);

    // Written at an offset inside a larger archive, with the room checked first.
    Archive big(expected.size() + 5, 0);
    big.position = 5;
    EXPECT_TRUE(m.serialise(big));
    EXPECT_EQ(big.position, big.size);
    EXPECT_EQ(bytesOf(big).substr(5), expected);
    Archive small(expected.size() - 1, 0);
    EXPECT_FALSE(m.serialise(small));
    EXPECT_EQ(small.position, 0u);
}

TEST_F(MapTest, RoundTripSequentialAndParallelWithNesting) {
    MapMetadata inner = sample();
    MapMetadata outer;
    for (int i = 0; i < 500; ++i)
        outer.insertEntry("k" + std::to_string(i), intProbe(i));
    outer.insertEntry("inner", inner.clone());
    outer.insertEntry("", doubleProbe(-1.25));
    const std::string seq = write(outer, 0);
    EXPECT_EQ(write(outer, 4), seq);
    for (uint64_t flags : {0u, 4u}) {
        Archive a;
        a.flags = flags;
        a << outer;
        EXPECT_EQ(bytesOf(a), seq);
        a.reset();
        MapMetadata back;
        a >> back;
        EXPECT_EQ(a.position, seq.size());
        EXPECT_EQ(back.getKeys(), outer.getKeys());
        EXPECT_EQ(intOf(back.getEntry("k321")), 321);
        auto nested = std::dynamic_pointer_cast<MapMetadata>(back.getEntry("inner"));
        ASSERT_TRUE(nested);
        EXPECT_EQ(intOf(nested->getEntry("B")), 7);
        EXPECT_EQ(write(back, 0), seq);
    }
}

TEST_F(MapTest, SharingAndCloningOfEachAddOperation) {
    MapMetadata m;
    auto v = intProbe(1);
    m.addEntry("shared", v, false);
    m.insertEntry("inserted", v);
    m.addEntry("deep", v, true);
    m.addEntry("const", std::shared_ptr<const Metadata>(v));
    IntProbe raw(2);
    m.addEntry("raw", &raw);
    static_cast<IntProbe&>(*v).value = 5;
    EXPECT_EQ(m.getEntry("shared"), v);
    EXPECT_EQ(m.getEntry("inserted"), v);
    EXPECT_EQ(intOf(m.getEntry("deep")), 1);
    EXPECT_EQ(intOf(m.getEntry("const")), 1);
    EXPECT_EQ(intOf(m.getEntry("raw")), 2);
    EXPECT_NE(m.getEntry("raw").get(), &raw);

    // Deep copy onto a value of the same type keeps the held object; another type replaces it.
    auto held = m.getEntry("deep");
    m.addEntry("deep", intProbe(3), true);
    EXPECT_EQ(m.getEntry("deep"), held);
    EXPECT_EQ(intOf(held), 3);
    m.addEntry("deep", doubleProbe(2.5), true);
    EXPECT_NE(m.getEntry("deep"), held);
    EXPECT_EQ(m.getEntry("deep")->typeId(), 902u);

    // Empty values change nothing.
    m.addEntry("none", std::shared_ptr<Metadata>(), true);
    m.insertEntry("none", nullptr);
    m.addEntry("none", static_cast<Metadata*>(nullptr));
    EXPECT_FALSE(m.hasKey("none"));

    m.addEmptyEntry("shared");
    EXPECT_TRUE(m.hasKey("shared"));
    EXPECT_FALSE(m.getEntry("shared"));
    EXPECT_FALSE(m.getEntry("absent"));
    EXPECT_EQ(m.size(), 5u);
    m.eraseEntry("shared");
    m.eraseEntry("absent");
    EXPECT_EQ(m.getKeys(), (std::vector<std::string>{"const", "deep", "inserted", "raw"}));
    m.clear();
    EXPECT_EQ(m.size(), 0u);
}

TEST_F(MapTest, CopyConstructionAndSynchronisingCopy) {
    MapMetadata source;
    source.insertEntry("same", intProbe(1));
    source.insertEntry("retyped", doubleProbe(2));
    source.insertEntry("new", intProbe(3));
    source.addEmptyEntry("hole");
    source.addEmptyEntry("hole2");

    const MapMetadata built(source);
    EXPECT_EQ(built.getKeys(), (std::vector<std::string>{"new", "retyped", "same"}));
    EXPECT_NE(built.getEntry("same"), source.getEntry("same"));

    MapMetadata target;
    target.insertEntry("same", intProbe(10));
    target.insertEntry("retyped", intProbe(20));
    target.insertEntry("hole", intProbe(30));
    target.insertEntry("gone", intProbe(40));
    auto same = target.getEntry("same");
    auto retyped = target.getEntry("retyped");
    auto hole = target.getEntry("hole");
    target = source;
    EXPECT_EQ(target.getKeys(), (std::vector<std::string>{"hole", "new", "retyped", "same"}));
    EXPECT_EQ(target.getEntry("same"), same);
    EXPECT_EQ(intOf(same), 1);
    EXPECT_EQ(target.getEntry("retyped")->typeId(), 902u);
    EXPECT_EQ(target.getEntry("hole"), hole);  // source has no value: left as it was
    EXPECT_NE(target.getEntry("new"), source.getEntry("new"));

    auto clone = std::static_pointer_cast<MapMetadata>(source.clone());
    EXPECT_EQ(clone->size(), 3u);
    target.copy(nullptr);
    target.copy(&target);
    EXPECT_EQ(target.size(), 4u);
}

TEST_F(MapTest, HashCountsEmptyEntriesOnlyInTheCount) {
    MapMetadata m;
    m.insertEntry("b", intProbe(2));
    m.insertEntry("a", doubleProbe(1.5));
    MurmurHash3 expected;
    expected.append(uint64_t(2));
    expected.append(std::string("a"));
    expected.append(1.5);
    expected.append(std::string("b"));
    expected.append(int32_t(2));
    MurmurHash3 h;
    m.hash(h);
    EXPECT_EQ(h, expected);

    m.addEmptyEntry("c");
    MurmurHash3 withHole;
    m.hash(withHole);
    MurmurHash3 expectedHole;
    expectedHole.append(uint64_t(3));
    expectedHole.append(std::string("a"));
    expectedHole.append(1.5);
    expectedHole.append(std::string("b"));
    expectedHole.append(int32_t(2));
    EXPECT_EQ(withHole, expectedHole);
}

TEST_F(MapTest, EntriesWithoutValueAreLeftOutOfTheArchive) {
    MapMetadata m = sample();
    const std::string plain = write(m, 0);
    m.addEmptyEntry("hole");
    m.addEmptyEntry("");
    EXPECT_EQ(write(m, 0), plain);
    EXPECT_EQ(write(m, 4), plain);
}

TEST_F(MapTest, ReadReusesHeldValuesOnlyForTheSameKeys) {
    const std::string bytes = write(sample(), 0);
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
    EXPECT_EQ(static_cast<DoubleProbe&>(*ab).value, 0.5);

    // A held value of another type is replaced by a new value of the stored type; an entry
    // held without value stays so.
    m.insertEntry("a", doubleProbe(0));
    m.addEmptyEntry("B");
    Archive archive;
    loadBytes(archive, bytes);
    EXPECT_TRUE(m.deserialise(archive));
    EXPECT_EQ(intOf(m.getEntry("a")), 9);
    EXPECT_FALSE(m.getEntry("B"));
    EXPECT_EQ(m.getEntry("ab"), ab);

    // One key more or less: every value is new.
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
        EXPECT_EQ(other.getKeys(), (std::vector<std::string>{"B", "a", "ab"}));
        EXPECT_NE(other.getEntry("a"), a);
        EXPECT_NE(other.getEntry("ab"), ab);
    }
}

TEST_F(MapTest, UnknownTypeGivesAnEmptyEntryAndLaterEntriesStillRead) {
    std::string bytes = write(sample(), 0);
    const size_t firstValue = 20 + 3 * 24 + 4;
    bytes[firstValue] = char(0x77);  // "B" now has type id 0x0377, which nobody registered
    for (uint64_t flags : {0u, 4u}) {
        Archive a;
        loadBytes(a, bytes);
        a.flags = flags;
        MapMetadata m;
        EXPECT_TRUE(m.deserialise(a));
        EXPECT_TRUE(m.hasKey("B"));
        EXPECT_FALSE(m.getEntry("B"));
        EXPECT_EQ(intOf(m.getEntry("a")), 9);
        EXPECT_EQ(a.position, bytes.size());
    }
}

TEST_F(MapTest, WrongTypeIdLeavesMapAndCursorUnchanged) {
    Archive a;
    loadBytes(a, Bytes().u32(0).u32(2).u64(0).u64(0).b);
    a.position = 4;
    MapMetadata m = sample();
    EXPECT_FALSE(m.deserialise(a));
    EXPECT_EQ(a.position, 4u);
    EXPECT_EQ(m.size(), 3u);
    Archive empty;
    EXPECT_FALSE(m.deserialise(empty));
}

TEST_F(MapTest, DamagedInputNeverReadsOutsideTheBuffer) {
    MapMetadata inner = sample();
    MapMetadata m = sample();
    m.insertEntry("nested", inner.clone());
    const std::string bytes = write(m, 0);
    const size_t tableEnd = 20 + 4 * 24 + 1 + 1 + 2 + 6;
    for (uint64_t flags : {0u, 4u}) {
        for (size_t n = 0; n < bytes.size(); ++n) {
            Archive a;
            loadBytes(a, bytes.substr(0, n));
            a.flags = flags;
            MapMetadata back;
            back.insertEntry("old", intProbe(1));
            EXPECT_FALSE(back.deserialise(a)) << n;
            EXPECT_LE(a.position, a.size);
            if (n < tableEnd) {
                EXPECT_EQ(back.getKeys(), std::vector<std::string>{"old"}) << n;
            } else {
                // The table is intact: every key is there, values up to the cut are kept.
                EXPECT_EQ(back.size(), 4u) << n;
                if (n >= tableEnd + 8) {
                    EXPECT_EQ(intOf(back.getEntry("B")), 7) << n;
                }
            }
        }
        // Every byte corrupted in turn: no crash, no overrun (sanitizers watch).
        for (size_t i = 0; i < bytes.size(); ++i) {
            std::string bad = bytes;
            bad[i] = char(0xff);
            Archive a;
            loadBytes(a, bad);
            a.flags = flags;
            MapMetadata back;
            back.deserialise(a);
            EXPECT_LE(a.position, a.size);
        }
    }
    // An absurd entry count is refused before anything is allocated for it.
    Archive a;
    loadBytes(a, Bytes().u32(1).u64(uint64_t(1) << 60).u64(0).b);
    MapMetadata back;
    EXPECT_FALSE(back.deserialise(a));
    EXPECT_TRUE(a.failed());
}

}  // namespace

namespace {

using namespace ZeltoCore;
using namespace ZeltoTest;

TEST(MapWithValues, IntEntryLayoutAndFactoryRegistration) {
    initMetadata();
    MapMetadata m;
    m.insertEntry("a", std::make_shared<MetadataImpl<int>>(5));
    EXPECT_EQ(m.memSize(), 20u + 25 + 8);
    Archive a;
    m.serialise(a);
    EXPECT_EQ(bytesOf(a),
              Bytes().u32(1).u64(1).u64(25).u64(1).str("a").u64(8).u64(0).u32(3).num<int32_t>(5).b);

    auto& factory = MetadataFactory::instance();
    EXPECT_EQ(factory.getMetadataName(1), "MapMetadata");
    EXPECT_EQ(factory.getMetadataName(2), "ArrayMetadata");
    a.reset();
    std::shared_ptr<Metadata> back = readMetadata(a);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->typeId(), 1u);
    EXPECT_EQ(std::static_pointer_cast<MapMetadata>(back)->memSize(), m.memSize());
}

TEST(MapWithValues, NestedPropertyBagRoundTripsInBothModes) {
    initMetadata();
    MapMetadata joint;
    joint.insertEntry("weight", std::make_shared<MetadataImpl<double>>(0.5));
    joint.insertEntry("name", std::make_shared<MetadataImpl<std::string>>("knee"));
    ArrayMetadata list;
    list.push_back(joint.clone());
    list.push_back(std::make_shared<TypedArrayMetadata<double>>(std::vector<double>{1, 2, 3}));
    MapMetadata bag;
    bag.insertEntry("joints", list.clone());
    bag.insertEntry("joint", joint.clone());
    for (int i = 0; i < 200; ++i) {
        bag.insertEntry("samples" + std::to_string(i),
                        std::make_shared<TypedArrayMetadata<double>>(std::vector<double>(i, i)));
    }
    MurmurHash3 expected;
    bag.hash(expected);
    const std::string seq = write(bag, 0);
    EXPECT_EQ(write(bag, 4), seq);
    for (uint64_t flags : {0u, 4u}) {
        Archive a;
        loadBytes(a, seq);
        a.flags = flags;
        MapMetadata back;
        ASSERT_TRUE(back.deserialise(a));
        MurmurHash3 h;
        back.hash(h);
        EXPECT_EQ(h, expected);
        auto samples =
            std::dynamic_pointer_cast<TypedArrayMetadata<double>>(back.getEntry("samples150"));
        ASSERT_TRUE(samples);
        EXPECT_EQ(samples->get(), std::vector<double>(150, 150));
        // Read again into the same map: the held arrays are reused.
        a.reset();
        ASSERT_TRUE(back.deserialise(a));
        EXPECT_EQ(back.getEntry("samples150"), samples);
    }
}

}  // namespace
