#include "core/ik/SphereIK.h"

#include <algorithm>
#include <cmath>

#include "core/ik/TwoJointsIK.h"
#include "core/ik/internal/IkCommon.h"
#include "core/pose/Pose.h"
#include "core/skeleton/Skeleton.h"

namespace ZeltoCore {

using namespace detail;

namespace {

// World matrices of the first three joints and the end's position, each walked down from the
// joint above.
struct FourJoints {
    M44d root, mid0, mid1;
    V3d end;
};

FourJoints evaluate(const Pose& pose, const Skeleton& skeleton, const M44d& parentWorld,
                    const unsigned short (&ids)[4]) {
    const bool parentSpace = pose.inParentSpace();
    FourJoints w;
    w.root = multiplyAffine(localMatrix(pose, skeleton, ids[0], parentSpace), parentWorld);
    w.mid0 = worldMatrixBelow(pose, skeleton, ids[0], w.root, ids[1], parentSpace);
    w.mid1 = worldMatrixBelow(pose, skeleton, ids[1], w.mid0, ids[2], parentSpace);
    w.end = worldPositionBelow(pose, skeleton, ids[2], w.mid1, ids[3], parentSpace);
    return w;
}

}  // namespace

void sphereIKSolver(Pose& pose, const Skeleton& skeleton, Imath::Vec3<double>& target,
                    unsigned short rootId, const std::vector<unsigned short>& midJoints,
                    unsigned short endId, Imath::Vec3<double>* poleVector) {
    detail::FiniteResultGuard guard(pose, skeleton, rootId, {endId});
    if (midJoints.size() != 2) {
        ikWarning("Invalid number of mid joints");
        return;
    }
    if (!poleVector || poleVector->length() == 0.0) {
        ikWarning("Missing or 0 length pole vector!");
        return;
    }
    const unsigned short ids[4] = {rootId, midJoints[0], midJoints[1], endId};
    if (!checkIkInput(pose, skeleton, {ids[0], ids[1], ids[2], ids[3]}, target, poleVector) ||
        !checkIkChain(skeleton, {ids[0], ids[1], ids[2], ids[3]})) {
        return;
    }
    const V3d pole = poleVector->normalized();
    const M44d parentWorld = parentWorldMatrix(pose, skeleton, rootId);
    const FourJoints before = evaluate(pose, skeleton, parentWorld, ids);
    const V3d a = before.root.translation();
    const V3d d = before.mid0.translation();
    const V3d e = before.mid1.translation();
    const V3d b0 = before.end;
    const double l1 = (d - a).length(), l2 = (e - d).length(), l3 = (b0 - e).length();
    const double length = l1 + l2 + l3;
    const double dT = (target - a).length();

    // The goal on the current axis, and the circle where the sphere about the root (the first two
    // bones' share of the goal distance) meets the sphere of the last bone about the goal.
    const V3d axis = (b0 - a).normalized();
    const V3d goal = a + axis * dT;
    const double r = length > 0.0 ? (l1 + l2) / length * dT : 0.0;
    const double k = dT * dT - l3 * l3 + r * r;
    const double x = dT > 0.0 ? k / (2.0 * dT) : 0.0;
    const double rho =
        dT > 0.0 ? std::sqrt(std::max(4.0 * dT * dT * r * r - k * k, 0.0)) / (2.0 * dT) : 0.0;
    const V3d w = (a - b0).normalized();
    const V3d side = ((w % pole).normalized() % w).normalized();
    V3d mid1Goal = a + axis * x + side * rho;

    // The policy for these has one place to go; a single pass leaves nothing to choose.
    const JointLimits limits = jointLimits(skeleton, ids[2]);
    static_cast<void>(limits);

    solveTwoJointsIK(pose, skeleton, mid1Goal, ids[0], ids[1], ids[2], 1.0, true, 0.01, nullptr);

    // Turn the second mid joint so that the end points at the goal, then swing onto the target.
    const FourJoints bent = evaluate(pose, skeleton, parentWorld, ids);
    const V3d m1 = bent.mid1.translation();
    applyWorldRotation(pose, ids[2], bent.mid1, rotationBetween(bent.end - m1, goal - m1));
    applyWorldRotation(pose, ids[0], bent.root, rotationBetween(b0 - a, target - a));
}

}  // namespace ZeltoCore
