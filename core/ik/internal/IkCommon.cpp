#include "core/ik/internal/IkCommon.h"

#include <cmath>

#include "core/metadata/MetadataImpl.h"
#include "core/pose/Pose.h"
#include "core/pose/Poser.h"
#include "core/skeleton/Skeleton.h"

namespace ZeltoCore {
namespace detail {

namespace {

bool checkInput(const Pose& pose, const Skeleton& skeleton, const unsigned short* ids,
                std::size_t count, const V3d& target, const V3d* pole) {
    const unsigned short n = skeleton.numJoints();
    for (std::size_t i = 0; i < count; ++i) {
        if (ids[i] >= n) {
            ikWarning(kBadJointIdWarning);
            return false;
        }
    }
    if (pose.numJoints() != n) {
        ikWarning(kPoseSizeWarning);
        return false;
    }
    if (!isFinite(target) || (pole && !isFinite(*pole))) {
        ikWarning(kNotFiniteWarning);
        return false;
    }
    return true;
}

// Parent of a joint as an id, or -1; a link that leaves the skeleton counts as none.
int parentId(const Skeleton& skeleton, unsigned short id) {
    const Joint* parent = skeleton.joint(id).parent();
    return parent && parent->id() < skeleton.numJoints() ? parent->id() : -1;
}

bool checkChain(const Skeleton& skeleton, const unsigned short* chain, std::size_t count) {
    bool ok = count > 0;
    for (std::size_t i = 1; ok && i < count; ++i)
        ok = isAncestor(skeleton, chain[i - 1], chain[i]);
    if (ok) {
        // The top of the chain must reach a joint without parent, or the poser never returns.
        int k = chain[0];
        unsigned int steps = 0;
        while (k >= 0 && steps++ <= skeleton.numJoints())
            k = parentId(skeleton, static_cast<unsigned short>(k));
        ok = k < 0;
    }
    if (!ok) ikWarning(kNotAChainWarning);
    return ok;
}

}  // namespace

bool checkIkInput(const Pose& pose, const Skeleton& skeleton,
                  std::initializer_list<unsigned short> ids, const V3d& target, const V3d* pole) {
    return checkInput(pose, skeleton, ids.begin(), ids.size(), target, pole);
}

bool checkIkInput(const Pose& pose, const Skeleton& skeleton,
                  const std::vector<unsigned short>& ids, const V3d& target, const V3d* pole) {
    return checkInput(pose, skeleton, ids.data(), ids.size(), target, pole);
}

bool checkIkChain(const Skeleton& skeleton, std::initializer_list<unsigned short> chain) {
    return checkChain(skeleton, chain.begin(), chain.size());
}

bool checkIkChain(const Skeleton& skeleton, const std::vector<unsigned short>& chain) {
    return checkChain(skeleton, chain.data(), chain.size());
}

bool isAncestor(const Skeleton& skeleton, unsigned short ancestor, unsigned short id) {
    int k = parentId(skeleton, id);
    for (unsigned int steps = 0; k >= 0 && steps < skeleton.numJoints(); ++steps) {
        if (k == ancestor) return true;
        k = parentId(skeleton, static_cast<unsigned short>(k));
    }
    return false;
}

bool isFinite(const V3d& v) {
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

M44d localMatrix(const Pose& pose, const Skeleton& skeleton, unsigned short id, bool parentSpace) {
    const M44d m = pose.jointPose(id).matrix();
    return parentSpace ? m : m * skeleton.joint(id).matrix();
}

M44d parentWorldMatrix(const Pose& pose, const Skeleton& skeleton, unsigned short upperId) {
    const Joint* parent = skeleton.joint(upperId).parent();
    return parent ? Poser(&skeleton).getWorldMatrix(pose, parent->id()) : M44d();
}

M44d worldMatrixBelow(const Pose& pose, const Skeleton& skeleton, unsigned short upperId,
                      const M44d& upperWorld, unsigned short lowerId, bool parentSpace) {
    M44d world = localMatrix(pose, skeleton, lowerId, parentSpace);
    // Bounded so that cyclic links cannot keep the walk going.
    int k = parentId(skeleton, lowerId);
    for (unsigned int steps = 0; k >= 0 && k != upperId && steps < skeleton.numJoints(); ++steps) {
        world = world * localMatrix(pose, skeleton, static_cast<unsigned short>(k), parentSpace);
        k = parentId(skeleton, static_cast<unsigned short>(k));
    }
    return world * upperWorld;
}

void applyWorldRotation(Pose& pose, unsigned short id, const M44d& world, const V3d& axis,
                        double angle) {
    if (axis.length() == 0.0) return;
    const V3d p = world.translation();
    V3d local;
    world.inverse().multVecMatrix(p + axis, local);
    local.normalize();
    if (local.length() == 0.0) return;
    Quatd q;
    q.setAxisAngle(local, angle);
    JointPose& jointPose = pose.jointPose(id);
    jointPose.rotation = jointPose.rotation * q;
}

void applyWorldRotation(Pose& pose, unsigned short id, const M44d& world, const Quatd& rotation) {
    const double angle = 2.0 * std::atan2(rotation.v.length(), rotation.r);
    applyWorldRotation(pose, id, world, rotation.v.normalized(), angle);
}

Quatd rotationBetween(const V3d& from, const V3d& to) {
    Quatd q;
    if (from.length() > 0.0 && to.length() > 0.0) q.setRotation(from, to);
    return q;
}

V3d projectOntoPlane(const V3d& v, const V3d& normal) {
    const double nn = normal ^ normal;
    return nn > 0.0 ? v - normal * ((v ^ normal) / nn) : v;
}

V3d offsetFromLine(const V3d& p, const V3d& a, const V3d& c) {
    return projectOntoPlane(p - a, c - a);
}

void writeWorldMatrix(Pose& pose, const Skeleton& skeleton, unsigned short id, const M44d& world,
                      const M44d& parentWorld, bool parentSpace) {
    const M44d relative = world * parentWorld.inverse();
    pose.jointPose(id).setMatrix(parentSpace ? relative
                                             : relative * skeleton.joint(id).matrix().inverse());
}

bool hasSkipIk(const Skeleton& skeleton, unsigned short id) {
    if (!skeleton.jointHasMetadata(id)) return false;
    const MapMetadata& map = skeleton.jointMetadata(id);
    return map.hasKey(kSkipIkKey) || map.hasKey(kSkipIkPrefixedKey);
}

JointLimits jointLimits(const Skeleton& skeleton, unsigned short id) {
    JointLimits limits;
    if (!skeleton.jointHasMetadata(id)) return limits;
    const MapMetadata& map = skeleton.jointMetadata(id);
    auto read = [&map](const char* key, V3d& out) {
        const std::shared_ptr<const Metadata> value = map.getEntry(key);
        if (value && value->typeId() == MetadataImpl<V3d>::staticTypeId())
            out = static_cast<const MetadataImpl<V3d>&>(*value).get();
    };
    read(kJointLimitMinKey, limits.min);
    read(kJointLimitMaxKey, limits.max);
    return limits;
}

}  // namespace detail
}  // namespace ZeltoCore
