// Map reads into an empty map and into one that already holds keys end with equal maps, whatever
// the held keys and types, in the plain, compressed and parallel forms; damaged tables change
// nothing even when the held keys match. Values a read places in shared arena blocks outlive the
// map and the arena, whichever thread lets them go (run under ASan and TSan).
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "core/metadata/ArrayMetadata.h"
#include "core/metadata/TypedArrayMetadata.h"
#include "core/metadata/ValueArena.h"
#include "tests/metadata/ProbeMetadata.h"
#include "tests/metadata/ValueSamples.h"

namespace {

using namespace ZeltoCore;
using ZeltoTest::Bytes;
using ZeltoTest::contents;
using ZeltoTest::intOf;
using ZeltoTest::intProbe;
using ZeltoTest::loadBytes;
using ZeltoTest::sample;
using ZeltoTest::serialised;
using MapFastPathTest = ZeltoTest::ContainerTest;

// Every scalar and typed array type of the value list with a non-default value, plus a nested
// map and array; `filler` extra doubles make the map big enough for flag 4 to use threads.
MapMetadata everyType(int filler) {
    MapMetadata m;
#define ZELTO_TEST_ADD_(want, layer, group, T, Name, arrays)                               \
    ZELTO_VALUE_WHEN(                                                                      \
        layer, want, m.insertEntry(#Name, std::make_shared<MetadataImpl<T>>(sample<T>())); \
        ZELTO_VALUE_WHEN(                                                                  \
            arrays, withArray,                                                             \
            m.insertEntry(#Name "[]", std::make_shared<TypedArrayMetadata<T>>(             \
                                          std::vector<T>{sample<T>(), sample<T>()}));))
    ZELTO_VALUE_TYPES(ZELTO_TEST_ADD_, metadata)
#undef ZELTO_TEST_ADD_
    MapMetadata inner;
    inner.insertEntry("x", intProbe(3));
    inner.insertEntry("y", std::make_shared<MetadataImpl<std::string>>("inner"));
    ArrayMetadata list;
    list.push_back(inner.clone());
    list.push_back(intProbe(4));
    m.insertEntry("nested", inner.clone());
    m.insertEntry("list", list.clone());
    for (int i = 0; i < filler; ++i)
        m.insertEntry("filler_" + std::to_string(i), std::make_shared<MetadataImpl<double>>(i));
    return m;
}

// The keys of `source` with default values of the same types (new objects).
MapMetadata defaultsOf(const MapMetadata& source) {
    MapMetadata m;
    for (const auto& [key, value] : source)
        m.insertEntry(key, MetadataFactory::instance().createMetadata(value->typeId()));
    return m;
}

std::string hashText(const Metadata& m) {
    std::ostringstream s;
    s << ZeltoTest::hashOf(m);
    return s.str();
}

TEST_F(MapFastPathTest, HeldAndFreshReadsAgreeForEveryTypeAndForm) {
    for (uint64_t flags : {0u, 2u, 4u, 6u}) {
        SCOPED_TRACE(flags);
        const MapMetadata source = everyType(flags & 4 ? 9000 : 0);
        const std::string bytes = serialised(source, flags);
        // Targets: empty, exactly the keys (defaults), one key retyped, one more key, one fewer.
        std::vector<MapMetadata> targets(5);
        targets[1] = defaultsOf(source);
        targets[2] = defaultsOf(source);
        targets[2].insertEntry("Double", intProbe(0));
        targets[3] = defaultsOf(source);
        targets[3].insertEntry("zz extra", intProbe(0));
        targets[4] = defaultsOf(source);
        targets[4].eraseEntry("Float");
        const auto heldString = targets[1].getEntry("String");
        for (MapMetadata& target : targets) {
            Archive archive;
            loadBytes(archive, bytes, flags);
            EXPECT_TRUE(target.deserialise(archive));
            EXPECT_FALSE(archive.failed());
            EXPECT_EQ(archive.position, archive.size);
            EXPECT_EQ(target.size(), source.size());
            EXPECT_EQ(serialised(target, flags), bytes);
            EXPECT_EQ(hashText(target), hashText(source));
            EXPECT_EQ(target.getEntry("Double")->typeId(), source.getEntry("Double")->typeId());
        }
        // The exact keys read in place in the plain forms; the compressed form makes new values.
        const bool inPlace = !(flags & 2);
        EXPECT_EQ(targets[1].getEntry("String") == heldString, inPlace);
        if (inPlace) {
            EXPECT_EQ(std::static_pointer_cast<MetadataImpl<std::string>>(heldString)->get(),
                      sample<std::string>());
        }
    }
}

// Two int rows under keys k1 and k2 (values 1 and 2), the second key spelt `second`.
std::string twoRows(const std::string& second) {
    return Bytes()
        .u32(1)
        .u64(2)
        .u64(2 * 24 + 2 + second.size())
        .u64(2)
        .str("k1")
        .u64(8)
        .u64(0)
        .u64(second.size())
        .str(second)
        .u64(8)
        .u64(8)
        .u32(901)
        .num<int32_t>(1)
        .u32(901)
        .num<int32_t>(2)
        .b;
}

// Held keys matching up to the last row, a cut table, a cut value area: held objects are written
// only when every key matches, and a damaged table changes nothing.
TEST_F(MapFastPathTest, HeldValuesChangeOnlyOnAFullMatch) {
    for (uint64_t flags : {0u, 4u}) {
        SCOPED_TRACE(flags);
        MapMetadata m;
        m.insertEntry("k1", intProbe(7));
        m.insertEntry("k2", intProbe(8));
        const auto k1 = m.getEntry("k1");
        Archive archive;

        // Last key differs: every value is new, the held one keeps its value.
        loadBytes(archive, twoRows("k3"), flags);
        EXPECT_TRUE(m.deserialise(archive));
        EXPECT_EQ(contents(m), "k1=1 k3=2 ");
        EXPECT_NE(m.getEntry("k1"), k1);
        EXPECT_EQ(intOf(k1), 7);

        // Same keys: in place.
        m = MapMetadata();
        m.insertEntry("k1", k1);
        m.insertEntry("k2", intProbe(8));
        loadBytes(archive, twoRows("k2"), flags);
        EXPECT_TRUE(m.deserialise(archive));
        EXPECT_EQ(m.getEntry("k1"), k1);
        EXPECT_EQ(intOf(k1), 1);

        // A table cut inside the last row: false, cursor back, map and values untouched.
        static_cast<ZeltoTest::IntProbe&>(*k1).value = 5;
        const std::string whole = twoRows("k2");
        for (size_t cut : {size_t(30), size_t(20 + 24 + 2 + 10), size_t(4)}) {
            loadBytes(archive, whole.substr(0, cut), flags);
            EXPECT_FALSE(m.deserialise(archive)) << cut;
            EXPECT_EQ(archive.position, 0u);
            EXPECT_EQ(contents(m), "k1=5 k2=2 ") << cut;
            EXPECT_EQ(m.getEntry("k1"), k1);
        }
        // A cut value area: the table is whole, the first value reads, the second is gone.
        loadBytes(archive, whole.substr(0, whole.size() - 2), flags);
        EXPECT_FALSE(m.deserialise(archive));
        EXPECT_TRUE(archive.failed());
        EXPECT_EQ(archive.position, archive.size);
        EXPECT_EQ(contents(m), "k1=1 k2=- ");
    }
}

// A key length past the table, or an absurd count, fails before anything is allocated or
// changed, into an empty map (whose entries are made while the table is checked) or not.
TEST_F(MapFastPathTest, AbsurdLengthsFailCleanly) {
    std::string bytes = twoRows("k2");
    Bytes huge;
    huge.u64(uint64_t(1) << 62);
    bytes.replace(20 + 26, 8, huge.b);  // the second key's length
    std::string count = twoRows("k2");
    count.replace(4, 8, huge.b);
    for (const std::string& bad : {bytes, count}) {
        for (int held : {0, 1, 2}) {
            MapMetadata m;
            if (held > 0) m.insertEntry("k1", intProbe(7));
            if (held > 1) m.insertEntry("k2", intProbe(8));
            Archive archive;
            loadBytes(archive, bad);
            EXPECT_FALSE(m.deserialise(archive));
            EXPECT_TRUE(archive.failed());
            EXPECT_EQ(archive.position, 0u);
            EXPECT_EQ(contents(m), held == 0 ? "" : held == 1 ? "k1=7 " : "k1=7 k2=8 ");
        }
    }
}

// Each of 24 keys stored twice, an int probe then a double: enough rows for the reader to place
// its values in shared blocks, so the second row of a key replaces a value made from a block.
// Into an empty map and into one that held another key alike, the last row of each key wins, and
// the two maps write the same bytes and hash alike.
TEST_F(MapFastPathTest, RepeatedKeysKeepTheirLastRowIntoAnEmptyMap) {
    constexpr int kKeys = 24;
    Bytes table;
    Bytes area;
    for (int k = 0; k < kKeys; ++k) {
        const std::string key = "key_" + std::to_string(100 + k);
        table.u64(key.size()).str(key).u64(8).u64(area.b.size());
        area.u32(901).num<int32_t>(k);
        table.u64(key.size()).str(key).u64(12).u64(area.b.size());
        area.u32(MetadataImpl<double>::staticTypeId()).num<double>(k + 0.5);
    }
    const std::string bytes =
        Bytes().u32(1).u64(2 * kKeys).u64(table.b.size()).str(table.b).str(area.b).b;
    MapMetadata empty;
    MapMetadata other;
    other.insertEntry("another", intProbe(1));
    for (MapMetadata* m : {&empty, &other}) {
        Archive archive;
        loadBytes(archive, bytes);
        EXPECT_TRUE(m->deserialise(archive));
        EXPECT_EQ(archive.position, archive.size);
        ASSERT_EQ(m->size(), unsigned(kKeys));
        for (int k = 0; k < kKeys; ++k) {
            const auto value = std::dynamic_pointer_cast<MetadataImpl<double>>(
                m->getEntry("key_" + std::to_string(100 + k)));
            ASSERT_TRUE(value) << k;
            EXPECT_EQ(value->get(), k + 0.5);
        }
    }
    EXPECT_EQ(serialised(empty, 0), serialised(other, 0));
    EXPECT_EQ(hashText(empty), hashText(other));
}

// A map of `count` strings, doubles, vectors and double arrays under ascending keys.
MapMetadata mixedMap(int count) {
    MapMetadata m;
    for (int i = 0; i < count; ++i) {
        const std::string key = "k" + std::to_string(100000 + i);
        switch (i % 4) {
            case 0:
                m.insertEntry(key, std::make_shared<MetadataImpl<std::string>>(
                                       "a string too long for the inline buffer " + key));
                break;
            case 1:
                m.insertEntry(key, std::make_shared<MetadataImpl<double>>(i * 0.5));
                break;
            case 2:
                m.insertEntry(key, std::make_shared<MetadataImpl<Imath::V3d>>(Imath::V3d(i, 1, 2)));
                break;
            default:
                m.insertEntry(key, std::make_shared<TypedArrayMetadata<double>>(
                                       std::vector<double>(size_t(i % 7), 0.25 * i)));
        }
    }
    return m;
}

// Values read into an empty map (sequentially and in parallel tasks) stay whole after the map and
// the reader are gone, kept in any order and released on two threads at once.
TEST_F(MapFastPathTest, ReadValuesOutliveTheMap) {
    for (uint64_t flags : {0u, 4u}) {
        SCOPED_TRACE(flags);
        const MapMetadata source = mixedMap(flags & 4 ? 9000 : 600);
        const std::string bytes = serialised(source, flags);
        std::vector<std::pair<std::string, std::shared_ptr<Metadata>>> kept;
        {
            MapMetadata m;
            Archive archive;
            loadBytes(archive, bytes, flags);
            ASSERT_TRUE(m.deserialise(archive));
            EXPECT_EQ(serialised(m, flags), bytes);
            kept.assign(m.begin(), m.end());
        }
        // Neighbours in a block go at different times, half of them on another thread.
        std::shuffle(kept.begin(), kept.end(), std::mt19937(7));
        const size_t half = kept.size() / 2;
        std::vector<std::pair<std::string, std::shared_ptr<Metadata>>> other(kept.begin() + half,
                                                                             kept.end());
        kept.resize(half);
        std::thread releaser([&other] { other.clear(); });
        for (size_t i = 0; i < kept.size(); i += 2)
            kept[i].second.reset();
        releaser.join();
        size_t checked = 0;
        for (const auto& [key, value] : kept) {
            if (!value) continue;
            ++checked;
            const auto original = source.getEntry(key);
            EXPECT_EQ(value->typeId(), original->typeId()) << key;
            EXPECT_EQ(hashText(*value), hashText(*original)) << key;
        }
        EXPECT_EQ(checked, half / 2);
    }
}

// Values straight from an arena: destroyed with their last owner, in any order, after the arena;
// large or over-aligned values come from the heap, aligned as asked.
TEST(ValueArenaTest, ValuesLiveByTheirOwnCounts) {
    struct Counted {
        explicit Counted(std::atomic<int>& live, int v) : live(live), value(v) { ++live; }
        ~Counted() { --live; }
        std::atomic<int>& live;
        int value;
    };
    struct alignas(64) Wide {
        unsigned char bytes[64];
    };
    struct Big {
        double values[100];
    };
    std::atomic<int> live{0};
    std::vector<std::shared_ptr<Counted>> values;
    std::shared_ptr<Wide> wide;
    std::shared_ptr<Big> big;
    {
        ValueArena arena(1000);
        for (int i = 0; i < 1000; ++i)
            values.push_back(arena.make<Counted>(live, i));
        wide = arena.make<Wide>();
        big = arena.make<Big>();
    }
    EXPECT_EQ(live.load(), 1000);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(wide.get()) % 64, 0u);
    big->values[99] = 1.5;
    std::shuffle(values.begin(), values.end(), std::mt19937(3));
    for (size_t i = 0; i < values.size(); ++i) {
        EXPECT_GE(values[i]->value, 0);
        if (i % 3) values[i].reset();
    }
    EXPECT_EQ(live.load(), 334);
    int sum = 0;
    for (const auto& v : values)
        sum += v ? 1 : 0;
    EXPECT_EQ(sum, 334);
    values.clear();
    EXPECT_EQ(live.load(), 0);
    EXPECT_EQ(big->values[99], 1.5);
}

// Values of mixed sizes and alignments placed one after another share blocks: each starts
// aligned as asked, none overlaps another, and every block goes back once all are released.
TEST(ValueArenaTest, MixedAlignmentsPackWithoutOverlap) {
    constexpr size_t kSizes[] = {1, 8, 24, 3, 16, 40, 256};
    constexpr size_t kAligns[] = {1, 8, 8, 2, 16, 16, 8};
    struct Span {
        unsigned char* at;
        size_t size;
        size_t align;
    };
    std::vector<Span> spans;
    {
        ValueArena arena(300);
        for (size_t i = 0; i < 300; ++i) {
            const size_t size = kSizes[i % 7];
            const size_t align = kAligns[i % 7];
            auto* at = static_cast<unsigned char*>(arena.allocate(size, align));
            EXPECT_EQ(reinterpret_cast<uintptr_t>(at) % align, 0u) << i;
            std::fill(at, at + size, static_cast<unsigned char>(i));
            spans.push_back({at, size, align});
        }
    }
    for (size_t i = 0; i < spans.size(); ++i) {
        const Span& s = spans[i];
        EXPECT_EQ(std::count(s.at, s.at + s.size, static_cast<unsigned char>(i)),
                  std::ptrdiff_t(s.size))
            << i;
    }
    std::vector<Span> sorted = spans;
    std::sort(sorted.begin(), sorted.end(),
              [](const Span& a, const Span& b) { return a.at < b.at; });
    for (size_t i = 1; i < sorted.size(); ++i)
        EXPECT_LE(sorted[i - 1].at + sorted[i - 1].size, sorted[i].at);
    for (const Span& s : spans)
        ValueArena::deallocate(s.at, s.size, s.align);
}

}  // namespace
