#include <Imath/ImathMatrix.h>

#include "core/ik/FabrikIK.h"
#include "core/ik/internal/FabrikCommon.h"
#include "core/ik/internal/IkCommon.h"
#include "core/pose/Pose.h"
#include "core/skeleton/Skeleton.h"

namespace ZeltoCore {

using namespace detail;

namespace {

void solve(Pose& pose, const Skeleton& skeleton, const V3d& target, unsigned short startId,
           const JointIds& midJoints, const JointIds& stretchJoints, unsigned short endId,
           double tolerance, unsigned int maxIterations, const V3d* poleVector, bool parentSpace) {
    JointIds chain;
    chain.reserve(midJoints.size() + 2);
    chain.push_back(startId);
    chain.insert(chain.end(), midJoints.begin(), midJoints.end());
    chain.push_back(endId);
    JointIds named = chain;
    named.insert(named.end(), stretchJoints.begin(), stretchJoints.end());
    // The stretch pass multiplies each entry's local matrix onto the one before, so its entries
    // must be linked directly.
    if (!checkIkInput(pose, skeleton, named, target, poleVector) ||
        !checkIkChain(skeleton, chain) ||
        (stretchJoints.size() > 1 && !checkDirectChain(skeleton, stretchJoints))) {
        return;
    }
    const size_t n = chain.size();

    const M44d parentWorld = parentWorldMatrix(pose, skeleton, startId);
    Positions x(n);
    std::vector<double> lengths(n - 1);
    double total = 0.0;
    M44d world = localMatrix(pose, skeleton, startId, parentSpace) * parentWorld;
    x[0] = world.translation();
    for (size_t i = 1; i < n; ++i) {
        world = worldMatrixBelow(pose, skeleton, chain[i - 1], world, chain[i], parentSpace);
        x[i] = world.translation();
        lengths[i - 1] = (x[i] - x[i - 1]).length();
        total += lengths[i - 1];
    }
    const V3d start = x[0];
    if (!checkReachable(start, target)) return;
    const double dist = (target - start).length();
    const V3d direction = (x[n - 1] - start).normalized();

    // The distance is solved along the chain's current direction; the final aim turns it.
    Positions p = x;
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
    const V3d end = turnBones(pose, skeleton, chain, parentWorld, p, true, parentSpace);
    M44d above = aimStart(pose, skeleton, startId, parentWorld, end, target, parentSpace);

    // Stretch only for a target at or beyond reach: a reachable one is met within tolerance.
    const double reach = (end - start).length();
    const double ratio = reach > 0.0 ? dist / reach : 1.0;
    if (!outOfReach || !(ratio > 1.0)) return;
    for (size_t k = 1; k < stretchJoints.size(); ++k) {
        const unsigned short id = stretchJoints[k];
        M44d stretched = localMatrix(pose, skeleton, id, parentSpace) * above;
        const V3d t = above.translation() + (stretched.translation() - above.translation()) * ratio;
        stretched[3][0] = t.x;
        stretched[3][1] = t.y;
        stretched[3][2] = t.z;
        writeWorldMatrix(pose, skeleton, id, stretched, above, parentSpace);
        above = stretched;
    }
}

}  // namespace

void fabrikIK3DSolver(Pose& pose, const Skeleton& skeleton, V3d& target, unsigned short startId,
                      const std::vector<unsigned short>& midJoints,
                      const std::vector<unsigned short>& stretchJoints, unsigned short endId,
                      double tolerance, unsigned int maxIterations, unsigned int steps,
                      V3d* poleVector) {
    if (pose.inParentSpace()) {
        fabrikIK3DSolverInParentSpace(pose, skeleton, target, startId, midJoints, stretchJoints,
                                      endId, tolerance, maxIterations, steps, poleVector);
        return;
    }
    solve(pose, skeleton, target, startId, midJoints, stretchJoints, endId, tolerance,
          maxIterations, poleVector, false);
}

void fabrikIK3DSolverInParentSpace(Pose& pose, const Skeleton& skeleton, V3d& target,
                                   unsigned short startId,
                                   const std::vector<unsigned short>& midJoints,
                                   const std::vector<unsigned short>& stretchJoints,
                                   unsigned short endId, double tolerance,
                                   unsigned int maxIterations, unsigned int /*steps*/,
                                   V3d* poleVector) {
    if (!poleVector) {
        ikWarning(kFabrikPoleWarning);
        return;
    }
    solve(pose, skeleton, target, startId, midJoints, stretchJoints, endId, tolerance,
          maxIterations, poleVector, true);
}

}  // namespace ZeltoCore
