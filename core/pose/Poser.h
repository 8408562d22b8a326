// Poser: evaluates world matrices of poses of one skeleton, and writes world matrices back.
//
// World matrices are row-vector products W(j) = M(j) * W(parent(j)), where M(j) is the joint's
// pose transform (parent space), pose transform * bind transform (local space) or the bind
// transform (bind-pose forms). The all-joint forms make one pass in id order; a joint whose parent
// comes later walks up to its first evaluated ancestor, so any parent order gives the walked
// result, and nothing depends on what the output vector held. Queries with an out-of-range id or a
// pose that does not fit the skeleton give the identity or change nothing. Walks up the parents
// follow only links into the skeleton's own joints and stop after numJoints() steps, so hand-made
// cycles cannot hang them. The poser holds only a pointer to the skeleton, which must outlive it;
// every query is const and keeps no cache.
//
//   Poser poser(&skeleton); std::vector<Imath::M44d> world;
//   poser.getAllWorldMatrixInPlace(pose, world);
#pragma once

#include <Imath/ImathMatrix.h>

#include <vector>

#include "core/pose/Pose.h"
#include "utils/Export.h"

namespace ZeltoCore {

class Skeleton;

class ZELTO_API Poser {
public:
    explicit Poser(const Skeleton* skeleton) : m_skeleton(skeleton) {}

    const Skeleton* skeleton() const { return m_skeleton; }

    // World matrix of one joint, walking its ancestors (any id order). The identity unless the
    // skeleton has joints, the pose has 1 ... numJoints() of them and id is below both counts.
    Imath::Matrix44<double> getWorldMatrix(const Pose& pose, unsigned int id) const;
    // One matrix per pose joint; identities when the pose has more joints than the skeleton.
    std::vector<Imath::Matrix44<double>> getAllWorldMatrix(const Pose& pose) const;
    // Resizes `out` to the pose's joint count and fills it; leaves it untouched when the pose has
    // more joints than the skeleton.
    void getAllWorldMatrixInPlace(const Pose& pose,
                                  std::vector<Imath::Matrix44<double>>& out) const;
    // The same pass carried out in single precision throughout (local matrices, products).
    void getAllWorldMatrixInPlace(const Pose& pose, std::vector<Imath::Matrix44<float>>& out) const;

    // Bind-pose world matrix of one joint; the identity for an id beyond the skeleton.
    Imath::Matrix44<double> getWorldBindMatrix(unsigned int id) const;
    std::vector<Imath::Matrix44<double>> getAllWorldBindMatrix() const;
    void getAllWorldBindMatrixInPlace(std::vector<Imath::Matrix44<double>>& out) const;

    // Gives joint `id` of the pose the world matrix `world`, keeping its ancestors (and every
    // other joint) unchanged. Shear is dropped. Ignored for a bad id or a pose that does not fit.
    void setWorldMatrix(Pose& pose, const Imath::Matrix44<double>& world, unsigned short id) const;

private:
    const Skeleton* m_skeleton;
};

}  // namespace ZeltoCore
