// Typed-array serialise + deserialise against two memcpy of the same bytes (out and back) in the
// same run, and the cost of one in-place element blend for quaternion and matrix arrays.
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <vector>

#include "core/metadata/TypedArrayMetadata.h"

using namespace ZeltoCore;

namespace {

constexpr size_t kElements = 1000000;

template <class T>
std::vector<T> filled(const T& value) {
    return std::vector<T>(kElements, value);
}

// The floor: the element bytes copied into a buffer and back.
template <class T>
void memcpyRoundTrip(benchmark::State& state, const T& value) {
    const std::vector<T> src = filled(value);
    std::vector<unsigned char> buffer(kElements * sizeof(T));
    std::vector<T> dst = filled(value);
    for (auto _ : state) {
        std::memcpy(buffer.data(), src.data(), buffer.size());
        benchmark::ClobberMemory();
        std::memcpy(static_cast<void*>(dst.data()), buffer.data(), buffer.size());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(buffer.size()));
}

// Serialise into a presized archive, then deserialise into an array that already has the size
// (the steady state of a reader that reuses its values).
template <class T>
void arrayRoundTrip(benchmark::State& state, const T& value) {
    const TypedArrayMetadata<T> src(filled(value));
    TypedArrayMetadata<T> dst(filled(value));
    Archive a(src.memSize(), 0);
    for (auto _ : state) {
        a.position = 0;
        src.serialise(a);
        a.reset();
        dst.deserialise(a);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kElements * sizeof(T)));
}

// The same, reading into a new array each time (allocation and value-initialisation included).
template <class T>
void arrayRoundTripFresh(benchmark::State& state, const T& value) {
    const TypedArrayMetadata<T> src(filled(value));
    Archive a(src.memSize(), 0);
    for (auto _ : state) {
        a.position = 0;
        src.serialise(a);
        a.reset();
        TypedArrayMetadata<T> dst;
        dst.deserialise(a);
        benchmark::DoNotOptimize(dst.get().data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kElements * sizeof(T)));
}

}  // namespace

static void BM_MemcpyDoubles(benchmark::State& state) {
    memcpyRoundTrip(state, 1.25);
}
static void BM_DoubleArrayRoundTrip(benchmark::State& state) {
    arrayRoundTrip(state, 1.25);
}
static void BM_DoubleArrayRoundTripFresh(benchmark::State& state) {
    arrayRoundTripFresh(state, 1.25);
}
static void BM_MemcpyVector3(benchmark::State& state) {
    memcpyRoundTrip(state, Imath::V3d(1, 2, 3));
}
static void BM_Vector3ArrayRoundTrip(benchmark::State& state) {
    arrayRoundTrip(state, Imath::V3d(1, 2, 3));
}
static void BM_Vector3ArrayRoundTripFresh(benchmark::State& state) {
    arrayRoundTripFresh(state, Imath::V3d(1, 2, 3));
}

BENCHMARK(BM_MemcpyDoubles)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_DoubleArrayRoundTrip)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_DoubleArrayRoundTripFresh)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_MemcpyVector3)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Vector3ArrayRoundTrip)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Vector3ArrayRoundTripFresh)->Unit(benchmark::kMicrosecond);

static void BM_QuaternionArrayBlendInPlace(benchmark::State& state) {
    Imath::Quatd a, b;
    a.setAxisAngle(Imath::V3d(0, 1, 0), 0.3);
    b.setAxisAngle(Imath::V3d(1, 0, 1).normalized(), 1.7);
    const TypedArrayMetadata<Imath::Quatd> arr({a, b});
    std::shared_ptr<Metadata> result = std::make_shared<MetadataImpl<Imath::Quatd>>();
    double w = 0.0;
    for (auto _ : state) {
        arr.getBlendedBasicTypeMetadataInPlace(0, 1, w, result);
        w = w < 1.0 ? w + 0.001 : 0.0;
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_QuaternionArrayBlendInPlace);

static void BM_MatrixArrayBlendInPlace(benchmark::State& state) {
    Imath::M44d a, b;
    a.setEulerAngles(Imath::V3d(0.1, 0.2, 0.3));
    a.scale(Imath::V3d(1, 2, 3));
    a.setTranslation(Imath::V3d(4, 5, 6));
    b.setEulerAngles(Imath::V3d(-1.0, 0.5, 2.0));
    b.setTranslation(Imath::V3d(-3, 0, 1));
    const TypedArrayMetadata<Imath::M44d> arr({a, b});
    std::shared_ptr<Metadata> result = std::make_shared<MetadataImpl<Imath::M44d>>();
    double w = 0.0;
    for (auto _ : state) {
        arr.getBlendedBasicTypeMetadataInPlace(0, 1, w, result);
        w = w < 1.0 ? w + 0.001 : 0.0;
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_MatrixArrayBlendInPlace);
