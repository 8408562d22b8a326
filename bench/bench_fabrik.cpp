// FABRIK solvers: time per solve on chains of 4, 8 and 16 joints (tolerance 1e-4, at most 20
// iterations, random reachable targets), against one poser evaluation of the chain's end; the same
// 4-joint solves stopped after one iteration (the part of a solve that is not iterating), and the
// 3D solver's arithmetic alone; and the iterations each solver needs to bring the end within 1e-4
// of 1,000 random reachable targets.
#include <benchmark/benchmark.h>

#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <vector>

#include "core/ik/FabrikIK.h"
#include "core/pose/Pose.h"
#include "core/pose/Poser.h"
#include "core/skeleton/Skeleton.h"

using namespace ZeltoCore;
using Imath::V3d;

namespace {

// A hip joint (0) and an n-joint tail hanging from it, bending gently in its y-z plane.
struct Tail {
    Skeleton skeleton;
    Pose pose;
    std::vector<unsigned short> ids, mids;  // mids: all but the first and last of ids
    V3d start;
    double length = 0;

    explicit Tail(unsigned short n) : skeleton(n + 1) {
        for (unsigned short j = 0; j <= n; ++j) {
            if (j) skeleton[j - 1].addChild(&skeleton[j]);
            Imath::Quatd q;
            q.setAxisAngle(V3d(1, 0, 0), j ? 0.15 : 0.4);
            skeleton[j].setRotation(q);
            skeleton[j].setTranslation(j ? V3d(0, 1.0 - 0.02 * (j % 4), 0) : V3d(0, 3, 0));
            if (j) ids.push_back(j);
        }
        mids.assign(ids.begin() + 1, ids.end() - 1);
        pose = Pose(&skeleton, true);
        pose.convertToLocalSpace(&skeleton);
        start = end(pose, 1);
        for (unsigned short j = 2; j <= n; ++j)
            length += (end(pose, j) - end(pose, j - 1)).length();
    }
    V3d end(const Pose& p, unsigned short id) const {
        return Poser(&skeleton).getWorldMatrix(p, id).translation();
    }
};

using Solver = std::function<void(const Tail&, Pose&, const V3d&, unsigned int maxIterations)>;

void chain(const Tail& t, Pose& p, const V3d& target, unsigned int maxIterations) {
    V3d pole(0, 0, 1);
    fabrikIKSolver(p, t.skeleton, target, t.ids.front(), t.mids, t.ids.back(), 1e-4, maxIterations,
                   1, &pole);
}

void list(const Tail& t, Pose& p, const V3d& target, unsigned int maxIterations) {
    V3d pole(0, 0, 1);
    fabrikIKSolver2(p, t.skeleton, target, t.ids, 0.0, 1e-4, maxIterations, 1, &pole);
}

void threeD(const Tail& t, Pose& p, const V3d& target, unsigned int maxIterations) {
    V3d goal = target;
    fabrikIK3DSolver(p, t.skeleton, goal, t.ids.front(), t.mids, t.ids, t.ids.back(), 1e-4,
                     maxIterations, 1, nullptr);
}

// Reachable targets: random directions, at 20 to 95 % of the tail's length from its start.
std::vector<V3d> targets(const Tail& t, size_t count) {
    std::mt19937 random(12);
    std::normal_distribution<double> gauss;
    std::uniform_real_distribution<double> fraction(0.2, 0.95);
    std::vector<V3d> out;
    for (size_t i = 0; i < count; ++i) {
        const V3d dir = V3d(gauss(random), gauss(random), gauss(random)).normalized();
        out.push_back(t.start + dir * (fraction(random) * t.length));
    }
    return out;
}

// Each solve starts from the same pose: the tail's joint poses are put back first (80 bytes
// per joint, part of the measured time).
void timeSolves(benchmark::State& state, const Solver& solve, unsigned int cap) {
    const Tail tail(static_cast<unsigned short>(state.range(0)));
    const std::vector<V3d> goals = targets(tail, 64);
    std::vector<JointPose> saved;
    for (unsigned short id : tail.ids)
        saved.push_back(tail.pose.jointPose(id));
    Pose pose = tail.pose;
    size_t k = 0;
    for (auto _ : state) {
        for (size_t i = 0; i < saved.size(); ++i)
            pose.jointPose(tail.ids[i]) = saved[i];
        solve(tail, pose, goals[k++ % goals.size()], cap);
        benchmark::ClobberMemory();
    }
}

void solveTime(benchmark::State& state, const Solver& solve) {
    timeSolves(state, solve, 20);
}

// The same solves stopped after one iteration: what a solve costs besides its iterations.
void fixedPart(benchmark::State& state, const Solver& solve) {
    timeSolves(state, solve, 1);
}

// Reference for the ratios: one world matrix of the tail's end joint, through the poser.
void endWorldMatrix(benchmark::State& state) {
    const Tail tail(static_cast<unsigned short>(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(tail.end(tail.pose, tail.ids.back()));
}

// The plain code is kept in one piece, as a hand-written solve would be.
#define PLAIN __attribute__((always_inline)) inline

// v turned by the unit quaternion q.
PLAIN V3d turned(const Imath::Quatd& q, const V3d& v) {
    const V3d t = (q.v % v) * 2.0;
    return v + t * q.r + (q.v % t);
}

// The 3D method's arithmetic for a 4-joint chain at `start` (bones of `length`), in plain code:
// the pulls of the iterations, each bone turned onto its solved direction and the final aim (with
// the Imath call the method names). Each pull waits on the one before and on a square root, each
// turn on the turns above it. Returns the world turns of the three bones and the aim.
struct Turns3D {
    Imath::Quatd bone[3], aim;
};
PLAIN Turns3D methodArithmetic3D(const V3d* start, const double* length, const V3d& target) {
    const auto pull = [](const V3d& anchor, V3d& moved, double l) {
        const V3d d = moved - anchor;
        const double r2 = d ^ d;
        if (r2 > 0.0) moved = anchor + d * (l / r2) * std::sqrt(r2);
    };
    const V3d direction = (start[3] - start[0]).normalized();
    const V3d goal = start[0] + direction * (target - start[0]).length();
    V3d p0 = start[0], p1 = start[1], p2 = start[2], p3 = start[3];
    for (int iteration = 0; iteration < 20; ++iteration) {
        const V3d before = p3;
        p3 = goal;
        pull(p3, p2, length[2]);
        pull(p2, p1, length[1]);
        p0 = start[0];
        pull(p0, p1, length[0]);
        pull(p1, p2, length[1]);
        pull(p2, p3, length[2]);
        if ((p3 - goal).length2() <= 1e-8 || (p3 - before).length2() <= 1e-24) break;
    }
    const V3d solved[4] = {p0, p1, p2, p3};
    Turns3D out;
    Imath::Quatd done;
    V3d at = start[0];
    for (int i = 0; i < 3; ++i) {
        const V3d from = turned(done, start[i + 1] - start[i]);
        out.bone[i].setRotation(from, solved[i + 1] - solved[i]);
        done = out.bone[i] * done;
        at += turned(out.bone[i], from);
    }
    out.aim.setRotation(at - start[0], target - start[0]);
    return out;
}

// The 3D method's arithmetic alone for 4-joint solves on the same chain and targets, the chain's
// positions known and no joint pose read or written.
void methodMath3D(benchmark::State& state) {
    const Tail tail(4);
    const std::vector<V3d> goals = targets(tail, 64);
    V3d start[4];
    double length[3];
    for (int i = 0; i < 4; ++i)
        start[i] = tail.end(tail.pose, tail.ids[i]);
    for (int i = 0; i < 3; ++i)
        length[i] = (start[i + 1] - start[i]).length();
    size_t k = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(methodArithmetic3D(start, length, goals[k++ % goals.size()]));
}

// x -> s (x turned by r) + t.
struct Similar {
    Imath::Quatd r;
    double s;
    V3d t;
    PLAIN V3d apply(const V3d& x) const { return turned(r, x) * s + t; }
    PLAIN Similar then(const Similar& after) const {
        return {after.r * r, after.s * s, after.apply(t)};
    }
};
PLAIN Similar similar(const Imath::Quatd& r, const V3d& scale, const V3d& t) {
    return {r, scale.x, t};
}

// The whole of a 4-joint 3D solve in straight-line code that knows the tail holds rotations and
// uniform scales only: each joint's pose composed on its bind transform and down from the hip,
// the bone lengths, the method's arithmetic, and the world turns composed onto the joint
// rotations. No input is checked. What the solve could cost at best on this machine, its pose
// work included.
void plainSolve3D(benchmark::State& state) {
    const Tail tail(4);
    const std::vector<V3d> goals = targets(tail, 64);
    std::vector<Similar> bind;
    std::vector<JointPose> saved;
    for (unsigned short j = 0; j < 5; ++j) {
        const Joint& b = tail.skeleton.joint(j);
        bind.push_back(similar(b.rotation(), b.scale(), b.translation()));
        saved.push_back(tail.pose.jointPose(j));
    }
    Pose pose = tail.pose;
    size_t k = 0;
    for (auto _ : state) {
        for (unsigned short j = 1; j < 5; ++j)
            pose.jointPose(j) = saved[j];
        const auto local = [&](unsigned short j) {
            const JointPose& p = pose.jointPose(j);
            return similar(p.rotation, p.scale, p.translation).then(bind[j]);
        };
        Similar world[4];
        world[0] = local(1).then(local(0));
        for (unsigned short j = 1; j < 3; ++j)
            world[j] = local(j + 1).then(world[j - 1]);
        const V3d start[4] = {world[0].t, world[1].t, world[2].t,
                              world[2].apply(bind[4].apply(pose.jointPose(4).translation))};
        const double length[3] = {(start[1] - start[0]).length(), (start[2] - start[1]).length(),
                                  (start[3] - start[2]).length()};
        const Turns3D turns = methodArithmetic3D(start, length, goals[k++ % goals.size()]);
        const auto compose = [](Imath::Quatd& q, const Imath::Quatd& w, const Imath::Quatd& r) {
            q = q * Imath::Quatd(r.r, turned(~w, r.v));
        };
        Imath::Quatd done;
        for (unsigned short j = 0; j < 3; ++j) {
            compose(pose.jointPose(j + 1).rotation, done * world[j].r, turns.bone[j]);
            done = turns.bone[j] * done;
        }
        compose(pose.jointPose(1).rotation, turns.bone[0] * world[0].r, turns.aim);
        benchmark::ClobberMemory();
    }
}

// The smallest iteration cap with which the end lands within 1e-4, per target; 100 counts as
// not reached.
void iterationsNeeded(benchmark::State& state, const Solver& solve) {
    const Tail tail(static_cast<unsigned short>(state.range(0)));
    const std::vector<V3d> goals = targets(tail, 1000);
    std::vector<double> needed;
    for (auto _ : state) {
        needed.clear();
        for (const V3d& goal : goals) {
            unsigned int cap = 1;
            for (; cap < 100; ++cap) {
                Pose pose = tail.pose;
                solve(tail, pose, goal, cap);
                if ((tail.end(pose, tail.ids.back()) - goal).length() <= 1e-4) break;
            }
            needed.push_back(cap);
        }
    }
    std::sort(needed.begin(), needed.end());
    state.counters["median_iterations"] = needed[needed.size() / 2];
    state.counters["p90_iterations"] = needed[needed.size() * 9 / 10];
    state.counters["unreached"] = double(std::count(needed.begin(), needed.end(), 100.0));
}

}  // namespace

BENCHMARK(endWorldMatrix)->Arg(4)->Arg(8)->Arg(16);
BENCHMARK_CAPTURE(solveTime, chain, chain)->Arg(4)->Arg(8)->Arg(16);
BENCHMARK_CAPTURE(solveTime, list, list)->Arg(4)->Arg(8)->Arg(16);
BENCHMARK_CAPTURE(solveTime, threeD, threeD)->Arg(4)->Arg(8)->Arg(16);
BENCHMARK_CAPTURE(fixedPart, chain, chain)->Arg(4);
BENCHMARK_CAPTURE(fixedPart, list, list)->Arg(4);
BENCHMARK_CAPTURE(fixedPart, threeD, threeD)->Arg(4);
BENCHMARK(methodMath3D);
BENCHMARK(plainSolve3D);
BENCHMARK_CAPTURE(iterationsNeeded, chain, chain)->Arg(4)->Arg(8)->Arg(16)->Iterations(1);
BENCHMARK_CAPTURE(iterationsNeeded, list, list)->Arg(4)->Arg(8)->Arg(16)->Iterations(1);
BENCHMARK_CAPTURE(iterationsNeeded, threeD, threeD)->Arg(4)->Arg(8)->Arg(16)->Iterations(1);
