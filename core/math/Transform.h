// Transform and geometry helpers shared by the skeleton, pose and IK code.
//
// Matrices are row-vector Imath matrices (translation in the last row, p' = p * M). Decomposition
// and inversion go through Imath's own algorithms and never throw: a degenerate matrix gives the
// identity rotation (extractSRT) or the identity inverse (matrixInverse).
//
//   Imath::V3d s, t; Imath::Quatd r;
//   extractSRT(jointPose.matrix(), s, r, t);
#pragma once

#include <Imath/ImathEuler.h>
#include <Imath/ImathMatrix.h>
#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

#include "utils/Export.h"

namespace ZeltoCore {

// Scale, rotation and translation of m; shear is dropped and the rotation goes through XYZ Euler
// angles. When a scale axis is too small to divide by, r is the identity and t is left as it was.
ZELTO_API void extractSRT(const Imath::Matrix44<float>& m, Imath::Vec3<float>& s,
                          Imath::Quat<float>& r, Imath::Vec3<float>& t);
ZELTO_API void extractSRT(const Imath::Matrix44<double>& m, Imath::Vec3<double>& s,
                          Imath::Quat<double>& r, Imath::Vec3<double>& t);

// Scale, shear, Euler angles (in the order r already has) and translation; m is not modified.
ZELTO_API void extractSHRT(Imath::Matrix44<float>& m, Imath::Vec3<float>& s, Imath::Vec3<float>& h,
                           Imath::Euler<float>& r, Imath::Vec3<float>& t);
ZELTO_API void extractSHRT(Imath::Matrix44<double>& m, Imath::Vec3<double>& s,
                           Imath::Vec3<double>& h, Imath::Euler<double>& r, Imath::Vec3<double>& t);

// The inverse of m; the identity when m is singular.
ZELTO_API Imath::Matrix44<float> matrixInverse(const Imath::Matrix44<float>& m);
ZELTO_API Imath::Matrix44<double> matrixInverse(const Imath::Matrix44<double>& m);
ZELTO_API void invertMatrix(Imath::Matrix44<float>& m);
ZELTO_API void invertMatrix(Imath::Matrix44<double>& m);

// q mirrored across the plane normal to axis 0, 1 or 2 (the vector components of the two other
// axes are negated); any other axis returns q.
ZELTO_API Imath::Quat<double> mirrorQuat(const Imath::Quat<double>& q, unsigned int axis);

// True when a and b are parallel or anti-parallel (|cos| > 0.99999), at any finite length; a zero
// or non-finite vector is parallel to nothing.
ZELTO_API bool isParallel(const Imath::Vec3<double>& a, const Imath::Vec3<double>& b);

// Intersection of two circles: 1 with p1 on the left and p2 on the right of the line c1 -> c2
// (p1 == p2 when they touch), 0 when they do not meet, p1 and p2 then untouched. Coincident
// circles of positive radius share every point and have no defined pair: 0. Two coincident
// circles of radius 0 are one point, returned as p1 == p2 == c1.
ZELTO_API int circleCircleIntersection(const Imath::Vec2<double>& c1, double r1,
                                       const Imath::Vec2<double>& c2, double r2,
                                       Imath::Vec2<double>& p1, Imath::Vec2<double>& p2);

// value rounded to the nearest half-precision value and widened back; `bits` is not used.
ZELTO_API float valueBitRound(float value, unsigned int bits);

}  // namespace ZeltoCore
