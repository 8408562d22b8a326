// JointPose: the local transform of one joint (rotation, translation, scale).
//
// A plain record of ten doubles: a skeleton joint's bind transform, and one entry per joint of a
// Pose. matrix() is S * R * T for row vectors (rotation rows scaled, translation in the last row);
// setMatrix() decomposes through extractSRT, so shear is dropped. The archive form is 80 bytes:
// rotation x, y, z, w, translation x, y, z, scale x, y, z.
//
//   JointPose p; p.translation = Imath::V3d(0, 1, 0);
//   Imath::M44d m = p.matrix();
#pragma once

#include <Imath/ImathMatrix.h>
#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

#include <cstddef>

#include "core/archive/Archive.h"
#include "utils/Export.h"

namespace ZeltoCore {

class ZELTO_API JointPose {
public:
    Imath::Quat<double> rotation;  // identity by default; used as stored, not normalised
    Imath::Vec3<double> translation{0.0, 0.0, 0.0};
    Imath::Vec3<double> scale{1.0, 1.0, 1.0};

    JointPose() = default;
    JointPose(const Imath::Quat<double>& r, const Imath::Vec3<double>& t,
              const Imath::Vec3<double>& s)
        : rotation(r), translation(t), scale(s) {}

    // The transform as a row-vector matrix: Quat::toMatrix44 with row i scaled by scale[i].
    Imath::Matrix44<double> matrix() const {
        Imath::Matrix44<double> m = rotation.toMatrix44();
        for (int i = 0; i < 3; ++i) {
            m[i][0] *= scale[i];
            m[i][1] *= scale[i];
            m[i][2] *= scale[i];
        }
        m[3][0] = translation.x;
        m[3][1] = translation.y;
        m[3][2] = translation.z;
        return m;
    }

    // Decomposes m into scale, rotation (through XYZ Euler angles) and translation.
    void setMatrix(const Imath::Matrix44<double>& m);

    // Bytes of the archive form.
    static size_t memSize() { return 80; }
};

// Ten little-endian doubles at the archive position. A short read leaves the joint pose unchanged
// and marks the archive failed.
ZELTO_API Archive& operator<<(Archive& archive, const JointPose& pose);
ZELTO_API Archive& operator>>(Archive& archive, JointPose& pose);

}  // namespace ZeltoCore
