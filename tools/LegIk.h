// Two-joint IK of one registered foot, as `zelto demo` and `zelto ik` run it: the leg's root
// (hip), its first mid joint (knee) and its IK joint (ankle), taken from the skeleton's IK data.
//
//   LegSolve leg;
//   if (solveLeg(pose, skeleton, 0, target, &pole, 0.0, leg, why)) printLeg(out, ...);
#pragma once

#include <Imath/ImathVec.h>

#include <ostream>
#include <string>

#include "core/pose/Pose.h"
#include "core/skeleton/Skeleton.h"

namespace ZeltoTool {

struct LegSolve {
    unsigned short root = 0, mid = 0, end = 0;
    Imath::V3d target{0, 0, 0};
    double length = 0;  // root to mid plus mid to end, before the solve
    double reach = 0;   // root to target
    Imath::V3d reached{0, 0, 0};
    double distance = 0;  // reached to target
    // The mid joint's offset from the root-to-end line after the solve: where the knee faces.
    Imath::V3d bend{0, 0, 0};
};

// Solves with the pole (world direction the knee faces) or, for a null pole, with the bend of
// the bind pose. False with a reason for a foot that does not exist, a leg without a mid joint
// or a non-finite target, pole or stretch; the pose is then unchanged.
bool solveLeg(ZeltoCore::Pose& pose, const ZeltoCore::Skeleton& skeleton, unsigned foot,
              const Imath::V3d& target, const Imath::V3d* pole, double stretch, LegSolve& leg,
              std::string& why);

// The chain and its reach, the joint rotations (and translations) the solve wrote, the reached
// position and its distance to the target.
void printLeg(std::ostream& out, const ZeltoCore::Skeleton& skeleton, const ZeltoCore::Pose& before,
              const ZeltoCore::Pose& after, const LegSolve& leg);

// "(x, y, z)" with three decimals.
std::string formatPoint(const Imath::V3d& p);

}  // namespace ZeltoTool
