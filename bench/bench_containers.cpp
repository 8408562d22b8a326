// MapMetadata serialisation: a property bag of 100,000 mixed scalars (keys like
// "joint_000123.weight") and a map of 1,000 DoubleArrayMetadata of 1,000 elements, written and
// read sequentially and in parallel (archive flag 4).
//
// Two references run beside them: BM_WriteHand, a hand-written exact-size writer of the same
// bytes that walks the same map and knows every value's concrete type (no virtual serialise, no
// views, no task machinery): the bound a generic writer is measured against; and BM_CopyFlat,
// which copies the same bytes from flat prepared records (the memory-bandwidth ceiling, with no
// tree to walk). BM_CopySplit shows what two threads gain on a bare copy of the array bytes on
// this machine. Reads go into an empty map and into a map that already holds the same keys; the
// `allocs` counter is heap allocations per read (a reusing read allocates no values, only its
// list of slots; a read into an empty map a node and a key per entry, while the values share
// blocks of about a dozen); `entries` is the entry count, so time per entry can be derived.
//
// BM_ReadHand is the bound for reads: a hand-written reader of the same layout into a
// std::map<std::string, double> (keys compared as views, each value read at its row), into an
// empty map and into one that holds the keys. BM_WriteSmall sweeps the map size to place the
// size below which a parallel write is not worth its tasks.

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/ContainerMaps.h"
#include "core/Init.h"
#include "core/metadata/MapMetadata.h"
#include "core/metadata/MetadataImpl.h"
#include "core/metadata/TypedArrayMetadata.h"
#include "utils/ParallelFor.h"

namespace {
std::atomic<size_t> g_allocations{0};
}  // namespace

// Counting allocator: new and delete stay a matching malloc/free pair.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void* operator new(size_t n) {
    ++g_allocations;
    if (void* p = std::malloc(n ? n : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, size_t) noexcept {
    std::free(p);
}
#pragma GCC diagnostic pop

namespace {

using namespace ZeltoCore;

using ZeltoBench::arrayMap;
using ZeltoBench::scalarMap;

// What a copier that has the bytes of each entry ready needs: each key and its value's bytes.
struct Record {
    std::string key;
    std::vector<unsigned char> value;
};

struct Prepared {
    std::vector<Record> records;
    uint64_t tableSize = 0;
    uint64_t total = 0;
};

Prepared prepare(const MapMetadata& map) {
    Prepared p;
    for (const auto& [key, value] : map) {
        Archive one(value->memSize(), 0);
        value->serialise(one);
        p.records.push_back({key, std::vector<unsigned char>(one.data, one.data + one.size)});
        p.tableSize += 24 + key.size();
        p.total += one.size;
    }
    p.total += 20 + p.tableSize;
    return p;
}

template <class T>
unsigned char* put(unsigned char* out, T v) {
    std::memcpy(out, &v, sizeof(T));
    return out + sizeof(T);
}

void copyFlat(const Prepared& p, Archive& archive) {
    unsigned char* out = archive.data + archive.position;
    out = put<uint32_t>(out, 1);
    out = put<uint64_t>(out, p.records.size());
    out = put<uint64_t>(out, p.tableSize);
    uint64_t offset = 0;
    for (const Record& r : p.records) {
        out = put<uint64_t>(out, r.key.size());
        std::memcpy(out, r.key.data(), r.key.size());
        out += r.key.size();
        out = put<uint64_t>(out, r.value.size());
        out = put<uint64_t>(out, offset);
        offset += r.value.size();
    }
    for (const Record& r : p.records) {
        std::memcpy(out, r.value.data(), r.value.size());
        out += r.value.size();
    }
    archive.position = static_cast<uint64_t>(out - archive.data);
}

template <class T>
const T& valueOf(const Metadata& m) {
    return static_cast<const MetadataImpl<T>&>(m).get();
}

// Size of a value as the hand-written writer knows it from the type.
uint64_t handSize(const Metadata& m) {
    switch (m.typeId()) {
        case 4:
            return 4 + 8;
        case 3:
            return 4 + 4;
        case 13:
            return 4 + 1;
        case 5:
            return 4 + 24;
        case 8:
            return 4 + 32;
        case 10:
            return 4 + 8 + valueOf<std::string>(m).size();
        case 12:
            return 4 + 8 + 8 * static_cast<const TypedArrayMetadata<double>&>(m).get().size();
    }
    std::abort();
}

unsigned char* handValue(unsigned char* out, const Metadata& m) {
    const uint32_t id = m.typeId();
    out = put(out, id);
    switch (id) {
        case 4:
            return put(out, valueOf<double>(m));
        case 3:
            return put(out, valueOf<int>(m));
        case 13:
            return put<unsigned char>(out, valueOf<bool>(m) ? 1 : 0);
        case 5: {
            const Imath::V3d& v = valueOf<Imath::V3d>(m);
            return put(put(put(out, v.x), v.y), v.z);
        }
        case 8: {
            const Imath::Quatd& q = valueOf<Imath::Quatd>(m);
            return put(put(put(put(out, q.v.x), q.v.y), q.v.z), q.r);
        }
        case 10: {
            const std::string& s = valueOf<std::string>(m);
            out = put<uint64_t>(out, s.size());
            std::memcpy(out, s.data(), s.size());
            return out + s.size();
        }
        case 12: {
            const std::vector<double>& v = static_cast<const TypedArrayMetadata<double>&>(m).get();
            out = put<uint64_t>(out, v.size());
            std::memcpy(out, v.data(), 8 * v.size());
            return out + 8 * v.size();
        }
    }
    std::abort();
}

// The map layout written by hand, as tight as it gets for a tree: one walk collecting the
// entries and the table size, then row and value of each entry side by side, each value
// touched once.
void handWrite(const MapMetadata& map, Archive& archive,
               std::vector<const MapMetadata::Entries::value_type*>& entries) {
    entries.clear();
    uint64_t tableSize = 0;
    for (const auto& entry : map) {
        entries.push_back(&entry);
        tableSize += 24 + entry.first.size();
    }
    unsigned char* row = archive.data + archive.position;
    row = put<uint32_t>(row, 1);
    row = put<uint64_t>(row, entries.size());
    row = put<uint64_t>(row, tableSize);
    unsigned char* const area = row + tableSize;
    unsigned char* value = area;
    for (const auto* entry : entries) {
        const std::string& key = entry->first;
        const Metadata& v = *entry->second;
        row = put<uint64_t>(row, key.size());
        std::memcpy(row, key.data(), key.size());
        row = put<uint64_t>(row + key.size(), handSize(v));
        row = put<uint64_t>(row, static_cast<uint64_t>(value - area));
        value = handValue(value, v);
    }
    archive.position = static_cast<uint64_t>(value - archive.data);
}

struct Fixture {
    MapMetadata map;
    Prepared prepared;
    std::vector<unsigned char> bytes;
};

Fixture& fixture(bool arrays) {
    static Fixture* fixtures[2] = {nullptr, nullptr};
    Fixture*& f = fixtures[arrays ? 1 : 0];
    if (!f) {
        initMetadata();
        f = new Fixture{arrays ? arrayMap() : scalarMap(), {}, {}};
        f->prepared = prepare(f->map);
        Archive a;
        f->map.serialise(a);
        f->bytes.assign(a.data, a.data + a.size);
        Archive flat(f->prepared.total, 0);
        copyFlat(f->prepared, flat);
        Archive hand(f->prepared.total, 0);
        std::vector<const MapMetadata::Entries::value_type*> entries;
        handWrite(f->map, hand, entries);
        Archive par(a.size, 4);
        f->map.serialise(par);
        if (hand.position != a.size || flat.position != a.size ||
            std::memcmp(hand.data, a.data, a.size) != 0 ||
            std::memcmp(flat.data, a.data, a.size) != 0 ||
            std::memcmp(par.data, a.data, a.size) != 0) {
            std::fprintf(stderr, "writers disagree\n");
            std::abort();
        }
    }
    return *f;
}

void setBytes(benchmark::State& state, const Fixture& f) {
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(f.bytes.size()));
}

void BM_WriteHand(benchmark::State& state) {
    const Fixture& f = fixture(state.range(0) != 0);
    Archive archive(f.prepared.total, 0);
    std::vector<const MapMetadata::Entries::value_type*> entries;
    entries.reserve(f.map.size());
    for (auto _ : state) {
        archive.position = 0;
        handWrite(f.map, archive, entries);
        benchmark::DoNotOptimize(archive.data);
        benchmark::ClobberMemory();
    }
    setBytes(state, f);
}

void BM_CopyFlat(benchmark::State& state) {
    const Fixture& f = fixture(state.range(0) != 0);
    Archive archive(f.prepared.total, 0);
    for (auto _ : state) {
        archive.position = 0;
        copyFlat(f.prepared, archive);
        benchmark::DoNotOptimize(archive.data);
        benchmark::ClobberMemory();
    }
    setBytes(state, f);
}

void BM_Write(benchmark::State& state) {
    const Fixture& f = fixture(state.range(0) != 0);
    Archive archive(f.bytes.size(), state.range(1) ? 4 : 0);
    for (auto _ : state) {
        archive.position = 0;
        f.map.serialise(archive);
        benchmark::DoNotOptimize(archive.data);
        benchmark::ClobberMemory();
    }
    setBytes(state, f);
}

// The array map's bytes copied as one block, and as two halves through parallel_for.
void BM_CopySplit(benchmark::State& state) {
    const Fixture& f = fixture(true);
    const size_t n = f.bytes.size();
    std::vector<unsigned char> out(n);
    const uint32_t parts = static_cast<uint32_t>(state.range(0));
    for (auto _ : state) {
        ZeltoUtils::parallel_for({0, parts}, [&](const ZeltoUtils::ParallelForRange& r) {
            const size_t begin = n * r.begin / parts;
            const size_t end = n * r.end / parts;
            std::memcpy(out.data() + begin, f.bytes.data() + begin, end - begin);
        });
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    setBytes(state, f);
}

// Includes sizing a fresh archive from memSize(), as a caller writing a new file does.
void BM_WriteFresh(benchmark::State& state) {
    const Fixture& f = fixture(state.range(0) != 0);
    for (auto _ : state) {
        Archive archive;
        archive.flags = state.range(1) ? 4 : 0;
        f.map.serialise(archive);
        benchmark::DoNotOptimize(archive.data);
    }
    setBytes(state, f);
}

// The scalar map's keys over doubles, in the plain map layout.
struct HandFixture {
    std::map<std::string, double> values;
    std::vector<unsigned char> bytes;
};

const HandFixture& handFixture() {
    static HandFixture* f = nullptr;
    if (!f) {
        f = new HandFixture;
        for (const auto& entry : fixture(false).map)
            f->values.emplace_hint(f->values.end(), entry.first, double(f->values.size()) * 0.5);
        MapMetadata map;
        for (const auto& [key, v] : f->values)
            map.insertEntry(key, std::make_shared<MetadataImpl<double>>(v));
        Archive a;
        map.serialise(a);
        f->bytes.assign(a.data, a.data + a.size);
    }
    return *f;
}

// Reads the layout of handFixture() into `out`; in place when `out` holds exactly the keys. Kept
// out of line so that a profile can count its instructions apart from the fixture's.
__attribute__((noinline)) bool handRead(const std::vector<unsigned char>& bytes,
                                        std::map<std::string, double>& out) {
    const unsigned char* p = bytes.data();
    const unsigned char* const end = p + bytes.size();
    uint64_t count = 0;
    uint64_t tableSize = 0;
    std::memcpy(&count, p + 4, 8);
    std::memcpy(&tableSize, p + 12, 8);
    p += 20;
    const unsigned char* const area = p + tableSize;
    if (tableSize > uint64_t(end - p)) return false;
    const bool inPlace = out.size() == count;
    auto it = out.begin();
    for (uint64_t i = 0; i < count; ++i) {
        uint64_t length = 0;
        uint64_t size = 0;
        uint64_t offset = 0;
        std::memcpy(&length, p, 8);
        const std::string_view key(reinterpret_cast<const char*>(p + 8), length);
        std::memcpy(&size, p + 8 + length, 8);
        std::memcpy(&offset, p + 16 + length, 8);
        p += 24 + length;
        if (size != 12 || offset > uint64_t(end - area) - size) return false;
        double v = 0;
        std::memcpy(&v, area + offset + 4, 8);
        if (inPlace) {
            if (std::string_view(it->first) != key) return false;
            (it++)->second = v;
        } else {
            out.emplace_hint(out.end(), std::string(key), v);
        }
    }
    return true;
}

// range(0): 0 reads into an empty map, 1 into a map holding the same keys.
void BM_ReadHand(benchmark::State& state) {
    const HandFixture& f = handFixture();
    const bool reuse = state.range(0) != 0;
    std::map<std::string, double> target = f.values;
    for (auto _ : state) {
        if (!reuse) {
            state.PauseTiming();
            target.clear();
            state.ResumeTiming();
        }
        if (!handRead(f.bytes, target)) state.SkipWithError("bad layout");
        benchmark::DoNotOptimize(&target);
    }
    state.counters["entries"] = double(f.values.size());
}

// range(2): 0 reads into an empty map, 1 into a map holding the same keys.
void BM_Read(benchmark::State& state) {
    const Fixture& f = fixture(state.range(0) != 0);
    Archive archive(f.bytes.size(), state.range(1) ? 4 : 0);
    std::memcpy(archive.data, f.bytes.data(), f.bytes.size());
    const bool reuse = state.range(2) != 0;
    MapMetadata target(f.map);
    size_t allocations = 0;
    for (auto _ : state) {
        if (!reuse) {
            state.PauseTiming();
            target.clear();
            state.ResumeTiming();
        }
        archive.position = 0;
        const size_t before = g_allocations.load();
        target.deserialise(archive);
        allocations += g_allocations.load() - before;
    }
    state.counters["allocs"] = benchmark::Counter(double(allocations) / double(state.iterations()));
    state.counters["entries"] = double(f.map.size());
    setBytes(state, f);
}

// The first range(1) entries of the scalar (range(0) 0) or array map (1), written sequentially
// and with flag 4 (range(2)).
void BM_WriteSmall(benchmark::State& state) {
    const Fixture& f = fixture(state.range(0) != 0);
    MapMetadata map;
    for (const auto& [key, value] : f.map) {
        if (map.size() == size_t(state.range(1))) break;
        map.insertEntry(key, value);
    }
    Archive archive(map.memSize(), state.range(2) ? 4 : 0);
    for (auto _ : state) {
        archive.position = 0;
        map.serialise(archive);
        benchmark::DoNotOptimize(archive.data);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(archive.size));
}

// Args: {arrays?, parallel?}
BENCHMARK(BM_WriteHand)->ArgNames({"arrays"})->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CopyFlat)->ArgNames({"arrays"})->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CopySplit)
    ->ArgNames({"parts"})
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_Write)
    ->ArgNames({"arrays", "parallel"})
    ->ArgsProduct({{0, 1}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_WriteFresh)
    ->ArgNames({"arrays", "parallel"})
    ->ArgsProduct({{0, 1}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_Read)
    ->ArgNames({"arrays", "parallel", "reuse"})
    ->ArgsProduct({{0, 1}, {0, 1}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_ReadHand)->ArgNames({"reuse"})->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriteSmall)
    ->ArgNames({"arrays", "entries", "parallel"})
    ->ArgsProduct({{0}, {16, 256, 4096, 65536}, {0, 1}})
    ->ArgsProduct({{1}, {2, 8, 32, 128}, {0, 1}})
    ->UseRealTime();

}  // namespace
