// MurmurHash3 accumulator throughput at typical key and buffer sizes, beside the reference
// form of the x64_128 function (plain block loop over 64-bit loads, as published) compiled here
// with the same flags, so the ratio of the two does not depend on the machine's load.
#include <benchmark/benchmark.h>

#include <Imath/ImathEuler.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "core/hash/MurmurHash3.h"

namespace {

inline uint64_t rotl64(uint64_t x, int8_t r) {
    return (x << r) | (x >> (64 - r));
}

inline uint64_t fmix64(uint64_t k) {
    k ^= k >> 33;
    k *= 0xff51afd7ed558ccdULL;
    k ^= k >> 33;
    k *= 0xc4ceb9fe1a85ec53ULL;
    k ^= k >> 33;
    return k;
}

inline uint64_t getblock64(const unsigned char* p, size_t i) {
    uint64_t k;
    std::memcpy(&k, p + 8 * i, 8);
    return k;
}

// The published x64_128 function with seed 0: its block loop as published, the tail as a loop.
void referenceHash(const void* key, size_t len, uint64_t out[2]) {
    const auto* data = static_cast<const unsigned char*>(key);
    const size_t nblocks = len / 16;
    uint64_t h1 = 0;
    uint64_t h2 = 0;
    const uint64_t c1 = 0x87c37b91114253d5ULL;
    const uint64_t c2 = 0x4cf5ad432745937fULL;
    for (size_t i = 0; i < nblocks; i++) {
        uint64_t k1 = getblock64(data, i * 2 + 0);
        uint64_t k2 = getblock64(data, i * 2 + 1);
        k1 *= c1;
        k1 = rotl64(k1, 31);
        k1 *= c2;
        h1 ^= k1;
        h1 = rotl64(h1, 27);
        h1 += h2;
        h1 = h1 * 5 + 0x52dce729;
        k2 *= c2;
        k2 = rotl64(k2, 33);
        k2 *= c1;
        h2 ^= k2;
        h2 = rotl64(h2, 31);
        h2 += h1;
        h2 = h2 * 5 + 0x38495ab5;
    }
    const unsigned char* tail = data + nblocks * 16;
    uint64_t k1 = 0;
    uint64_t k2 = 0;
    const size_t rest = len & 15;
    for (size_t i = rest; i > 8; --i)
        k2 ^= uint64_t(tail[i - 1]) << (8 * (i - 9));
    if (rest > 8) {
        k2 *= c2;
        k2 = rotl64(k2, 33);
        k2 *= c1;
        h2 ^= k2;
    }
    for (size_t i = rest < 8 ? rest : 8; i > 0; --i)
        k1 ^= uint64_t(tail[i - 1]) << (8 * (i - 1));
    if (rest) {
        k1 *= c1;
        k1 = rotl64(k1, 31);
        k1 *= c2;
        h1 ^= k1;
    }
    h1 ^= len;
    h2 ^= len;
    h1 += h2;
    h2 += h1;
    h1 = fmix64(h1);
    h2 = fmix64(h2);
    h1 += h2;
    h2 += h1;
    out[0] = h1;
    out[1] = h2;
}

std::vector<unsigned char> input(size_t n) {
    std::vector<unsigned char> data(n);
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<unsigned char>(i * 131 + 7);
    return data;
}

}  // namespace

static void BM_MurmurHash3(benchmark::State& state) {
    const std::vector<unsigned char> data = input(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        ZeltoCore::MurmurHash3 h;
        h.hash(data.data(), data.size());
        benchmark::DoNotOptimize(h.h1);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * state.range(0));
}
BENCHMARK(BM_MurmurHash3)->Arg(16)->Arg(64)->Arg(1024)->Arg(1 << 20);

static void BM_MurmurHash3Reference(benchmark::State& state) {
    const std::vector<unsigned char> data = input(static_cast<size_t>(state.range(0)));
    // Same words as the library's, or the comparison is void.
    ZeltoCore::MurmurHash3 check;
    check.hash(data.data(), data.size());
    uint64_t out[2];
    referenceHash(data.data(), data.size(), out);
    if (out[0] != check.h1 || out[1] != check.h2) state.SkipWithError("reference disagrees");
    for (auto _ : state) {
        referenceHash(data.data(), data.size(), out);
        benchmark::DoNotOptimize(out);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * state.range(0));
}
BENCHMARK(BM_MurmurHash3Reference)->Arg(16)->Arg(64)->Arg(1024)->Arg(1 << 20);

// An array of 10,000 Euler angles, hashed through its canonical per-element bytes (32 each).
static void BM_MurmurHash3EulerArray(benchmark::State& state) {
    std::vector<Imath::Eulerd> eulers(10000);
    for (size_t i = 0; i < eulers.size(); ++i)
        eulers[i] = Imath::Eulerd(0.1 * double(i), 0.2, 0.3);
    for (auto _ : state) {
        ZeltoCore::MurmurHash3 h;
        h.append(eulers);
        benchmark::DoNotOptimize(h.h1);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(eulers.size()) * 32);
}
BENCHMARK(BM_MurmurHash3EulerArray);
