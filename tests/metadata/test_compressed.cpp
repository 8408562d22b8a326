// Compressed layouts of MapMetadata and ArrayMetadata.
#include <gtest/gtest.h>

#include "core/Init.h"
#include "core/metadata/ArrayMetadata.h"
#include "core/metadata/MapMetadata.h"
#include "core/metadata/TypedArrayMetadata.h"
#include "tests/metadata/ProbeMetadata.h"

namespace {

using namespace ZeltoCore;
using namespace ZeltoTest;

class CompressedTest : public ::testing::Test {
protected:
    void SetUp() override {
        initMetadata();
        IntProbe::registerType();
        DoubleProbe::registerType();
    }
};

// A value too small to shrink is stored: method byte 0, its length as a one-byte varint, the
// plain bytes. Two bytes of framing per small value.
std::string stored(const std::string& plain) {
    return std::string(1, '\0') + char(plain.size()) + plain;
}
const std::string kInt7 = Bytes().u32(901).num<int32_t>(7).b;
const std::string kHalf = Bytes().u32(902).num(0.5).b;

std::string writeCompressed(const Metadata& m, uint64_t flags) {
    Archive a;
    a.flags = flags;
    EXPECT_TRUE(m.serialise(a));
    EXPECT_EQ(a.flags, flags);  // the hand-over puts the flags back
    EXPECT_EQ(a.position, a.size);
    return bytesOf(a);
}

MapMetadata sampleMap() {
    MapMetadata m;
    m.insertEntry("B", intProbe(7));
    m.addEmptyEntry("a");
    m.insertEntry("ab", doubleProbe(0.5));
    return m;
}

ArrayMetadata bigArray(int count = 300) {
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

TEST_F(CompressedTest, EmptyContainersAreTheirHeaders) {
    const std::string emptyMap = Bytes().u32(1).u64(0).u64(0).b;
    const std::string emptyArray = Bytes().u32(2).u64(0).b;
    for (uint64_t flags : {2u, 6u}) {
        EXPECT_EQ(writeCompressed(MapMetadata(), flags), emptyMap);
        EXPECT_EQ(writeCompressed(ArrayMetadata(), flags), emptyArray);
    }
    Archive a;
    loadBytes(a, emptyMap);
    a.flags = 2;
    MapMetadata map = sampleMap();
    EXPECT_TRUE(map.deserialise(a));
    EXPECT_EQ(map.size(), 0u);
    loadBytes(a, emptyArray);
    ArrayMetadata array;
    array.push_back(intProbe(1));
    EXPECT_TRUE(array.deserialise(a));
    EXPECT_EQ(array.size(), 0u);
    EXPECT_EQ(a.position, 12u);
}

TEST_F(CompressedTest, MapLayoutKeepsEntriesWithoutValueAsEmptyBlocks) {
    const std::string expected = Bytes()
                                     .u32(1)
                                     .u64(3)
                                     .u64(3 * 24 + 1 + 1 + 2)
                                     .u64(1)
                                     .str("B")
                                     .u64(10)
                                     .u64(0)
                                     .u64(1)
                                     .str("a")
                                     .u64(0)
                                     .u64(10)
                                     .u64(2)
                                     .str("ab")
                                     .u64(14)
                                     .u64(10)
                                     .str(stored(kInt7))
                                     .str(stored(kHalf))
                                     .b;
    EXPECT_EQ(writeCompressed(sampleMap(), 2), expected);
    EXPECT_EQ(writeCompressed(sampleMap(), 6), expected);

    Archive a;
    loadBytes(a, expected);
    a.flags = 2;
    MapMetadata back;
    ASSERT_TRUE(back.deserialise(a));
    EXPECT_EQ(a.position, a.size);
    EXPECT_EQ(back.getKeys(), (std::vector<std::string>{"B", "a", "ab"}));
    EXPECT_EQ(intOf(back.getEntry("B")), 7);
    EXPECT_FALSE(back.getEntry("a"));
}

TEST_F(CompressedTest, ArrayLayoutAndEmptyElementsKeepTheirIndex) {
    ArrayMetadata array;
    array.push_back(intProbe(7));
    array.push_back(doubleProbe(0.5));
    const std::string expected = Bytes()
                                     .u32(2)
                                     .u64(2)
                                     .u64(0)
                                     .u64(10)
                                     .u64(10)
                                     .u64(14)
                                     .str(stored(kInt7))
                                     .str(stored(kHalf))
                                     .b;
    EXPECT_EQ(writeCompressed(array, 2), expected);
    EXPECT_EQ(writeCompressed(array, 6), expected);

    // An element of unknown type reads back empty, and is written as a size-0 row.
    std::string unknown = expected;
    unknown[12 + 32 + 2] = char(0x77);
    Archive a;
    loadBytes(a, unknown);
    a.flags = 2;
    ArrayMetadata back;
    ASSERT_TRUE(back.deserialise(a));
    ASSERT_EQ(back.size(), 2u);
    EXPECT_FALSE(back[0]);
    Archive again;
    back.serialiseCompressed(again);
    EXPECT_EQ(bytesOf(again),
              Bytes().u32(2).u64(2).u64(0).u64(0).u64(0).u64(14).str(stored(kHalf)).b);
}

TEST_F(CompressedTest, RoundTripsSequentialAndParallelWithIdenticalBytes) {
    MapMetadata map;
    map.insertEntry("list", bigArray().clone());
    for (int i = 0; i < 200; ++i)
        map.insertEntry("k" + std::to_string(i), intProbe(i));
    map.addEmptyEntry("hole");
    const ArrayMetadata array = bigArray();
    for (const Metadata* m : std::initializer_list<const Metadata*>{&map, &array}) {
        const std::string seq = writeCompressed(*m, 2);
        EXPECT_EQ(writeCompressed(*m, 6), seq);
        EXPECT_LT(seq.size(), m->memSize());
        MurmurHash3 expected;
        m->hash(expected);
        for (uint64_t flags : {2u, 6u}) {
            Archive a;
            loadBytes(a, seq);
            a.flags = flags;
            std::shared_ptr<Metadata> back =
                MetadataFactory::instance().createMetadata(m->typeId());
            ASSERT_TRUE(back->deserialise(a));
            EXPECT_EQ(a.flags, flags);
            EXPECT_EQ(a.position, a.size);
            MurmurHash3 h;
            back->hash(h);
            EXPECT_EQ(h, expected);
            EXPECT_EQ(writeCompressed(*back, 2), seq);
        }
    }
}

TEST_F(CompressedTest, WriterTakesTheWholeArchive) {
    const std::string bytes = writeCompressed(sampleMap(), 2);
    Archive a(bytes.size() + 50, 2);
    a.position = 7;
    EXPECT_TRUE(sampleMap().serialise(a));
    EXPECT_EQ(bytesOf(a), bytes);
    EXPECT_EQ(a.position, bytes.size());
}

TEST_F(CompressedTest, ReadReplacesEveryHeldValueAndKey) {
    const std::string bytes = writeCompressed(sampleMap(), 2);
    MapMetadata m;
    m.insertEntry("B", intProbe(0));
    m.insertEntry("a", intProbe(0));
    m.insertEntry("zz", intProbe(0));
    const auto heldB = m.getEntry("B");
    Archive a;
    loadBytes(a, bytes);
    a.flags = 2;
    ASSERT_TRUE(m.deserialise(a));
    EXPECT_EQ(m.getKeys(), (std::vector<std::string>{"B", "a", "ab"}));
    EXPECT_NE(m.getEntry("B"), heldB);
    EXPECT_EQ(intOf(heldB), 0);
    EXPECT_FALSE(m.getEntry("a"));
}

TEST_F(CompressedTest, VersionOneArraysNeverHandOver) {
    const std::string v1 = Bytes().u32(2).u64(1).u64(0).u32(901).num<int32_t>(4).b;
    Archive a;
    loadBytes(a, v1);
    a.version = 1;
    a.flags = 2;
    ArrayMetadata array;
    ASSERT_TRUE(array.deserialise(a));
    EXPECT_EQ(intOf(array[0]), 4);
}

// Blocks that must not decompress: each leaves its entry without value (maps) or its element as
// it was (arrays), and the call still succeeds.
TEST_F(CompressedTest, BadBlocksFailOnlyTheirOwnValue) {
    const std::string lz4Bomb = Bytes().num<uint8_t>(1).str("\xff\xff\xff\xff\x0f").str("ab").b;
    const std::string zstdBomb = Bytes().num<uint8_t>(2).str("\x80\x80\x80\x80\x01").str("xy").b;
    const std::string badMethod = std::string("\x09\x08") + kInt7;
    const std::string shortStored = std::string("\x00\x09", 2) + kInt7;
    for (const std::string& block : {lz4Bomb, zstdBomb, badMethod, shortStored, std::string()}) {
        const std::string mapBytes = Bytes()
                                         .u32(1)
                                         .u64(2)
                                         .u64(2 * 25)
                                         .u64(1)
                                         .str("x")
                                         .u64(block.size())
                                         .u64(0)
                                         .u64(1)
                                         .str("y")
                                         .u64(10)
                                         .u64(block.size())
                                         .str(block)
                                         .str(stored(kInt7))
                                         .b;
        Archive a;
        loadBytes(a, mapBytes);
        MapMetadata map;
        map.insertEntry("x", intProbe(1));
        EXPECT_TRUE(map.deserialiseCompressed(a));
        EXPECT_TRUE(map.hasKey("x"));
        EXPECT_FALSE(map.getEntry("x"));
        EXPECT_EQ(intOf(map.getEntry("y")), 7);

        const std::string arrayBytes = Bytes()
                                           .u32(2)
                                           .u64(2)
                                           .u64(0)
                                           .u64(block.size())
                                           .u64(block.size())
                                           .u64(10)
                                           .str(block)
                                           .str(stored(kInt7))
                                           .b;
        loadBytes(a, arrayBytes);
        ArrayMetadata array;
        array.push_back(intProbe(1));
        array.push_back(intProbe(2));
        array.push_back(intProbe(3));
        EXPECT_TRUE(array.deserialiseCompressed(a));
        ASSERT_EQ(array.size(), 2u);
        EXPECT_EQ(intOf(array[0]), 1);
        EXPECT_EQ(intOf(array[1]), 7);
        EXPECT_EQ(a.position, a.size);
    }
}

TEST_F(CompressedTest, DamagedInputNeverReadsOutsideTheBuffer) {
    MapMetadata map = sampleMap();
    map.insertEntry("list", bigArray(20).clone());
    const ArrayMetadata array = bigArray(20);
    for (const Metadata* m : std::initializer_list<const Metadata*>{&map, &array}) {
        const std::string bytes = writeCompressed(*m, 2);
        const bool isMap = m == &map;
        const size_t tableEnd = isMap ? 20 + 4 * 24 + 1 + 1 + 2 + 4 : 12 + 20 * 16;
        // Every cut: a cut table changes nothing; a cut value area keeps the table's entries.
        for (size_t n = 0; n < bytes.size(); n += (n < tableEnd + 64 ? 1 : 17)) {
            Archive a;
            loadBytes(a, bytes.substr(0, n));
            std::shared_ptr<Metadata> back =
                MetadataFactory::instance().createMetadata(m->typeId());
            if (isMap) {
                std::static_pointer_cast<MapMetadata>(back)->insertEntry("old", intProbe(1));
            }
            EXPECT_FALSE(
                isMap ? std::static_pointer_cast<MapMetadata>(back)->deserialiseCompressed(a)
                      : std::static_pointer_cast<ArrayMetadata>(back)->deserialiseCompressed(a))
                << n;
            EXPECT_LE(a.position, a.size);
            if (isMap) {
                EXPECT_EQ(std::static_pointer_cast<MapMetadata>(back)->size(),
                          n < tableEnd ? 1u : 4u)
                    << n;
            } else {
                EXPECT_EQ(std::static_pointer_cast<ArrayMetadata>(back)->size(),
                          n < tableEnd ? 0u : 20u)
                    << n;
            }
        }
        for (size_t i = 0; i < bytes.size(); i += (i < tableEnd + 64 ? 1 : 7)) {
            std::string bad = bytes;
            bad[i] = char(bad[i] ^ 0x5a);
            Archive a;
            loadBytes(a, bad);
            a.flags = 2;
            std::shared_ptr<Metadata> back =
                MetadataFactory::instance().createMetadata(m->typeId());
            back->deserialise(a);
            EXPECT_LE(a.position, a.size);
        }
    }
    // Absurd counts are refused before anything is allocated for them.
    for (const std::string& bytes :
         {Bytes().u32(1).u64(uint64_t(1) << 60).u64(0).b, Bytes().u32(2).u64(~0ull / 8).b}) {
        Archive a;
        loadBytes(a, bytes);
        a.flags = 2;
        MapMetadata map2;
        ArrayMetadata array2;
        EXPECT_FALSE(bytes[0] == 1 ? map2.deserialise(a) : array2.deserialise(a));
        EXPECT_TRUE(a.failed());
    }
}

}  // namespace
