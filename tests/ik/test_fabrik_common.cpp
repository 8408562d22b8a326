// Tests of the FABRIK solvers' shared passes against the plain computations they stand for: the
// chain's affine world matrices against the poser, turns carried along the chain against turns
// evaluated again, and the
// unrolled position iterations, in space and in a plane, against a plain FABRIK loop.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "core/ik/internal/FabrikCommon.h"
#include "core/ik/internal/IkCommon.h"
#include "tests/ik/IkRig.h"
#include "tests/support/Matchers.h"

using namespace ZeltoCore;
using namespace ZeltoTest;
using detail::ChainJoints;
using detail::isFinite;
using detail::Positions;
using Ids = std::vector<unsigned short>;

namespace {

void expectChainMatchesPoser(const Skeleton& s, const Pose& pose, const ChainJoints& chain) {
    const Poser poser(&s);
    for (const detail::ChainJoint& joint : chain) {
        SCOPED_TRACE(joint.id);
        EXPECT_M44_NEAR(detail::toMatrix(joint.world), poser.getWorldMatrix(pose, joint.id), 1e-12);
    }
}

// The plain loop: full passes, a root and a quotient per pull.
unsigned int plainIterate(std::vector<V3d>& p, const std::vector<double>& lengths, const V3d& goal,
                          double tolerance, unsigned int maxIterations, double minStep) {
    const size_t n = p.size();
    const V3d base = p[0];
    double total = 0;
    for (double l : lengths)
        total += l;
    auto pull = [&](const V3d& anchor, V3d& moved, double length) {
        const V3d d = moved - anchor;
        const double r = std::sqrt(d ^ d);
        if (r >= minStep && r > 0) moved = anchor + d * (length / r);
    };
    for (unsigned int iterations = 1;; ++iterations) {
        const V3d before = p[n - 1];
        p[n - 1] = goal;
        for (size_t i = n - 1; i > 0; --i)
            pull(p[i], p[i - 1], lengths[i - 1]);
        p[0] = base;
        for (size_t i = 0; i + 1 < n; ++i)
            pull(p[i], p[i + 1], lengths[i]);
        const V3d miss = p[n - 1] - goal;
        if (iterations >= maxIterations || !(std::sqrt(miss ^ miss) > tolerance) ||
            (p[n - 1] - before).length2() <= 1e-24 * total * total) {
            return iterations;
        }
    }
}

// Runs fabrikIterate on `start` and expects the plain loop's positions and iteration count. The
// bone lengths are those of `start` unless given.
void expectPlainIterations(const std::vector<V3d>& start, const V3d& goal, double tolerance,
                           unsigned int maxIterations, double minStep,
                           std::vector<double> lengths = {}) {
    const size_t n = start.size();
    for (size_t i = lengths.size() + 1; i < n; ++i)
        lengths.push_back((start[i] - start[i - 1]).length());
    std::vector<V3d> plain = start;
    const unsigned int expected =
        plainIterate(plain, lengths, goal, tolerance, maxIterations, minStep);
    Positions p(n);
    detail::Lengths l(n - 1);
    for (size_t i = 0; i < n; ++i) {
        p[i] = start[i];
        if (i) l[i - 1] = lengths[i - 1];
    }
    unsigned int iterations = 0;
    detail::fabrikIterate(p, l, goal, tolerance, maxIterations, iterations, minStep);
    EXPECT_EQ(iterations, expected);
    for (size_t i = 0; i < n; ++i) {
        EXPECT_TRUE(isFinite(p[i])) << "point " << i;
        EXPECT_V3_NEAR(p[i], plain[i], 1e-12 * (1 + plain[i].length())) << "point " << i;
    }
    // A chain in the plane z = 0 solves the same in two coordinates.
    bool planar = goal.z == 0;
    for (const V3d& x : start)
        planar = planar && x.z == 0;
    if (!planar) return;
    detail::Points<Imath::V2d> flat(n);
    for (size_t i = 0; i < n; ++i)
        flat[i] = Imath::V2d(start[i].x, start[i].y);
    unsigned int flatIterations = 0;
    detail::fabrikIterate(flat, l, Imath::V2d(goal.x, goal.y), tolerance, maxIterations,
                          flatIterations, minStep);
    EXPECT_EQ(flatIterations, expected);
    for (size_t i = 0; i < n; ++i)
        EXPECT_V3_NEAR(V3d(flat[i].x, flat[i].y, 0), plain[i], 1e-12 * (1 + plain[i].length()));
}

}  // namespace

namespace {

// Evaluates and turns `ids` twice, rigid where it can and with matrices, and expects the same
// positions and joint rotations (the very same where the chain is not rigid).
void expectCarriedTurnsMatch(const Skeleton& s, const Ids& ids, bool rigid, bool parentSpace,
                             bool bones, bool aim) {
    const V3d target(0.4, -0.2, 0.5);
    Pose carried = movedPose(s, parentSpace), evaluated = carried;
    ChainJoints a, b;
    detail::evaluateChain(carried, s, ids, parentSpace, a);
    detail::evaluateChain(evaluated, s, ids, parentSpace, b, false, false);
    expectChainMatchesPoser(s, evaluated, b);
    for (size_t k = 0; k < ids.size(); ++k) {
        EXPECT_EQ(a[k].rigid, rigid);
        EXPECT_EQ(a[k].direct, b[k].direct);
        EXPECT_V3_NEAR(a[k].position(), b[k].position(), 1e-12) << k;
    }
    Positions goals(ids.size());
    for (size_t k = 0; k < ids.size(); ++k)
        goals[k] = a[k].position() + V3d(0.05 * k, -0.1 * k, 0.2 * k * k);
    const V3d* aimAt = aim ? &target : nullptr;
    const V3d endA = detail::turnBones(carried, s, a, goals, bones, parentSpace, aimAt);
    const V3d endB = detail::turnBonesEvaluated(evaluated, s, b, goals, bones, parentSpace, aimAt);
    if (!aim) {
        expectChainMatchesPoser(s, evaluated, b);
        EXPECT_V3_NEAR(endB, worldPosition(s, evaluated, ids.back()), 1e-12);
    }
    if (!rigid) {
        expectSamePose(carried, evaluated);
        EXPECT_EQ(endA, endB);
        return;
    }
    EXPECT_V3_NEAR(endA, endB, 1e-12);
    for (unsigned short id : ids) {
        const Quatd& qa = carried.jointPose(id).rotation;
        const Quatd& qb = evaluated.jointPose(id).rotation;
        EXPECT_NEAR(qa.r, qb.r, 1e-12) << id;
        EXPECT_V3_NEAR(qa.v, qb.v, 1e-12) << id;
    }
}

}  // namespace

TEST(FabrikCommon, CarriedTurnsMatchEvaluatingTheChainAgain) {
    // Chains below a joint with a parent, below a top joint, and from a top joint; the first
    // passes the twist joint, which it does not name, between hip and knee.
    const Ids chains[] = {{kHip, kKnee, kAnkle, kToe}, {kPelvis, kHip, kTwist}, {kWorld, kPelvis}};
    // As built, every transform of the rig is a rotation with one scale; an uneven scale on the
    // hip or the pelvis makes the chains through or below it evaluate with matrices.
    for (unsigned short uneven : {kLegJoints, kHip, kPelvis}) {
        Skeleton s = makeLeg();
        if (uneven != kLegJoints) s[uneven].setScale(V3d(1, 1.4, 0.8));
        for (const Ids& ids : chains) {
            const bool rigid = uneven == kLegJoints || (uneven == kHip && ids[0] == kWorld);
            for (int flags = 0; flags < 8; ++flags) {
                const bool parentSpace = flags & 1, bones = flags & 2, aim = flags & 4;
                SCOPED_TRACE("uneven " + std::to_string(uneven) + ", from " +
                             std::to_string(ids[0]) + ", flags " + std::to_string(flags));
                expectCarriedTurnsMatch(s, ids, rigid, parentSpace, bones, aim);
            }
        }
    }
}

TEST(FabrikCommon, EndPositionOnlyKeepsEveryOtherValue) {
    // Keeping only the end joint's translation rows changes no value that is kept, with matrices
    // (kept current through two rounds of turns) or rigid.
    const Skeleton s = makeLeg();
    for (const Ids& ids : {Ids{kHip, kKnee, kAnkle, kToe}, Ids{kKnee, kAnkle}}) {
        for (bool parentSpace : {false, true}) {
            for (bool rigid : {false, true}) {
                SCOPED_TRACE(std::to_string(ids.size()) +
                             (parentSpace ? " parent space" : " local") + (rigid ? " rigid" : ""));
                Pose full = movedPose(s, parentSpace), lean = full;
                ChainJoints a, b;
                detail::evaluateChain(full, s, ids, parentSpace, a, false, rigid);
                detail::evaluateChain(lean, s, ids, parentSpace, b, true, rigid);
                Positions goals(ids.size());
                for (size_t k = 0; k < ids.size(); ++k)
                    goals[k] = a[k].position() + V3d(0.1 * k, 0.05 * k * k, -0.1);
                for (int turned = 0; turned < (rigid ? 1 : 2); ++turned) {
                    for (size_t k = 0; k < ids.size(); ++k) {
                        const bool end = k + 1 == ids.size();
                        EXPECT_EQ(b[k].rigid, rigid);
                        EXPECT_EQ(b[k].translationOnly, end);
                        EXPECT_EQ(a[k].position(), b[k].position()) << k;
                        if (end) continue;
                        if (rigid) {
                            EXPECT_EQ(a[k].rotation, b[k].rotation) << k;
                        } else {
                            EXPECT_EQ(detail::toMatrix(a[k].world), detail::toMatrix(b[k].world));
                        }
                    }
                    detail::turnBones(full, s, a, goals, false, parentSpace);
                    detail::turnBones(lean, s, b, goals, false, parentSpace);
                    expectSamePose(full, lean);
                }
            }
        }
    }
}

TEST(FabrikCommon, IterationsMatchThePlainLoop) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> coordinate(-1, 1);
    auto point = [&] { return V3d(coordinate(random), coordinate(random), coordinate(random)); };
    // Two to nine points: the unrolled lengths and the loop beyond them.
    for (size_t n = 2; n <= 9; ++n) {
        for (int trial = 0; trial < 20; ++trial) {
            SCOPED_TRACE("n=" + std::to_string(n) + " trial " + std::to_string(trial));
            // Every fifth chain lies in a plane, for the two-coordinate passes.
            const V3d flatten = trial % 5 ? V3d(1) : V3d(1, 1, 0);
            std::vector<V3d> start{V3d(0)};
            for (size_t i = 1; i < n; ++i)
                start.push_back(start.back() + point() * flatten);
            // Goals near the base make the chain fold back and use up the cap.
            const V3d goal = point() * flatten * (trial % 2 ? 0.3 : 1.5 * double(n));
            expectPlainIterations(start, goal, trial % 3 ? 1e-4 : 0.0, 40, trial % 4 ? 0.0 : 1e-3);
        }
    }
}

TEST(FabrikCommon, PullsAtTheEdgesOfTheDoubleRange) {
    // Joints 1e-160 apart square to a subnormal, where the root-times-quotient form overflows.
    const double tiny = 1e-160;
    expectPlainIterations({V3d(0), V3d(tiny, 0, 0), V3d(tiny, tiny, 0)}, V3d(0, tiny, tiny), 0.0, 3,
                          0.0);
    // A joint 1e-160 from the goal with a bone of length 1: the quotient by the square overflows.
    expectPlainIterations({V3d(0, 1, 0), V3d(tiny, 0, 0), V3d(0)}, V3d(0), 0.0, 2, 0.0, {1, 1});
    // A goal so far that the squared distance to it overflows: the bone is left where it is.
    expectPlainIterations({V3d(0), V3d(1, 0, 0), V3d(1, 1, 0)}, V3d(1e200, 0, 0), 0.0, 2, 0.0);
    // Coincident joints stay where they are.
    expectPlainIterations({V3d(0), V3d(0), V3d(1, 0, 0)}, V3d(0, 1, 0), 0.0, 5, 0.0);
}

TEST(FabrikCommon, TurnJointComposesAsApplyWorldRotation) {
    std::mt19937 random(3);
    std::uniform_real_distribution<double> coordinate(-1, 1);
    auto vector = [&] { return V3d(coordinate(random), coordinate(random), coordinate(random)); };
    const Skeleton s = makeLeg();
    const Pose start = movedPose(s, true);
    // World rotation rows turned and scaled: uniformly, unevenly, mirrored, flattened to a
    // plane or nearly so, and by scales at which the adjugate over- or underflows.
    const V3d scales[] = {V3d(1.3),          V3d(0.5, 2, 1.1), V3d(1, -1, 1), V3d(1, 0, 1),
                          V3d(1, 1e-300, 1), V3d(1e-100),      V3d(1e100)};
    for (const V3d& scale : scales) {
        for (int trial = 0; trial < 10; ++trial) {
            SCOPED_TRACE(trial);
            M44d world = axisAngle(vector(), 2 * coordinate(random)).toMatrix44();
            for (int i = 0; i < 3; ++i)
                for (int k = 0; k < 3; ++k)
                    world[i][k] *= scale[i];
            world[3][0] = 4;
            // Half turns and no turn as well as ordinary ones.
            const V3d from = vector();
            const V3d to = trial == 0 ? -from : trial == 1 ? from * 2 : vector();
            const Quatd q = detail::rotationBetween(from, to);
            Pose expected = start, turned = start;
            detail::applyWorldRotation(expected, kKnee, world, q);
            detail::turnJoint(turned, kKnee, detail::WorldRows::load(world), q);
            const Quatd& a = turned.jointPose(kKnee).rotation;
            const Quatd& b = expected.jointPose(kKnee).rotation;
            EXPECT_NEAR(a.r, b.r, 1e-12) << scale;
            EXPECT_V3_NEAR(a.v, b.v, 1e-12) << scale;
        }
    }
    // A rotation that is not a number leaves one in the pose either way, for the guard to see.
    const double nan = std::numeric_limits<double>::quiet_NaN();
    Pose turned = start;
    detail::turnJoint(turned, kKnee, detail::WorldRows::load(M44d()), Quatd(nan, V3d(nan)));
    EXPECT_TRUE(std::isnan(turned.jointPose(kKnee).rotation.r));
}
