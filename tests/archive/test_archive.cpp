#include <gtest/gtest.h>

#include <cstring>

#include "core/archive/ArchiveOperators.h"

using ZeltoCore::Archive;

TEST(Archive, ConstructionClearAndReset) {
    Archive empty;
    EXPECT_EQ(empty.data, nullptr);
    EXPECT_EQ(empty.size + empty.position + empty.flags, 0u);
    EXPECT_EQ(empty.version, 5u);
    EXPECT_TRUE(empty.ownsData);
    EXPECT_EQ(Archive(0, 1).data, nullptr);

    Archive a(4, 3);
    a.version = 2;
    a.text = "note";
    a.position = 4;
    a.reset();
    EXPECT_EQ(a.position, 0u);
    a.clear();  // keeps version, text and flags
    EXPECT_EQ(a.data, nullptr);
    EXPECT_EQ(a.size, 0u);
    EXPECT_EQ(a.version, 2u);
    EXPECT_EQ(a.flags, 3u);
    EXPECT_EQ(a.text, "note");
}

TEST(Archive, ResizeKeepsPrefixAndPosition) {
    Archive a(8, 0);
    for (int i = 0; i < 8; ++i)
        a.data[i] = static_cast<unsigned char>(i + 1);
    a.position = 6;
    a.resize(4);
    EXPECT_EQ(a.size, 4u);
    EXPECT_EQ(a.position, 6u);
    a.resize(10);
    EXPECT_EQ(a.size, 10u);
    EXPECT_EQ(std::memcmp(a.data, "\1\2\3\4", 4), 0);
    a.resize(0);
    EXPECT_EQ(a.data, nullptr);
    EXPECT_EQ(a.size + a.position, 0u);
}

TEST(Archive, AppendGrowsToExactFitAndCopiesWholeSource) {
    Archive source(10, 0);
    for (int i = 0; i < 10; ++i)
        source.data[i] = static_cast<unsigned char>(0xA0 + i);
    source.position = 3;  // ignored: the whole buffer goes

    Archive target(16, 0);
    target.position = 12;
    target << source;
    EXPECT_EQ(target.size, 22u);
    EXPECT_EQ(target.position, 22u);
    EXPECT_EQ(std::memcmp(target.data + 12, source.data, 10), 0);

    Archive roomy(32, 0);
    roomy.position = 4;
    unsigned char* before = roomy.data;
    roomy << source;
    EXPECT_EQ(roomy.data, before);
    EXPECT_EQ(roomy.size, 32u);
    EXPECT_EQ(roomy.position, 14u);
}

TEST(Archive, OutOfRangeReadsAndWritesAreRefusedAndSticky) {
    Archive a(6, 0);
    a << int32_t{42};
    a.reset();
    int32_t v = 0;
    double d = 1.5;
    a >> v >> d;  // only 2 bytes left for the double
    EXPECT_EQ(v, 42);
    EXPECT_TRUE(a.failed());
    EXPECT_EQ(d, 0.0);  // zeros, not stale bytes
    EXPECT_LE(a.position, a.size);
    a.reset();
    EXPECT_FALSE(a.failed());

    Archive small(4, 0);
    small << 1.0;
    EXPECT_TRUE(small.failed());
    EXPECT_EQ(small.position, 0u);
}

TEST(Archive, AbsurdCountsAreRefusedBeforeAllocation) {
    Archive a(16, 0);
    a << (uint64_t{1} << 60) << uint64_t{0};  // a string length of 2^60
    a.reset();
    std::string s;
    a >> s;
    EXPECT_TRUE(a.failed());
    EXPECT_TRUE(s.empty());

    Archive b(16, 0);
    b << (uint64_t{1} << 61) << uint64_t{0};
    b.reset();
    std::vector<double> v;
    b >> v;
    EXPECT_TRUE(b.failed());
    EXPECT_TRUE(v.empty());
}
