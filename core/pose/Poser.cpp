#include "core/pose/Poser.h"

#include "core/math/Transform.h"
#include "core/math/internal/AffineBlock.h"
#include "core/math/internal/AffineRows.h"
#include "core/skeleton/Skeleton.h"
#include "core/skeleton/internal/Ancestors.h"

namespace ZeltoCore {

namespace {

using M44d = Imath::Matrix44<double>;
using M44f = Imath::Matrix44<float>;
using detail::Affine;
using detail::Lanes;
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
    using Block = Affine<Lanes<T>>;
    const Skeleton& skeleton;
    const JointPose* poses;  // null for the bind pose
    unsigned short numJoints;

    // The bind transform is a JointPose whose first member rotation() refers to (the two
    // addresses are interchangeable for a standard-layout class).
    const JointPose* transform(unsigned short j, bool bind) const {
        return bind ? reinterpret_cast<const JointPose*>(&skeleton.joint(j).rotation()) : &poses[j];
    }
    // M(j), from M(j) = posed * bind with the transforms at hand.
    template <class A, class Get>
    static A compose(Get get, unsigned short j) {
        if (S == Space::Bind) return get(j, true);
        return S == Space::Parent ? get(j, false) : get(j, false) * get(j, true);
    }
    Affine<T> local(unsigned short j) const {
        return compose<Affine<T>>(
            [this](unsigned short k, bool bind) {
                const JointPose& x = *transform(k, bind);
                return Affine<T>::of(x.rotation, x.translation, x.scale);
            },
            j);
    }
    // M(first) ... M(first + 3) in lanes; unless the block is full, ids past the joints repeat
    // the last one.
    template <bool Full>
    Block localBlock(unsigned short first) const {
        return compose<Block>(
            [this](unsigned short k, bool bind) {
                const JointPose* x[4];
                for (unsigned l = 0; l < 4; ++l) {
                    const unsigned j = Full || k + l < numJoints ? k + l : numJoints - 1u;
                    x[l] = transform(static_cast<unsigned short>(j), bind);
                }
                return detail::affineBlock<T>(x);
            },
            first);
    }

    // M(j) times the local matrices of its ancestors, up to the first ancestor whose id is below
    // `evaluated`; that one's world matrix is taken from `world`. Ancestors beyond the evaluated
    // joints contribute nothing.
    Rows<T> walk(unsigned short j, unsigned short evaluated,
                 const Imath::Matrix44<T>* world) const {
        Affine<T> w = local(j);
        const Joint* stop =
            detail::forEachAncestor(skeleton, skeleton.joint(j), [&](const Joint& a) {
                if (a.id() < evaluated) return false;
                if (a.id() < numJoints) w = w * local(a.id());
                return true;
            });
        return stop ? w * Rows<T>::load(world[stop->id()]) : w.rows();
    }

    // One pass in id order, local matrices built four at a time. A joint whose parent comes later
    // walks up to the first ancestor the pass has already evaluated, so the result never depends
    // on what `world` held before.
    ZELTO_ALWAYS_INLINE void evaluateAll(Imath::Matrix44<T>* world) const {
        // Not unsigned short: the block start passes 65535 for the largest skeletons.
        for (unsigned first = 0; first < numJoints; first += 4) {
            const unsigned short at = static_cast<unsigned short>(first);
            const Block block =
                numJoints - first >= 4 ? localBlock<true>(at) : localBlock<false>(at);
            const unsigned end = numJoints - first > 4 ? first + 4 : numJoints;
            for (unsigned short j = static_cast<unsigned short>(first); j < end; ++j) {
                const detail::AffineLane<T> m{block, static_cast<int>(j - first)};
                const Joint* parent = detail::parentInSkeleton(skeleton, skeleton.joint(j));
                if (!parent) {
                    detail::affineRows<T>(m).store(world[j]);
                } else if (parent->id() < j) {
                    detail::affineTimes(m, Rows<T>::load(world[parent->id()])).store(world[j]);
                } else {
                    walk(j, j, world).store(world[j]);
                }
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
