// Sphere IK: solves a four-joint chain (root, two mid joints, end; hip, knee, hock, toe of a
// digitigrade leg) through the two-joint solver. On the current root-to-end axis it places the
// second mid joint where a sphere about the root meets a sphere of the last bone's length about
// the goal, on the side the pole vector points to; bends root, first and second mid joint there
// with solveTwoJointsIK, turns the second mid joint so the end reaches the goal, and swings the
// chain about the root onto the target.
//
// Refusals, with one warning and the pose unchanged: "Invalid number of mid joints" (midJoints
// not of size 2), "Missing or 0 length pole vector!" (null or zero pole), and the input guard of
// core/ik/internal/IkCommon.h. The pole vector is never written.
//
// Decisions:
//  - Where the spheres do not meet (a goal beyond reach, or too near), the circle shrinks to its
//    centre: the nearest reachable layout instead of no number.
//  - Matrices are evaluated in the pose's own space, as the two-joint solver inside does.
//  - The first bend keeps its own side: the two-joint call gets no pole, so a digitigrade knee
//    stays opposite the hock instead of following it onto the pole side.
//  - The rotation limits of the second mid joint ("jointLimitRotationMin"/"Max", degrees) are
//    read with their defaults, but with one solution there is nothing for them to choose between.
//
//   sphereIKSolver(pose, skeleton, target, hip, {knee, hock}, toe, &pole);
#pragma once

#include <Imath/ImathVec.h>

#include <vector>

#include "utils/Export.h"

namespace ZeltoCore {

class Pose;
class Skeleton;

ZELTO_API void sphereIKSolver(Pose& pose, const Skeleton& skeleton, Imath::Vec3<double>& target,
                              unsigned short rootId, const std::vector<unsigned short>& midJoints,
                              unsigned short endId, Imath::Vec3<double>* poleVector);

}  // namespace ZeltoCore
