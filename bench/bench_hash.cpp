// MurmurHash3 accumulator throughput at typical key and buffer sizes.
#include <benchmark/benchmark.h>

#include <vector>

#include "core/hash/MurmurHash3.h"

static void BM_MurmurHash3(benchmark::State& state) {
    std::vector<unsigned char> data(static_cast<size_t>(state.range(0)));
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<unsigned char>(i * 131 + 7);
    for (auto _ : state) {
        ZeltoCore::MurmurHash3 h;
        h.hash(data.data(), data.size());
        benchmark::DoNotOptimize(h.h1);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * state.range(0));
}
BENCHMARK(BM_MurmurHash3)->Arg(16)->Arg(64)->Arg(1024)->Arg(1 << 20);
