#include "core/ik/internal/FabrikCommon.h"

#include <cmath>

#include "core/ik/internal/IkCommon.h"
#include "core/pose/Pose.h"
#include "core/skeleton/Skeleton.h"

namespace ZeltoCore {
namespace detail {

namespace {

// Moves `moved` to `length` from `anchor` along the line through both. A plain square root: the
// inner loop of every iteration, and a distance too small to square (below 1e-154) counts as 0.
void pull(const V3d& anchor, V3d& moved, double length, double minStep) {
    const V3d d = moved - anchor;
    const double r = std::sqrt(d ^ d);
    if (r >= minStep && r > 0.0) moved = anchor + d * (length / r);
}

void readLocal(const Pose& pose, const Skeleton& skeleton, ChainJoint& joint, bool parentSpace) {
    joint.local = parentSpace ? localMatrix(pose, skeleton, joint.id, true)
                              : localMatrix(pose.jointPose(joint.id), joint.bind);
}

// Re-reads a joint's local matrix after its rotation changed.
void refresh(const Pose& pose, const Skeleton& skeleton, ChainJoint& joint, bool parentSpace) {
    readLocal(pose, skeleton, joint, parentSpace);
    joint.world = multiplyAffine(joint.local, joint.above);
}

// Brings chain[k + 1] up to date with chain[k]'s world matrix; its local matrix is unchanged.
void descend(const Pose& pose, const Skeleton& skeleton, ChainJoints& chain, size_t k,
             bool parentSpace) {
    ChainJoint& lower = chain[k + 1];
    const Joint* parent = skeleton.joint(lower.id).parent();
    lower.above = parent->id() == chain[k].id
                      ? chain[k].world
                      : worldMatrixBelow(pose, skeleton, chain[k].id, chain[k].world, parent->id(),
                                         parentSpace);
    lower.world = multiplyAffine(lower.local, lower.above);
}

}  // namespace

bool fabrikIterate(Positions& p, const Lengths& lengths, const V3d& goal, double tolerance,
                   unsigned int maxIterations, unsigned int& iterations, double minStep) {
    const size_t n = p.size();
    if (n < 2) return false;
    double total = 0.0;
    for (double l : lengths)
        total += l;
    const double stalled = 1e-24 * total * total;  // squared: a move of 1e-12 of the length
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
        const V3d miss = p[n - 1] - goal;
        if (iterations >= maxIterations || !(std::sqrt(miss ^ miss) > tolerance)) return true;
        if ((p[n - 1] - before).length2() <= stalled) return false;
    }
}

void fabrikLayTowards(Positions& p, const Lengths& lengths, const V3d& goal, double minStep) {
    for (size_t k = 0; k + 1 < p.size(); ++k) {
        const V3d d = goal - p[k];
        const double r = d.length();
        if (r >= minStep && r > 0.0) p[k + 1] = p[k] + d * (lengths[k] / r);
    }
}

void namedChain(unsigned short start, const JointIds& mids, unsigned short end, ChainIds& chain) {
    chain.push_back(start);
    for (unsigned short id : mids)
        chain.push_back(id);
    chain.push_back(end);
}

bool checkDirectChain(const Skeleton& skeleton, IdSpan chain) {
    for (size_t i = 1; i < chain.size; ++i) {
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

void evaluateChain(const Pose& pose, const Skeleton& skeleton, IdSpan ids, bool parentSpace,
                   ChainJoints& chain) {
    chain.resize(ids.size);
    for (size_t k = 0; k < ids.size; ++k) {
        chain[k].id = ids[k];
        if (!parentSpace) chain[k].bind = bindRows(skeleton, ids[k]);
        readLocal(pose, skeleton, chain[k], parentSpace);
    }
    chain[0].above = parentWorldMatrix(pose, skeleton, ids[0]);
    chain[0].world = multiplyAffine(chain[0].local, chain[0].above);
    for (size_t k = 0; k + 1 < chain.size(); ++k)
        descend(pose, skeleton, chain, k, parentSpace);
}

void turnBones(Pose& pose, const Skeleton& skeleton, ChainJoints& chain, const Positions& goals,
               bool bones, bool parentSpace) {
    for (size_t k = 0; k + 1 < chain.size(); ++k) {
        // The turns above moved the next joint; only its position is needed before this turn.
        V3d next;
        if (k == 0) {
            next = chain[1].world.translation();
        } else if (skeleton.joint(chain[k + 1].id).parent()->id() == chain[k].id) {
            next = productTranslation(chain[k + 1].local, chain[k].world);
        } else {
            descend(pose, skeleton, chain, k, parentSpace);
            next = chain[k + 1].world.translation();
        }
        const V3d at = chain[k].world.translation();
        const V3d from = next - at;
        const V3d to = bones ? goals[k + 1] - goals[k] : goals[k + 1] - at;
        applyWorldRotation(pose, chain[k].id, chain[k].world, rotationBetween(from, to));
        refresh(pose, skeleton, chain[k], parentSpace);
        descend(pose, skeleton, chain, k, parentSpace);
    }
}

void aimStart(Pose& pose, const ChainJoints& chain, const V3d& target) {
    const ChainJoint& start = chain.front();
    const V3d at = start.world.translation();
    applyWorldRotation(pose, start.id, start.world,
                       rotationBetween(chain.back().world.translation() - at, target - at));
}

}  // namespace detail
}  // namespace ZeltoCore
