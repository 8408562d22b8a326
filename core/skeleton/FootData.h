// FootData: one registered foot of a Skeleton and the leg data derived for it.
//
// addFoot fills ik, tip and root and resets the rest; the IK derivation of the skeleton fills
// pelvis, numLegSegments, the joint lists and the pole vector. Ids are skeleton joint ids.
//
//   skeleton.addFoot(ankle, hip, toe);
//   const std::vector<unsigned short>& leg = skeleton.legJoints(0);
#pragma once

#include <Imath/ImathVec.h>

#include <vector>

namespace ZeltoCore {

struct FootData {
    unsigned short ik = 0;    // the joint the leg IK drives (ankle)
    unsigned short tip = 0;   // the foot's tip (toe)
    unsigned short root = 0;  // the top joint of the leg (hip)
    // Index into the skeleton's pelvises list of the pelvis above the leg.
    unsigned short pelvis = 0;
    // Parent steps from ik up to root.
    unsigned short numLegSegments = 3;
    // Joints strictly between root and ik that take part in IK, ascending.
    std::vector<unsigned short> midJoints;
    // Every joint from root to ik inclusive, ascending.
    std::vector<unsigned short> legJoints;
    // In the root joint's bind frame; valid when hasPoleVector.
    Imath::Vec3<double> poleVector{0.0, 0.0, 0.0};
    bool hasPoleVector = false;
};

}  // namespace ZeltoCore
