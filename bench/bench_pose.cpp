// World-matrix evaluation in joints per second, and pose archive round trips.
#include <benchmark/benchmark.h>

#include <Imath/ImathMatrix.h>

#include <vector>

#include "core/pose/Pose.h"
#include "core/pose/Poser.h"
#include "core/skeleton/Skeleton.h"

using namespace ZeltoCore;

namespace {

// A bushy hierarchy (three children per joint, parents first) with rotated, scaled joints.
Skeleton makeSkeleton(unsigned short n) {
    Skeleton s(n);
    for (unsigned short j = 0; j < n; ++j) {
        if (j) s[static_cast<unsigned short>((j - 1) / 3)].addChild(&s[j]);
        Imath::Quatd q;
        q.setAxisAngle(Imath::V3d(0.3, 1, 0.1 * (j % 5)).normalized(), 0.01 * j);
        s[j].setRotation(q);
        s[j].setTranslation(Imath::V3d(0.1 * (j % 7), 1.0, -0.05 * (j % 3)));
        s[j].setScale(Imath::V3d(1.0 + 0.001 * (j % 4)));
    }
    return s;
}

Pose makePose(const Skeleton& s, bool parentSpace) {
    Pose pose(&s, true);
    for (unsigned short j = 0; j < s.numJoints(); ++j) {
        Imath::Quatd q;
        q.setAxisAngle(Imath::V3d(1, 0, 0), 0.02 * j);
        pose.jointPose(j).rotation = q * pose.jointPose(j).rotation;
    }
    pose.setInParentSpace(parentSpace);
    return pose;
}

template <class T>
void worldMatrices(benchmark::State& state, bool parentSpace) {
    const Skeleton s = makeSkeleton(static_cast<unsigned short>(state.range(0)));
    const Pose pose = makePose(s, parentSpace);
    const Poser poser(&s);
    std::vector<Imath::Matrix44<T>> out;
    poser.getAllWorldMatrixInPlace(pose, out);
    for (auto _ : state) {
        poser.getAllWorldMatrixInPlace(pose, out);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * s.numJoints());
}

}  // namespace

static void BM_WorldMatricesDouble(benchmark::State& state) {
    worldMatrices<double>(state, true);
}
BENCHMARK(BM_WorldMatricesDouble)->Arg(64)->Arg(1024);

static void BM_WorldMatricesFloat(benchmark::State& state) {
    worldMatrices<float>(state, true);
}
BENCHMARK(BM_WorldMatricesFloat)->Arg(64)->Arg(1024);

// Local space adds the bind matrix and one more product per joint.
static void BM_WorldMatricesDoubleLocalSpace(benchmark::State& state) {
    worldMatrices<double>(state, false);
}
BENCHMARK(BM_WorldMatricesDoubleLocalSpace)->Arg(1024);

// One walk up five ancestors (joint 121 of the bushy tree), as an IK solve starts with.
static void BM_WorldMatrixDepth5(benchmark::State& state) {
    const Skeleton s = makeSkeleton(1024);
    const Pose pose = makePose(s, state.range(0) != 0);
    const Poser poser(&s);
    for (auto _ : state)
        benchmark::DoNotOptimize(poser.getWorldMatrix(pose, 121));
}
BENCHMARK(BM_WorldMatrixDepth5)->ArgName("parentSpace")->Arg(0)->Arg(1);

static void BM_PoseSerialiseDeserialise(benchmark::State& state) {
    const Skeleton s = makeSkeleton(static_cast<unsigned short>(state.range(0)));
    const Pose pose = makePose(s, true);
    Archive archive(pose.memSize(), 0);
    Pose back;
    for (auto _ : state) {
        archive.position = 0;
        archive << pose;
        archive.position = 0;
        archive >> back;
        benchmark::DoNotOptimize(back.numJoints());
    }
    state.SetItemsProcessed(int64_t(state.iterations()));
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(pose.memSize()) * 2);
}
BENCHMARK(BM_PoseSerialiseDeserialise)->Arg(1024);
