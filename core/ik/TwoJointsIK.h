// Two-joint IK: bends a root -> mid -> end chain (hip, knee, ankle) so that the end reaches a
// world-space target, by the law of cosines at the mid joint, an aim and a pole twist at the root,
// an optional soft approach to full extension and an optional stretch.
//
// Arguments: `stretch` (0 ... 1) is the share of the missing reach made up by lengthening every
// segment from the root's child down to the end; at most 0.0001 is off. The soft approach needs
// `soft` and `softDistance` > 0 (the width of the zone, in world units, in which the reach eases
// towards full extension); a non-finite stretch or soft distance switches that feature off.
// `poleVector` is the world direction the bend should face; null uses the chain's current bend.
// The NoPoleVector forms derive the pole from the bind pose, turned with the skeleton's root.
// Forms without "InParentSpace" hand a parent-space pose to their twin; the twins read the pose
// as parent space; they first put the mid joint back to its bind rotation (kept as it is when the
// bind chain is straight) and bend from there. Other joints may lie between root, mid and end.
//
// Decisions beyond the classic recipe:
//  - Both bend angles are acos of arguments clamped to [-1, 1], so a straight chain measures 0.
//  - A chain that is straight (or has a zero-length bone) bends about an axis perpendicular to
//    it, chosen so that the mid joint moves towards the pole (any perpendicular without one); the
//    mid rotation therefore stays a unit quaternion. A zero-length bone leaves the bend as it is.
//  - The root is aimed first and then twisted about the root-to-target line (one rotation), so
//    every reachable target is reached whatever the pole, in both spaces. The twist turns the
//    side the mid joint lies on (the aimed first bone across that line) onto the pole; without a
//    pole vector, onto the bind pole as the aim carries it. No twist when the pole lies along the
//    root-to-target line.
//  - The bind pole is the mid joint's offset from the bind line from the root (not the root's
//    parent) to the end: measured from a pelvis, the hip's sideways offset would dominate and
//    turn the knee sideways.
//  - The stretch writes only the translations of the joints from the root's child to the end
//    (re-extracting their world matrices would give back the rotations and scales they hold);
//    without stretch they are left as they are.
//  - The soft zone starts no nearer than the root (a soft distance beyond the chain's length).
//  - A chain whose root has no parent hangs under the identity.
//  - Bad input is refused with one warning and the pose left unchanged: ids beyond the skeleton,
//    a pose without one joint pose per skeleton joint, a non-finite target or pole, or joints that
//    do not form a chain (see core/ik/internal/IkCommon.h for the texts).
//
//   solveTwoJointsIK(pose, skeleton, target, hip, knee, ankle, 1.0, true, 0.05, &pole);
#pragma once

#include <Imath/ImathVec.h>

#include "utils/Export.h"

namespace ZeltoCore {

class Pose;
class Skeleton;

ZELTO_API void solveTwoJointsIK(Pose& pose, const Skeleton& skeleton,
                                const Imath::Vec3<double>& target, unsigned short rootId,
                                unsigned short midId, unsigned short endId, double stretch,
                                bool soft, double softDistance, Imath::Vec3<double>* poleVector);

ZELTO_API void solveTwoJointsIKInParentSpace(Pose& pose, const Skeleton& skeleton,
                                             const Imath::Vec3<double>& target,
                                             unsigned short rootId, unsigned short midId,
                                             unsigned short endId, double stretch, bool soft,
                                             double softDistance, Imath::Vec3<double>* poleVector);

ZELTO_API void solveTwoJointsIKNoPoleVector(Pose& pose, const Skeleton& skeleton,
                                            const Imath::Vec3<double>& target,
                                            unsigned short rootId, unsigned short midId,
                                            unsigned short endId, double stretch, bool soft,
                                            double softDistance);

ZELTO_API void solveTwoJointsIKNoPoleVectorInParentSpace(
    Pose& pose, const Skeleton& skeleton, const Imath::Vec3<double>& target, unsigned short rootId,
    unsigned short midId, unsigned short endId, double stretch, bool soft, double softDistance);

}  // namespace ZeltoCore
