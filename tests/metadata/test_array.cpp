#include "core/metadata/ArrayMetadata.h"

#include <gtest/gtest.h>

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

TEST_F(ArrayTest, ClonesInSharedOutAndIndexRules) {
    ArrayMetadata array;
    auto v = intProbe(1);
    IntProbe raw(2);
    array.push_back(v);
    array.push_back(&raw);
    array.insert(0, v);
    array.insert(9, intProbe(3));  // past the end: appended
    array.push_back(std::shared_ptr<Metadata>());
    static_cast<IntProbe&>(*v).value = 9;
    raw.value = 9;
    static_cast<IntProbe&>(*array[0]).value = 7;
    array.erase(5);
    array.erase(1);
    EXPECT_EQ(contents(array), "7 2 3 ");
    EXPECT_FALSE(array[3]);

    // Assignment releases what was held and clones the source's elements.
    const auto old = array[0];
    const ArrayMetadata source = sample();
    array = source;
    array.copy(&array);
    array.copy(nullptr);
    EXPECT_EQ(contents(array), "5 ? -1 ");
    EXPECT_NE(array[0], old);
    EXPECT_NE(array[0], source[0]);
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
        loadBytes(a, bytes, flags);
        EXPECT_TRUE(array.deserialise(a));
        EXPECT_EQ(a.position, bytes.size());
        EXPECT_EQ(contents(array), "- ? -1 ");
        EXPECT_NE(array[2], held);

        // The empty element counts in the hash only through the count, is left out of the
        // archive and stays empty in a copy.
        MurmurHash3 h, expected;
        array.hash(h);
        expected.append(uint64_t(3));
        expected.append(0.25);
        expected.append(int32_t(-1));
        EXPECT_EQ(h, expected);
        array.erase(0);
        EXPECT_EQ(serialised(ArrayMetadata(array), flags), serialised(array, 0));
    }
    // The plain reader steps over the type id without looking at it.
    bytes[0] = char(7);
    EXPECT_TRUE(reads(2, bytes, 0));
}

// Large enough for flag 4 to use worker threads: the same bytes, and the same elements back.
TEST_F(ArrayTest, LargeArraysReadAndWriteAlikeInParallel) {
    ArrayMetadata array;
    for (int i = 0; i < 9000; ++i)
        array.push_back(i % 3 ? intProbe(i) : doubleProbe(i * 0.5));
    const std::string bytes = serialised(array, 0);
    EXPECT_EQ(serialised(array, 4), bytes);
    ArrayMetadata back;
    Archive a;
    loadBytes(a, bytes, 4);
    EXPECT_TRUE(back.deserialise(a));
    EXPECT_EQ(contents(back), contents(array));
    EXPECT_EQ(serialised(back, 0), bytes);
}

TEST_F(ArrayTest, VersionOneTablesAndCutInput) {
    // One 64-bit number per element and no offsets; flags 2 and 4 do not apply to version 1.
    const std::string v1 =
        Bytes().u32(2).u64(2).u64(123).u64(456).u32(901).num<int32_t>(4).u32(902).num(1.5).b;
    Archive a;
    loadBytes(a, v1, 2 | 4);
    a.version = 1;
    ArrayMetadata array;
    EXPECT_TRUE(array.deserialise(a));
    EXPECT_EQ(a.position, v1.size());
    EXPECT_EQ(contents(array), "4 ? ");
    // An unknown type hides where the next element starts: the rest stays empty.
    std::string bad = v1;
    bad[12 + 16] = char(0x77);
    loadBytes(a, bad);
    a.version = 1;
    EXPECT_FALSE(array.deserialise(a));
    EXPECT_EQ(contents(array), "- - ");

    // A cut table changes nothing; a cut element area keeps the length and the whole elements.
    const std::string bytes = serialised(sample(), 0);
    for (size_t n : {size_t(12 + 3 * 16 - 1), size_t(12 + 3 * 16 + 8)}) {
        Archive cut;
        loadBytes(cut, bytes.substr(0, n));
        ArrayMetadata back;
        back.push_back(intProbe(3));
        EXPECT_FALSE(back.deserialise(cut));
        EXPECT_EQ(contents(back), n < 60 ? "3 " : "5 - - ");
    }
}

}  // namespace
