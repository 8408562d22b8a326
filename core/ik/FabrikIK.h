// The FABRIK solvers: chains of any length bent so that their end joint reaches a world target.
//
// Method: FABRIK, Forward And Backward Reaching Inverse Kinematics (Aristidou and Lasenby, 2011).
// Each solver finds joint positions by dragging the chain alternately from the goal and from its
// fixed start, keeping bone lengths, then turns the joints bone by bone so that the pose matches
// those positions. Only rotations change, except for the stretch of fabrikIK3DSolver.
//
// - fabrikIKSolver: start, mid and end joints solved in the plane of the first bone and the pole
//   vector, the goal approached over `steps`, finished by one aim of the start joint. Always reads
//   joint poses as local space.
// - fabrikIKSolver2: one joint list solved in the plane of the root-to-target line and the pole;
//   middle joints marked "skipIk"/"zelto_skipIk" are left out and put back on the way to the next
//   solved joint at their bone lengths. No final aim.
// - fabrikIK3DSolver: solved in world space along the chain's current direction and bend, then
//   aimed at the target; when the target is at or beyond reach (distance >= chain length) the
//   `stretchJoints` (each the child of the entry before, the first one not moved) have their
//   bones lengthened so that the end reaches it.
// The forms without "InParentSpace" hand a parent-space pose to their twin.
//
// Decisions where the method leaves room:
// - steps == 1 moves the goal straight to the target (one step, t = 1); steps == 0 skips the
//   FABRIK stage. maxIterations and passes count as documented per function; an iteration that
//   no longer moves the chain's end ends the iterations early, so huge caps cannot spin.
// - fabrikIKSolver refuses a zero pole, and a pole parallel to (or a zero-length) first bone, with
//   the missing-pole warning: no bend plane exists. Refusals leave the pole unnormalised.
// - fabrikIKSolver2 solves a two-joint list with a null pole (or any list with a zero pole, or a
//   pole along the line to the target) without flattening it.
// - A first joint without parent takes the identity as its parent's world matrix.
// - Bad input gets one warning and leaves the pose untouched: ids beyond the skeleton, a pose
//   without one joint pose per skeleton joint, a non-finite target or pole, a target whose
//   distance overflows, and joints not linked as required (the named joints of fabrikIKSolver and
//   fabrikIKSolver2 each the child of the one before; those of fabrikIK3DSolver each an
//   ancestor of the next).
//
//   Imath::V3d pole(0, 0, 1);
//   fabrikIKSolver(pose, skeleton, target, shoulder, {elbow, forearm}, wrist, 1e-4, 20, 1, &pole);
//   fabrikIKSolver2(pose, skeleton, target, {tail0, tail1, tail2, tail3}, 0.0, 1e-4, 20, 1, &pole);
#pragma once

#include <Imath/ImathVec.h>

#include <vector>

#include "utils/Export.h"

namespace ZeltoCore {

class Pose;
class Skeleton;

// Chain (startId, midJoints..., endId). The pole is required and normalised in place. The goal
// starts at the end's flattened position and reaches the target at the last of `steps` steps;
// each step iterates until within `tolerance` or until `maxIterations` iterations have run over
// the whole call (every step still gets one). Empty midJoints: no change, no warning.
ZELTO_API void fabrikIKSolver(Pose& pose, const Skeleton& skeleton,
                              const Imath::Vec3<double>& target, unsigned short startId,
                              const std::vector<unsigned short>& midJoints, unsigned short endId,
                              double tolerance, unsigned int maxIterations, unsigned int steps,
                              Imath::Vec3<double>* poleVector);

// Chain `joints` (two or more; the pole may be null only for two). `passes` outer repetitions;
// a target farther than the chain length plus `reachThreshold` lays the chain straight towards
// it, otherwise each pass iterates until within `tolerance`, `maxIterations` capping the
// iterations of the whole call (each later pass still gets one). The pole is not written.
ZELTO_API void fabrikIKSolver2(Pose& pose, const Skeleton& skeleton,
                               const Imath::Vec3<double>& target,
                               const std::vector<unsigned short>& joints, double reachThreshold,
                               double tolerance, unsigned int maxIterations, unsigned int passes,
                               Imath::Vec3<double>* poleVector);
ZELTO_API void fabrikIKSolver2InParentSpace(Pose& pose, const Skeleton& skeleton,
                                            const Imath::Vec3<double>& target,
                                            const std::vector<unsigned short>& joints,
                                            double reachThreshold, double tolerance,
                                            unsigned int maxIterations, unsigned int passes,
                                            Imath::Vec3<double>* poleVector);

// Chain (startId, midJoints..., endId); joints between named ones are carried along. At least
// one and at most `maxIterations` iterations towards `tolerance`. `target` is only read; `steps`
// is not used; the pole is not used, but the parent-space form refuses a null one.
ZELTO_API void fabrikIK3DSolver(Pose& pose, const Skeleton& skeleton, Imath::Vec3<double>& target,
                                unsigned short startId,
                                const std::vector<unsigned short>& midJoints,
                                const std::vector<unsigned short>& stretchJoints,
                                unsigned short endId, double tolerance, unsigned int maxIterations,
                                unsigned int steps, Imath::Vec3<double>* poleVector);
ZELTO_API void fabrikIK3DSolverInParentSpace(Pose& pose, const Skeleton& skeleton,
                                             Imath::Vec3<double>& target, unsigned short startId,
                                             const std::vector<unsigned short>& midJoints,
                                             const std::vector<unsigned short>& stretchJoints,
                                             unsigned short endId, double tolerance,
                                             unsigned int maxIterations, unsigned int steps,
                                             Imath::Vec3<double>* poleVector);

}  // namespace ZeltoCore
