#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "core/archive/ArchiveOperators.h"

using ZeltoCore::Archive;

TEST(Archive, ResizeKeepsPrefixAndPositionClearKeepsTheSettings) {
    EXPECT_EQ(Archive().version, 5u);
    EXPECT_EQ(Archive(0, 1).data, nullptr);
    Archive a(8, 3);
    for (int i = 0; i < 8; ++i)
        a.data[i] = static_cast<unsigned char>(i + 1);
    a.position = 6;
    a.resize(4);
    EXPECT_TRUE(a.size == 4u && a.position == 6u);
    a.resize(10);
    EXPECT_EQ(a.size, 10u);
    EXPECT_EQ(std::memcmp(a.data, "\1\2\3\4", 4), 0);
    a.resize(0);
    EXPECT_TRUE(a.data == nullptr && a.size + a.position == 0u);

    a.resize(4);
    a.version = 2;
    a.text = "note";
    a.clear();
    EXPECT_TRUE(a.data == nullptr && a.size == 0u);
    EXPECT_TRUE(a.version == 2u && a.flags == 3u && a.text == "note");
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

TEST(Archive, ACursorPastTheEndRefusesEverySize) {
    Archive a(16, 0);
    for (uint64_t at : {uint64_t{17}, uint64_t{1} << 63, ~uint64_t{0} - 3}) {
        a.reset();
        a.position = at;
        a << 2.0;  // at + 8 wraps for the last cursor: still refused
        EXPECT_TRUE(a.failed()) << at;
        EXPECT_EQ(a.position, at);
        uint32_t id = 7;
        EXPECT_FALSE(a.read(&id, sizeof(id)));
        EXPECT_EQ(id, 0u);
        EXPECT_EQ(a.take(0), nullptr);
    }
    a.reset();
    a.position = 16;
    EXPECT_NE(a.take(0), nullptr);  // an empty read at the very end is fine
    EXPECT_FALSE(a.failed());
}

TEST(Archive, StringsReadIntoHeldStringsOfAnyLength) {
    const std::vector<std::string> written = {"joint_000001.weight", "", "x", std::string(40, 'q')};
    Archive a(8 * 4 + 19 + 1 + 40, 0);
    for (const std::string& s : written)
        a << s;
    EXPECT_EQ(a.position, a.size);
    // Longer, shorter, equal and heap-held lengths all end with exactly the stored bytes.
    std::vector<std::string> held = {"short", "not empty", "x", std::string(100, 'z')};
    a.reset();
    for (std::string& s : held)
        a >> s;
    EXPECT_FALSE(a.failed());
    EXPECT_EQ(held, written);
}

TEST(Archive, AbsurdCountsAreRefusedBeforeAllocation) {
    Archive a(16, 0);
    a << (uint64_t{1} << 61) << uint64_t{0};  // a string length or element count of 2^61
    std::string s;
    std::vector<double> v;
    a.reset();
    a >> s;
    EXPECT_TRUE(a.failed() && s.empty());
    a.reset();
    a >> v;
    EXPECT_TRUE(a.failed() && v.empty());
}

// A view over bytes the archive does not own: clearing, growing or appending to it must leave
// them alone (freeing a stack buffer would crash under the sanitizers).
TEST(Archive, ViewsAreNeverFreedAndGrowIntoOwnedBlocks) {
    unsigned char bytes[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    const auto view = [&bytes](Archive& v, size_t size, size_t position) {
        v.data = bytes;
        v.size = size;
        v.position = position;
        v.ownsData = false;
    };
    Archive grown, cleared, target;
    view(grown, 8, 0);
    grown.resize(12);
    EXPECT_TRUE(grown.data != bytes && grown.ownsData);
    EXPECT_EQ(std::memcmp(grown.data, bytes, 8), 0);

    view(cleared, 8, 0);
    cleared.clear();
    EXPECT_TRUE(cleared.data == nullptr && cleared.ownsData);

    view(target, 4, 4);
    Archive source(2, 0);
    source.data[0] = 9;
    source.data[1] = 10;
    target << source;
    EXPECT_TRUE(target.ownsData);
    ASSERT_EQ(target.size, 6u);
    EXPECT_EQ(target.data[4], 9);
    EXPECT_EQ(bytes[4], 5);
    EXPECT_EQ(bytes[7], 8);
}
