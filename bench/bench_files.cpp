// Archive files of compressed maps: whole write, whole read, and a keyed read of 10 keys, on a
// map of 1,000 DoubleArrayMetadata of 1,000 elements ("arrays:1") and on a property bag of
// 100,000 small scalars with keys like "joint_000123.weight" ("arrays:0").
//
// The keyed read opens the file and reads only its header, the table (about 4 MB for the
// property bag, 40 kB for the arrays) and the ten blocks. Counters: `file` is the compressed
// file's size, `plain` the same map written without per-value compression, `overhead` the mean
// number of bytes a value's block adds to its plain bytes, and `maxOverhead` the largest.

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/ContainerMaps.h"
#include "core/Init.h"
#include "core/metadata/MapMetadata.h"
#include "core/metadata/MetadataImpl.h"
#include "core/metadata/TypedArrayMetadata.h"
#include "utils/Compression.h"

namespace {

using namespace ZeltoCore;
namespace fs = std::filesystem;

using ZeltoBench::arrayMap;
using ZeltoBench::scalarMap;

// Ten keys spread over the map.
std::vector<std::string> tenKeys(const MapMetadata& map) {
    const std::vector<std::string> all = map.getKeys();
    std::vector<std::string> keys;
    for (size_t k = 0; k < 10; ++k)
        keys.push_back(all[(2 * k + 1) * all.size() / 20]);
    return keys;
}

struct Fixture {
    MapMetadata map;
    std::vector<std::string> keys;
    std::string path;
    double fileBytes = 0;
    double plainBytes = 0;
    double overhead = 0;
    double maxOverhead = 0;
};

class Files {
public:
    Files() : m_dir(fs::temp_directory_path() / ("zelto_bench_files_" + std::to_string(getpid()))) {
        initZeltoCore();
        fs::create_directories(m_dir);
        make(m_fixtures[0], scalarMap(), "scalars");
        make(m_fixtures[1], arrayMap(), "arrays");
    }
    ~Files() {
        std::error_code error;
        fs::remove_all(m_dir, error);
    }
    Fixture& operator[](int64_t arrays) { return m_fixtures[arrays ? 1 : 0]; }

private:
    void make(Fixture& f, MapMetadata map, const std::string& name) {
        f.map = std::move(map);
        f.keys = tenKeys(f.map);
        f.path = (m_dir / (name + ".zelto")).string();
        Archive compressed;
        compressed.flags = Archive::kCompressedContainers;
        f.map.serialise(compressed);
        compressed.writeToFile(f.path);
        f.fileBytes = double(fs::file_size(f.path));
        Archive plain;
        f.map.serialise(plain);
        plain.writeToFile(f.path + ".plain");
        f.plainBytes = double(fs::file_size(f.path + ".plain"));
        // What the codec adds to each value's plain bytes.
        for (const auto& entry : f.map) {
            const Metadata& value = *entry.second;
            Archive one(value.memSize(), 0);
            value.serialise(one);
            size_t blockSize = 0;
            std::free(ZeltoUtils::compressBuffer(one.data, one.size, blockSize));
            const double extra = double(blockSize) - double(one.size);
            f.overhead += extra;
            f.maxOverhead = std::max(f.maxOverhead, extra);
        }
        f.overhead /= double(f.map.size());
    }

    fs::path m_dir;
    Fixture m_fixtures[2];
};

Files& files() {
    static Files instance;
    return instance;
}

void addSizes(benchmark::State& state, const Fixture& f) {
    state.counters["file"] = f.fileBytes;
    state.counters["plain"] = f.plainBytes;
    state.counters["overhead"] = f.overhead;
    state.counters["maxOverhead"] = f.maxOverhead;
}

void BM_WholeWrite(benchmark::State& state) {
    Fixture& f = files()[state.range(0)];
    const std::string path = f.path + ".write";
    for (auto _ : state) {
        Archive archive;
        archive.flags = Archive::kCompressedContainers | (state.range(1) ? Archive::kParallel : 0);
        f.map.serialise(archive);
        benchmark::DoNotOptimize(archive.writeToFile(path));
    }
    addSizes(state, f);
}

void BM_WholeRead(benchmark::State& state) {
    Fixture& f = files()[state.range(0)];
    for (auto _ : state) {
        Archive archive;
        archive.readFromFile(f.path);
        MapMetadata map;
        benchmark::DoNotOptimize(map.deserialise(archive));
    }
    addSizes(state, f);
}

void BM_KeyedRead(benchmark::State& state) {
    Fixture& f = files()[state.range(0)];
    for (auto _ : state) {
        MapMetadata map;
        benchmark::DoNotOptimize(map.deserialiseKeys(f.path, f.keys, false, state.range(1) != 0));
        if (map.size() != f.keys.size()) state.SkipWithError("keyed read lost keys");
    }
    addSizes(state, f);
}

BENCHMARK(BM_WholeWrite)
    ->ArgNames({"arrays", "parallel"})
    ->ArgsProduct({{0, 1}, {0, 1}})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WholeRead)->ArgNames({"arrays"})->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_KeyedRead)
    ->ArgNames({"arrays", "parallel"})
    ->ArgsProduct({{0, 1}, {0, 1}})
    ->Unit(benchmark::kMicrosecond);

}  // namespace
