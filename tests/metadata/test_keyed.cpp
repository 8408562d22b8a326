// Keyed readers of MapMetadata and ArrayMetadata, from archives and from archive files.
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "core/metadata/ArrayMetadata.h"
#include "core/metadata/MapMetadata.h"
#include "tests/metadata/ProbeMetadata.h"

namespace {

using namespace ZeltoCore;
using namespace ZeltoTest;
namespace fs = std::filesystem;

using Keys = std::vector<std::string>;

// The container forms a keyed reader must handle: plain, compressed, either in parallel.
constexpr uint64_t kForms[] = {0, 2, 4, 6};

class KeyedTest : public ContainerTest {
protected:
    void SetUp() override {
        ContainerTest::SetUp();
        dir = fs::temp_directory_path() /
              ("zelto_keyed_" + std::to_string(getpid()) + "_" +
               ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::create_directories(dir);
    }
    void TearDown() override { fs::remove_all(dir); }

    // Writes `m` with `flags` into an archive, and into a file when `name` is given.
    std::string write(const Metadata& m, uint64_t flags, const std::string& name = "") {
        Archive a;
        a.flags = flags;
        m.serialise(a);
        EXPECT_TRUE(name.empty() || a.writeToFile(path(name)));
        return bytesOf(a);
    }
    std::string path(const std::string& name) const { return (dir / name).string(); }
    std::string fileBytes(const std::string& name) const {
        std::ifstream in(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    fs::path dir;
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

// Contents of a map of int probes as "key=value" (value "-" when missing or not an int).
std::string contents(const MapMetadata& m) {
    std::string out;
    for (const auto& [key, v] : m)
        out += key + "=" + (v && v->typeId() == 901 ? std::to_string(intOf(v)) : "-") + " ";
    return out;
}

std::vector<int> ints(const ArrayMetadata& array) {
    std::vector<int> out;
    for (size_t i = 0; i < array.size(); ++i)
        out.push_back(array[i] ? intOf(array[i]) : -1);
    return out;
}

TEST_F(KeyedTest, MapFromArchiveInEveryForm) {
    struct Case {
        Keys keys;
        bool merge;
        std::string expected;
    };
    const Case cases[] = {
        {{"b", "x"}, false, "b=2 "},
        {{"b", "b", "a"}, false, "a=1 b=2 "},  // a repeat is read once
        {{}, false, ""},
        {{"x"}, true, "a=0 z=9 "},
        {{"b", "x"}, true, "a=0 b=2 z=9 "},
        {{"a"}, true, "a=1 z=9 "},
    };
    for (uint64_t flags : kForms) {
        const std::string bytes = write(abc(), flags);
        for (const Case& c : cases) {
            MapMetadata m;
            m.insertEntry("a", intProbe(0));
            m.insertEntry("z", intProbe(9));
            const auto heldA = m.getEntry("a");
            Archive archive;
            loadBytes(archive, bytes);
            archive.flags = flags;
            EXPECT_TRUE(m.deserialiseKeys(archive, c.keys, c.merge));
            EXPECT_EQ(contents(m), c.expected) << flags;
            EXPECT_EQ(archive.position, archive.size);
            EXPECT_EQ(intOf(heldA), 0);  // a requested entry gets a new object
        }
    }
}

TEST_F(KeyedTest, ArrayFromArchiveKeepsOrderAndRepeats) {
    for (uint64_t flags : kForms) {
        Archive archive;
        loadBytes(archive, write(threeInts(), flags));
        archive.flags = flags;
        archive.position = 0;
        ArrayMetadata array;
        for (int i = 0; i < 5; ++i)
            array.push_back(intProbe(-i));
        EXPECT_TRUE(array.deserialiseKeys(archive, {2, 0, 7, 2}, true));
        EXPECT_EQ(ints(array), (std::vector<int>{12, 10, 12}));
        EXPECT_NE(array[0], array[2]);
        EXPECT_EQ(archive.position, 0u);
        EXPECT_TRUE(array.deserialiseKeys(archive, {9}, false));
        EXPECT_EQ(array.size(), 0u);
    }
}

TEST_F(KeyedTest, MapFromFileInEveryFileForm) {
    MapMetadata stored = abc();
    stored.insertEntry("d", intProbe(4));
    for (uint64_t flags : {0u, 1u, 2u, 3u, 6u, 7u}) {
        write(stored, flags, "map");
        for (bool parallel : {false, true}) {
            MapMetadata m;
            m.insertEntry("z", intProbe(9));
            EXPECT_TRUE(m.deserialiseKeys(path("map"), {"d", "x", "b", "d"}, false, parallel));
            EXPECT_EQ(contents(m), "b=2 d=4 ") << flags;

            // Holding exactly the requested keys: the held objects read in place.
            const auto heldB = m.getEntry("b");
            static_cast<IntProbe&>(*heldB).value = 0;
            EXPECT_TRUE(m.deserialiseKeys(path("map"), {"d", "b"}, false, parallel));
            if (!(flags & 1)) {
                EXPECT_EQ(m.getEntry("b"), heldB);
            }
            EXPECT_EQ(intOf(heldB), flags & 1 ? 0 : 2);
            EXPECT_EQ(contents(m), "b=2 d=4 ");

            // Merging keeps the other entries and never reuses.
            m.insertEntry("a", intProbe(0));
            EXPECT_TRUE(m.deserialiseKeys(path("map"), {"a"}, true, parallel));
            EXPECT_EQ(contents(m), "a=1 b=2 d=4 ");

            // Other keys held: the map is cleared first.
            EXPECT_TRUE(m.deserialiseKeys(path("map"), {"c", "x"}, false, parallel));
            EXPECT_EQ(m.getKeys(), Keys{"c"});
        }
    }
}

TEST_F(KeyedTest, ArrayFromFileAppendsWithMerge) {
    for (uint64_t flags : {0u, 2u, 3u, 6u}) {
        write(threeInts(), flags, "array");
        ArrayMetadata array;
        array.push_back(intProbe(5));
        EXPECT_TRUE(array.deserialiseKeys(path("array"), {1, 3, 1}, true));
        // The whole-file compressed form goes through the archive reader, which does not merge.
        const std::vector<int> expected =
            flags & 1 ? std::vector<int>{11, 11} : std::vector<int>{5, 11, 11};
        EXPECT_EQ(ints(array), expected);
        EXPECT_TRUE(array.deserialiseKeys(path("array"), {2}, false));
        EXPECT_EQ(ints(array), std::vector<int>{12});
    }
    // No wanted index: false, and without merge the array is still cleared.
    write(threeInts(), 2, "array");
    ArrayMetadata array = threeInts();
    EXPECT_FALSE(array.deserialiseKeys(path("array"), {3, 8}, true));
    EXPECT_EQ(array.size(), 3u);
    EXPECT_FALSE(array.deserialiseKeys(path("array"), {3}, false));
    EXPECT_EQ(array.size(), 0u);
}

// Small compressed files cut at every length and spoiled byte by byte: never a crash or an
// overrun; a cut table changes nothing, a cut value area keeps the values read before it.
TEST_F(KeyedTest, DamagedFiles) {
    write(abc(), 2, "map");
    write(threeInts(), 2, "array");
    const std::string map = fileBytes("map");
    const std::string array = fileBytes("array");
    const size_t mapBlocks = 37 + 20 + 3 * 25;  // header, map header, rows
    const size_t arrayBlocks = 37 + 12 + 3 * 16;
    for (size_t n = 0; n < map.size(); ++n) {
        std::ofstream(path("cut"), std::ios::binary) << map.substr(0, n);
        MapMetadata m;
        m.insertEntry("b", intProbe(0));
        m.insertEntry("c", intProbe(0));
        EXPECT_FALSE(m.deserialiseKeys(path("cut"), {"b", "c"}, true, n % 2 == 0)) << n;
        EXPECT_EQ(contents(m), n < mapBlocks + 20 ? "b=0 c=0 " : "b=2 c=0 ") << n;
    }
    for (size_t n = 0; n < array.size(); ++n) {
        std::ofstream(path("cut"), std::ios::binary) << array.substr(0, n);
        ArrayMetadata a;
        a.push_back(intProbe(5));
        EXPECT_FALSE(a.deserialiseKeys(path("cut"), {2, 0}, true)) << n;
        const std::vector<int> expected =
            n < arrayBlocks ? std::vector<int>{5}
                            : std::vector<int>{5, -1, n < arrayBlocks + 10 ? -1 : 10};
        EXPECT_EQ(ints(a), expected) << n;
    }
    for (size_t i = 37; i < map.size(); ++i) {
        std::string bad = map;
        bad[i] = char(bad[i] ^ 0xa5);
        std::ofstream(path("bad"), std::ios::binary) << bad;
        MapMetadata m;
        m.deserialiseKeys(path("bad"), {"a", "c"}, false, i % 2 == 0);
    }

    // A row pointing outside the file fails the call; a block that does not decompress only
    // leaves its entry as it was.
    std::string outside = map;
    outside[37 + 20 + 25 + 9 + 8] = char(0x7f);  // offset of row b
    std::string spoiled = map;
    spoiled[mapBlocks + 10] = char(0x33);  // method byte of b's block
    for (const auto& [name, bytes, result] :
         {std::make_tuple("outside", outside, false), std::make_tuple("spoiled", spoiled, true)}) {
        std::ofstream(path(name), std::ios::binary) << bytes;
        MapMetadata m, fresh;
        m.insertEntry("b", intProbe(0));
        EXPECT_EQ(m.deserialiseKeys(path(name), {"a", "b"}, true, false), result) << name;
        EXPECT_EQ(fresh.deserialiseKeys(path(name), {"a", "b"}, false, true), result) << name;
        EXPECT_EQ(contents(m), "a=1 b=0 ") << name;
        EXPECT_EQ(contents(fresh), "a=1 ") << name;
    }
}

TEST_F(KeyedTest, RefusalsLeaveTheContainerAsItWas) {
    write(threeInts(), 2, "array");
    write(abc(), 2, "map");
    std::ofstream(path("junk"), std::ios::binary) << "ZELTX and some more bytes";
    // Absurd counts and table sizes are refused before anything is allocated for them.
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
    Archive wrongType;
    loadBytes(wrongType, write(threeInts(), 0));
    EXPECT_FALSE(m.deserialiseKeys(wrongType, {"a"}, false));
    EXPECT_EQ(wrongType.position, 0u);
    EXPECT_FALSE(array.deserialiseKeys(absurdArray, {0}, false));
    EXPECT_EQ(absurdArray.position, 0u);
    EXPECT_EQ(m.size(), 3u);
    EXPECT_EQ(array.size(), 3u);
}

}  // namespace
