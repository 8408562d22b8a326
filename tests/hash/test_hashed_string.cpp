#include <gtest/gtest.h>

#include <stdexcept>

#include "core/hash/HashedString.h"
#include "core/hash/MurmurHash3.h"

using ZeltoCore::HashedString;

TEST(HashedString, HashIsXorOfTheTwoWordsOfAFreshHash) {
    ZeltoCore::MurmurHash3 h;
    h.hash("hip", 3);
    EXPECT_EQ(HashedString("hip").hash(), h.h1 ^ h.h2);
    EXPECT_EQ(HashedString(std::string("hip")).hash(), HashedString("hip").hash());
    EXPECT_EQ(HashedString().hash(), 0u);
    EXPECT_TRUE(HashedString() == HashedString(""));

    HashedString s;
    s = std::string("knee");
    EXPECT_EQ(s.hash(), HashedString("knee").hash());
    EXPECT_EQ(s.string(), "knee");
}

// The integer form keeps the number as its hash: equal text, yet not equal; order by hash first.
TEST(HashedString, IntegerFormKeepsTheNumberAsHashAndOrdersByHash) {
    HashedString neg(-5L);
    EXPECT_EQ(neg.string(), "-5");
    EXPECT_EQ(neg.hash(), 0xFFFFFFFFFFFFFFFBULL);
    EXPECT_EQ(HashedString(0L).string(), "0");

    HashedString five(5L), text("5");
    EXPECT_EQ(five.string(), text.string());
    EXPECT_FALSE(five == text);  // hashes differ
    EXPECT_FALSE(five != "5");   // text only
    EXPECT_FALSE(five != std::string("5"));
    EXPECT_EQ(five < text, 5u < text.hash());
    EXPECT_NE(five < text, text < five);
    EXPECT_TRUE(!(five < HashedString(5L)) && five == HashedString(5L));
}

TEST(HashedString, SubstrPastTheEndThrowsAndSelfAssignmentKeepsText) {
    HashedString s("left_hip");
    EXPECT_EQ(s + "_ik", "left_hip_ik");
    EXPECT_EQ(s.substr(s.size(), 4), "");
    try {
        (void)s.substr(s.size() + 1, 1);
        FAIL() << "expected out_of_range";
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "invalid string position");
    }
    const HashedString& alias = s;
    s = alias;
    EXPECT_EQ(s.string(), "left_hip");
    EXPECT_EQ(s.hash(), HashedString("left_hip").hash());
}
