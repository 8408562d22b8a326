#include "core/pose/Poser.h"

#include "core/math/Transform.h"
#include "core/math/internal/AffineRows.h"
#include "core/skeleton/Skeleton.h"
#include "core/skeleton/internal/Ancestors.h"

namespace ZeltoCore {

namespace {

using M44d = Imath::Matrix44<double>;
using M44f = Imath::Matrix44<float>;
using detail::Affine;
using detail::Rows;

// Where a pass reads M(j): the pose's joint transform (parent space), the pose's then the bind
// transform (local space), or the bind transform alone (bind pose).
enum class Space { Parent, Local, Bind };

#if defined(__GNUC__)
#define ZELTO_ALWAYS_INLINE __attribute__((always_inline)) inline
#else
#define ZELTO_ALWAYS_INLINE inline
#endif

template <class T, Space S>
struct LocalMatrices {
    const Skeleton& skeleton;
    const JointPose* poses;  // null for the bind pose
    unsigned short numJoints;

    Affine<T> bind(unsigned short j) const {
        const Joint& joint = skeleton.joint(j);
        return Affine<T>::of(joint.rotation(), joint.translation(), joint.scale());
    }
    Affine<T> posed(unsigned short j) const {
        const JointPose& p = poses[j];
        return Affine<T>::of(p.rotation, p.translation, p.scale);
    }
    // M(j).
    Rows<T> local(unsigned short j) const {
        if (S == Space::Bind) return bind(j).rows();
        return S == Space::Parent ? posed(j).rows() : posed(j) * bind(j).rows();
    }
    // M(j) * above, without forming M(j) first.
    Rows<T> below(unsigned short j, const Rows<T>& above) const {
        if (S == Space::Bind) return bind(j) * above;
        return S == Space::Parent ? posed(j) * above : posed(j) * (bind(j) * above);
    }

    // M(j) times the local matrices of its ancestors, up to the first ancestor whose id is below
    // `evaluated`; that one's world matrix is taken from `world`. Ancestors beyond the evaluated
    // joints contribute nothing.
    Rows<T> walk(unsigned short j, unsigned short evaluated,
                 const Imath::Matrix44<T>* world) const {
        Rows<T> w = local(j);
        const Joint* stop =
            detail::forEachAncestor(skeleton, skeleton.joint(j), [&](const Joint& a) {
                if (a.id() < evaluated) return false;
                if (a.id() < numJoints) w = Affine<T>::of(w) * local(a.id());
                return true;
            });
        if (stop) w = Affine<T>::of(w) * Rows<T>::load(world[stop->id()]);
        return w;
    }

    // One pass in id order. A joint whose parent comes later walks up to the first ancestor the
    // pass has already evaluated, so the result never depends on what `world` held before.
    ZELTO_ALWAYS_INLINE void evaluateAll(Imath::Matrix44<T>* world) const {
        for (unsigned short j = 0; j < numJoints; ++j) {
            const Joint* parent = detail::parentInSkeleton(skeleton, skeleton.joint(j));
            if (!parent) {
                local(j).store(world[j]);
            } else if (parent->id() < j) {
                below(j, Rows<T>::load(world[parent->id()])).store(world[j]);
            } else {
                walk(j, j, world).store(world[j]);
            }
        }
    }
};

// The passes, also built for AVX2 and chosen at load time where the compiler can. AVX2 without
// FMA: the same operations in the same order, so both give the same bits. Not in sanitizer
// builds: the load-time resolver runs before the sanitizer runtime is up (ThreadSanitizer
// crashes in it).
#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__) && defined(__ELF__) && \
    !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
#define ZELTO_AVX2_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define ZELTO_AVX2_CLONES
#endif

template <class T>
ZELTO_ALWAYS_INLINE void evaluateAllIn(Space space, const Skeleton& skeleton,
                                       const JointPose* poses, unsigned short n,
                                       Imath::Matrix44<T>* world) {
    switch (space) {
        case Space::Parent:
            return LocalMatrices<T, Space::Parent>{skeleton, poses, n}.evaluateAll(world);
        case Space::Local:
            return LocalMatrices<T, Space::Local>{skeleton, poses, n}.evaluateAll(world);
        case Space::Bind:
            return LocalMatrices<T, Space::Bind>{skeleton, poses, n}.evaluateAll(world);
    }
}

ZELTO_AVX2_CLONES void evaluateAll(Space space, const Skeleton& skeleton, const JointPose* poses,
                                   unsigned short n, M44d* world) {
    evaluateAllIn(space, skeleton, poses, n, world);
}

ZELTO_AVX2_CLONES void evaluateAll(Space space, const Skeleton& skeleton, const JointPose* poses,
                                   unsigned short n, M44f* world) {
    evaluateAllIn(space, skeleton, poses, n, world);
}

template <class T>
void evaluatePose(const Skeleton& skeleton, const Pose& pose,
                  std::vector<Imath::Matrix44<T>>& out) {
    const unsigned short n = pose.numJoints();
    if (n > skeleton.numJoints()) return;
    out.resize(n);
    if (n == 0) return;
    evaluateAll(pose.inParentSpace() ? Space::Parent : Space::Local, skeleton, &pose.jointPose(0),
                n, out.data());
}

// The world matrix of one joint by walking its ancestors.
template <Space S>
M44d walkedWorld(const Skeleton& skeleton, const JointPose* poses, unsigned short n,
                 unsigned short id) {
    M44d world;
    LocalMatrices<double, S>{skeleton, poses, n}.walk(id, 0, nullptr).store(world);
    return world;
}

}  // namespace

M44d Poser::getWorldMatrix(const Pose& pose, unsigned int id) const {
    const unsigned int skeletonJoints = m_skeleton->numJoints();
    const unsigned int poseJoints = pose.numJoints();
    if (skeletonJoints == 0 || id >= skeletonJoints || poseJoints == 0 ||
        poseJoints > skeletonJoints || id >= poseJoints) {
        return M44d();
    }
    // Only a skeleton whose parents do not precede their children can have an ancestor the pose
    // does not cover; it contributes nothing rather than being read out of range.
    const unsigned short j = static_cast<unsigned short>(id);
    return pose.inParentSpace()
               ? walkedWorld<Space::Parent>(*m_skeleton, &pose.jointPose(0), poseJoints, j)
               : walkedWorld<Space::Local>(*m_skeleton, &pose.jointPose(0), poseJoints, j);
}

std::vector<M44d> Poser::getAllWorldMatrix(const Pose& pose) const {
    std::vector<M44d> out(pose.numJoints());
    getAllWorldMatrixInPlace(pose, out);
    return out;
}

void Poser::getAllWorldMatrixInPlace(const Pose& pose, std::vector<M44d>& out) const {
    evaluatePose(*m_skeleton, pose, out);
}

void Poser::getAllWorldMatrixInPlace(const Pose& pose, std::vector<M44f>& out) const {
    evaluatePose(*m_skeleton, pose, out);
}

M44d Poser::getWorldBindMatrix(unsigned int id) const {
    const unsigned short n = m_skeleton->numJoints();
    if (id >= n) return M44d();
    return walkedWorld<Space::Bind>(*m_skeleton, nullptr, n, static_cast<unsigned short>(id));
}

std::vector<M44d> Poser::getAllWorldBindMatrix() const {
    std::vector<M44d> out;
    getAllWorldBindMatrixInPlace(out);
    return out;
}

void Poser::getAllWorldBindMatrixInPlace(std::vector<M44d>& out) const {
    const unsigned short n = m_skeleton->numJoints();
    out.resize(n);
    if (n) evaluateAll(Space::Bind, *m_skeleton, nullptr, n, out.data());
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
