#include "core/metadata/ArrayMetadata.h"

#include <gtest/gtest.h>

#include "core/metadata/MapMetadata.h"
#include "tests/metadata/ProbeMetadata.h"

namespace {

using namespace ZeltoCore;
using namespace ZeltoTest;
using ArrayTest = ContainerTest;

ArrayMetadata sample() {
    ArrayMetadata array;
    array.push_back(intProbe(5));
    array.push_back(doubleProbe(0.25));
    array.push_back(intProbe(-1));
    return array;
}

// The int probes of an array; -999 for an empty element, -2 for another type.
std::vector<int32_t> intsOf(const ArrayMetadata& array) {
    std::vector<int32_t> out;
    for (size_t i = 0; i < array.size(); ++i) {
        auto e = array[i];
        out.push_back(!e ? -999 : e->typeId() == 901 ? intOf(e) : -2);
    }
    return out;
}

TEST_F(ArrayTest, GoldenLayoutsOffsetThenSize) {
    const ArrayMetadata empty;
    const ArrayMetadata three = sample();
    // clang-format off
    const struct {
        const ArrayMetadata& array;
        std::string bytes;
    } cases[] = {
        {empty, Bytes().u32(2).u64(0).b},
        {three, Bytes().u32(2).u64(3).u64(0).u64(8).u64(8).u64(12).u64(20).u64(8)
             .u32(901).num<int32_t>(5).u32(902).num(0.25).u32(901).num<int32_t>(-1).b},
    };
    // clang-format on
    for (const auto& c : cases) {
        EXPECT_EQ(serialised(c.array, 0), c.bytes);
        EXPECT_EQ(serialised(c.array, 4), c.bytes);
        auto back = std::static_pointer_cast<ArrayMetadata>(readBack(2, c.bytes, 4));
        EXPECT_EQ(serialised(*back, 0), c.bytes);
    }
}

TEST_F(ArrayTest, ClonesInSharedOutAndIndexRules) {
    ArrayMetadata array;
    auto v = intProbe(1);
    IntProbe raw(2);
    array.push_back(v);
    array.push_back(&raw);
    array.insert(0, v);
    array.insert(1, &raw);
    array.insert(9, intProbe(3));  // past the end: appended
    array.push_back(std::shared_ptr<Metadata>());
    static_cast<IntProbe&>(*v).value = 9;
    raw.value = 9;
    EXPECT_EQ(intsOf(array), (std::vector<int32_t>{1, 2, 1, 2, 3}));
    static_cast<IntProbe&>(*array[0]).value = 7;
    EXPECT_EQ(intOf(array[0]), 7);
    array.erase(5);
    array.erase(0);
    EXPECT_EQ(intsOf(array), (std::vector<int32_t>{2, 1, 2, 3}));
    EXPECT_FALSE(array[4]);

    // Assignment releases what was held and clones the source's elements.
    const auto old = array[0];
    const ArrayMetadata source = sample();
    array = source;
    EXPECT_EQ(intsOf(array), intsOf(source));
    EXPECT_NE(array[0], old);
    EXPECT_NE(array[0], source[0]);
    array.copy(&array);
    array.copy(nullptr);
    EXPECT_EQ(intsOf(array), intsOf(source));
}

TEST_F(ArrayTest, ReadCreatesNewElementsAndSkipsUnknownTypes) {
    std::string bytes = serialised(sample(), 0);
    bytes[12 + 48] = char(0x77);  // element 0 gets an unregistered type id
    for (uint64_t flags : {0u, 4u}) {
        ArrayMetadata array;
        for (int i = 0; i < 10; ++i)
            array.push_back(intProbe(i));
        const auto held = array[2];
        Archive a;
        loadBytes(a, bytes);
        a.flags = flags;
        EXPECT_TRUE(array.deserialise(a));
        EXPECT_EQ(a.position, bytes.size());
        EXPECT_EQ(intsOf(array), (std::vector<int32_t>{-999, -2, -1}));
        EXPECT_NE(array[2], held);

        // The empty element counts in the hash only through the count, is left out of the
        // archive and stays empty in a copy.
        MurmurHash3 h, expected;
        array.hash(h);
        expected.append(uint64_t(3));
        expected.append(0.25);
        expected.append(int32_t(-1));
        EXPECT_EQ(h, expected);
        ArrayMetadata two;
        two.push_back(doubleProbe(0.25));
        two.push_back(intProbe(-1));
        EXPECT_EQ(serialised(array, flags), serialised(two, 0));
        EXPECT_EQ(intsOf(ArrayMetadata(array)), intsOf(array));
    }
    // The plain reader steps over the type id without looking at it.
    bytes[0] = char(7);
    EXPECT_EQ(intsOf(*std::static_pointer_cast<ArrayMetadata>(readBack(2, bytes, 0))).size(), 3u);
}

TEST_F(ArrayTest, VersionOneTablesAreReadSequentially) {
    // One 64-bit number per element and no offsets; flags 2 and 4 do not apply to version 1.
    const std::string v1 =
        Bytes().u32(2).u64(2).u64(123).u64(456).u32(901).num<int32_t>(4).u32(902).num(1.5).b;
    Archive a;
    loadBytes(a, v1);
    a.version = 1;
    a.flags = 2 | 4;
    ArrayMetadata array;
    EXPECT_TRUE(array.deserialise(a));
    EXPECT_EQ(a.position, v1.size());
    EXPECT_EQ(intsOf(array), (std::vector<int32_t>{4, -2}));

    // An unknown type hides where the next element starts: the rest stays empty.
    std::string bad = v1;
    bad[12 + 16] = char(0x77);
    loadBytes(a, bad);
    a.version = 1;
    EXPECT_FALSE(array.deserialise(a));
    EXPECT_EQ(intsOf(array), (std::vector<int32_t>{-999, -999}));
}

TEST_F(ArrayTest, NestedContainersAreIdenticalSequentialAndParallel) {
    ArrayMetadata array;
    for (int i = 0; i < 300; ++i) {
        MapMetadata map;
        map.insertEntry("index", intProbe(i));
        map.insertEntry("inner", sample().clone());
        array.push_back(map.clone());
    }
    const std::string seq = serialised(array, 0);
    EXPECT_EQ(serialised(array, 4), seq);
    EXPECT_EQ(serialised(*readBack(2, seq, 4), 0), seq);
}

TEST_F(ArrayTest, DamagedInputNeverReadsOutsideTheBuffer) {
    ArrayMetadata array = sample();
    array.push_back(sample().clone());
    const std::string bytes = serialised(array, 0);
    sweepDamaged(2, bytes, 0);
    // A table cut short changes nothing; a cut element area keeps the length and whole elements.
    const size_t tableEnd = 12 + 4 * 16;
    for (size_t n : {tableEnd - 1, tableEnd + 8}) {
        Archive a;
        loadBytes(a, bytes.substr(0, n));
        ArrayMetadata back;
        back.push_back(intProbe(3));
        EXPECT_FALSE(back.deserialise(a));
        const std::vector<int32_t> expected =
            n < tableEnd ? std::vector<int32_t>{3} : std::vector<int32_t>{5, -999, -999, -999};
        EXPECT_EQ(intsOf(back), expected);
    }
    bool ok = true;
    readBack(2, Bytes().u32(2).u64(~uint64_t(0)).b, 0, &ok);
    EXPECT_FALSE(ok);
}

}  // namespace
