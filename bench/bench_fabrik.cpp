// FABRIK solvers: time per solve on chains of 4, 8 and 16 joints (tolerance 1e-4, at most 20
// iterations, random reachable targets), against one poser evaluation of the chain's end; the same
// 4-joint solves stopped after one iteration (the part of a solve that is not iterating), the 3D
// solver's arithmetic alone, and the chain and 3D solves written out as straight-line code; and
// the iterations each solver needs to bring the end within 1e-4 of 1,000 random reachable targets.
#include <benchmark/benchmark.h>

#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <vector>

#include "bench/PlainSolve.h"
#include "core/ik/FabrikIK.h"
#include "core/pose/Pose.h"
#include "core/pose/Poser.h"
#include "core/skeleton/Skeleton.h"

using namespace ZeltoCore;
using namespace ZeltoBench;
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

// Solves on `tail`, cycling over 64 targets. Each starts from the same pose: the tail's joint
// poses are put back first (80 bytes per joint, part of the measured time).
template <class Solve>
void timeOn(benchmark::State& state, const Tail& tail, Solve&& solve) {
    const std::vector<V3d> goals = targets(tail, 64);
    std::vector<JointPose> saved;
    for (unsigned short id : tail.ids)
        saved.push_back(tail.pose.jointPose(id));
    Pose pose = tail.pose;
    size_t k = 0;
    for (auto _ : state) {
        for (size_t i = 0; i < saved.size(); ++i)
            pose.jointPose(tail.ids[i]) = saved[i];
        solve(pose, goals[k++ % goals.size()]);
        benchmark::ClobberMemory();
    }
}

void timeSolves(benchmark::State& state, const Solver& solve, unsigned int cap) {
    const Tail tail(static_cast<unsigned short>(state.range(0)));
    timeOn(state, tail, [&](Pose& pose, const V3d& goal) { solve(tail, pose, goal, cap); });
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

// 4-joint solves of the tail in straight-line code that knows it holds rotations and uniform
// scales only: each joint's pose composed on its bind transform and down from the hip, the
// method's arithmetic, and the world turns composed onto the joint rotations. No input is checked.
// What a solve could cost at best on this machine, its pose work included.
struct PlainTail {
    std::vector<Similar> bind;
    explicit PlainTail(const Tail& tail) {
        for (unsigned short j = 0; j < 5; ++j) {
            const Joint& b = tail.skeleton.joint(j);
            bind.push_back(similar(b.rotation(), b.scale(), b.translation()));
        }
    }
    // World transforms of joints 1 to 3, and the positions of 1 to 4.
    PLAIN void evaluate(const Pose& pose, Similar* world, V3d* x) const {
        const auto local = [&](unsigned short j) {
            const JointPose& p = pose.jointPose(j);
            return similar(p.rotation, p.scale, p.translation).then(bind[j]);
        };
        world[0] = local(1).then(local(0));
        for (unsigned short j = 1; j < 3; ++j)
            world[j] = local(j + 1).then(world[j - 1]);
        for (int j = 0; j < 3; ++j)
            x[j] = world[j].t;
        x[3] = world[2].apply(bind[4].apply(pose.jointPose(4).translation));
    }

    void solve3D(Pose& pose, const V3d& target) const {
        Similar world[3];
        V3d x[4];
        evaluate(pose, world, x);
        const double length[3] = {(x[1] - x[0]).length(), (x[2] - x[1]).length(),
                                  (x[3] - x[2]).length()};
        const Turns3D turns = methodArithmetic3D(x, length, target);
        Imath::Quatd done;
        for (unsigned short j = 0; j < 3; ++j) {
            turnInWorld(pose.jointPose(j + 1).rotation, done * world[j].r, turns.bone[j]);
            done = turns.bone[j] * done;
        }
        turnInWorld(pose.jointPose(1).rotation, turns.bone[0] * world[0].r, turns.aim);
    }

    // The chain solve (one step): the chain laid into the plane of its first bone and the pole,
    // FABRIK on the plane's coordinates, the solved chain turned onto the goal (with the Imath
    // calls the method names) and its offsets from the plane given back, then each bone turned
    // onto its solved position and the final aim.
    void solveChain(Pose& pose, const V3d& target) const {
        const auto pull = [](const Imath::V2d& anchor, Imath::V2d& moved, double l) {
            const Imath::V2d d = moved - anchor;
            const double r2 = d ^ d;
            if (r2 > 0.0) moved = anchor + d * (l / r2) * std::sqrt(r2);
        };
        const V3d pole(0, 0, 1);
        Similar world[3];
        V3d x[4];
        evaluate(pose, world, x);

        // The frame of the bend plane, and the chain in it.
        const V3d start = x[0];
        const V3d normal = (((start - x[1]).normalized()) % pole).normalized();
        const V3d side = (pole % normal).normalized();
        const auto toFrame = [&](const V3d& v) {
            const V3d d = v - start;
            return V3d(d ^ side, d ^ normal, d ^ pole);
        };
        V3d p[4], offset[4];
        for (int i = 0; i < 4; ++i) {
            const V3d d = x[i] - start;
            p[i] = toFrame(start + (d - normal * ((d ^ normal) / (normal ^ normal))));
            p[i].y = 0.0;
            offset[i] = toFrame(x[i]) - p[i];
        }
        double length[3], total = 0.0;
        for (int i = 0; i < 3; ++i)
            total += length[i] = (p[i + 1] - p[i]).length();
        const V3d base = p[0];
        const V3d goal = (target - start).length() * (p[3] - base).normalized();

        // FABRIK on the plane's x and z.
        Imath::V2d q0(p[0].x, p[0].z), q1(p[1].x, p[1].z), q2(p[2].x, p[2].z), q3(p[3].x, p[3].z);
        const Imath::V2d flatBase = q0, flatGoal(goal.x, goal.z);
        const double stalled = 1e-24 * total * total;
        for (int iteration = 0; iteration < 20; ++iteration) {
            const Imath::V2d before = q3;
            q3 = flatGoal;
            pull(q3, q2, length[2]);
            pull(q2, q1, length[1]);
            q0 = flatBase;
            pull(q0, q1, length[0]);
            pull(q1, q2, length[1]);
            pull(q2, q3, length[2]);
            if ((q3 - flatGoal).length2() <= 1e-8 || (q3 - before).length2() <= stalled) break;
        }
        const Imath::V2d solved[4] = {q0, q1, q2, q3};
        for (int i = 0; i < 4; ++i)
            p[i] = V3d(solved[i].x, 0.0, solved[i].y);

        // Onto the goal, scaled to it when it is not met, and out of the frame.
        Imath::Quatd onto;
        onto.setRotation(p[3] - base, goal - base);
        const Imath::M33d turn = onto.toMatrix33();
        for (int i = 1; i < 4; ++i)
            p[i] = base + (p[i] - base) * turn;
        const double ratio = (goal - base).length() / (p[3] - base).length();
        const bool reached = std::abs(ratio - 1.0) <= 0.0001;
        const V3d axis = (p[3] - base).normalized();
        for (int i = 0; i < 4; ++i) {
            V3d v = p[i];
            if (!reached) v += axis * (((v - base) ^ axis) * (ratio - 1.0)) + offset[i];
            p[i] = start + side * v.x + normal * v.y + pole * v.z;
        }

        // Each bone onto its solved position, then the aim.
        Imath::Quatd done, first;
        V3d at = start;
        for (unsigned short j = 0; j < 3; ++j) {
            const V3d from = turned(done, x[j + 1] - x[j]);
            Imath::Quatd r;
            r.setRotation(from, p[j + 1] - at);
            turnInWorld(pose.jointPose(j + 1).rotation, done * world[j].r, r);
            done = r * done;
            if (j == 0) first = r;
            at += turned(r, from);
        }
        Imath::Quatd aim;
        aim.setRotation(at - start, target - start);
        turnInWorld(pose.jointPose(1).rotation, first * world[0].r, aim);
    }
};

// Whether `plain` does what the solver does, joint pose for joint pose within rounding, on every
// goal: the bound must measure the same work.
bool sameAsSolver(const Tail& tail, const PlainTail& plain, bool threeDSolve,
                  const std::vector<V3d>& goals) {
    for (const V3d& goal : goals) {
        Pose solved = tail.pose, by = tail.pose;
        if (threeDSolve) {
            threeD(tail, solved, goal, 20);
            plain.solve3D(by, goal);
        } else {
            chain(tail, solved, goal, 20);
            plain.solveChain(by, goal);
        }
        for (unsigned short j : tail.ids) {
            if (!agree(solved.jointPose(j), by.jointPose(j))) return false;
        }
    }
    return true;
}

void plainSolve(benchmark::State& state, bool threeD) {
    const Tail tail(4);
    const PlainTail plain(tail);
    if (!sameAsSolver(tail, plain, threeD, targets(tail, 64)))
        state.SkipWithError("the plain solve differs");
    timeOn(state, tail, [&](Pose& pose, const V3d& goal) {
        if (threeD)
            plain.solve3D(pose, goal);
        else
            plain.solveChain(pose, goal);
    });
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
BENCHMARK_CAPTURE(plainSolve, chain, false);
BENCHMARK_CAPTURE(plainSolve, threeD, true);
BENCHMARK_CAPTURE(iterationsNeeded, chain, chain)->Arg(4)->Arg(8)->Arg(16)->Iterations(1);
BENCHMARK_CAPTURE(iterationsNeeded, list, list)->Arg(4)->Arg(8)->Arg(16)->Iterations(1);
BENCHMARK_CAPTURE(iterationsNeeded, threeD, threeD)->Arg(4)->Arg(8)->Arg(16)->Iterations(1);
