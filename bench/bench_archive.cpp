// Archive write/read throughput against plain code moving the same bytes, in the same run.
//
// Baselines: BM_MemcpyDoubles is one bulk copy; BM_CheckedLoopDoubles writes the doubles one by
// one with a bounds check each, cursor in a local (what an inlined Archive write can reach);
// BM_HandReadStrings reads length-prefixed strings by hand with the same checks as the archive.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "core/archive/ArchiveOperators.h"

using ZeltoCore::Archive;

namespace {

constexpr size_t kDoubles = 1000000;
constexpr size_t kStrings = 100000;

std::vector<std::string> shortStrings() {
    std::vector<std::string> s;
    s.reserve(kStrings);
    for (size_t i = 0; i < kStrings; ++i)
        s.push_back("joint_" + std::to_string(i) + ".weight");
    return s;
}

size_t encodedSize(const std::vector<std::string>& s) {
    size_t n = 0;
    for (const std::string& x : s)
        n += 8 + x.size();
    return n;
}

// The short strings written into an archive, and strings to read them back into.
struct WrittenStrings {
    std::vector<std::string> src = shortStrings();
    Archive a{encodedSize(src), 0};
    std::vector<std::string> dst = std::vector<std::string>(kStrings);
    WrittenStrings() {
        for (const std::string& s : src)
            a << s;
    }
};

}  // namespace

static void BM_MemcpyDoubles(benchmark::State& state) {
    std::vector<double> src(kDoubles, 1.25);
    std::vector<unsigned char> dst(kDoubles * 8);
    for (auto _ : state) {
        std::memcpy(dst.data(), src.data(), dst.size());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * dst.size());
}

// One bounds check and one 8-byte copy per double, cursor and end held in locals.
static void BM_CheckedLoopDoubles(benchmark::State& state) {
    std::vector<double> src(kDoubles, 1.25);
    std::vector<unsigned char> dst(kDoubles * 8);
    for (auto _ : state) {
        unsigned char* data = dst.data();
        size_t size = dst.size();
        size_t position = 0;
        // Unknown to the compiler, as an archive's size is: the check stays in the loop.
        benchmark::DoNotOptimize(data);
        benchmark::DoNotOptimize(size);
        for (double d : src) {
            if (size - position < sizeof(d)) break;
            std::memcpy(data + position, &d, sizeof(d));
            position += sizeof(d);
        }
        benchmark::DoNotOptimize(position);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * dst.size());
}

static void BM_ArchiveWriteDoubles(benchmark::State& state) {
    std::vector<double> src(kDoubles, 1.25);
    Archive a(kDoubles * 8, 0);
    for (auto _ : state) {
        a.position = 0;
        for (double d : src)
            a << d;
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * kDoubles * 8);
}

static void BM_ArchiveReadDoubles(benchmark::State& state) {
    Archive a(kDoubles * 8, 0);
    for (size_t i = 0; i < kDoubles; ++i)
        a << double(i);
    std::vector<double> dst(kDoubles);
    for (auto _ : state) {
        a.position = 0;
        for (double& d : dst)
            a >> d;
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * kDoubles * 8);
}

static void BM_ArchiveDoubleVector(benchmark::State& state) {
    std::vector<double> src(kDoubles, 1.25);
    std::vector<double> dst;
    Archive a(8 + kDoubles * 8, 0);
    for (auto _ : state) {
        a.position = 0;
        a << src;
        a.position = 0;
        a >> dst;
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * kDoubles * 8 * 2);
}

static void BM_MemcpyStrings(benchmark::State& state) {
    const std::vector<std::string> src = shortStrings();
    std::vector<unsigned char> dst(encodedSize(src));
    for (auto _ : state) {
        unsigned char* p = dst.data();
        for (const std::string& s : src) {
            const uint64_t n = s.size();
            std::memcpy(p, &n, 8);
            std::memcpy(p + 8, s.data(), n);
            p += 8 + n;
        }
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * dst.size());
}

// Length and bytes of each string read back by hand into strings that already exist, with the
// checks a reader of untrusted bytes needs (length fits in what is left).
static void BM_HandReadStrings(benchmark::State& state) {
    WrittenStrings w;
    Archive& a = w.a;
    std::vector<std::string>& dst = w.dst;
    for (auto _ : state) {
        const unsigned char* p = a.data;
        const unsigned char* const end = a.data + a.size;
        for (std::string& s : dst) {
            uint64_t n = 0;
            if (end - p < 8) break;
            std::memcpy(&n, p, 8);
            p += 8;
            if (n > uint64_t(end - p)) break;
            s.resize(n);
            std::memcpy(s.data(), p, n);
            p += n;
        }
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * a.size);
}

static void BM_ArchiveWriteStrings(benchmark::State& state) {
    const std::vector<std::string> src = shortStrings();
    Archive a(encodedSize(src), 0);
    for (auto _ : state) {
        a.position = 0;
        for (const std::string& s : src)
            a << s;
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * a.size);
}

static void BM_ArchiveReadStrings(benchmark::State& state) {
    WrittenStrings w;
    Archive& a = w.a;
    std::vector<std::string>& dst = w.dst;
    for (auto _ : state) {
        a.position = 0;
        for (std::string& s : dst)
            a >> s;
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * a.size);
}

BENCHMARK(BM_MemcpyDoubles);
BENCHMARK(BM_CheckedLoopDoubles);
BENCHMARK(BM_ArchiveWriteDoubles);
BENCHMARK(BM_ArchiveReadDoubles);
BENCHMARK(BM_ArchiveDoubleVector);
BENCHMARK(BM_MemcpyStrings);
BENCHMARK(BM_HandReadStrings);
BENCHMARK(BM_ArchiveWriteStrings);
BENCHMARK(BM_ArchiveReadStrings);
