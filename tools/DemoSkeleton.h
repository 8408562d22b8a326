// The demo character's skeleton, shared by the demo, the tests and the benchmarks.
//
// Pelvis, spine and two legs hip - knee - ankle - toe (ids 0 ... 9, parents numbered before
// children), feet and pelvis registered, pole vectors on the hips, "skipIk" on the spine and
// rotation limits on the knees, and a tail of six joints hanging back from the pelvis (ids 10 ...
// 15, kept last so the ids above stay put). The name map and detached joints are built; IK data
// is not.
//
//   ZeltoCore::Skeleton s = ZeltoTool::buildCharacter(); s.buildIkData();
#pragma once

#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

#include <memory>

#include "core/metadata/MetadataImpl.h"
#include "core/skeleton/Skeleton.h"

namespace ZeltoTool {

inline ZeltoCore::Skeleton buildCharacter() {
    using namespace ZeltoCore;
    const auto turn = [](const Imath::V3d& axis, double angle) {
        Imath::Quatd q;
        q.setAxisAngle(axis.normalized(), angle);
        return q;
    };
    const char* names[] = {"pelvis", "spine",  "hip_L",   "knee_L", "ankle_L", "toe_L",
                           "hip_R",  "knee_R", "ankle_R", "toe_R",  "tail_0",  "tail_1",
                           "tail_2", "tail_3", "tail_4",  "tail_5"};
    const int parents[] = {-1, 0, 0, 2, 3, 4, 0, 6, 7, 8, 0, 10, 11, 12, 13, 14};
    Skeleton s(16);
    for (unsigned short i = 0; i < s.numJoints(); ++i) {
        s[i].setName(names[i]);
        if (parents[i] >= 0) s[static_cast<unsigned short>(parents[i])].addChild(&s[i]);
    }
    s[0].setTranslation(Imath::V3d(0, 95, 0));
    s[1].setTranslation(Imath::V3d(0, 12, -1));
    for (unsigned short hip : {2, 6}) {
        const double side = hip == 2 ? 1.0 : -1.0;
        s[hip].setTranslation(Imath::V3d(side * 9, -6, 0));
        s[hip].setRotation(turn(Imath::V3d(0, 0, 1), side * 0.05));
        s[hip + 1].setTranslation(Imath::V3d(0, -42, 1.5));
        s[hip + 1].setRotation(turn(Imath::V3d(1, 0, 0), 0.08));
        s[hip + 2].setTranslation(Imath::V3d(0, -41, -2));
        s[hip + 2].setRotation(turn(Imath::V3d(1, 0, 0), -0.08));
        s[hip + 3].setTranslation(Imath::V3d(0, -6, 13));
        s.addFoot(hip + 2, hip, hip + 3);
    }
    // The tail sags a little more at every joint.
    s[10].setTranslation(Imath::V3d(0, -3, -8));
    for (unsigned short t = 11; t < 16; ++t) {
        s[t].setTranslation(Imath::V3d(0, 0, -8));
        s[t].setRotation(turn(Imath::V3d(1, 0, 0), -0.12));
    }
    s.addPelvis(0);
    s.setRoot(0);
    s.addJointMetadata(2, "poleVector",
                       std::make_shared<MetadataImpl<Imath::V3d>>(Imath::V3d(0, 0, 30)));
    s.addJointMetadata(6, "poleVector",
                       std::make_shared<MetadataImpl<Imath::V3d>>(Imath::V3d(0, 0, 30)));
    s.addJointMetadata(1, "skipIk", std::make_shared<MetadataImpl<bool>>(true));
    for (unsigned short knee : {3, 7}) {
        s.addJointMetadata(knee, "jointLimitRotationMin",
                           std::make_shared<MetadataImpl<Imath::V3d>>(Imath::V3d(0, 0, 0)));
        s.addJointMetadata(knee, "jointLimitRotationMax",
                           std::make_shared<MetadataImpl<Imath::V3d>>(Imath::V3d(150, 0, 0)));
    }
    s.buildJointNameMap();
    s.buildDetachedJointsList();
    return s;
}

}  // namespace ZeltoTool
