// IK solves per second: the two-joint solver on a hip-knee-ankle leg below a pelvis, beside the
// cost of evaluating that chain's world matrices, of the method's arithmetic alone and of the
// whole solve written out as straight-line code, and the sphere solver on a four-joint leg. Each
// iteration is one solve, cycling over 1,024 targets (half of them beyond reach); the chain's joint
// poses are put back first, so every solve starts from the same pose.
#include <benchmark/benchmark.h>

#include <Imath/ImathMatrix.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "bench/PlainSolve.h"
#include "core/ik/SphereIK.h"
#include "core/ik/TwoJointsIK.h"
#include "core/math/Transform.h"
#include "core/pose/Pose.h"
#include "core/pose/Poser.h"
#include "core/skeleton/Skeleton.h"

using namespace ZeltoCore;
using namespace ZeltoBench;
using Imath::V3d;

namespace {

// world -> pelvis -> hip -> knee -> ankle -> toe, every joint slightly rotated.
Skeleton makeLeg() {
    Skeleton s(6);
    const V3d translations[] = {{0, 0, 0},       {0, 1.0, 0},       {0.15, -0.1, 0},
                                {0, -0.45, 0.1}, {0, -0.45, -0.05}, {0, -0.05, 0.12}};
    for (unsigned short i = 0; i < 6; ++i) {
        if (i) s[i - 1].addChild(&s[i]);
        Imath::Quatd q;
        q.setAxisAngle(V3d(1, 0.2 * i, 0.1).normalized(), 0.03 * i);
        s[i].setRotation(q);
        s[i].setTranslation(translations[i]);
    }
    return s;
}

// Around the hip: even indices within reach, odd ones beyond it.
std::vector<V3d> makeTargets(const V3d& hip) {
    std::vector<V3d> targets;
    for (int i = 0; i < 1024; ++i) {
        const V3d direction =
            V3d(0.4 * ((i * 7) % 11 - 5) / 5.0, -1.0, 0.4 * ((i * 13) % 9 - 4) / 4.0).normalized();
        targets.push_back(hip + direction * (i % 2 ? 1.3 : 0.3 + 0.5 * (i % 64) / 64.0));
    }
    return targets;
}

struct Leg {
    Skeleton skeleton = makeLeg();
    Pose pose{&skeleton, true};
    Pose start;
    std::vector<V3d> targets;

    explicit Leg(bool parentSpace) {
        if (!parentSpace) pose.convertToLocalSpace(&skeleton);
        start = pose;
        targets = makeTargets(Poser(&skeleton).getWorldMatrix(pose, 2).translation());
    }
    // The chain's joint poses as they were.
    void reset() {
        for (unsigned short j = 2; j < 6; ++j)
            pose.jointPose(j) = start.jointPose(j);
    }
};

enum class Pole { Given, Null, NoPoleForm };

void twoJoints(benchmark::State& state, bool parentSpace, Pole mode) {
    Leg leg(parentSpace);
    V3d pole(0, 0, 1);
    std::size_t i = 0;
    for (auto _ : state) {
        leg.reset();
        const V3d& target = leg.targets[i++ & 1023];
        if (mode == Pole::NoPoleForm) {
            solveTwoJointsIKNoPoleVector(leg.pose, leg.skeleton, target, 2, 3, 4, 1.0, true, 0.05);
        } else {
            solveTwoJointsIK(leg.pose, leg.skeleton, target, 2, 3, 4, 1.0, true, 0.05,
                             mode == Pole::Given ? &pole : nullptr);
        }
        benchmark::DoNotOptimize(leg.pose.jointPose(3));
    }
}

// What evaluating hip, knee and ankle costs through the poser.
void chainWorldMatrices(benchmark::State& state) {
    Leg leg(false);
    const Poser poser(&leg.skeleton);
    for (auto _ : state) {
        leg.reset();
        for (unsigned short j = 2; j < 5; ++j)
            benchmark::DoNotOptimize(poser.getWorldMatrix(leg.pose, j));
    }
}

// The one-pass evaluation of every joint of the leg.
void allWorldMatrices(benchmark::State& state) {
    Leg leg(false);
    const Poser poser(&leg.skeleton);
    std::vector<Imath::M44d> out;
    for (auto _ : state) {
        leg.reset();
        poser.getAllWorldMatrixInPlace(leg.pose, out);
        benchmark::DoNotOptimize(out.data());
    }
}

// The method's own arithmetic, in plain code, once hip a, knee b and ankle c are known: soft
// approach, the bend from the law of cosines, the aim and the twist onto the pole (with the Imath
// calls the method names). Returns the world rotations of hip and knee and the reach ratio.
struct Turns {
    Imath::Quatd root, mid;
    double ratio;
};
PLAIN Turns methodArithmetic(const V3d& a, const V3d& b, const V3d& c, const V3d& target,
                             const V3d& pole, double softDistance) {
    const auto plane = [](const V3d& v, const V3d& n) { return v - n * ((v ^ n) / (n ^ n)); };
    const V3d ab = b - a, bc = c - b, ac = c - a;
    const V3d bend = plane(ab, ac);
    V3d at = target - a;
    const double l1 = ab.length(), l2 = bc.length();
    const double d = at.length();
    double lt = d;
    const double da = std::max(l1 + l2 - softDistance, 0.0);
    if (d > da) {
        lt = da + softDistance * (1.0 - std::exp(-(d - da) / softDistance));
        at *= lt / d;
    }
    // Half the bend from the cosines of the two angles, by half-angle roots.
    const double l12 = l1 * l2;
    const double x = std::clamp((ab ^ bc) / l12, -1.0, 1.0);
    const double y = std::clamp((lt * lt - l1 * l1 - l2 * l2) / (2.0 * l12), -1.0, 1.0);
    const double cx = std::sqrt(0.5 * (1.0 + x)), sx = std::sqrt(0.5 * (1.0 - x));
    const double cy = std::sqrt(0.5 * (1.0 + y)), sy = std::sqrt(0.5 * (1.0 - y));
    const V3d normal = ab % bc;
    const V3d n = normal * (1.0 / normal.length());
    const Imath::Quatd bendRotation(cy * cx + sy * sx, n * (sy * cx - cy * sx));
    Imath::Quatd aim, twist;
    aim.setRotation(ab + turned(bendRotation, bc), at);
    const V3d aimedAb = turned(aim, ab);
    const V3d f = isParallel(aimedAb, at) ? turned(aim, bend) : aimedAb;
    twist.setRotation(plane(f, at), plane(pole, at));
    return {twist * aim, bendRotation, d / lt};
}

// The method's arithmetic alone for the same solves: no joint pose read or written.
void methodMath(benchmark::State& state) {
    Leg leg(false);
    const Poser poser(&leg.skeleton);
    const V3d a = poser.getWorldMatrix(leg.pose, 2).translation();
    const V3d b = poser.getWorldMatrix(leg.pose, 3).translation();
    const V3d c = poser.getWorldMatrix(leg.pose, 4).translation();
    const V3d pole = V3d(0, 0, 1).normalized();
    std::size_t i = 0;
    for (auto _ : state) {
        const Turns turns = methodArithmetic(a, b, c, leg.targets[i++ & 1023], pole, 0.05);
        benchmark::DoNotOptimize(turns);
    }
}

// The whole of a local-space solve with a pole, in straight-line code that knows the leg holds
// rotations and uniform scales only: each joint's pose composed on its bind transform and down
// from the top, the method's arithmetic, the two world turns composed onto the joint rotations
// and, beyond reach, the stretched offsets of knee and ankle. No input is checked. What the solve
// could cost at best on this machine, its pose work included.
struct PlainLeg {
    std::vector<Similar> bind;
    explicit PlainLeg(const Skeleton& skeleton) {
        for (unsigned short j = 0; j < 5; ++j) {
            const Joint& b = skeleton.joint(j);
            bind.push_back(similar(b.rotation(), b.scale(), b.translation()));
        }
    }
    // A solve with stretch 1 and soft distance 0.05.
    void solve(Pose& pose, const V3d& target, const V3d& pole) const {
        const auto local = [&](unsigned short j) {
            const JointPose& p = pose.jointPose(j);
            return similar(p.rotation, p.scale, p.translation).then(bind[j]);
        };
        const Similar hip = local(2).then(local(1).then(local(0)));
        const Similar knee = local(3).then(hip);
        const V3d c = knee.apply(bind[4].apply(pose.jointPose(4).translation));
        const Turns turns = methodArithmetic(hip.t, knee.t, c, target, pole, 0.05);
        turnInWorld(pose.jointPose(2).rotation, hip.r, turns.root);
        turnInWorld(pose.jointPose(3).rotation, knee.r, turns.mid);
        if (turns.ratio > 1.0 + 1e-12) {
            const double s = turns.ratio;
            for (unsigned short j = 3; j < 5; ++j) {
                V3d& t = pose.jointPose(j).translation;
                t = t * s + turned(~bind[j].r, bind[j].t) * ((s - 1.0) / bind[j].s);
            }
        }
    }
};

// Whether `plain` does what the solver does, joint pose for joint pose within rounding, on every
// target: the bound must measure the same work.
bool sameAsSolver(const Leg& leg, const PlainLeg& plain, const V3d& pole) {
    for (const V3d& target : leg.targets) {
        Pose solved = leg.pose, by = leg.pose;
        V3d given = pole;
        solveTwoJointsIK(solved, leg.skeleton, target, 2, 3, 4, 1.0, true, 0.05, &given);
        plain.solve(by, target, pole);
        for (unsigned short j = 2; j < 5; ++j) {
            if (!agree(solved.jointPose(j), by.jointPose(j))) return false;
        }
    }
    return true;
}

void plainSolve(benchmark::State& state) {
    Leg leg(false);
    const PlainLeg plain(leg.skeleton);
    const V3d pole(0, 0, 1);
    if (!sameAsSolver(leg, plain, pole)) state.SkipWithError("the plain solve differs");
    std::size_t i = 0;
    for (auto _ : state) {
        leg.reset();
        plain.solve(leg.pose, leg.targets[i++ & 1023], pole);
        benchmark::DoNotOptimize(leg.pose.jointPose(3));
    }
}

void sphere(benchmark::State& state) {
    Leg leg(false);
    V3d pole(0, 0, -1);
    const std::vector<unsigned short> mids = {3, 4};
    std::size_t i = 0;
    for (auto _ : state) {
        leg.reset();
        V3d target = leg.targets[i++ & 1023];
        sphereIKSolver(leg.pose, leg.skeleton, target, 2, mids, 5, &pole);
        benchmark::DoNotOptimize(leg.pose.jointPose(4));
    }
}

}  // namespace

BENCHMARK_CAPTURE(twoJoints, local_pole, false, Pole::Given);
BENCHMARK_CAPTURE(twoJoints, local_nullPole, false, Pole::Null);
BENCHMARK_CAPTURE(twoJoints, local_noPoleForm, false, Pole::NoPoleForm);
BENCHMARK_CAPTURE(twoJoints, parent_pole, true, Pole::Given);
BENCHMARK(chainWorldMatrices);
BENCHMARK(allWorldMatrices);
BENCHMARK(methodMath);
BENCHMARK(plainSolve);
BENCHMARK(sphere);
