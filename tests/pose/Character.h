// A small test character: pelvis, spine and two legs (hip, knee, ankle, toe), parents before
// children, with rotated and scaled bind transforms so that no product is trivial.
#pragma once

#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

#include <cmath>

#include "core/pose/Pose.h"
#include "core/skeleton/Skeleton.h"

namespace ZeltoTest {

inline Imath::Quatd axisAngle(const Imath::V3d& axis, double angle) {
    Imath::Quatd q;
    q.setAxisAngle(axis.normalized(), angle);
    return q;
}

inline ZeltoCore::Skeleton makeCharacter() {
    using Imath::V3d;
    ZeltoCore::Skeleton s(10);
    const char* names[] = {"pelvis", "spine", "hip_L",  "knee_L",  "ankle_L",
                           "toe_L",  "hip_R", "knee_R", "ankle_R", "toe_R"};
    const int parents[] = {-1, 0, 0, 2, 3, 4, 0, 6, 7, 8};
    for (unsigned short i = 0; i < 10; ++i) {
        s[i].setName(names[i]);
        if (parents[i] >= 0) s[static_cast<unsigned short>(parents[i])].addChild(&s[i]);
    }
    s[0].setTranslation(V3d(0, 10, 0.5));
    s[0].setRotation(axisAngle(V3d(0, 1, 0), 0.3));
    s[1].setTranslation(V3d(0, 2, 0));
    s[1].setScale(V3d(1.2, 1.2, 1.2));
    for (int side = 0; side < 2; ++side) {
        const unsigned short hip = side ? 6 : 2;
        const double x = side ? -1.0 : 1.0;
        s[hip].setTranslation(V3d(x, -0.5, 0));
        s[hip].setRotation(axisAngle(V3d(1, 0, x * 0.2), 0.1));
        s[hip + 1].setTranslation(V3d(0, -4, 0.2));
        s[hip + 1].setRotation(axisAngle(V3d(1, 0, 0), -0.25));
        s[hip + 2].setTranslation(V3d(0, -4, -0.1));
        s[hip + 2].setScale(V3d(0.9, 0.9, 0.9));
        s[hip + 3].setTranslation(V3d(0, -0.5, 1.5));
    }
    s.setRoot(0);
    s.buildJointNameMap();
    s.buildDetachedJointsList();
    return s;
}

// A pose of the character with every joint moved away from its bind transform.
inline ZeltoCore::Pose makeMovedPose(const ZeltoCore::Skeleton& s, bool parentSpace) {
    ZeltoCore::Pose pose(&s, true);
    for (unsigned short i = 0; i < s.numJoints(); ++i) {
        ZeltoCore::JointPose& p = pose.jointPose(i);
        p.rotation = axisAngle(Imath::V3d(0.3 * i, 1, -0.2), 0.15 * (i + 1)) * p.rotation;
        p.translation += Imath::V3d(0.01 * i, -0.02, 0.03 * i);
        p.scale *= 1.0 + 0.05 * (i % 3);
    }
    pose.setInParentSpace(parentSpace);
    return pose;
}

}  // namespace ZeltoTest
