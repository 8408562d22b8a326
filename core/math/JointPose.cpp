#include "core/math/JointPose.h"

#include <cstring>

#include "core/math/Transform.h"

namespace ZeltoCore {

void JointPose::setMatrix(const Imath::Matrix44<double>& m) {
    extractSRT(m, scale, rotation, translation);
}

Archive& operator<<(Archive& archive, const JointPose& pose) {
    const double values[10] = {pose.rotation.v.x,  pose.rotation.v.y,  pose.rotation.v.z,
                               pose.rotation.r,    pose.translation.x, pose.translation.y,
                               pose.translation.z, pose.scale.x,       pose.scale.y,
                               pose.scale.z};
    archive.write(values, sizeof(values));
    return archive;
}

Archive& operator>>(Archive& archive, JointPose& pose) {
    double v[10];
    if (!archive.read(v, sizeof(v))) return archive;
    pose.rotation = Imath::Quat<double>(v[3], v[0], v[1], v[2]);
    pose.translation = Imath::Vec3<double>(v[4], v[5], v[6]);
    pose.scale = Imath::Vec3<double>(v[7], v[8], v[9]);
    return archive;
}

}  // namespace ZeltoCore
