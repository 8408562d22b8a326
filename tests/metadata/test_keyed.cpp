// Keyed readers of MapMetadata and ArrayMetadata, from archives and from archive files.
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/metadata/ProbeMetadata.h"

namespace {

using namespace ZeltoCore;
using namespace ZeltoTest;

class KeyedTest : public ContainerTest {
protected:
    void SetUp() override {
        ContainerTest::SetUp();
        std::filesystem::create_directories(dir);
    }
    void TearDown() override { std::filesystem::remove_all(dir); }

    // `m` written with `flags`, also into the file `name` when given.
    std::string write(const Metadata& m, uint64_t flags, const std::string& name = "") {
        Archive a;
        a.flags = flags;
        m.serialise(a);
        EXPECT_TRUE(name.empty() || a.writeToFile(path(name)));
        return bytesOf(a);
    }
    std::string path(const std::string& name) const { return dir + "/" + name; }
    void put(const std::string& name, const std::string& bytes) const {
        std::ofstream(path(name), std::ios::binary) << bytes;
    }

    const std::string dir = ::testing::TempDir() + "zelto_keyed_" + std::to_string(getpid());
};

MapMetadata abc() {
    MapMetadata m;
    m.insertEntry("a", intProbe(1));
    m.insertEntry("b", intProbe(2));
    m.insertEntry("c", doubleProbe(3.5));
    return m;
}

ArrayMetadata threeInts() {
    ArrayMetadata array;
    for (int i = 10; i < 13; ++i)
        array.push_back(intProbe(i));
    return array;
}

// Plain, compressed, either in parallel; repeats are read once for maps, kept for arrays.
TEST_F(KeyedTest, FromArchiveInEveryForm) {
    const struct {
        std::vector<std::string> keys;
        bool merge;
        const char* expected;
    } cases[] = {
        {{"b", "x"}, false, "b=2 "},
        {{"b", "b", "a"}, false, "a=1 b=2 "},
        {{}, false, ""},
        {{"x"}, true, "a=0 z=9 "},
        {{"b", "x"}, true, "a=0 b=2 z=9 "},
        {{"a"}, true, "a=1 z=9 "},
    };
    for (uint64_t flags : {0u, 2u, 4u, 6u}) {
        Archive archive;
        for (const auto& c : cases) {
            loadBytes(archive, write(abc(), flags), flags);
            MapMetadata m;
            m.insertEntry("a", intProbe(0));
            m.insertEntry("z", intProbe(9));
            const auto heldA = m.getEntry("a");
            EXPECT_TRUE(m.deserialiseKeys(archive, c.keys, c.merge));
            EXPECT_EQ(contents(m), c.expected) << flags;
            EXPECT_EQ(archive.position, archive.size);
            EXPECT_EQ(intOf(heldA), 0);  // a requested entry gets a new object
        }
        loadBytes(archive, write(threeInts(), flags), flags);
        ArrayMetadata array = threeInts();
        EXPECT_TRUE(array.deserialiseKeys(archive, {2, 0, 7, 2}, true));
        EXPECT_EQ(contents(array), "12 10 12 ");
        EXPECT_NE(array[0], array[2]);
        EXPECT_EQ(archive.position, 0u);
        EXPECT_TRUE(array.deserialiseKeys(archive, {9}, false));
        EXPECT_EQ(array.size(), 0u);
    }
}

// Flag 1 writes the whole file compressed, which goes through the archive readers.
TEST_F(KeyedTest, FromFileReuseMergeAndClearing) {
    for (uint64_t flags : {0u, 1u, 2u, 3u, 6u, 7u}) {
        write(abc(), flags, "map");
        for (bool parallel : {false, true}) {
            MapMetadata m;
            m.insertEntry("z", intProbe(9));
            EXPECT_TRUE(m.deserialiseKeys(path("map"), {"c", "x", "b", "c"}, false, parallel));
            EXPECT_EQ(contents(m), "b=2 c=? ") << flags;
            // Holding exactly the requested keys: the held objects read in place.
            const auto heldB = m.getEntry("b");
            static_cast<IntProbe&>(*heldB).value = 0;
            EXPECT_TRUE(m.deserialiseKeys(path("map"), {"c", "b"}, false, parallel));
            EXPECT_EQ(intOf(heldB), flags & 1 ? 0 : 2);
            // Merging keeps the other entries; other keys held without merge: cleared first.
            EXPECT_TRUE(m.deserialiseKeys(path("map"), {"a"}, true, parallel));
            EXPECT_EQ(contents(m), "a=1 b=2 c=? ");
            EXPECT_TRUE(m.deserialiseKeys(path("map"), {"b", "x"}, false, parallel));
            EXPECT_EQ(contents(m), "b=2 ");
        }
        if (flags == 1 || flags == 7) continue;
        write(threeInts(), flags, "array");
        ArrayMetadata array;
        array.push_back(intProbe(5));
        EXPECT_TRUE(array.deserialiseKeys(path("array"), {1, 3, 1}, true));
        EXPECT_EQ(contents(array), flags & 1 ? "11 11 " : "5 11 11 ");
        if (flags & 1) continue;
        // No wanted index: false, and without merge the array is still cleared.
        EXPECT_FALSE(array.deserialiseKeys(path("array"), {3, 8}, true));
        EXPECT_EQ(array.size(), flags & 1 ? 2u : 3u);
        EXPECT_FALSE(array.deserialiseKeys(path("array"), {3}, false));
        EXPECT_EQ(array.size(), 0u);
    }
}

// Compressed files cut at every length and spoiled byte by byte: never a crash or an overrun;
// a cut table changes nothing, a cut value area keeps the values read before it.
TEST_F(KeyedTest, DamagedAndForeignFiles) {
    write(abc(), 2, "map");
    std::ifstream in(path("map"), std::ios::binary);
    const std::string file{std::istreambuf_iterator<char>(in), {}};
    const size_t blocks = 37 + 20 + 3 * 25;  // file header, map header, rows
    for (size_t n = 0; n < file.size(); ++n) {
        put("cut", file.substr(0, n));
        MapMetadata m;
        m.insertEntry("b", intProbe(0));
        m.insertEntry("c", intProbe(0));
        EXPECT_FALSE(m.deserialiseKeys(path("cut"), {"b", "c"}, true, n % 2 == 0)) << n;
        EXPECT_EQ(contents(m), n < blocks + 20 ? "b=0 c=0 " : "b=2 c=0 ") << n;
    }
    for (size_t i = 37; i < file.size(); ++i) {
        std::string bad = file;
        bad[i] = char(bad[i] ^ 0xa5);
        put("bad", bad);
        MapMetadata m;
        m.deserialiseKeys(path("bad"), {"a", "c"}, false, i % 2 == 0);
    }
    // A row pointing outside the file fails the call; a block that does not decompress only
    // leaves its entry as it was.
    std::string outside = file, spoiled = file;
    outside[37 + 20 + 25 + 9 + 8] = char(0x7f);  // offset of row b
    spoiled[blocks + 10] = char(0x33);           // method byte of b's block
    for (const auto& [name, bytes, result] :
         {std::make_tuple("outside", outside, false), std::make_tuple("spoiled", spoiled, true)}) {
        put(name, bytes);
        MapMetadata m, fresh;
        m.insertEntry("b", intProbe(0));
        EXPECT_EQ(m.deserialiseKeys(path(name), {"a", "b"}, true, false), result) << name;
        EXPECT_EQ(fresh.deserialiseKeys(path(name), {"a", "b"}, false, true), result) << name;
        EXPECT_EQ(contents(m), "a=1 b=0 ") << name;
        EXPECT_EQ(contents(fresh), "a=1 ") << name;
    }

    // Wrong type, junk, missing and absurd counts leave the container as it was.
    write(threeInts(), 2, "array");
    put("junk", "ZELTX and some more bytes");
    Archive absurdMap, absurdArray;
    loadBytes(absurdMap, Bytes().u32(1).u64(uint64_t(1) << 58).u64(~0ull).b);
    loadBytes(absurdArray, Bytes().u32(2).u64(uint64_t(1) << 61).b);
    EXPECT_TRUE(absurdMap.writeToFile(path("absurdMap")));
    EXPECT_TRUE(absurdArray.writeToFile(path("absurdArray")));
    MapMetadata m = abc();
    ArrayMetadata array = threeInts();
    for (const char* name : {"array", "junk", "missing", "absurdMap"})
        EXPECT_FALSE(m.deserialiseKeys(path(name), {"a"}, false, false)) << name;
    for (const char* name : {"map", "junk", "missing", "absurdArray"})
        EXPECT_FALSE(array.deserialiseKeys(path(name), {0}, false)) << name;
    EXPECT_FALSE(m.deserialiseKeys(absurdMap, {"a"}, false));
    EXPECT_FALSE(array.deserialiseKeys(absurdArray, {0}, false));
    EXPECT_EQ(absurdArray.position, 0u);
    EXPECT_EQ(m.size() + array.size(), 6u);
}

}  // namespace
