// Test rig of the IK tests: a leg under a pelvis with an unnamed twist joint between hip and knee,
// every bind transform rotated and uniformly scaled so that no product is trivial.
//
//   Skeleton s = ZeltoTest::makeLeg();  Pose p = ZeltoTest::movedPose(s, false);
#pragma once

#include <Imath/ImathMatrix.h>
#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>
#include <gtest/gtest.h>

#include <vector>

#include "core/pose/Pose.h"
#include "core/pose/Poser.h"
#include "core/skeleton/Skeleton.h"

namespace ZeltoTest {

using Imath::M44d;
using Imath::Quatd;
using Imath::V3d;

enum LegJoint : unsigned short { kWorld, kPelvis, kHip, kTwist, kKnee, kAnkle, kToe, kLegJoints };

inline Quatd axisAngle(const V3d& axis, double angle) {
    Quatd q;
    q.setAxisAngle(axis.normalized(), angle);
    return q;
}

// world -> pelvis -> hip -> twist -> knee -> ankle -> toe. The thigh (hip to knee through the
// twist joint) and the shin bend slightly forward in the bind pose.
inline ZeltoCore::Skeleton makeLeg() {
    ZeltoCore::Skeleton s(kLegJoints);
    const V3d translations[] = {{0, 0, 0},       {0.1, 1.0, 0.05}, {0.2, -0.1, 0},
                                {0, -0.2, 0.01}, {0, -0.25, 0.04}, {0, -0.45, -0.03},
                                {0, -0.05, 0.1}};
    for (unsigned short i = 0; i < kLegJoints; ++i) {
        if (i) s[i - 1].addChild(&s[i]);
        s[i].setTranslation(translations[i]);
        s[i].setRotation(axisAngle(V3d(1, 0.3 * i, 0.2), 0.05 * i));
        s[i].setScale(V3d(i == kPelvis ? 1.1 : 1.0));
    }
    return s;
}

// World position of joint id.
inline V3d worldPosition(const ZeltoCore::Skeleton& s, const ZeltoCore::Pose& p,
                         unsigned short id) {
    return ZeltoCore::Poser(&s).getWorldMatrix(p, id).translation();
}

// World positions of every joint.
inline std::vector<V3d> positions(const ZeltoCore::Skeleton& s, const ZeltoCore::Pose& p) {
    std::vector<V3d> out;
    for (const M44d& m : ZeltoCore::Poser(&s).getAllWorldMatrix(p))
        out.push_back(m.translation());
    return out;
}

// Every joint pose of `a` is the one of `b`, bit for bit.
inline void expectSamePose(const ZeltoCore::Pose& a, const ZeltoCore::Pose& b) {
    ASSERT_EQ(a.numJoints(), b.numJoints());
    for (unsigned short i = 0; i < a.numJoints(); ++i) {
        EXPECT_EQ(a.jointPose(i).rotation, b.jointPose(i).rotation) << i;
        EXPECT_EQ(a.jointPose(i).translation, b.jointPose(i).translation) << i;
        EXPECT_EQ(a.jointPose(i).scale, b.jointPose(i).scale) << i;
    }
}

// The bind pose with every joint turned a little, in parent or local space.
inline ZeltoCore::Pose movedPose(const ZeltoCore::Skeleton& s, bool parentSpace) {
    ZeltoCore::Pose pose(&s, true);
    for (unsigned short i = 0; i < s.numJoints(); ++i) {
        ZeltoCore::JointPose& p = pose.jointPose(i);
        p.rotation = axisAngle(V3d(0.3 * i, 1, -0.2), 0.04 * (i + 1)) * p.rotation;
    }
    if (!parentSpace) pose.convertToLocalSpace(&s);
    return pose;
}

}  // namespace ZeltoTest
