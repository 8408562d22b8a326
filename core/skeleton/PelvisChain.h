// PelvisChain: a pelvis joint, a pelvis found below it, and the joint ids between them.
//
// Records are derived by the skeleton's IK data build, one list per registered pelvis; the
// skeleton only stores, copies and clears them.
//
//   const PelvisChain* chain = skeleton.pelvisChain(0, 0);
//   if (chain) use(chain->childPelvis, chain->jointIds);
#pragma once

#include <vector>

namespace ZeltoCore {

struct PelvisChain {
    unsigned int pelvis = 0;             // id of the pelvis joint whose list holds this record
    unsigned int childPelvis = 0;        // id of the pelvis joint found below it
    std::vector<unsigned int> jointIds;  // ids on the way between them, ascending
};

}  // namespace ZeltoCore
