// Tests of the FABRIK solvers: reach, straight chains out of reach, skipped and stretched joints,
// iteration counts, and refusals that leave the pose alone.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/ik/FabrikIK.h"
#include "core/ik/internal/IkCommon.h"
#include "core/metadata/MetadataImpl.h"
#include "tests/ik/IkRig.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Matchers.h"

using namespace ZeltoCore;
using namespace ZeltoTest;
using Ids = std::vector<unsigned short>;

namespace {

// A scaled root (joint 0) and an n-joint chain 1 ... n under it. Bones of unequal length lie in
// the y-z plane and every bind turns about x, so the bind pose is planar with the pole (0, 0, 1).
Skeleton makeChain(unsigned short n) {
    Skeleton s(n + 1);
    for (unsigned short i = 0; i <= n; ++i) {
        if (i) s[i - 1].addChild(&s[i]);
        s[i].setTranslation(i ? V3d(0, 0.6 + 0.1 * (i % 3), 0.05 * i) : V3d(0.3, 1, -0.2));
        s[i].setRotation(axisAngle(V3d(1, 0, 0), 0.1 * i - 0.2));
        s[i].setScale(V3d(i ? 1.0 : 1.2));
    }
    return s;
}

Ids chainIds(unsigned short n) {
    Ids ids;
    for (unsigned short i = 1; i <= n; ++i)
        ids.push_back(i);
    return ids;
}

// The chain bent about x (staying planar) or twisted out of its plane too.
Pose bentPose(const Skeleton& s, bool parentSpace, bool planar) {
    Pose pose(&s, true);
    for (unsigned short i = 1; i < s.numJoints(); ++i) {
        const V3d axis = planar ? V3d(1, 0, 0) : V3d(1, 0.4 * i, -0.3);
        pose.jointPose(i).rotation =
            axisAngle(axis, i % 2 ? 0.3 : -0.15) * pose.jointPose(i).rotation;
    }
    if (!parentSpace) pose.convertToLocalSpace(&s);
    return pose;
}

std::vector<V3d> positions(const Skeleton& s, const Pose& p) {
    std::vector<V3d> out;
    for (unsigned short i = 0; i < s.numJoints(); ++i)
        out.push_back(worldPosition(s, p, i));
    return out;
}

double chainLength(const std::vector<V3d>& x, const Ids& ids) {
    double total = 0;
    for (size_t k = 1; k < ids.size(); ++k)
        total += (x[ids[k]] - x[ids[k - 1]]).length();
    return total;
}

// Every bone of the list keeps (or is scaled by `scale` to) its length.
void expectBoneLengths(const std::vector<V3d>& before, const std::vector<V3d>& after,
                       const Ids& ids, double scale = 1.0) {
    for (size_t k = 1; k < ids.size(); ++k)
        EXPECT_NEAR((after[ids[k]] - after[ids[k - 1]]).length(),
                    (before[ids[k]] - before[ids[k - 1]]).length() * scale, 1e-9)
            << "bone " << k;
}

// Distance of each listed joint from the ray from `from` towards `to`.
void expectOnRay(const std::vector<V3d>& x, const Ids& ids, const V3d& from, const V3d& to) {
    const V3d dir = (to - from).normalized();
    for (unsigned short id : ids) {
        const V3d d = x[id] - from;
        EXPECT_NEAR((d - dir * (d ^ dir)).length(), 0.0, 1e-9) << "joint " << id;
        EXPECT_GE(d ^ dir, -1e-9) << "joint " << id;
    }
}

void expectSamePose(const Pose& a, const Pose& b) {
    ASSERT_EQ(a.numJoints(), b.numJoints());
    for (unsigned short i = 0; i < a.numJoints(); ++i) {
        EXPECT_EQ(a.jointPose(i).rotation, b.jointPose(i).rotation) << "joint " << i;
        EXPECT_EQ(a.jointPose(i).translation, b.jointPose(i).translation) << "joint " << i;
        EXPECT_EQ(a.jointPose(i).scale, b.jointPose(i).scale) << "joint " << i;
    }
}

// A point at `fraction` of `length` from `from`, in one of a few fixed directions.
V3d targetAt(const V3d& from, double length, double fraction, int which) {
    const V3d dirs[] = {{0.2, 0.9, 0.3}, {-0.7, 0.4, 0.5}, {0.1, -0.3, 0.95}, {0.6, 0.6, -0.5}};
    return from + dirs[which % 4].normalized() * (length * fraction);
}

using Solve = std::function<void(Pose&, V3d, V3d*)>;

// The three solvers on the chain `ids` (first, mids, last) with generous caps.
std::vector<std::pair<const char*, Solve>> solvers(const Skeleton& s, const Ids& ids,
                                                   double tolerance) {
    const Ids mids(ids.begin() + 1, ids.end() - 1);
    return {{"chain",
             [&s, ids, mids, tolerance](Pose& p, V3d t, V3d* pole) {
                 fabrikIKSolver(p, s, t, ids.front(), mids, ids.back(), tolerance, 200, 1, pole);
             }},
            {"list",
             [&s, ids, tolerance](Pose& p, V3d t, V3d* pole) {
                 fabrikIKSolver2(p, s, t, ids, 0.0, tolerance, 200, 1, pole);
             }},
            {"3d", [&s, ids, mids, tolerance](Pose& p, V3d t, V3d* pole) {
                 fabrikIK3DSolver(p, s, t, ids.front(), mids, {}, ids.back(), tolerance, 200, 1,
                                  pole);
             }}};
}

}  // namespace

TEST(FabrikIK, ReachableTargetsAreMetWithinTolerance) {
    const double tolerance = 1e-6;
    for (unsigned short n : {3, 5, 8}) {
        const Skeleton s = makeChain(n);
        const Ids ids = chainIds(n);
        for (bool parentSpace : {false, true}) {
            for (auto& [name, solve] : solvers(s, ids, tolerance)) {
                // The planar solver keeps bone lengths only for a chain in its bend plane.
                const bool planar = std::string(name) == "chain";
                if (planar && parentSpace) continue;  // it always reads local space
                const Pose start = bentPose(s, parentSpace, planar);
                const std::vector<V3d> before = positions(s, start);
                const double length = chainLength(before, ids);
                for (int k = 0; k < 4; ++k) {
                    SCOPED_TRACE(testing::Message() << name << " n=" << n << " parentSpace="
                                                    << parentSpace << " target " << k);
                    Pose pose = start;
                    const V3d target = targetAt(before[1], length, 0.4 + 0.15 * k, k);
                    V3d pole(0, 0, 1);
                    solve(pose, target, &pole);
                    const std::vector<V3d> after = positions(s, pose);
                    EXPECT_LE((after[n] - target).length(), tolerance + 1e-9);
                    expectBoneLengths(before, after, ids);
                    EXPECT_V3_NEAR(after[1], before[1], 1e-12);
                }
            }
        }
    }
}

TEST(FabrikIK, TargetsOutOfReachLayTheChainStraight) {
    const Skeleton s = makeChain(5);
    const Ids ids = chainIds(5);
    for (auto& [name, solve] : solvers(s, ids, 1e-6)) {
        SCOPED_TRACE(name);
        Pose pose = bentPose(s, false, std::string(name) == "chain");
        const std::vector<V3d> before = positions(s, pose);
        const double length = chainLength(before, ids);
        const V3d target = targetAt(before[1], length, 2.0, 1);
        V3d pole(0, 0, 1);
        solve(pose, target, &pole);
        const std::vector<V3d> after = positions(s, pose);
        expectOnRay(after, ids, before[1], target);
        expectBoneLengths(before, after, ids);
    }
}

TEST(FabrikIK, ChainSolverStepsIterationsAndPole) {
    const Skeleton s = makeChain(5);
    const Ids mids{2, 3, 4};
    const Pose start = bentPose(s, false, true);
    const std::vector<V3d> before = positions(s, start);
    auto run = [&](const V3d& target, unsigned int maxIterations, unsigned int steps) {
        Pose pose = start;
        V3d pole(0, 0, 4);
        fabrikIKSolver(pose, s, target, 1, mids, 5, 1e-8, maxIterations, steps, &pole);
        EXPECT_EQ(pole, V3d(0, 0, 1));
        return positions(s, pose);
    };
    const V3d near = targetAt(before[1], chainLength(before, chainIds(5)), 0.5, 0);
    for (unsigned int steps : {1u, 2u, 5u})
        EXPECT_LE((run(near, 500, steps)[5] - near).length(), 1e-7);
    // maxIterations 0 and 1 both run one iteration, short of the target.
    const std::vector<V3d> once = run(near, 1, 1);
    EXPECT_EQ(run(near, 0, 1), once);
    EXPECT_GT((once[5] - near).length(), 1e-4);
    // No steps: no FABRIK. A target at the end's own distance only turns the chain rigidly.
    const V3d sameDistance =
        before[1] + (near - before[1]).normalized() * (before[5] - before[1]).length();
    const std::vector<V3d> turned = run(sameDistance, 500, 0);
    EXPECT_V3_NEAR(turned[5], sameDistance, 1e-9);
    expectBoneLengths(before, turned, chainIds(5));
    EXPECT_GT((run(near, 500, 0)[5] - near).length(), 1e-3);
}

TEST(FabrikIK, ListSolverPassesAndIterationCap) {
    const Skeleton s = makeChain(5);
    const Ids ids = chainIds(5);
    const Pose start = bentPose(s, false, false);
    const std::vector<V3d> before = positions(s, start);
    const V3d target = targetAt(before[1], chainLength(before, ids), 0.6, 2);
    auto run = [&](unsigned int maxIterations, unsigned int passes) {
        Pose pose = start;
        V3d pole(0, 0, 2);
        fabrikIKSolver2(pose, s, target, ids, 0.0, 0.0, maxIterations, passes, &pole);
        EXPECT_EQ(pole, V3d(0, 0, 2));
        return positions(s, pose);
    };
    // The counter is not reset between passes: three passes capped at one iteration each are
    // three iterations in a row.
    const std::vector<V3d> three = run(3, 1);
    const std::vector<V3d> capped = run(1, 3);
    for (unsigned short id : ids)
        EXPECT_V3_NEAR(capped[id], three[id], 1e-12);
    EXPECT_GT((run(1, 1)[5] - three[5]).length(), 1e-6);
    // No passes: the chain is only flattened into the plane of the target line and the pole.
    const std::vector<V3d> flat = run(10, 0);
    const V3d normal = ((target - before[1]).normalized() % V3d(0, 0, 1)).normalized();
    for (unsigned short id : ids)
        EXPECT_NEAR((flat[id] - before[1]) ^ normal, 0.0, 1e-9);
    EXPECT_GT((flat[5] - target).length(), 1e-3);
}

TEST(FabrikIK, ListSolverSkipsMarkedJointsAndTakesRootsAndTwoJoints) {
    Skeleton s = makeChain(5);
    s.addJointMetadata(2, "skipIk", std::make_shared<MetadataImpl<int>>(1));
    s.addJointMetadata(4, "zelto_skipIk", std::make_shared<MetadataImpl<std::string>>(""));
    const Ids ids = chainIds(5);
    Pose pose = bentPose(s, true, false);
    const std::vector<V3d> before = positions(s, pose);
    const V3d target = targetAt(before[1], chainLength(before, ids), 0.7, 3);
    V3d pole(1, 0, 0);
    fabrikIKSolver2(pose, s, target, ids, 0.0, 1e-7, 100, 2, &pole);
    const std::vector<V3d> after = positions(s, pose);
    EXPECT_LE((after[5] - target).length(), 1e-7 + 1e-9);
    expectBoneLengths(before, after, ids);
    // Each skipped joint is on the segment from its predecessor to the next solved joint.
    expectOnRay(after, {2}, after[1], after[3]);
    expectOnRay(after, {4}, after[3], after[5]);

    // A root without parent starts from the identity; two joints need no pole.
    const Skeleton chain = makeChain(3);
    for (const Ids& list : {Ids{0, 1, 2, 3}, Ids{2, 3}}) {
        Pose p = bentPose(chain, false, false);
        const std::vector<V3d> x = positions(chain, p);
        const V3d goal = targetAt(x[list[0]], chainLength(x, list), 0.8, 0);
        LogCapture log;
        fabrikIKSolver2(p, chain, goal, list, 0.0, 1e-7, 100, 1,
                        list.size() == 2 ? nullptr : &pole);
        EXPECT_TRUE(log.warnings.empty());
        const std::vector<V3d> y = positions(chain, p);
        expectBoneLengths(x, y, list);
        if (list.size() > 2) {
            EXPECT_LE((y[list.back()] - goal).length(), 1e-7 + 1e-9);
        } else {
            expectOnRay(y, {list.back()}, x[list[0]], goal);
        }
    }
}

TEST(FabrikIK, SolversAgreeInBothSpaces) {
    const Skeleton s = makeChain(5);
    const Ids ids = chainIds(5);
    const std::vector<V3d> before = positions(s, bentPose(s, true, false));
    const V3d target = targetAt(before[1], chainLength(before, ids), 0.5, 1);
    for (auto& [name, solve] : solvers(s, ids, 1e-6)) {
        if (std::string(name) == "chain") continue;  // always reads local space
        SCOPED_TRACE(name);
        Pose local = bentPose(s, false, false), parent = bentPose(s, true, false);
        V3d pole(0, 0, 1);
        solve(local, target, &pole);
        solve(parent, target, &pole);
        const std::vector<V3d> a = positions(s, local), b = positions(s, parent);
        for (unsigned short id : ids)
            EXPECT_V3_NEAR(a[id], b[id], 1e-9);
    }
}

TEST(FabrikIK, ThreeDSolverStretchesListedBonesOnlyAtOrBeyondReach) {
    const Skeleton s = makeChain(5);
    const Ids ids = chainIds(5);
    for (bool parentSpace : {false, true}) {
        SCOPED_TRACE(parentSpace);
        const Pose start = bentPose(s, parentSpace, false);
        const std::vector<V3d> before = positions(s, start);
        const double length = chainLength(before, ids);
        auto run = [&](double fraction, const Ids& stretch, unsigned int maxIterations) {
            Pose pose = start;
            V3d target = targetAt(before[1], length, fraction, 2), pole(0, 1, 0);
            fabrikIK3DSolver(pose, s, target, 1, {2, 3, 4}, stretch, 5, 1e-8, maxIterations, 0,
                             &pole);
            return positions(s, pose);
        };
        const V3d far = targetAt(before[1], length, 1.5, 2);
        const std::vector<V3d> full = run(1.5, ids, 100);
        EXPECT_LE((full[5] - far).length(), 1e-9);
        expectBoneLengths(before, full, ids, 1.5);
        // Only the listed bones grow (the first entry is the fixed top of the list).
        const std::vector<V3d> part = run(1.5, {1, 2, 3}, 100);
        expectBoneLengths(before, part, {1, 2, 3}, 1.5);
        expectBoneLengths(before, part, {3, 4, 5});
        expectOnRay(part, ids, before[1], far);
        // A reachable target never stretches; one iteration is the minimum.
        expectBoneLengths(before, run(0.9, ids, 100), ids);
        EXPECT_EQ(run(0.9, ids, 0), run(0.9, ids, 1));
        EXPECT_GT((run(0.9, ids, 1)[5] - run(0.9, ids, 100)[5]).length(), 1e-6);
    }
}

TEST(FabrikIK, RefusalsWarnOnceAndLeaveThePose) {
    Skeleton s = makeChain(5);
    const Pose pose = bentPose(s, false, false);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    const V3d target(0.5, 1.5, 0.5), far(1e300, 1e300, 0);
    Pose shortPose = pose;
    shortPose.setNumberJoints(5);
    auto w = [](const char* text) { return std::string(text) + " "; };
    const std::string missingPole = w("Missing or 0 length pole vector!");
    const std::string badId = w(detail::kBadJointIdWarning), size = w(detail::kPoseSizeWarning),
                      finite = w(detail::kNotFiniteWarning), chain = w(detail::kNotAChainWarning);

    // Each case: the warning expected (empty: none) and the call on a copy of the pose.
    using Call = std::function<void(Pose&, V3d*)>;
    auto chainCall = [&](V3d t, unsigned short first, Ids mids, unsigned short last) -> Call {
        return [&s, t, first, mids, last](Pose& p, V3d* pole) {
            fabrikIKSolver(p, s, t, first, mids, last, 1e-6, 10, 1, pole);
        };
    };
    auto listCall = [&](V3d t, Ids ids) -> Call {
        return [&s, t, ids](Pose& p, V3d* pole) {
            fabrikIKSolver2(p, s, t, ids, 0.0, 1e-6, 10, 1, pole);
        };
    };
    auto call3d = [&](V3d t, Ids mids, Ids stretch, bool parentSpace) -> Call {
        return [&s, t, mids, stretch, parentSpace](Pose& p, V3d* pole) {
            V3d target = t;
            (parentSpace ? fabrikIK3DSolverInParentSpace : fabrikIK3DSolver)(
                p, s, target, 1, mids, stretch, 5, 1e-6, 10, 1, pole);
        };
    };
    struct Case {
        const char* name;
        std::string warning;
        Call call;
        V3d pole;
        bool nullPole = false;
        bool shortPose = false;
    };
    const V3d z(0, 0, 1);
    const std::vector<V3d> x = positions(s, pose);
    const std::vector<Case> cases = {
        {"chain no mids", "", chainCall(target, 1, {}, 5), z},
        {"chain null pole", missingPole, chainCall(target, 1, {2}, 3), z, true},
        {"chain zero pole", missingPole, chainCall(target, 1, {2}, 3), V3d(0)},
        {"chain pole along bone", missingPole, chainCall(target, 1, {2}, 3), (x[2] - x[1]) * 2.0},
        {"chain bad id", badId, chainCall(target, 1, {2}, 9), z},
        {"chain short pose", size, chainCall(target, 1, {2}, 3), z, false, true},
        {"chain nan target", finite, chainCall(V3d(nan), 1, {2}, 3), z},
        {"chain inf pole", finite, chainCall(target, 1, {2}, 3), V3d(0, inf, 0)},
        {"chain overflowing target", finite, chainCall(far, 1, {2}, 3), z},
        {"chain skips a link", chain, chainCall(target, 1, {3}, 4), z},
        {"list of one",
         w("Could not compute FabrikIKSolver because of 1 given joints, 2 or more "
           "expected."),
         listCall(target, {1}), z},
        {"list null pole",
         w("Could not compute FabrikIKSolver because of missing or 0 length pole vector."),
         listCall(target, {1, 2, 3}), z, true},
        {"list skip on end",
         w("Could not compute FabrikIKSolver because start and/or end joints have skip IK "
           "metadata."),
         listCall(target, {3, 4, 5}), z},
        {"list bad id", badId, listCall(target, {1, 2, 60000}), z},
        {"list short pose", size, listCall(target, {1, 2}), z, false, true},
        {"list nan pole", finite, listCall(target, {1, 2}), V3d(nan, 0, 0)},
        {"list reversed", chain, listCall(target, {3, 2, 1}), z},
        {"3d parent space null pole", missingPole, call3d(target, {3}, {}, true), z, true},
        {"3d mids out of order", chain, call3d(target, {3, 2}, {}, false), z},
        {"3d stretch not linked", chain, call3d(target, {3}, {1, 3}, false), z},
        {"3d bad stretch id", badId, call3d(target, {3}, {1, 2, 6}, false), z},
        {"3d inf target", finite, call3d(V3d(0, -inf, 0), {3}, {}, false), z, true},
    };
    s.addJointMetadata(5, "zelto_skipIk", std::make_shared<MetadataImpl<double>>(0.0));
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const Pose original = c.shortPose ? shortPose : pose;
        Pose p = original;
        V3d pole = c.pole;
        LogCapture log;
        c.call(p, c.nullPole ? nullptr : &pole);
        EXPECT_EQ(log.warnings, c.warning.empty() ? std::vector<std::string>{}
                                                  : std::vector<std::string>{c.warning});
        expectSamePose(p, original);
        if (!c.nullPole) {  // bytes, so that a NaN pole compares too
            EXPECT_EQ(std::memcmp(&pole, &c.pole, sizeof pole), 0);
        }
    }
}
