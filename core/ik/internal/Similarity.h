// Similarity: a joint transform with a unit rotation and one positive scale, composed without
// matrices (internal, not exported).
//
// Most rigs hold only such transforms. Their products keep the form, a world rotation composed
// onto a joint is a quaternion product, and a turn of a joint moves everything below it rigidly:
// the solvers carry positions and rotations along instead of building and inverting matrices.
// Results agree with the matrix forms within rounding.
#pragma once

#include <Imath/ImathMatrixAlgo.h>
#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

#include <cmath>
#include <limits>

#include "core/ik/internal/IkCommon.h"

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

    V3d apply(const V3d& x) const { return turned(rotation, x) * scale + translation; }
    // *this followed by `after`.
    Similarity then(const Similarity& after) const {
        return {after.rotation * rotation, after.scale * scale, after.apply(translation)};
    }
};

// Quaternions this close to unit length give rotation matrices within rounding of the same size.
constexpr double kUnitTolerance = 1e-12;

// Whether a joint transform with rotation q and scale s is a similarity. Scales converted between
// spaces differ in their last bits.
inline bool isSimilarity(const Quatd& q, const V3d& s) {
    const double n2 = q.r * q.r + (q.v ^ q.v);
    return std::abs(n2 - 1.0) <= kUnitTolerance && s.x > 0.0 &&
           std::abs(s.y - s.x) <= kUnitTolerance * s.x &&
           std::abs(s.z - s.x) <= kUnitTolerance * s.x;
}

// The similarity of an affine transform whose rows are orthogonal, of one length and
// right-handed; false for any other.
inline bool similarityOf(const Aff& m, Similarity& out) {
    const V3d r0(m.a[0][0], m.a[0][1], m.a[0][2]), r1(m.a[1][0], m.a[1][1], m.a[1][2]),
        r2(m.a[2][0], m.a[2][1], m.a[2][2]);
    const double l2 = r0 ^ r0, eps = kUnitTolerance * l2;
    // Written so that a NaN fails every comparison.
    if (!(l2 >= std::numeric_limits<double>::min() && l2 <= std::numeric_limits<double>::max() &&
          std::abs((r1 ^ r1) - l2) <= eps && std::abs((r2 ^ r2) - l2) <= eps &&
          std::abs(r0 ^ r1) <= eps && std::abs(r0 ^ r2) <= eps && std::abs(r1 ^ r2) <= eps &&
          (r0 ^ (r1 % r2)) > 0.0)) {
        return false;
    }
    const double scale = std::sqrt(l2), inv = 1.0 / scale;
    const M44d rotation(r0.x * inv, r0.y * inv, r0.z * inv, 0.0, r1.x * inv, r1.y * inv, r1.z * inv,
                        0.0, r2.x * inv, r2.y * inv, r2.z * inv, 0.0, 0.0, 0.0, 0.0, 1.0);
    out = {Imath::extractQuat(rotation), scale, V3d(m.t[0], m.t[1], m.t[2])};
    return true;
}

// The transform of joint `id` relative to its parent (pose `p`, in the given space) as a
// similarity, when it is one.
inline bool localSimilarity(const JointPose& p, const Skeleton& skeleton, unsigned short id,
                            bool parentSpace, Similarity& out) {
    if (!isSimilarity(p.rotation, p.scale)) return false;
    out = {p.rotation, p.scale.x, p.translation};
    if (parentSpace) return true;
    const Joint& bind = skeleton.joint(id);
    if (!isSimilarity(bind.rotation(), bind.scale())) return false;
    out = out.then({bind.rotation(), bind.scale().x, bind.translation()});
    return true;
}

// Composes the world rotation `r` onto joint rotation `q` of a joint whose world rotation is
// `world` (unit): the rotation applyWorldRotation gives a joint of a rigid chain.
inline Quatd turnedInWorld(const Quatd& q, const Quatd& world, const Quatd& r) {
    return q * Quatd(r.r, turned(~world, r.v));
}

}  // namespace detail
}  // namespace ZeltoCore
