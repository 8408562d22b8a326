// Skeleton archive save and load beside a plain copy of the same bytes, and the IK data build.
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "core/Init.h"
#include "core/metadata/MetadataImpl.h"
#include "core/skeleton/SkeletonArchive.h"
#include "tools/DemoSkeleton.h"

using namespace ZeltoCore;

namespace {

// 1,024 named joints, three children per joint, one property each unless `bare`.
Skeleton namedSkeleton(bool bare) {
    const unsigned short n = 1024;
    Skeleton s(n);
    for (unsigned short j = 0; j < n; ++j) {
        if (j) s[static_cast<unsigned short>((j - 1) / 3)].addChild(&s[j]);
        s[j].setName("joint_" + std::to_string(j));
        s[j].setTranslation(Imath::V3d(0.1 * (j % 7), 1.0, -0.05 * (j % 3)));
        if (!bare) s.addJointMetadata(j, "weight", std::make_shared<MetadataImpl<double>>(0.5 + j));
    }
    s.buildJointNameMap();
    return s;
}

struct Saved {
    Skeleton skeleton;
    Archive archive;
    explicit Saved(bool bare = false)
        : skeleton(namedSkeleton(bare)), archive(skeleton.memSize(), 0) {
        archive << skeleton;
    }
};

}  // namespace

static void BM_SkeletonSave(benchmark::State& state) {
    Saved saved(state.range(0) == 0);
    for (auto _ : state) {
        saved.archive.position = 0;
        saved.archive << saved.skeleton;
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(saved.archive.size));
}
BENCHMARK(BM_SkeletonSave)->Arg(1)->Arg(0);

static void BM_SkeletonLoad(benchmark::State& state) {
    initZeltoCore();
    Saved saved(state.range(0) == 0);
    Skeleton loaded;
    for (auto _ : state) {
        saved.archive.position = 0;
        saved.archive >> loaded;
        benchmark::DoNotOptimize(loaded.numJoints());
    }
    if (saved.archive.failed()) state.SkipWithError("load failed");
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(saved.archive.size));
}
// Argument: 1 with a property per joint, 0 names only.
BENCHMARK(BM_SkeletonLoad)->Arg(1)->Arg(0);

static void BM_SkeletonBytesMemcpy(benchmark::State& state) {
    Saved saved;
    std::vector<unsigned char> copy(saved.archive.size);
    for (auto _ : state) {
        std::memcpy(copy.data(), saved.archive.data, copy.size());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(copy.size()));
}
BENCHMARK(BM_SkeletonBytesMemcpy);

static void BM_BuildIkDataDemoCharacter(benchmark::State& state) {
    Skeleton s = ZeltoTool::buildCharacter();
    for (auto _ : state) {
        s.buildIkData();
        benchmark::DoNotOptimize(s.footPoleVector(0));
    }
}
BENCHMARK(BM_BuildIkDataDemoCharacter);
