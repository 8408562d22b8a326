#include "core/ik/FabrikIK.h"
#include "core/ik/internal/FabrikCommon.h"
#include "core/ik/internal/FabrikGuard.h"
#include "core/ik/internal/IkCommon.h"
#include "core/pose/Pose.h"
#include "core/skeleton/Skeleton.h"

namespace ZeltoCore {

using namespace detail;

namespace {

// Steps shorter than this are not taken, so coincident joints stay put.
constexpr double kMinStep = 0.001;

void solve(FabrikGuard& guard, Pose& pose, const Skeleton& skeleton, const V3d& target,
           const JointIds& joints, double reachThreshold, double tolerance,
           unsigned int maxIterations, unsigned int passes, const V3d* poleVector,
           bool parentSpace) {
    const size_t n = joints.size();
    if (n < 2) {
        ikWarning("Could not compute FabrikIKSolver because of", n,
                  "given joints, 2 or more expected.");
        return;
    }
    if (!poleVector && n > 2) {
        ikWarning("Could not compute FabrikIKSolver because of missing or 0 length pole vector.");
        return;
    }
    if (hasSkipIk(skeleton, joints[0]) || hasSkipIk(skeleton, joints[n - 1])) {
        ikWarning(
            "Could not compute FabrikIKSolver because start and/or end joints have skip IK "
            "metadata.");
        return;
    }
    if (!checkIkInput(pose, skeleton, joints, target, poleVector) ||
        !checkDirectChain(skeleton, joints)) {
        return;
    }

    ChainJoints chain;
    evaluateChain(pose, skeleton, joints, parentSpace, chain, true);
    const V3d root = chain[0].position();
    if (!checkReachable(root, target)) return;
    // Flattening onto the plane of the root-to-target line and the pole; without a plane (no
    // pole, or one along that line) the chain keeps its shape.
    const V3d normal =
        poleVector ? ((target - root).normalized() % *poleVector).normalized() : V3d(0.0);

    // Only the active joints are solved; a skipped joint's bone adds to the distance between
    // the active joints around it.
    Lengths lengths(n - 1), distances;
    SmallVector<char, kInlineJoints> active(n);
    active[0] = 1;
    Positions solved{root};
    double total = 0.0, run = 0.0;
    for (size_t i = 1; i < n; ++i) {
        const V3d x = chain[i].position();
        lengths[i - 1] = (x - chain[i - 1].position()).length();
        total += lengths[i - 1];
        run += lengths[i - 1];
        active[i] = n == 2 || !hasSkipIk(skeleton, joints[i]);
        if (active[i]) {
            solved.push_back(root + projectOntoPlane(x - root, normal));
            distances.push_back(run);
            run = 0.0;
        }
    }

    const bool outOfReach = (target - root).length() - total > reachThreshold;
    unsigned int iterations = 0;
    // A lay-out depends only on the fixed root, so repeating it changes nothing; an iteration
    // that stalls would stall again.
    for (unsigned int pass = 0; pass < passes; ++pass) {
        if (outOfReach) {
            fabrikLayTowards(solved, distances, target, kMinStep);
            break;
        }
        if (!fabrikIterate(solved, distances, target, tolerance, maxIterations, iterations,
                           kMinStep)) {
            break;
        }
    }

    Positions goals(n);
    goals[0] = solved[0];
    for (size_t i = 1, k = 1; i < n; ++i) {
        goals[i] = active[i]
                       ? solved[k++]
                       : goals[i - 1] + (solved[k] - goals[i - 1]).normalized() * lengths[i - 1];
    }
    guard.keepRotations(joints, true);
    turnBones(pose, skeleton, chain, goals, false, parentSpace);
}

}  // namespace

void fabrikIKSolver2(Pose& pose, const Skeleton& skeleton, const V3d& target,
                     const std::vector<unsigned short>& joints, double reachThreshold,
                     double tolerance, unsigned int maxIterations, unsigned int passes,
                     V3d* poleVector) {
    FabrikGuard guard(pose, skeleton, joints.empty() ? 0 : joints.front(), -1, joints);
    solve(guard, pose, skeleton, target, joints, reachThreshold, tolerance, maxIterations, passes,
          poleVector, pose.inParentSpace());
}

void fabrikIKSolver2InParentSpace(Pose& pose, const Skeleton& skeleton, const V3d& target,
                                  const std::vector<unsigned short>& joints, double reachThreshold,
                                  double tolerance, unsigned int maxIterations, unsigned int passes,
                                  V3d* poleVector) {
    FabrikGuard guard(pose, skeleton, joints.empty() ? 0 : joints.front(), -1, joints);
    solve(guard, pose, skeleton, target, joints, reachThreshold, tolerance, maxIterations, passes,
          poleVector, true);
}

}  // namespace ZeltoCore
