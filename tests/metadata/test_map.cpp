#include "core/metadata/MapMetadata.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "core/metadata/MetadataImpl.h"
#include "tests/metadata/ProbeMetadata.h"

namespace {

using namespace ZeltoCore;
using namespace ZeltoTest;
using MapTest = ContainerTest;

MapMetadata sample() {
    MapMetadata m;
    m.insertEntry("a", intProbe(9));
    m.insertEntry("B", intProbe(7));
    m.insertEntry("ab", doubleProbe(0.5));
    return m;
}

// Plain layouts of maps and arrays, identical sequential (flag 0) and parallel (flag 4).
TEST_F(MapTest, GoldenLayoutsAndHash) {
    MapMetadata withHole = sample();
    withHole.addEmptyEntry("hole");  // left out of the layout, counted in the hash
    const MapMetadata emptyMap;
    MapMetadata ints;
    ints.insertEntry("a", std::make_shared<MetadataImpl<int>>(5));
    ArrayMetadata array;
    array.push_back(intProbe(5));
    array.push_back(doubleProbe(0.25));
    array.push_back(intProbe(-1));
    const ArrayMetadata emptyArray;
    // clang-format off
    const struct {
        const Metadata& value;
        std::string bytes;
    } cases[] = {
        {emptyMap, Bytes().u32(1).u64(0).u64(0).b},
        // Keys in byte order "B" < "a" < "ab"; rows: key length, key, size, offset.
        {withHole, Bytes().u32(1).u64(3).u64(3 * 24 + 4)
             .u64(1).str("B").u64(8).u64(0)
             .u64(1).str("a").u64(8).u64(8)
             .u64(2).str("ab").u64(12).u64(16)
             .u32(901).num<int32_t>(7).u32(901).num<int32_t>(9).u32(902).num(0.5).b},
        {ints, Bytes().u32(1).u64(1).u64(25).u64(1).str("a").u64(8).u64(0).u32(3).num<int32_t>(5).b},
        // Array rows: offset then size.
        {array, Bytes().u32(2).u64(3).u64(0).u64(8).u64(8).u64(12).u64(20).u64(8)
             .u32(901).num<int32_t>(5).u32(902).num(0.25).u32(901).num<int32_t>(-1).b},
        {emptyArray, Bytes().u32(2).u64(0).b},
    };
    // clang-format on
    for (const auto& c : cases) {
        for (uint64_t flags : {0u, 4u}) {
            EXPECT_EQ(serialised(c.value, flags), c.bytes);
            EXPECT_EQ(serialised(*readBack(c.value.typeId(), c.bytes, flags), 0), c.bytes);
        }
    }
    MurmurHash3 h, expected;
    withHole.hash(h);
    expected.append(uint64_t(4));
    for (const char* key : {"B", "a"}) {
        expected.append(std::string(key));
        expected.append(int32_t(*key == 'a' ? 9 : 7));
    }
    expected.append(std::string("ab"));
    expected.append(0.5);
    EXPECT_EQ(h, expected);

    // Written at an offset inside a larger archive; refused when the room is short.
    const std::string bytes = cases[1].bytes;
    Archive big(bytes.size() + 5, 0), small(bytes.size() - 1, 0);
    big.position = 5;
    EXPECT_TRUE(sample().serialise(big));
    EXPECT_EQ(bytesOf(big).substr(5), bytes);
    EXPECT_FALSE(sample().serialise(small));
    EXPECT_EQ(small.position, 0u);
}

TEST_F(MapTest, AddOperationsShareOrClone) {
    MapMetadata m;
    auto v = intProbe(1);
    IntProbe raw(2);
    m.addEntry("shared", v, false);
    m.insertEntry("inserted", v);
    m.addEntry("deep", v, true);
    m.addEntry("const", std::shared_ptr<const Metadata>(v));
    m.addEntry("raw", &raw);
    static_cast<IntProbe&>(*v).value = 5;
    EXPECT_EQ(contents(m), "const=1 deep=1 inserted=5 raw=2 shared=5 ");

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
    m.addEmptyEntry("shared");
    m.eraseEntry("absent");
    EXPECT_EQ(contents(m), "const=1 deep=? inserted=5 raw=2 shared=- ");
}

TEST_F(MapTest, CopyClonesAndAssignmentSynchronises) {
    MapMetadata source;
    source.insertEntry("same", intProbe(1));
    source.insertEntry("retyped", doubleProbe(2));
    source.insertEntry("new", intProbe(3));
    source.addEmptyEntry("hole");
    source.addEmptyEntry("hole2");
    const MapMetadata built(source);
    EXPECT_EQ(contents(built), "new=3 retyped=? same=1 ");
    EXPECT_NE(built.getEntry("same"), source.getEntry("same"));

    MapMetadata target;
    for (const char* key : {"same", "retyped", "hole", "gone"})
        target.insertEntry(key, intProbe(0));
    auto same = target.getEntry("same");
    auto hole = target.getEntry("hole");
    target = source;
    // Same type: the held object takes the value; no value in the source: left as it was.
    EXPECT_EQ(contents(target), "hole=0 new=3 retyped=? same=1 ");
    EXPECT_EQ(target.getEntry("same"), same);
    EXPECT_EQ(target.getEntry("hole"), hole);
    EXPECT_NE(target.getEntry("new"), source.getEntry("new"));
    target.copy(nullptr);
    target.copy(&target);
    EXPECT_EQ(target.size(), 4u);
}

TEST_F(MapTest, ReadReusesHeldValuesOnlyForTheSameKeys) {
    const std::string bytes = serialised(sample(), 0);
    MapMetadata m;
    m.insertEntry("a", intProbe(0));
    m.insertEntry("B", intProbe(0));
    m.insertEntry("ab", doubleProbe(0));
    const auto a = m.getEntry("a");
    const auto ab = m.getEntry("ab");
    Archive archive;
    for (uint64_t flags : {0u, 4u}) {
        loadBytes(archive, bytes, flags);
        const int before = IntProbe::created + DoubleProbe::created;
        EXPECT_TRUE(m.deserialise(archive));
        EXPECT_EQ(IntProbe::created + DoubleProbe::created, before);
        EXPECT_EQ(m.getEntry("a"), a);
        EXPECT_EQ(intOf(a), 9);
    }
    // A held value of another type gives way to the stored type; an empty entry stays empty.
    m.insertEntry("a", doubleProbe(0));
    m.addEmptyEntry("B");
    loadBytes(archive, bytes);
    EXPECT_TRUE(m.deserialise(archive));
    EXPECT_EQ(contents(m), "B=- a=9 ab=? ");
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
        EXPECT_EQ(contents(other), "B=7 a=9 ab=? ");
        EXPECT_NE(other.getEntry("a"), a);
        EXPECT_NE(other.getEntry("ab"), ab);
    }
}

// Values read into an empty map are objects of their own, never one shared prototype, also when
// the map is big enough for flag 4 to run worker threads. (Held, retyped and every-type reads are
// pinned with the map's fast paths.)
TEST_F(MapTest, ReadValuesAreDistinctObjects) {
    MapMetadata source;
    for (int i = 0; i < 9000; ++i)
        source.insertEntry("w" + std::to_string(i), std::make_shared<MetadataImpl<double>>(i));
    const std::string bytes = serialised(source, 0);
    for (uint64_t flags : {0u, 4u}) {
        MapMetadata m;
        Archive archive;
        loadBytes(archive, bytes, flags);
        ASSERT_TRUE(m.deserialise(archive));
        EXPECT_EQ(serialised(m, 0), bytes);
        auto w1 = m.getEntry("w1");
        auto w2 = m.getEntry("w2");
        ASSERT_NE(w1, w2);
        static_cast<MetadataImpl<double>&>(*w1).set(99);
        EXPECT_EQ(static_cast<MetadataImpl<double>&>(*w2).get(), 2.0);
    }
}

// The plain layout of int probes under one-letter keys, rows in the given order.
std::string intRows(const std::vector<std::pair<char, int32_t>>& rows) {
    Bytes b;
    b.u32(1).u64(rows.size()).u64(rows.size() * 25);
    for (size_t i = 0; i < rows.size(); ++i)
        b.u64(1).str(std::string(1, rows[i].first)).u64(8).u64(8 * i);
    for (const auto& row : rows)
        b.u32(901).num(row.second);
    return b.b;
}

// Rows out of key order (a writer other than ours) still land under their keys; a repeated key
// keeps its last row.
TEST_F(MapTest, TablesOutOfKeyOrderRead) {
    const std::string bytes = intRows({{'b', 1}, {'a', 2}, {'b', 3}});
    for (uint64_t flags : {0u, 4u}) {
        MapMetadata m;
        Archive archive;
        loadBytes(archive, bytes, flags);
        EXPECT_TRUE(m.deserialise(archive));
        EXPECT_EQ(contents(m), "a=2 b=3 ");
        // Held keys a and b: three rows never match two entries, so values are new.
        auto a = m.getEntry("a");
        loadBytes(archive, bytes, flags);
        EXPECT_TRUE(m.deserialise(archive));
        EXPECT_EQ(contents(m), "a=2 b=3 ");
        EXPECT_NE(m.getEntry("a"), a);
    }
    // Unsorted but unique keys held by the map read in place.
    const std::string unique = intRows({{'b', 5}, {'a', 6}});
    MapMetadata m;
    m.insertEntry("a", intProbe(0));
    m.insertEntry("b", intProbe(0));
    auto a = m.getEntry("a");
    Archive archive;
    loadBytes(archive, unique, 0);
    EXPECT_TRUE(m.deserialise(archive));
    EXPECT_EQ(contents(m), "a=6 b=5 ");
    EXPECT_EQ(m.getEntry("a"), a);
}

TEST_F(MapTest, UnknownTypeAndWrongTypeId) {
    std::string bytes = serialised(sample(), 0);
    bytes[20 + 3 * 24 + 4] = char(0x77);  // "B" now has type id 0x0377, which nobody registered
    for (uint64_t flags : {0u, 4u}) {
        bool ok = false;
        auto m = std::static_pointer_cast<MapMetadata>(readBack(1, bytes, flags, &ok));
        EXPECT_TRUE(ok);
        EXPECT_EQ(contents(*m), "B=- a=9 ab=? ");
    }
    Archive a;
    loadBytes(a, Bytes().u32(0).u32(2).u64(0).u64(0).b);
    a.position = 4;
    MapMetadata m = sample();
    EXPECT_FALSE(m.deserialise(a));
    EXPECT_EQ(a.position, 4u);
    EXPECT_EQ(m.size(), 3u);
}

}  // namespace
