// A small test character: pelvis, spine and two legs (hip, knee, ankle, toe), parents before
// children, every joint rotated, translated and uniformly scaled so that no product is trivial.
#pragma once

#include "core/pose/Pose.h"
#include "core/skeleton/Skeleton.h"

namespace ZeltoTest {

inline Imath::Quatd axisAngle(const Imath::V3d& axis, double angle) {
    Imath::Quatd q;
    q.setAxisAngle(axis.normalized(), angle);
    return q;
}

inline ZeltoCore::Skeleton makeCharacter() {
    ZeltoCore::Skeleton s(10);
    const unsigned short parents[] = {0, 0, 0, 2, 3, 4, 0, 6, 7, 8};
    for (unsigned short i = 0; i < 10; ++i) {
        if (i) s[parents[i]].addChild(&s[i]);
        s[i].setTranslation(Imath::V3d(i < 6 ? 1.0 : -1.0, -0.5 - i % 4, 0.1 * i));
        s[i].setRotation(axisAngle(Imath::V3d(1, 0.2 * i, 0.1), 0.1 * i - 0.3));
        s[i].setScale(Imath::V3d(1.0 + 0.1 * (i % 3)));
    }
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
