#include "core/ik/internal/FabrikCommon.h"

#include <Imath/ImathQuat.h>

#include <cmath>

#include "core/ik/internal/IkCommon.h"
#include "core/pose/Pose.h"
#include "core/skeleton/Skeleton.h"

namespace ZeltoCore {
namespace detail {

namespace {

// Moves `moved` to `length` from `anchor` along the line through both.
void pull(const V3d& anchor, V3d& moved, double length, double minStep) {
    const V3d d = moved - anchor;
    const double r = d.length();
    if (r >= minStep && r > 0.0) moved = anchor + d * (length / r);
}

}  // namespace

bool fabrikIterate(Positions& p, const std::vector<double>& lengths, const V3d& goal,
                   double tolerance, unsigned int maxIterations, unsigned int& iterations,
                   double minStep) {
    const size_t n = p.size();
    if (n < 2) return false;
    double total = 0.0;
    for (double l : lengths)
        total += l;
    const double stalled = 1e-12 * total;
    const V3d base = p[0];
    while (true) {
        const V3d before = p[n - 1];
        p[n - 1] = goal;
        for (size_t i = n - 1; i > 0; --i)
            pull(p[i], p[i - 1], lengths[i - 1], minStep);
        p[0] = base;
        for (size_t i = 0; i + 1 < n; ++i)
            pull(p[i], p[i + 1], lengths[i], minStep);
        ++iterations;
        if (iterations >= maxIterations || !((p[n - 1] - goal).length() > tolerance)) return true;
        if ((p[n - 1] - before).length() <= stalled) return false;
    }
}

void fabrikLayTowards(Positions& p, const std::vector<double>& lengths, const V3d& goal,
                      double minStep) {
    for (size_t k = 0; k + 1 < p.size(); ++k) {
        const V3d d = goal - p[k];
        const double r = d.length();
        if (r >= minStep && r > 0.0) p[k + 1] = p[k] + d * (lengths[k] / r);
    }
}

bool checkDirectChain(const Skeleton& skeleton, const JointIds& chain) {
    for (size_t i = 1; i < chain.size(); ++i) {
        if (skeleton.joint(chain[i]).parent() != &skeleton.joint(chain[i - 1])) {
            ikWarning(kNotAChainWarning);
            return false;
        }
    }
    return checkIkChain(skeleton, chain);
}

bool checkReachable(const V3d& from, const V3d& target) {
    if (std::isfinite((target - from).length())) return true;
    ikWarning(kNotFiniteWarning);
    return false;
}

V3d turnBones(Pose& pose, const Skeleton& skeleton, const JointIds& chain, const M44d& parentWorld,
              const Positions& goals, bool bones, bool parentSpace) {
    M44d turned;  // world matrix of chain[k - 1] once turned
    M44d world = localMatrix(pose, skeleton, chain[0], parentSpace) * parentWorld;
    for (size_t k = 0; k + 1 < chain.size(); ++k) {
        const M44d next =
            worldMatrixBelow(pose, skeleton, chain[k], world, chain[k + 1], parentSpace);
        const V3d from = next.translation() - world.translation();
        const V3d to = bones ? goals[k + 1] - goals[k] : goals[k + 1] - world.translation();
        Quatd q;
        q.setRotation(from.normalized(), to.normalized());
        applyWorldRotation(pose, chain[k], world, q);
        turned =
            k == 0 ? localMatrix(pose, skeleton, chain[0], parentSpace) * parentWorld
                   : worldMatrixBelow(pose, skeleton, chain[k - 1], turned, chain[k], parentSpace);
        world = worldMatrixBelow(pose, skeleton, chain[k], turned, chain[k + 1], parentSpace);
    }
    return world.translation();
}

M44d aimStart(Pose& pose, const Skeleton& skeleton, unsigned short startId, const M44d& parentWorld,
              const V3d& end, const V3d& target, bool parentSpace) {
    const M44d world = localMatrix(pose, skeleton, startId, parentSpace) * parentWorld;
    const V3d start = world.translation();
    Quatd q;
    q.setRotation((end - start).normalized(), (target - start).normalized());
    applyWorldRotation(pose, startId, world, q);
    return localMatrix(pose, skeleton, startId, parentSpace) * parentWorld;
}

}  // namespace detail
}  // namespace ZeltoCore
