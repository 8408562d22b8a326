#include "core/pose/Poser.h"

#include "core/math/Transform.h"
#include "core/skeleton/Skeleton.h"
#include "core/skeleton/internal/Ancestors.h"

namespace ZeltoCore {

namespace {

using M44d = Imath::Matrix44<double>;
using M44f = Imath::Matrix44<float>;

// The single-precision local matrix: rotation and translation converted to float first, each
// rotation entry scaled in double and then rounded.
inline M44f floatMatrix(const Imath::Quat<double>& q, const Imath::Vec3<double>& t,
                        const Imath::Vec3<double>& s) {
    const Imath::Quat<float> qf(static_cast<float>(q.r), static_cast<float>(q.v.x),
                                static_cast<float>(q.v.y), static_cast<float>(q.v.z));
    M44f m = qf.toMatrix44();
    for (int i = 0; i < 3; ++i) {
        for (int k = 0; k < 3; ++k)
            m[i][k] = static_cast<float>(double(m[i][k]) * s[i]);
    }
    m[3][0] = static_cast<float>(t.x);
    m[3][1] = static_cast<float>(t.y);
    m[3][2] = static_cast<float>(t.z);
    return m;
}

// The joint's transform relative to its parent, for a pose in either space.
M44d localMatrix(const Pose& pose, const Joint& joint, unsigned short id) {
    const M44d m = pose.jointPose(id).matrix();
    return pose.inParentSpace() ? m : m * joint.matrix();
}

// c = a * b for matrices whose last column is (0, 0, 0, 1), as every joint transform and every
// product of them is. Same sums in the same order as the general product, without the terms
// that are known to be zero.
template <class T>
inline void multiplyAffine(const Imath::Matrix44<T>& a, const Imath::Matrix44<T>& b,
                           Imath::Matrix44<T>& c) {
    for (int i = 0; i < 3; ++i) {
        for (int k = 0; k < 3; ++k) {
            c[i][k] = a[i][0] * b[0][k] + a[i][1] * b[1][k] + a[i][2] * b[2][k];
        }
        c[i][3] = 0;
    }
    for (int k = 0; k < 3; ++k) {
        c[3][k] = a[3][0] * b[0][k] + a[3][1] * b[1][k] + a[3][2] * b[2][k] + b[3][k];
    }
    c[3][3] = 1;
}

// world[j] = local * world[parent] in the one-pass evaluation. A parent evaluated earlier in the
// pass is affine; one that is not (ids out of order) holds whatever the caller left there.
template <class T>
inline void combine(const Imath::Matrix44<T>& local, const Joint* parent, unsigned short j,
                    unsigned short n, Imath::Matrix44<T>* world) {
    if (!parent) {
        world[j] = local;
        return;
    }
    const unsigned short p = parent->id();
    if (p < j) {
        multiplyAffine(local, world[p], world[j]);
    } else if (p < n) {
        Imath::Matrix44<T>::multiply(local, world[p], world[j]);
    } else {
        // A parent beyond the pose has no entry to combine with.
        world[j] = local;
    }
}

bool poseFits(const Skeleton* skeleton, const Pose& pose) {
    return pose.numJoints() <= skeleton->numJoints();
}

}  // namespace

M44d Poser::getWorldMatrix(const Pose& pose, unsigned int id) const {
    const unsigned int skeletonJoints = m_skeleton->numJoints();
    const unsigned int poseJoints = pose.numJoints();
    if (skeletonJoints == 0 || id >= skeletonJoints || poseJoints == 0 ||
        poseJoints > skeletonJoints || id >= poseJoints) {
        return M44d();
    }
    const Joint& joint = m_skeleton->joint(static_cast<unsigned short>(id));
    M44d world = localMatrix(pose, joint, static_cast<unsigned short>(id));
    detail::forEachAncestor(*m_skeleton, joint, [&](const Joint& a) {
        // Only a skeleton whose parents do not precede their children can have an ancestor the
        // pose does not cover; it contributes nothing rather than being read out of range.
        if (a.id() < poseJoints) world = world * localMatrix(pose, a, a.id());
        return true;
    });
    return world;
}

std::vector<M44d> Poser::getAllWorldMatrix(const Pose& pose) const {
    std::vector<M44d> out(pose.numJoints());
    getAllWorldMatrixInPlace(pose, out);
    return out;
}

void Poser::getAllWorldMatrixInPlace(const Pose& pose, std::vector<M44d>& out) const {
    if (!poseFits(m_skeleton, pose)) return;
    const unsigned short n = pose.numJoints();
    out.resize(n);
    const bool parentSpace = pose.inParentSpace();
    M44d* world = out.data();
    for (unsigned short j = 0; j < n; ++j) {
        const Joint& joint = m_skeleton->joint(j);
        M44d local = pose.jointPose(j).matrix();
        if (!parentSpace) {
            const M44d m = local;
            multiplyAffine(m, joint.matrix(), local);
        }
        combine(local, joint.parent(), j, n, world);
    }
}

void Poser::getAllWorldMatrixInPlace(const Pose& pose, std::vector<M44f>& out) const {
    if (!poseFits(m_skeleton, pose)) return;
    const unsigned short n = pose.numJoints();
    out.resize(n);
    const bool parentSpace = pose.inParentSpace();
    M44f* world = out.data();
    for (unsigned short j = 0; j < n; ++j) {
        const Joint& joint = m_skeleton->joint(j);
        const JointPose& p = pose.jointPose(j);
        M44f local = floatMatrix(p.rotation, p.translation, p.scale);
        if (!parentSpace) {
            const M44f m = local;
            multiplyAffine(m, floatMatrix(joint.rotation(), joint.translation(), joint.scale()),
                           local);
        }
        combine(local, joint.parent(), j, n, world);
    }
}

M44d Poser::getWorldBindMatrix(unsigned int id) const {
    return detail::worldBindMatrix(*m_skeleton, id);
}

std::vector<M44d> Poser::getAllWorldBindMatrix() const {
    std::vector<M44d> out;
    getAllWorldBindMatrixInPlace(out);
    return out;
}

void Poser::getAllWorldBindMatrixInPlace(std::vector<M44d>& out) const {
    const unsigned short n = m_skeleton->numJoints();
    out.resize(n);
    M44d* world = out.data();
    for (unsigned short j = 0; j < n; ++j) {
        const Joint& joint = m_skeleton->joint(j);
        combine(joint.matrix(), joint.parent(), j, n, world);
    }
}

void Poser::setWorldMatrix(Pose& pose, const M44d& world, unsigned short id) const {
    const unsigned short n = m_skeleton->numJoints();
    if (id >= n || id >= pose.numJoints() || pose.numJoints() > n) return;
    const Joint& joint = m_skeleton->joint(id);
    M44d relative = world;
    if (const Joint* parent = joint.parent()) {
        relative = world * matrixInverse(getWorldMatrix(pose, parent->id()));
    }
    if (!pose.inParentSpace()) relative = relative * matrixInverse(joint.matrix());
    pose.jointPose(id).setMatrix(relative);
}

}  // namespace ZeltoCore
