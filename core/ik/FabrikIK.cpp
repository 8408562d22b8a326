#include "core/ik/FabrikIK.h"

#include <Imath/ImathQuat.h>

#include <cmath>

#include "core/ik/internal/FabrikCommon.h"
#include "core/ik/internal/FabrikGuard.h"
#include "core/ik/internal/IkCommon.h"
#include "core/math/Transform.h"
#include "core/pose/Pose.h"
#include "core/skeleton/Skeleton.h"

namespace ZeltoCore {

using namespace detail;
using Imath::V2d;

void fabrikIKSolver(Pose& pose, const Skeleton& skeleton, const V3d& target, unsigned short startId,
                    const std::vector<unsigned short>& midJoints, unsigned short endId,
                    double tolerance, unsigned int maxIterations, unsigned int steps,
                    V3d* poleVector) {
    FabrikGuard guard(pose, skeleton, startId, endId, midJoints);
    if (midJoints.empty()) return;
    if (!poleVector) {
        ikWarning(kFabrikPoleWarning);
        return;
    }
    ChainIds chain;
    namedChain(startId, midJoints, endId, chain);
    if (!checkIkInput(pose, skeleton, chain, target, poleVector) ||
        !checkDirectChain(skeleton, chain)) {
        return;
    }
    const size_t n = chain.size();
    constexpr bool parentSpace = false;  // this solver always reads local-space joint poses

    ChainJoints joints;
    evaluateChain(pose, skeleton, chain, parentSpace, joints, true);
    const V3d start = joints[0].position();
    if (!checkReachable(start, target)) return;

    // The bend plane holds the first bone and the pole. The frame's x axis lies in that plane
    // across the pole, y is the plane normal, z the pole, and the start is its origin.
    const V3d pole = poleVector->normalized();
    const V3d firstBone = (start - joints[1].position()).normalized();
    if (pole.length() == 0.0 || firstBone.length() == 0.0 || isParallel(firstBone, pole)) {
        ikWarning(kFabrikPoleWarning);
        return;
    }
    *poleVector = pole;
    const V3d normal = (firstBone % pole).normalized();
    const V3d side = (pole % normal).normalized();
    // The frame is orthonormal: into it by dot products, out of it by the axes' sum.
    const auto toFrame = [&](const V3d& x) {
        const V3d d = x - start;
        return V3d(d ^ side, d ^ normal, d ^ pole);
    };
    const auto fromFrame = [&](const V3d& q) {
        return start + side * q.x + normal * q.y + pole * q.z;
    };

    // p: positions flattened onto the plane, in the frame, where y is 0 (what rounding leaves of
    // it goes to the offset); offset: what the flattening removed.
    Positions p(n), offset(n);
    for (size_t i = 0; i < n; ++i) {
        const V3d x = joints[i].position();
        p[i] = toFrame(start + projectOntoPlane(x - start, normal));
        p[i].y = 0.0;
        offset[i] = toFrame(x) - p[i];
    }
    Lengths lengths(n - 1);
    for (size_t i = 0; i + 1 < n; ++i)
        lengths[i] = (p[i + 1] - p[i]).length();

    // The flat goal keeps the chain's planar direction; the final aim turns it to the target.
    const V3d base = p[0];
    const V3d goal = (target - start).length() * (p[n - 1] - base).normalized();
    // FABRIK in the plane's two coordinates: shorter sums in every pull.
    Points<V2d> flat(n);
    for (size_t i = 0; i < n; ++i)
        flat[i] = V2d(p[i].x, p[i].z);
    const V2d firstEnd = flat[n - 1], flatGoal(goal.x, goal.z);
    unsigned int iterations = 0;
    for (unsigned int step = 0; step < steps; ++step) {
        const double t = steps == 1 ? 1.0 : double(step) / double(steps - 1);
        fabrikIterate(flat, lengths, firstEnd + (flatGoal - firstEnd) * t, tolerance, maxIterations,
                      iterations, 0.0);
    }
    for (size_t i = 0; i < n; ++i)
        p[i] = V3d(flat[i].x, 0.0, flat[i].y);

    const Imath::Matrix33<double> turn = rotationBetween(p[n - 1] - base, goal - base).toMatrix33();
    for (size_t i = 1; i < n; ++i)
        p[i] = base + (p[i] - base) * turn;
    const double reach = (p[n - 1] - base).length();
    const double ratio = reach > 0.0 ? (goal - base).length() / reach : 1.0;

    // Reached: the in-plane positions. Otherwise the flat chain is scaled along its axis to the
    // goal distance and each joint gets its offset from the plane back. Goals replace p.
    const bool reached = std::abs(ratio - 1.0) <= 0.0001;
    const V3d axis = (p[n - 1] - base).normalized();
    for (size_t i = 0; i < n; ++i) {
        V3d q = p[i];
        if (!reached) q += axis * (((q - base) ^ axis) * (ratio - 1.0)) + offset[i];
        p[i] = fromFrame(q);
    }
    guard.keepRotations(chain, true);  // a direct chain: the path from the end up
    turnBones(pose, skeleton, joints, p, false, parentSpace, &target);
}

}  // namespace ZeltoCore
