// Tests of the FABRIK solvers: reach, straight chains out of reach, skipped and stretched joints,
// iteration counts, and refusals that leave the pose alone.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <string>
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
using Points = std::vector<V3d>;

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
        JointPose& p = pose.jointPose(i);
        p.rotation = axisAngle(axis, i % 2 ? 0.3 : -0.15) * p.rotation;
    }
    if (!parentSpace) pose.convertToLocalSpace(&s);
    return pose;
}

double length(const Points& x, const Ids& ids) {
    double total = 0;
    for (size_t k = 1; k < ids.size(); ++k)
        total += (x[ids[k]] - x[ids[k - 1]]).length();
    return total;
}

// Every bone of the list keeps its length, or has it scaled by `scale`.
void expectBones(const Points& before, const Points& after, const Ids& ids, double scale = 1) {
    for (size_t k = 1; k < ids.size(); ++k)
        EXPECT_NEAR((after[ids[k]] - after[ids[k - 1]]).length(),
                    (before[ids[k]] - before[ids[k - 1]]).length() * scale, 1e-9)
            << "bone to " << ids[k];
}

// Each listed joint lies on the ray from `from` through `to`.
void expectOnRay(const Points& x, const Ids& ids, const V3d& from, const V3d& to) {
    const V3d dir = (to - from).normalized();
    for (unsigned short id : ids) {
        const V3d d = x[id] - from;
        EXPECT_NEAR((d - dir * (d ^ dir)).length(), 0.0, 1e-9) << "joint " << id;
        EXPECT_GE(d ^ dir, -1e-9) << "joint " << id;
    }
}

// A point at `fraction` of `length` from `from`, in one of four fixed directions.
V3d targetAt(const V3d& from, double length, double fraction, int which) {
    const V3d dirs[] = {{0.2, 0.9, 0.3}, {-0.7, 0.4, 0.5}, {0.1, -0.3, 0.95}, {0.6, 0.6, -0.5}};
    return from + dirs[which % 4].normalized() * (length * fraction);
}

// The three solvers on the chain 1 ... n, by name, with a generous iteration cap.
using Solve = std::function<void(Pose&, const V3d&)>;
std::vector<std::pair<std::string, Solve>> solvers(const Skeleton& s, unsigned short n,
                                                   double tol) {
    const Ids ids = chainIds(n), mids(ids.begin() + 1, ids.end() - 1);
    return {{"chain",
             [&s, n, mids, tol](Pose& p, const V3d& t) {
                 V3d pole(0, 0, 1);
                 fabrikIKSolver(p, s, t, 1, mids, n, tol, 200, 1, &pole);
             }},
            {"list",
             [&s, ids, tol](Pose& p, const V3d& t) {
                 V3d pole(0, 0, 1);
                 fabrikIKSolver2(p, s, t, ids, 0.0, tol, 200, 1, &pole);
             }},
            {"3d", [&s, n, mids, tol](Pose& p, const V3d& t) {
                 V3d pole(0, 0, 1);  // not used, but the parent-space form wants one
                 V3d target = t;
                 fabrikIK3DSolver(p, s, target, 1, mids, {}, n, tol, 200, 1, &pole);
             }}};
}

}  // namespace

TEST(FabrikIK, ReachableTargetsAreMetWithinToleranceKeepingBoneLengths) {
    for (unsigned short n : {3, 5, 8}) {
        const Skeleton s = makeChain(n);
        for (bool parentSpace : {false, true}) {
            for (auto& [name, solve] : solvers(s, n, 1e-6)) {
                // The planar solver reads local space, and keeps lengths only for a planar chain.
                if (name == "chain" && parentSpace) continue;
                const Pose start = bentPose(s, parentSpace, name == "chain");
                const Points before = positions(s, start);
                for (int k = 0; k < 4; ++k) {
                    SCOPED_TRACE(name + " n=" + std::to_string(n) + " parentSpace=" +
                                 std::to_string(parentSpace) + " target " + std::to_string(k));
                    Pose pose = start;
                    const V3d target =
                        targetAt(before[1], length(before, chainIds(n)), 0.4 + 0.15 * k, k);
                    solve(pose, target);
                    const Points after = positions(s, pose);
                    EXPECT_LE((after[n] - target).length(), 1e-6 + 1e-9);
                    expectBones(before, after, chainIds(n));
                    EXPECT_V3_NEAR(after[1], before[1], 1e-12);
                }
            }
        }
    }
}

TEST(FabrikIK, TargetsOutOfReachLayTheChainStraight) {
    const Skeleton s = makeChain(5);
    for (auto& [name, solve] : solvers(s, 5, 1e-6)) {
        SCOPED_TRACE(name);
        Pose pose = bentPose(s, false, name == "chain");
        const Points before = positions(s, pose);
        const V3d target = targetAt(before[1], length(before, chainIds(5)), 2.0, 1);
        solve(pose, target);
        const Points after = positions(s, pose);
        expectOnRay(after, chainIds(5), before[1], target);
        expectBones(before, after, chainIds(5));
    }
}

TEST(FabrikIK, ChainSolverStepsIterationsAndPole) {
    const Skeleton s = makeChain(5);
    const Pose start = bentPose(s, false, true);
    const Points before = positions(s, start);
    auto run = [&](const V3d& target, unsigned int maxIterations, unsigned int steps) {
        Pose pose = start;
        V3d pole(0, 0, 4);
        fabrikIKSolver(pose, s, target, 1, {2, 3, 4}, 5, 1e-8, maxIterations, steps, &pole);
        EXPECT_EQ(pole, V3d(0, 0, 1));
        return positions(s, pose);
    };
    const V3d near = targetAt(before[1], length(before, chainIds(5)), 0.5, 0);
    for (unsigned int steps : {1u, 2u, 5u})
        EXPECT_LE((run(near, 500, steps)[5] - near).length(), 1e-8 + 1e-9) << steps;
    // maxIterations 0 and 1 both run one iteration, short of the target.
    EXPECT_EQ(run(near, 0, 1), run(near, 1, 1));
    EXPECT_GT((run(near, 1, 1)[5] - near).length(), 1e-4);
    // No steps, no FABRIK: a target at the end's own distance only turns the chain rigidly.
    const V3d same = before[1] + (near - before[1]).normalized() * (before[5] - before[1]).length();
    const Points turned = run(same, 500, 0);
    EXPECT_V3_NEAR(turned[5], same, 1e-9);
    expectBones(before, turned, chainIds(5));
    EXPECT_GT((run(near, 500, 0)[5] - near).length(), 1e-3);
}

TEST(FabrikIK, ListSolverPassesSkippedJointsRootsAndPairs) {
    Skeleton s = makeChain(5);
    const Ids ids = chainIds(5);
    const Pose start = bentPose(s, false, false);
    const Points before = positions(s, start);
    const V3d target = targetAt(before[1], length(before, ids), 0.6, 2);
    auto run = [&](unsigned int maxIterations, unsigned int passes) {
        Pose pose = start;
        V3d pole(0, 0, 2);
        fabrikIKSolver2(pose, s, target, ids, 0.0, 0.0, maxIterations, passes, &pole);
        EXPECT_EQ(pole, V3d(0, 0, 2));
        return positions(s, pose);
    };
    // The iteration count runs on across passes: three passes capped at one iteration are three
    // iterations in a row.
    const Points three = run(3, 1), capped = run(1, 3);
    for (unsigned short id : ids)
        EXPECT_V3_NEAR(capped[id], three[id], 1e-12);
    EXPECT_GT((run(1, 1)[5] - three[5]).length(), 1e-6);
    // No passes: the chain is only flattened into the plane of the target line and the pole.
    const Points flat = run(10, 0);
    const V3d normal = ((target - before[1]).normalized() % V3d(0, 0, 1)).normalized();
    for (unsigned short id : ids)
        EXPECT_NEAR((flat[id] - before[1]) ^ normal, 0.0, 1e-9);
    expectBones(before, flat, ids);

    // Skipped joints end on the segment from their predecessor to the next solved joint.
    s.addJointMetadata(2, "skipIk", std::make_shared<MetadataImpl<int>>(1));
    s.addJointMetadata(4, "zelto_skipIk", std::make_shared<MetadataImpl<std::string>>(""));
    const Points skipped = run(100, 2);
    EXPECT_LE((skipped[5] - target).length(), 1e-9);
    expectBones(before, skipped, ids);
    expectOnRay(skipped, {2}, skipped[1], skipped[3]);
    expectOnRay(skipped, {4}, skipped[3], skipped[5]);

    // A root without parent starts from the identity; two joints need no pole.
    for (const Ids& list : {Ids{0, 1, 2, 3}, Ids{0, 1}}) {
        Pose pose = start;
        const V3d goal = targetAt(before[list[0]], length(before, list), 0.8, 0);
        V3d pole(1, 0, 0);
        LogCapture log;
        fabrikIKSolver2(pose, s, goal, list, 0.0, 1e-7, 100, 1, list.size() > 2 ? &pole : nullptr);
        EXPECT_TRUE(log.warnings.empty());
        const Points after = positions(s, pose);
        expectBones(before, after, list);
        if (list.size() > 2) {
            EXPECT_LE((after[list.back()] - goal).length(), 1e-7 + 1e-9);
        } else {
            expectOnRay(after, {list.back()}, before[list[0]], goal);
        }
    }
}

TEST(FabrikIK, ThreeDSolverStretchesListedBonesOnlyAtOrBeyondReach) {
    const Skeleton s = makeChain(5);
    const Ids ids = chainIds(5);
    for (bool parentSpace : {false, true}) {
        SCOPED_TRACE(parentSpace);
        const Pose start = bentPose(s, parentSpace, false);
        const Points before = positions(s, start);
        const double chain = length(before, ids);
        auto run = [&](double fraction, const Ids& stretch, unsigned int maxIterations) {
            Pose pose = start;
            V3d target = targetAt(before[1], chain, fraction, 2), pole(0, 1, 0);
            fabrikIK3DSolver(pose, s, target, 1, {2, 3, 4}, stretch, 5, 1e-8, maxIterations, 0,
                             &pole);
            return positions(s, pose);
        };
        const V3d far = targetAt(before[1], chain, 1.5, 2);
        const Points full = run(1.5, ids, 100);
        EXPECT_LE((full[5] - far).length(), 1e-9);
        expectBones(before, full, ids, 1.5);
        // Only the listed bones grow (the first entry is the fixed top of the list).
        const Points part = run(1.5, {1, 2, 3}, 100);
        expectBones(before, part, {1, 2, 3}, 1.5);
        expectBones(before, part, {3, 4, 5});
        expectOnRay(part, ids, before[1], far);
        // A reachable target never stretches; one iteration is the minimum.
        expectBones(before, run(0.9, ids, 100), ids);
        EXPECT_EQ(run(0.9, ids, 0), run(0.9, ids, 1));
        EXPECT_GT((run(0.9, ids, 1)[5] - run(0.9, ids, 100)[5]).length(), 1e-6);
    }
}

TEST(FabrikIK, ValuesThatAreNotFinitePutBackWhatTheSolveWrote) {
    // A NaN the solve never reads (the end joint's scale) counts as a result that is not finite:
    // the turned rotations and stretched translations are put back, with one warning. A refusal
    // writes nothing but warns about the NaN too.
    const Skeleton s = makeChain(5);
    const Ids ids = chainIds(5), mids = {2, 3, 4};
    const std::string notFinite = std::string(detail::kNotFiniteResultWarning) + " ",
                      pole = "Missing or 0 length pole vector! ";
    for (bool parentSpace : {false, true}) {
        SCOPED_TRACE(parentSpace);
        const Pose clean = bentPose(s, parentSpace, false);
        const V3d far = targetAt(positions(s, clean)[1], 10.0, 1.0, 1);
        struct Case {
            const char* name;
            std::function<void(Pose&)> call;
            std::vector<std::string> warnings;
        };
        const std::vector<Case> cases = {
            {"chain",
             [&](Pose& p) {
                 V3d v(0, 0, 1);
                 fabrikIKSolver(p, s, far, 1, mids, 5, 1e-6, 20, 1, &v);
             },
             {notFinite}},
            {"list",
             [&](Pose& p) {
                 V3d v(0, 0, 1);
                 fabrikIKSolver2(p, s, far, ids, 0.0, 1e-6, 20, 1, &v);
             },
             {notFinite}},
            {"3d, stretched",
             [&](Pose& p) {
                 V3d v(0, 0, 1), target = far;
                 (parentSpace ? fabrikIK3DSolverInParentSpace : fabrikIK3DSolver)(
                     p, s, target, 1, mids, ids, 5, 1e-6, 20, 1, &v);
             },
             {notFinite}},
            {"refused",
             [&](Pose& p) { fabrikIKSolver(p, s, far, 1, mids, 5, 1e-6, 20, 1, nullptr); },
             {pole, notFinite}},
        };
        for (const Case& c : cases) {
            SCOPED_TRACE(c.name);
            Pose solved = clean;
            c.call(solved);
            // Without the NaN the solve writes the top joint (and a stretched bone).
            EXPECT_EQ(solved.jointPose(1).rotation == clean.jointPose(1).rotation,
                      c.warnings.size() == 2);
            Pose pose = clean;
            pose.jointPose(5).scale.y = std::numeric_limits<double>::quiet_NaN();
            LogCapture log;
            c.call(pose);
            EXPECT_EQ(log.warnings, c.warnings);
            EXPECT_TRUE(std::isnan(pose.jointPose(5).scale.y));
            pose.jointPose(5).scale.y = clean.jointPose(5).scale.y;
            expectSamePose(pose, clean);
        }
    }
}

TEST(FabrikIK, RefusalsWarnOnceAndLeaveThePoseAndPole) {
    Skeleton s = makeChain(5);
    s.addJointMetadata(5, "zelto_skipIk", std::make_shared<MetadataImpl<double>>(0.0));
    const Pose pose = bentPose(s, false, false);
    Pose shortPose = pose;
    shortPose.setNumberJoints(5);
    const Points x = positions(s, pose);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    const V3d t(0.5, 1.5, 0.5), z(0, 0, 1), huge(1e300, 1e300, 0);
    auto w = [](const char* text) { return std::string(text) + " "; };
    const std::string pole = w("Missing or 0 length pole vector!"),
                      id = w(detail::kBadJointIdWarning), size = w(detail::kPoseSizeWarning),
                      finite = w(detail::kNotFiniteWarning), chain = w(detail::kNotAChainWarning),
                      list = "Could not compute FabrikIKSolver because ";

    // The warning expected (empty: none), the call, the pole it gets (or null), which pose.
    struct Case {
        std::string warning;
        std::function<void(Pose&, V3d*)> call;
        V3d pole = V3d(0, 0, 1);
        bool nullPole = false, shortPose = false;
    };
    auto chainSolver = [&](const V3d& target, const Ids& mids, unsigned short end) {
        return [&s, target, mids, end](Pose& p, V3d* v) {
            fabrikIKSolver(p, s, target, 1, mids, end, 1e-6, 10, 1, v);
        };
    };
    auto listSolver = [&](const V3d& target, const Ids& ids) {
        return [&s, target, ids](Pose& p, V3d* v) {
            fabrikIKSolver2(p, s, target, ids, 0.0, 1e-6, 10, 1, v);
        };
    };
    auto solver3d = [&](const V3d& target, const Ids& mids, const Ids& stretch,
                        bool parentSpace = false) {
        return [&s, target, mids, stretch, parentSpace](Pose& p, V3d* v) {
            V3d goal = target;
            (parentSpace ? fabrikIK3DSolverInParentSpace : fabrikIK3DSolver)(
                p, s, goal, 1, mids, stretch, 5, 1e-6, 10, 1, v);
        };
    };
    const std::vector<Case> cases = {
        {"", chainSolver(t, {}, 5)},
        {pole, chainSolver(t, {2}, 3), z, true},
        {pole, chainSolver(t, {2}, 3), V3d(0)},
        {pole, chainSolver(t, {2}, 3), (x[2] - x[1]) * 2.0},  // along the first bone
        {id, chainSolver(t, {2}, 9)},
        {size, chainSolver(t, {2}, 3), z, false, true},
        {finite, chainSolver(V3d(nan), {2}, 3)},
        {finite, chainSolver(t, {2}, 3), V3d(0, inf, 0)},
        {finite, chainSolver(huge, {2}, 3)},
        {chain, chainSolver(t, {3}, 4)},
        {w((list + "of 1 given joints, 2 or more expected.").c_str()), listSolver(t, {1})},
        {w((list + "of missing or 0 length pole vector.").c_str()), listSolver(t, {1, 2, 3}), z,
         true},
        {w((list + "start and/or end joints have skip IK metadata.").c_str()),
         listSolver(t, {3, 4, 5})},
        {id, listSolver(t, {1, 2, 60000})},
        {size, listSolver(t, {1, 2}), z, false, true},
        {finite, listSolver(t, {1, 2}), V3d(nan, 0, 0)},
        {chain, listSolver(t, {3, 2, 1})},
        {pole, solver3d(t, {3}, {}, true), z, true},
        {chain, solver3d(t, {3, 2}, {})},
        {chain, solver3d(t, {3}, {1, 3})},
        {id, solver3d(t, {3}, {1, 2, 6})},
        {finite, solver3d(V3d(0, -inf, 0), {3}, {}), z, true},
    };
    for (size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE(i);
        const Case& c = cases[i];
        Pose p = c.shortPose ? shortPose : pose;
        V3d v = c.pole;
        LogCapture log;
        c.call(p, c.nullPole ? nullptr : &v);
        EXPECT_EQ(log.warnings, c.warning.empty() ? std::vector<std::string>{}
                                                  : std::vector<std::string>{c.warning});
        expectSamePose(p, c.shortPose ? shortPose : pose);
        for (int k = 0; k < 3; ++k)  // NaN components compare as equal
            EXPECT_TRUE(v[k] == c.pole[k] || (std::isnan(v[k]) && std::isnan(c.pole[k])));
    }
}

TEST(FabrikIK, RotationsKeepTheirGoldenValues) {
    // Rotations of joints 1 ... 5 after one solve of each kind, as first computed; a faster pass
    // may change them by rounding only.
    const Skeleton s = makeChain(5);
    const V3d target(0.4, 2.6, 0.7);
    auto expectRotations = [](const Pose& pose, const std::vector<Quatd>& expected) {
        for (unsigned short i = 1; i <= 5; ++i) {
            const Quatd& q = pose.jointPose(i).rotation;
            const Quatd& e = expected[i - 1];
            EXPECT_NEAR(q.r, e.r, 1e-9) << i;
            EXPECT_V3_NEAR(q.v, e.v, 1e-9) << i;
        }
    };
    Pose chain = bentPose(s, false, true), list = bentPose(s, false, false),
         threeD = bentPose(s, true, false);
    V3d pole(0, 0, 1), goal = target;
    fabrikIKSolver(chain, s, target, 1, {2, 3, 4}, 5, 1e-6, 4, 2, &pole);
    fabrikIKSolver2(list, s, target, chainIds(5), 0.0, 1e-6, 4, 2, &pole);
    fabrikIK3DSolver(threeD, s, goal, 1, {2, 3, 4}, chainIds(5), 5, 1e-6, 4, 1, &pole);
    expectRotations(chain, {Quatd(0.88983638656947406, 0.4544265700782123, 0.018373363439930266,
                                  -0.036743939089834907),
                            Quatd(0.94691958277148036, -0.32147053327464636, 0, 0),
                            Quatd(0.84582642007963715, 0.5334582149477739, 0, 0),
                            Quatd(0.45303430277944357, 0.89149308494521906, 0, 0),
                            Quatd(0.98877107793604224, 0.14943813247359919, -0, 0)});
    expectRotations(list, {Quatd(0.987996834041866, 0.13227085268674391, 0.061519600797813483,
                                 -0.050813543179437051),
                           Quatd(0.96599706157784715, -0.25422001862459259, -0.042886275310563729,
                                 -0.019560842094945536),
                           Quatd(0.67010767677830918, 0.74189726765903252, 0.0050408076162060042,
                                 0.022775777075997539),
                           Quatd(0.84254682926267566, 0.53813339595908238, -0.022127996398180361,
                                 0.0061351795702572834),
                           Quatd(0.98877107793604224, 0.066237287674146911, 0.12068545862899947,
                                 -0.058132583241047704)});
    expectRotations(
        threeD,
        {Quatd(0.9064891971534047, 0.41869000567296, 0.033655941666606792, -0.042933578750044873),
         Quatd(0.93816911774492551, -0.30924122854051928, -0.073133470782368676,
               0.13733195014920224),
         Quatd(0.81298131407364793, 0.54347653663843321, 0.12518337339402325, -0.16740298717845833),
         Quatd(0.34737695427861148, 0.93517321973671064, 0.037772759721991463,
               -0.057909579055405419),
         Quatd(0.96776986799266185, 0.21325361766379577, 0.12801751569520969,
               -0.039444807440219949)});
}
