#include "core/ik/FabrikIK.h"
#include "core/ik/internal/FabrikCommon.h"
#include "core/ik/internal/FabrikGuard.h"
#include "core/ik/internal/IkCommon.h"
#include "core/pose/Pose.h"
#include "core/skeleton/Skeleton.h"

namespace ZeltoCore {

using namespace detail;

namespace {

void solve(FabrikGuard& guard, Pose& pose, const Skeleton& skeleton, const V3d& target,
           unsigned short startId, const JointIds& midJoints, const JointIds& stretchJoints,
           unsigned short endId, double tolerance, unsigned int maxIterations,
           const V3d* poleVector, bool parentSpace) {
    ChainIds chain, named;
    namedChain(startId, midJoints, endId, chain);
    for (unsigned short id : chain)
        named.push_back(id);
    for (unsigned short id : stretchJoints)
        named.push_back(id);
    // Each stretch entry lengthens the bone from the entry before, so it must be its child.
    if (!checkIkInput(pose, skeleton, named, target, poleVector) ||
        !checkIkChain(skeleton, chain) ||
        (stretchJoints.size() > 1 && !checkDirectChain(skeleton, stretchJoints))) {
        return;
    }
    const size_t n = chain.size();

    ChainJoints joints;
    evaluateChain(pose, skeleton, chain, parentSpace, joints, true);
    Positions p(n);
    Lengths lengths(n - 1);
    double total = 0.0;
    for (size_t i = 0; i < n; ++i) {
        p[i] = joints[i].position();
        if (i) total += lengths[i - 1] = (p[i] - p[i - 1]).length();
    }
    const V3d start = p[0];
    if (!checkReachable(start, target)) return;
    const double dist = (target - start).length();
    const V3d direction = (p[n - 1] - start).normalized();

    // The distance is solved along the chain's current direction; the final aim turns it.
    const bool outOfReach = dist >= total;
    if (outOfReach) {
        double along = 0.0;
        for (size_t i = 1; i < n; ++i) {
            along += lengths[i - 1];
            p[i] = start + direction * (total > 0.0 ? dist * along / total : 0.0);
        }
    } else {
        unsigned int iterations = 0;
        fabrikIterate(p, lengths, start + direction * dist, tolerance, maxIterations, iterations,
                      0.0);
    }
    guard.keepRotations(chain, false);
    const V3d end = turnBones(pose, skeleton, joints, p, true, parentSpace, &target);

    // Stretch only for a target at or beyond reach: a reachable one is met within tolerance.
    if (!outOfReach) return;
    const double reach = (end - start).length();
    const double ratio = reach > 0.0 ? dist / reach : 1.0;
    if (!(ratio > 1.0)) return;
    for (size_t k = 1; k < stretchJoints.size(); ++k) {
        guard.keepTranslation(stretchJoints[k]);
        scaleJointOffset(pose, skeleton, stretchJoints[k], ratio, parentSpace);
    }
}

}  // namespace

void fabrikIK3DSolver(Pose& pose, const Skeleton& skeleton, V3d& target, unsigned short startId,
                      const std::vector<unsigned short>& midJoints,
                      const std::vector<unsigned short>& stretchJoints, unsigned short endId,
                      double tolerance, unsigned int maxIterations, unsigned int steps,
                      V3d* poleVector) {
    FabrikGuard guard(pose, skeleton, startId, endId, stretchJoints);
    if (pose.inParentSpace()) {
        fabrikIK3DSolverInParentSpace(pose, skeleton, target, startId, midJoints, stretchJoints,
                                      endId, tolerance, maxIterations, steps, poleVector);
        return;
    }
    solve(guard, pose, skeleton, target, startId, midJoints, stretchJoints, endId, tolerance,
          maxIterations, poleVector, false);
}

void fabrikIK3DSolverInParentSpace(Pose& pose, const Skeleton& skeleton, V3d& target,
                                   unsigned short startId,
                                   const std::vector<unsigned short>& midJoints,
                                   const std::vector<unsigned short>& stretchJoints,
                                   unsigned short endId, double tolerance,
                                   unsigned int maxIterations, unsigned int /*steps*/,
                                   V3d* poleVector) {
    FabrikGuard guard(pose, skeleton, startId, endId, stretchJoints);
    if (!poleVector) {
        ikWarning(kFabrikPoleWarning);
        return;
    }
    solve(guard, pose, skeleton, target, startId, midJoints, stretchJoints, endId, tolerance,
          maxIterations, poleVector, true);
}

}  // namespace ZeltoCore
