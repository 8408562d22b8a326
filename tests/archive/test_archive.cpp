#include <gtest/gtest.h>

#include <cstring>

#include "core/archive/Archive.h"

using ZeltoCore::Archive;

TEST(Archive, ConstructionStates) {
    Archive empty;
    EXPECT_EQ(empty.data, nullptr);
    EXPECT_EQ(empty.position, 0u);
    EXPECT_EQ(empty.size, 0u);
    EXPECT_EQ(empty.version, 5u);
    EXPECT_TRUE(empty.text.empty());
    EXPECT_EQ(empty.flags, 0u);
    EXPECT_TRUE(empty.ownsData);

    Archive sized(16, 6);
    EXPECT_NE(sized.data, nullptr);
    EXPECT_EQ(sized.size, 16u);
    EXPECT_EQ(sized.flags, 6u);
    EXPECT_EQ(sized.version, 5u);

    Archive zero(0, 1);
    EXPECT_EQ(zero.data, nullptr);
}

TEST(Archive, ResizeKeepsPrefixAndPosition) {
    Archive a(8, 0);
    for (int i = 0; i < 8; ++i)
        a.data[i] = static_cast<unsigned char>(i + 1);
    a.position = 6;
    a.resize(4);
    EXPECT_EQ(a.size, 4u);
    EXPECT_EQ(a.position, 6u);
    EXPECT_EQ(std::memcmp(a.data, "\1\2\3\4", 4), 0);
    a.resize(10);
    EXPECT_EQ(a.size, 10u);
    EXPECT_EQ(std::memcmp(a.data, "\1\2\3\4", 4), 0);
    a.resize(0);
    EXPECT_EQ(a.data, nullptr);
    EXPECT_EQ(a.size, 0u);
    EXPECT_EQ(a.position, 0u);
}

TEST(Archive, ClearAndResetKeepMetadataFields) {
    Archive a(4, 3);
    a.version = 2;
    a.text = "note";
    a.position = 4;
    a.reset();
    EXPECT_EQ(a.position, 0u);
    EXPECT_EQ(a.size, 4u);
    a.clear();
    EXPECT_EQ(a.data, nullptr);
    EXPECT_EQ(a.size, 0u);
    EXPECT_EQ(a.version, 2u);
    EXPECT_EQ(a.flags, 3u);
    EXPECT_EQ(a.text, "note");
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

    Archive fromNothing;
    fromNothing << source;
    EXPECT_EQ(fromNothing.size, 10u);
}

TEST(Archive, ReadsPastTheEndAreRefusedAndSticky) {
    Archive a(6, 0);
    a << int32_t{42};
    a.reset();
    int32_t v = 0;
    double d = 1.5;
    a >> v;
    EXPECT_EQ(v, 42);
    EXPECT_FALSE(a.failed());
    a >> d;  // only 2 bytes left
    EXPECT_TRUE(a.failed());
    EXPECT_EQ(d, 0.0);  // zeros, not stale bytes
    EXPECT_LE(a.position, a.size);
    int16_t small = 7;
    a >> small;  // stays failed, cursor at the end
    EXPECT_TRUE(a.failed());
    EXPECT_EQ(small, 0);
    a.reset();
    EXPECT_FALSE(a.failed());
}

TEST(Archive, WritesThatDoNotFitAreRefused) {
    Archive a(4, 0);
    a << 1.0;
    EXPECT_TRUE(a.failed());
    EXPECT_EQ(a.position, 0u);
}

TEST(Archive, AbsurdCountsAreRefusedBeforeAllocation) {
    Archive a(16, 0);
    a << (uint64_t{1} << 60) << uint64_t{0};  // a string length of 2^60
    a.reset();
    std::string s = "kept?";
    a >> s;
    EXPECT_TRUE(a.failed());
    EXPECT_TRUE(s == "kept?" || s.empty());

    Archive b(16, 0);
    b << (uint64_t{1} << 61) << uint64_t{0};
    b.reset();
    std::vector<double> v;
    b >> v;
    EXPECT_TRUE(b.failed());
    EXPECT_TRUE(v.empty());

    // A count that fits exactly is fine.
    Archive c(8 + 3 * 4, 0);
    c << std::vector<float>{1.f, 2.f, 3.f};
    c.reset();
    std::vector<float> f;
    c >> f;
    EXPECT_FALSE(c.failed());
    EXPECT_EQ(f, (std::vector<float>{1.f, 2.f, 3.f}));
}

TEST(Archive, PeekTypeIdDoesNotMove) {
    Archive a(6, 0);
    a << uint32_t{15} << int16_t{0};
    a.reset();
    EXPECT_EQ(a.peekTypeId(), 15u);
    EXPECT_EQ(a.position, 0u);
    a.position = 4;
    EXPECT_EQ(a.peekTypeId(), 0u);  // only two bytes left
}
