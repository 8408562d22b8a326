// Similarity: a joint transform with a unit rotation and one positive scale, composed without
// matrices (internal, not exported).
//
// Most rigs hold only such transforms. Their products keep the form, a world rotation composed
// onto a joint is a quaternion product, and a turn of a joint moves everything below it rigidly:
// the solvers carry positions and rotations along instead of building and inverting matrices.
// Results agree with the matrix forms within rounding.
#pragma once

#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

#include <cmath>

#include "core/ik/internal/IkCommon.h"
#include "core/pose/Pose.h"
#include "core/skeleton/Skeleton.h"

namespace ZeltoCore {
namespace detail {

// v turned by the unit quaternion q: v + r t + q.v x t with t = 2 q.v x v. Quat::rotateVector
// divides by the norm and multiplies twice by quaternions to the same effect.
ZELTO_ALWAYS_INLINE V3d turned(const Quatd& q, const V3d& v) {
    const V3d t = (q.v % v) * 2.0;
    return v + t * q.r + (q.v % t);
}

// x -> scale * (x turned by rotation) + translation.
struct Similarity {
    Quatd rotation;
    double scale;
    V3d translation;

    ZELTO_ALWAYS_INLINE V3d apply(const V3d& x) const {
        return turned(rotation, x) * scale + translation;
    }
    // *this followed by `after`.
    ZELTO_ALWAYS_INLINE Similarity then(const Similarity& after) const {
        return {after.rotation * rotation, after.scale * scale, after.apply(translation)};
    }
};

// Quaternions this close to unit length give rotation matrices within rounding of the same size.
constexpr double kUnitTolerance = 1e-12;

// Whether a joint transform with rotation q and scale s is a similarity. Scales converted between
// spaces differ in their last bits.
ZELTO_ALWAYS_INLINE bool isSimilarity(const Quatd& q, const V3d& s) {
    const double n2 = q.r * q.r + (q.v ^ q.v);
    return std::abs(n2 - 1.0) <= kUnitTolerance && s.x > 0.0 &&
           std::abs(s.y - s.x) <= kUnitTolerance * s.x &&
           std::abs(s.z - s.x) <= kUnitTolerance * s.x;
}

// The bind transform of joint `id` as a similarity, when it is one.
ZELTO_ALWAYS_INLINE bool bindSimilarity(const Skeleton& skeleton, unsigned short id,
                                        Similarity& out) {
    const Joint& bind = skeleton.joint(id);
    out = {bind.rotation(), bind.scale().x, bind.translation()};
    return isSimilarity(bind.rotation(), bind.scale());
}

// The transform of joint `id` relative to its parent (pose `p`, in the given space) as a
// similarity, when it is one.
ZELTO_ALWAYS_INLINE bool localSimilarity(const JointPose& p, const Skeleton& skeleton,
                                         unsigned short id, bool parentSpace, Similarity& out) {
    if (!isSimilarity(p.rotation, p.scale)) return false;
    out = {p.rotation, p.scale.x, p.translation};
    if (parentSpace) return true;
    Similarity bind;
    if (!bindSimilarity(skeleton, id, bind)) return false;
    out = out.then(bind);
    return true;
}

// The world transform of the parent of `upperId` as Poser::getWorldMatrix evaluates it (the
// identity without a parent), when every transform on the way is a similarity.
bool parentWorldSimilarity(const Pose& pose, const Skeleton& skeleton, unsigned short upperId,
                           Similarity& out);

// `world` followed by the local transforms of the joints strictly between `upperId` and its
// descendant `lowerId`, as worldAffineBelow walks them; false where one is not a similarity.
bool composeBetween(const Pose& pose, const Skeleton& skeleton, unsigned short upperId,
                    unsigned short lowerId, bool parentSpace, Similarity& world);

// world(lower) from the world transform of `upperId`, an ancestor of `lowerId` (see
// worldAffineBelow), `lowerPose` standing for lowerId's joint pose; false where a transform on the
// way is not a similarity. `positionOnly`: out.translation only, lowerPose's rotation and scale
// not read.
ZELTO_ALWAYS_INLINE bool worldSimilarityBelow(const Pose& pose, const Skeleton& skeleton,
                                              unsigned short upperId, const Similarity& upperWorld,
                                              unsigned short lowerId, const JointPose& lowerPose,
                                              bool parentSpace, Similarity& out,
                                              bool positionOnly = false) {
    Similarity above = upperWorld;
    const Joint* parent = skeleton.joint(lowerId).parent();
    if (parent && parent->id() != upperId &&
        !composeBetween(pose, skeleton, upperId, lowerId, parentSpace, above)) {
        return false;
    }
    if (!positionOnly) {
        Similarity local;
        if (!localSimilarity(lowerPose, skeleton, lowerId, parentSpace, local)) return false;
        out = local.then(above);
        return true;
    }
    // The translation row alone: the pose's, carried through the bind transform in local space.
    V3d t = lowerPose.translation;
    if (!parentSpace) {
        Similarity bind;
        if (!bindSimilarity(skeleton, lowerId, bind)) return false;
        t = bind.apply(t);
    }
    out = above;
    out.translation = above.apply(t);
    return true;
}

// Composes the world rotation `r` onto joint rotation `q` of a joint whose world rotation is
// `world` (unit): the rotation applyWorldRotation gives a joint of a rigid chain.
inline Quatd turnedInWorld(const Quatd& q, const Quatd& world, const Quatd& r) {
    return q * Quatd(r.r, turned(~world, r.v));
}

}  // namespace detail
}  // namespace ZeltoCore
