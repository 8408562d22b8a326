// Compression of the utility layer: many small serialised values and one large buffer through
// compressBuffer/decompressBuffer, and the raw LZ4 and zstd codecs over a size sweep, from which
// the LZ4/zstd threshold of Compression.h is read (ratio = compressed / original bytes).

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <lz4.h>
#include <zstd.h>

#include "utils/Compression.h"

namespace {

using Bytes = std::vector<unsigned char>;

template <typename T>
void put(Bytes& out, const T& value) {
    unsigned char raw[sizeof(T)];
    std::memcpy(raw, &value, sizeof(T));
    out.insert(out.end(), raw, raw + sizeof(T));
}

// One value as a map serialises it: a 4-byte type id, a key, then one to four doubles.
Bytes metadataRecord(std::mt19937& rng, int i) {
    static const char* const kKeys[] = {
        "poleVector", "zelto_skipIk",          "weight", "jointLimitRotationMin", "footRoll",
        "side",       "jointLimitRotationMax", "twist"};
    Bytes out;
    put(out, uint32_t(11 + rng() % 20));
    const std::string key = std::string(kKeys[rng() % 8]) + "_" + std::to_string(i % 300);
    put(out, uint64_t(key.size()));
    out.insert(out.end(), key.begin(), key.end());
    const int doubles = 1 + int(rng() % 4);
    for (int d = 0; d < doubles; ++d)
        put(out, std::round(std::sin(i * 0.37 + d) * 1000.0) / 64.0);
    return out;
}

std::vector<Bytes> smallValues() {
    std::mt19937 rng(7);
    std::vector<Bytes> values;
    values.reserve(100000);
    while (values.size() < 100000) {
        Bytes value = metadataRecord(rng, int(values.size()));
        if (value.size() >= 30 && value.size() <= 80) values.push_back(std::move(value));
    }
    return values;
}

// A serialised container: blocks of a smooth animation signal as doubles, with records between.
Bytes largeBuffer(size_t size) {
    std::mt19937 rng(11);
    Bytes out;
    out.reserve(size + 4096);
    for (int i = 0; out.size() < size; ++i) {
        for (int s = 0; s < 48; ++s)
            put(out, std::sin((i * 48 + s) * 0.002) * 90.0);
        const Bytes record = metadataRecord(rng, i);
        out.insert(out.end(), record.begin(), record.end());
    }
    out.resize(size);
    return out;
}

struct Block {
    unsigned char* data;
    size_t size;
};

void BM_CompressBuffer_SmallValues(benchmark::State& state) {
    std::vector<Bytes> values = smallValues();
    size_t original = 0, packed = 0;
    for (auto _ : state) {
        original = packed = 0;
        for (Bytes& value : values) {
            size_t size = 0;
            unsigned char* block = ZeltoUtils::compressBuffer(value.data(), value.size(), size);
            original += value.size();
            packed += size;
            std::free(block);
        }
    }
    state.SetBytesProcessed(int64_t(state.iterations() * original));
    state.counters["ratio"] = double(packed) / double(original);
    state.counters["ns_per_value"] =
        benchmark::Counter(double(values.size()), benchmark::Counter::kIsIterationInvariantRate |
                                                      benchmark::Counter::kInvert);
}

void BM_DecompressBuffer_SmallValues(benchmark::State& state) {
    std::vector<Bytes> values = smallValues();
    std::vector<Block> blocks;
    size_t original = 0;
    for (Bytes& value : values) {
        size_t size = 0;
        blocks.push_back({ZeltoUtils::compressBuffer(value.data(), value.size(), size), size});
        original += value.size();
    }
    for (auto _ : state) {
        for (const Block& block : blocks) {
            size_t size = 0;
            unsigned char* out = ZeltoUtils::decompressBuffer(block.data, block.size, size);
            benchmark::DoNotOptimize(out);
            std::free(out);
        }
    }
    for (const Block& block : blocks)
        std::free(block.data);
    state.SetBytesProcessed(int64_t(state.iterations() * original));
    state.counters["ns_per_value"] =
        benchmark::Counter(double(values.size()), benchmark::Counter::kIsIterationInvariantRate |
                                                      benchmark::Counter::kInvert);
}

void BM_CompressBuffer_8MiB(benchmark::State& state) {
    Bytes input = largeBuffer(8 << 20);
    size_t packed = 0;
    for (auto _ : state) {
        unsigned char* block = ZeltoUtils::compressBuffer(input.data(), input.size(), packed);
        std::free(block);
    }
    state.SetBytesProcessed(int64_t(state.iterations() * input.size()));
    state.counters["ratio"] = double(packed) / double(input.size());
}

void BM_DecompressBuffer_8MiB(benchmark::State& state) {
    Bytes input = largeBuffer(8 << 20);
    size_t packed = 0;
    unsigned char* block = ZeltoUtils::compressBuffer(input.data(), input.size(), packed);
    for (auto _ : state) {
        size_t size = 0;
        unsigned char* out = ZeltoUtils::decompressBuffer(block, packed, size);
        benchmark::DoNotOptimize(out);
        std::free(out);
    }
    std::free(block);
    state.SetBytesProcessed(int64_t(state.iterations() * input.size()));
}

// The raw codecs over a prefix of the large buffer, for the threshold sweep.

enum class Codec { Lz4, Zstd, ZstdReusedContext };

size_t compressWith(Codec codec, const Bytes& in, Bytes& out) {
    static ZSTD_CCtx* context = ZSTD_createCCtx();
    switch (codec) {
        case Codec::Lz4:
            return size_t(LZ4_compress_default(reinterpret_cast<const char*>(in.data()),
                                               reinterpret_cast<char*>(out.data()), int(in.size()),
                                               int(out.size())));
        case Codec::Zstd:
            return ZSTD_compress(out.data(), out.size(), in.data(), in.size(), 1);
        case Codec::ZstdReusedContext:
            return ZSTD_compressCCtx(context, out.data(), out.size(), in.data(), in.size(), 1);
    }
    return 0;
}

template <Codec codec>
void BM_Compress(benchmark::State& state) {
    const Bytes input = largeBuffer(size_t(state.range(0)));
    Bytes out(ZSTD_compressBound(input.size()) + LZ4_compressBound(int(input.size())));
    size_t packed = 0;
    for (auto _ : state) {
        packed = compressWith(codec, input, out);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations() * input.size()));
    state.counters["ratio"] = double(packed) / double(input.size());
}

template <Codec codec>
void BM_Decompress(benchmark::State& state) {
    static ZSTD_DCtx* context = ZSTD_createDCtx();
    const Bytes input = largeBuffer(size_t(state.range(0)));
    Bytes packed(ZSTD_compressBound(input.size()) + LZ4_compressBound(int(input.size())));
    packed.resize(compressWith(codec, input, packed));
    Bytes out(input.size());
    for (auto _ : state) {
        switch (codec) {
            case Codec::Lz4:
                benchmark::DoNotOptimize(LZ4_decompress_safe(
                    reinterpret_cast<const char*>(packed.data()),
                    reinterpret_cast<char*>(out.data()), int(packed.size()), int(out.size())));
                break;
            case Codec::Zstd:
                benchmark::DoNotOptimize(
                    ZSTD_decompress(out.data(), out.size(), packed.data(), packed.size()));
                break;
            case Codec::ZstdReusedContext:
                benchmark::DoNotOptimize(ZSTD_decompressDCtx(context, out.data(), out.size(),
                                                             packed.data(), packed.size()));
                break;
        }
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations() * input.size()));
}

void sweep(benchmark::internal::Benchmark* b) {
    for (int64_t size : {64, 256, 512, 1024, 1536, 2048, 3072, 4096, 8192, 16384, 65536}) {
        b->Arg(size);
    }
}

}  // namespace

BENCHMARK(BM_CompressBuffer_SmallValues)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecompressBuffer_SmallValues)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CompressBuffer_8MiB)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecompressBuffer_8MiB)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Compress, Codec::Lz4)->Apply(sweep);
BENCHMARK_TEMPLATE(BM_Compress, Codec::Zstd)->Apply(sweep);
BENCHMARK_TEMPLATE(BM_Compress, Codec::ZstdReusedContext)->Apply(sweep);
BENCHMARK_TEMPLATE(BM_Decompress, Codec::Lz4)->Apply(sweep);
BENCHMARK_TEMPLATE(BM_Decompress, Codec::Zstd)->Apply(sweep);
BENCHMARK_TEMPLATE(BM_Decompress, Codec::ZstdReusedContext)->Apply(sweep);
