// What the IK benchmarks' straight-line solves share: rotations and similarity transforms in
// plain code, kept inline as a hand-written solve would have them.
#pragma once

#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

#include <cmath>

#include "core/math/JointPose.h"

#define PLAIN __attribute__((always_inline)) inline

namespace ZeltoBench {

using Imath::Quatd;
using Imath::V3d;

// v turned by the unit quaternion q.
PLAIN V3d turned(const Quatd& q, const V3d& v) {
    const V3d t = (q.v % v) * 2.0;
    return v + t * q.r + (q.v % t);
}

// x -> s (x turned by r) + t.
struct Similar {
    Quatd r;
    double s;
    V3d t;
    PLAIN V3d apply(const V3d& x) const { return turned(r, x) * s + t; }
    PLAIN Similar then(const Similar& after) const {
        return {after.r * r, after.s * s, after.apply(t)};
    }
};
PLAIN Similar similar(const Quatd& r, const V3d& scale, const V3d& t) {
    return {r, scale.x, t};
}

// q with the world rotation r composed on, w being its joint's world rotation.
PLAIN void turnInWorld(Quatd& q, const Quatd& w, const Quatd& r) {
    q = q * Quatd(r.r, turned(~w, r.v));
}

// Whether two joint poses agree within rounding in translation and rotation: a straight-line solve
// is checked against the solver on every target before it is timed, as it must do the same work.
inline bool agree(const ZeltoCore::JointPose& x, const ZeltoCore::JointPose& y) {
    return (x.translation - y.translation).length() <= 1e-12 &&
           std::abs(x.rotation.r - y.rotation.r) <= 1e-12 &&
           (x.rotation.v - y.rotation.v).length() <= 1e-12;
}

}  // namespace ZeltoBench
