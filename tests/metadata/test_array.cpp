#include "core/metadata/ArrayMetadata.h"

#include <gtest/gtest.h>

#include "core/Init.h"
#include "core/metadata/MapMetadata.h"
#include "tests/metadata/ProbeMetadata.h"

namespace {

using namespace ZeltoCore;
using namespace ZeltoTest;

class ArrayTest : public ::testing::Test {
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

ArrayMetadata sample() {
    ArrayMetadata array;
    array.push_back(intProbe(5));
    array.push_back(doubleProbe(0.25));
    array.push_back(intProbe(-1));
    return array;
}

std::vector<int32_t> intsOf(const ArrayMetadata& array) {
    std::vector<int32_t> out;
    for (size_t i = 0; i < array.size(); ++i) {
        auto e = array[i];
        out.push_back(!e ? -999 : e->typeId() == 901 ? intOf(e) : -2);
    }
    return out;
}

TEST_F(ArrayTest, EmptyArrayIsTwelveBytesInBothModes) {
    ArrayMetadata array;
    const std::string expected = Bytes().u32(2).u64(0).b;
    EXPECT_EQ(array.memSize(), 12u);
    EXPECT_EQ(write(array, 0), expected);
    EXPECT_EQ(write(array, 4), expected);
    ArrayMetadata back = sample();
    Archive a;
    loadBytes(a, expected);
    EXPECT_TRUE(back.deserialise(a));
    EXPECT_EQ(back.size(), 0u);
    EXPECT_EQ(a.position, 12u);
}

TEST_F(ArrayTest, PlainLayoutIsOffsetThenSize) {
    const std::string expected = Bytes()
                                     .u32(2)
                                     .u64(3)
                                     .u64(0)
                                     .u64(8)
                                     .u64(8)
                                     .u64(12)
                                     .u64(20)
                                     .u64(8)
                                     .u32(901)
                                     .num<int32_t>(5)
                                     .u32(902)
                                     .num(0.25)
                                     .u32(901)
                                     .num<int32_t>(-1)
                                     .b;
    const ArrayMetadata array = sample();
    EXPECT_EQ(array.memSize(), 12u + 3 * 16 + 28);
    EXPECT_EQ(write(array, 0), expected);
    EXPECT_EQ(write(array, 4), expected);
}

TEST_F(ArrayTest, ClonesInSharedOut) {
    ArrayMetadata array;
    auto v = intProbe(1);
    IntProbe raw(2);
    array.push_back(v);
    array.push_back(&raw);
    array.insert(0, v);
    array.insert(1, &raw);
    static_cast<IntProbe&>(*v).value = 9;
    raw.value = 9;
    EXPECT_EQ(intsOf(array), (std::vector<int32_t>{1, 2, 1, 2}));
    for (size_t i = 0; i < array.size(); ++i)
        EXPECT_NE(array[i], v);

    static_cast<IntProbe&>(*array[0]).value = 7;
    EXPECT_EQ(intOf(array[0]), 7);

    array.push_back(std::shared_ptr<Metadata>());
    array.insert(0, static_cast<Metadata*>(nullptr));
    EXPECT_EQ(array.size(), 4u);
}

TEST_F(ArrayTest, IndexRangeRules) {
    ArrayMetadata array;
    array.push_back(intProbe(0));
    array.push_back(intProbe(1));
    array.insert(5, intProbe(2));
    EXPECT_EQ(intsOf(array), (std::vector<int32_t>{0, 1, 2}));
    array.erase(3);
    EXPECT_EQ(array.size(), 3u);
    array.erase(0);
    EXPECT_EQ(intsOf(array), (std::vector<int32_t>{1, 2}));
    EXPECT_FALSE(array[2]);
    const ArrayMetadata& constant = array;
    EXPECT_FALSE(constant[7]);
    EXPECT_EQ(intOf(constant[1]), 2);
}

TEST_F(ArrayTest, CopyReleasesHeldElementsAndClones) {
    ArrayMetadata source = sample();
    ArrayMetadata target;
    target.push_back(intProbe(5));
    const auto old = target[0];
    target = source;
    EXPECT_EQ(target.size(), 3u);
    EXPECT_NE(target[0], old);
    EXPECT_NE(target[0], source[0]);
    EXPECT_EQ(intOf(target[0]), 5);
    target.copy(&target);
    EXPECT_EQ(intsOf(target), intsOf(source));
    target.copy(nullptr);
    EXPECT_EQ(target.size(), 3u);
    auto clone = std::static_pointer_cast<ArrayMetadata>(source.clone());
    EXPECT_EQ(write(*clone, 0), write(source, 0));
}

TEST_F(ArrayTest, ReadCreatesNewElementsAndSkipsUnknownTypes) {
    std::string bytes = write(sample(), 0);
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

        // The empty element counts in the hash only through the count, and is left out of the
        // archive.
        MurmurHash3 h, expected;
        array.hash(h);
        expected.append(uint64_t(3));
        expected.append(0.25);
        expected.append(int32_t(-1));
        EXPECT_EQ(h, expected);
        ArrayMetadata two;
        two.push_back(doubleProbe(0.25));
        two.push_back(intProbe(-1));
        EXPECT_EQ(write(array, flags), write(two, 0));
        ArrayMetadata copied(array);
        EXPECT_FALSE(copied[0]);
        EXPECT_EQ(copied.size(), 3u);
    }
}

TEST_F(ArrayTest, VersionOneTablesAreReadSequentially) {
    // One 64-bit number per element and no offsets; flags 2 and 4 are not used for version 1.
    const std::string v1 =
        Bytes().u32(2).u64(2).u64(123).u64(456).u32(901).num<int32_t>(4).u32(902).num(1.5).b;
    Archive a;
    loadBytes(a, v1);
    a.version = 1;
    a.flags = 2 | 4;
    ArrayMetadata array;
    EXPECT_TRUE(array.deserialise(a));
    EXPECT_EQ(a.position, v1.size());
    EXPECT_EQ(intOf(array[0]), 4);
    EXPECT_EQ(static_cast<const DoubleProbe&>(*array[1]).value, 1.5);

    // An unknown type hides where the next element starts: the rest stays empty.
    std::string bad = v1;
    bad[12 + 16] = char(0x77);
    loadBytes(a, bad);
    a.version = 1;
    EXPECT_FALSE(array.deserialise(a));
    EXPECT_EQ(array.size(), 2u);
    EXPECT_FALSE(array[0]);
    EXPECT_FALSE(array[1]);
}

TEST_F(ArrayTest, NestedContainersAreIdenticalSequentialAndParallel) {
    ArrayMetadata array;
    for (int i = 0; i < 300; ++i) {
        MapMetadata map;
        map.insertEntry("index", intProbe(i));
        ArrayMetadata inner = sample();
        map.insertEntry("inner", inner.clone());
        array.push_back(map.clone());
    }
    const std::string seq = write(array, 0);
    EXPECT_EQ(write(array, 4), seq);
    Archive a;
    loadBytes(a, seq);
    a.flags = 4;
    ArrayMetadata back;
    EXPECT_TRUE(back.deserialise(a));
    EXPECT_EQ(write(back, 0), seq);
    MurmurHash3 h1, h2;
    array.hash(h1);
    back.hash(h2);
    EXPECT_EQ(h1, h2);
}

TEST_F(ArrayTest, DamagedInputNeverReadsOutsideTheBuffer) {
    ArrayMetadata array = sample();
    ArrayMetadata inner = sample();
    array.push_back(inner.clone());
    const std::string bytes = write(array, 0);
    const size_t tableEnd = 12 + 4 * 16;
    for (uint64_t flags : {0u, 4u}) {
        for (size_t n = 0; n < bytes.size(); ++n) {
            Archive a;
            loadBytes(a, bytes.substr(0, n));
            a.flags = flags;
            ArrayMetadata back;
            back.push_back(intProbe(3));
            EXPECT_FALSE(back.deserialise(a)) << n;
            EXPECT_LE(a.position, a.size);
            EXPECT_EQ(back.size(), n < tableEnd ? 1u : 4u) << n;
            if (n >= tableEnd + 8) {
                EXPECT_EQ(intOf(back[0]), 5) << n;
            }
        }
        for (size_t i = 0; i < bytes.size(); ++i) {
            std::string bad = bytes;
            bad[i] = char(0xff);
            Archive a;
            loadBytes(a, bad);
            a.flags = flags;
            ArrayMetadata back;
            back.deserialise(a);
            EXPECT_LE(a.position, a.size);
        }
    }
    Archive a;
    loadBytes(a, Bytes().u32(2).u64(~uint64_t(0)).b);
    ArrayMetadata back;
    EXPECT_FALSE(back.deserialise(a));
    EXPECT_EQ(a.position, 0u);
}

}  // namespace
