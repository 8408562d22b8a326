// Compressed layouts of MapMetadata and ArrayMetadata, and what every form shares.
#include <gtest/gtest.h>

#include "core/metadata/TypedArrayMetadata.h"
#include "tests/metadata/ProbeMetadata.h"

namespace {

using namespace ZeltoCore;
using namespace ZeltoTest;
using CompressedTest = ContainerTest;

// A value too small to shrink is stored: method byte 0, its length as a one-byte varint, the
// plain bytes.
std::string stored(const std::string& plain) {
    return std::string(1, '\0') + char(plain.size()) + plain;
}
const std::string kInt7 = Bytes().u32(901).num<int32_t>(7).b;
const std::string kHalf = Bytes().u32(902).num(0.5).b;

MapMetadata sampleMap() {
    MapMetadata m;
    m.insertEntry("B", intProbe(7));
    m.addEmptyEntry("a");
    m.insertEntry("ab", doubleProbe(0.5));
    return m;
}

ArrayMetadata nestedArray(int count) {
    ArrayMetadata array;
    for (int i = 0; i < count; ++i) {
        MapMetadata item;
        item.insertEntry("index", intProbe(i));
        item.insertEntry("samples", std::make_shared<TypedArrayMetadata<double>>(
                                        std::vector<double>(size_t(i) * 3, i * 0.5)));
        array.push_back(item.clone());
    }
    return array;
}

TEST_F(CompressedTest, GoldenLayouts) {
    ArrayMetadata two;
    two.push_back(intProbe(7));
    two.push_back(doubleProbe(0.5));
    const MapMetadata map = sampleMap();
    // clang-format off
    const struct {
        const Metadata& value;
        std::string bytes;
    } cases[] = {
        {map, Bytes().u32(1).u64(3).u64(3 * 24 + 4)
             .u64(1).str("B").u64(10).u64(0)
             .u64(1).str("a").u64(0).u64(10)  // no value: an empty block
             .u64(2).str("ab").u64(14).u64(10)
             .str(stored(kInt7)).str(stored(kHalf)).b},
        {two, Bytes().u32(2).u64(2).u64(0).u64(10).u64(10).u64(14)
             .str(stored(kInt7)).str(stored(kHalf)).b},
    };
    // clang-format on
    for (const auto& c : cases) {
        for (uint64_t flags : {2u, 6u}) {
            EXPECT_EQ(serialised(c.value, flags), c.bytes);
            EXPECT_EQ(serialised(*readBack(c.value.typeId(), c.bytes, flags), 2), c.bytes);
        }
    }
    // An element of unknown type reads back empty and keeps its index as a size-0 row.
    std::string unknown = cases[1].bytes;
    unknown[12 + 32 + 2] = char(0x77);
    EXPECT_EQ(serialised(*readBack(2, unknown, 2), 2),
              Bytes().u32(2).u64(2).u64(0).u64(0).u64(0).u64(14).str(stored(kHalf)).b);

    // The writer takes the whole archive, whatever its size and position; the reader leaves
    // exactly the stored keys, each with a new object.
    Archive a(cases[0].bytes.size() + 50, 2);
    a.position = 7;
    EXPECT_TRUE(map.serialise(a));
    EXPECT_EQ(bytesOf(a), cases[0].bytes);
    MapMetadata m;
    m.insertEntry("B", intProbe(0));
    m.insertEntry("zz", intProbe(0));
    const auto heldB = m.getEntry("B");
    a.reset();
    ASSERT_TRUE(m.deserialise(a));
    EXPECT_EQ(contents(m), "B=7 a=- ab=? ");
    EXPECT_NE(m.getEntry("B"), heldB);
}

// Blocks that must not decompress (bombs included): a map entry ends without value, an array
// element stays as it was; the other values read and the call succeeds.
TEST_F(CompressedTest, BadBlocksFailOnlyTheirOwnValue) {
    const std::string lz4Bomb = Bytes().num<uint8_t>(1).str("\xff\xff\xff\xff\x0f").str("ab").b;
    const std::string zstdBomb = Bytes().num<uint8_t>(2).str("\x80\x80\x80\x80\x01").str("xy").b;
    const std::string badMethod = std::string("\x09\x08") + kInt7;
    const std::string shortStored = std::string("\x00\x09", 2) + kInt7;
    for (const std::string& block : {lz4Bomb, zstdBomb, badMethod, shortStored, std::string()}) {
        const uint64_t n = block.size();
        // clang-format off
        const std::string map = Bytes().u32(1).u64(2).u64(2 * 25)
            .u64(1).str("x").u64(n).u64(0)
            .u64(1).str("y").u64(10).u64(n)
            .str(block).str(stored(kInt7)).b;
        const std::string array = Bytes().u32(2).u64(2).u64(0).u64(n).u64(n).u64(10)
            .str(block).str(stored(kInt7)).b;
        // clang-format on
        EXPECT_EQ(contents(static_cast<MapMetadata&>(*readBack(1, map, 2))), "x=- y=7 ");
        Archive a;
        loadBytes(a, array);
        ArrayMetadata elements;
        for (int i = 1; i <= 3; ++i)
            elements.push_back(intProbe(i));
        EXPECT_TRUE(elements.deserialiseCompressed(a));
        EXPECT_EQ(contents(elements), "1 7 ");
    }
}

// Nested containers in every form: parallel bytes equal sequential ones, and the hash survives.
TEST_F(CompressedTest, RoundTripsInEveryForm) {
    MapMetadata map;
    map.insertEntry("list", nestedArray(100).clone());
    for (int i = 0; i < 200; ++i)
        map.insertEntry("k" + std::to_string(i), intProbe(i));
    const ArrayMetadata array = nestedArray(100);
    for (const Metadata* m : std::initializer_list<const Metadata*>{&map, &array}) {
        MurmurHash3 expected;
        m->hash(expected);
        for (uint64_t form : {0u, 2u}) {
            const std::string seq = serialised(*m, form);
            EXPECT_EQ(serialised(*m, form | 4), seq);
            EXPECT_EQ(seq.size() < m->memSize(), form != 0);
            for (uint64_t flags : {form, form | 4}) {
                auto back = readBack(m->typeId(), seq, flags);
                MurmurHash3 h;
                back->hash(h);
                EXPECT_EQ(h, expected);
                EXPECT_EQ(serialised(*back, form), seq);
            }
        }
    }
}

TEST_F(CompressedTest, DamagedInputIsRefusedWithoutOverrun) {
    MapMetadata map = sampleMap();
    map.insertEntry("list", nestedArray(3).clone());
    ArrayMetadata array = nestedArray(2);
    array.push_back(sampleMap().clone());
    for (uint64_t flags : {0u, 2u}) {
        sweepDamaged(1, serialised(map, flags), flags);
        sweepDamaged(2, serialised(array, flags), flags);
    }
    // A cut compressed table leaves the map as it was.
    Archive a;
    loadBytes(a, serialised(map, 2).substr(0, 20 + 24));
    MapMetadata back;
    back.insertEntry("old", intProbe(1));
    EXPECT_FALSE(back.deserialiseCompressed(a));
    EXPECT_EQ(contents(back), "old=1 ");
    // Absurd counts are refused before anything is allocated for them; a compressed reader
    // checks the type id; version-1 arrays are always plain.
    for (uint64_t flags : {0u, 2u}) {
        EXPECT_FALSE(reads(1, Bytes().u32(1).u64(uint64_t(1) << 60).u64(0).b, flags));
        EXPECT_FALSE(reads(2, Bytes().u32(2).u64(~0ull / 8).b, flags));
        EXPECT_FALSE(reads(2, Bytes().u32(2).u64(~0ull).b, flags));
    }
    EXPECT_FALSE(reads(2, Bytes().u32(1).u64(0).b, 2));
    loadBytes(a, Bytes().u32(2).u64(1).u64(0).u32(901).num<int32_t>(4).b, 2);
    a.version = 1;
    ArrayMetadata v1;
    ASSERT_TRUE(v1.deserialise(a));
    EXPECT_EQ(contents(v1), "4 ");
}

}  // namespace
