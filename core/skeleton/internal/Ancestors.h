// Bounded walks up a skeleton's parent links, shared by the skeleton, pose and chain code.
//
// A parent pointer counts only when it points at a joint of the skeleton's own array (its id in
// range and the joint at that id the very object), and a walk takes at most numJoints() steps.
// So hand-made links that form a cycle or point at another skeleton's joints end the walk
// instead of looping or leaving the array.
//
//   detail::forEachAncestor(skeleton, joint, [&](const Joint& a) { ++depth; return true; });
//   Imath::M44d world = detail::worldBindMatrix(skeleton, id);
#pragma once

#include <Imath/ImathMatrix.h>

#include "core/skeleton/Joint.h"
#include "core/skeleton/Skeleton.h"

namespace ZeltoCore {
namespace detail {

// The parent of `joint` when it is one of the skeleton's joints, else null.
inline const Joint* parentInSkeleton(const Skeleton& skeleton, const Joint& joint) {
    const Joint* parent = joint.parent();
    if (!parent) return nullptr;
    const unsigned short id = parent->id();
    return id < skeleton.numJoints() && &skeleton.joint(id) == parent ? parent : nullptr;
}

// Calls visit(ancestor) from the parent upwards while it returns true; at most numJoints()
// ancestors. Returns the joint the walk stopped at (null when it ran out of parents or steps).
template <class Visit>
const Joint* forEachAncestor(const Skeleton& skeleton, const Joint& joint, Visit&& visit) {
    const Joint* a = parentInSkeleton(skeleton, joint);
    for (unsigned steps = skeleton.numJoints(); a && steps; --steps) {
        if (!visit(*a)) return a;
        a = parentInSkeleton(skeleton, *a);
    }
    return nullptr;
}

// B(id) * B(parent) * ... with B the bind matrices; the identity for an id beyond the skeleton.
inline Imath::Matrix44<double> worldBindMatrix(const Skeleton& skeleton, unsigned int id) {
    if (id >= skeleton.numJoints()) return Imath::Matrix44<double>();
    const Joint& joint = skeleton.joint(static_cast<unsigned short>(id));
    Imath::Matrix44<double> world = joint.matrix();
    forEachAncestor(skeleton, joint, [&world](const Joint& a) {
        world = world * a.matrix();
        return true;
    });
    return world;
}

}  // namespace detail
}  // namespace ZeltoCore
