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
#define ZELTO_NOINLINE __attribute__((noinline))
#else
#define ZELTO_NOINLINE
#endif

template <class T, Space S>
struct LocalMatrices {
    using Block = Affine<Lanes<T>>;
    const Skeleton& skeleton;
    const JointPose* poses;  // null for the bind pose
    unsigned short numJoints;

    // The bind transform is a JointPose whose first member rotation() refers to (the two
    // addresses are interchangeable for a standard-layout class).
    ZELTO_ALWAYS_INLINE const JointPose* transform(unsigned short j, bool bind) const {
        return bind ? reinterpret_cast<const JointPose*>(&skeleton.joint(j).rotation()) : &poses[j];
    }
    // M(ids[0]) ... M(ids[3]) in lanes: posed * bind with the transforms of the pose's space.
    ZELTO_ALWAYS_INLINE Block localBlock(const unsigned short (&ids)[4]) const {
        if (S == Space::Bind) return transforms(ids, true);
        return S == Space::Parent ? transforms(ids, false)
                                  : transforms(ids, false) * transforms(ids, true);
    }
    ZELTO_ALWAYS_INLINE Block transforms(const unsigned short (&ids)[4], bool bind) const {
        const JointPose* x[4];
        for (unsigned l = 0; l < 4; ++l)
            x[l] = transform(ids[l], bind);
        return detail::affineBlock<T>(x);
    }

    // w = M(chain[0]) * ... * M(chain[count - 1]), or w times them when `started`.
    ZELTO_ALWAYS_INLINE void multiplyOn(detail::AffineColumns<T>& w, bool& started,
                                        const unsigned short (&chain)[4], unsigned count) const {
        const Block block = localBlock(chain);
        for (unsigned l = 0; l < count; ++l) {
            const detail::AffineLane<T> m{block, int(l)};
            w = started ? w * m : detail::AffineColumns<T>::of(m);
            started = true;
        }
    }

    // M(j) times the local matrices of its ancestors, up to the first ancestor whose id is below
    // `evaluated`; that one's world matrix is taken from `world`. Ancestors beyond the evaluated
    // joints contribute nothing. The local matrices are built four at a time. The walk is that
    // of detail::forEachAncestor, written out so that it is compiled with its caller.
    ZELTO_ALWAYS_INLINE Rows<T> walk(unsigned short j, unsigned short evaluated,
                                     const Imath::Matrix44<T>* world) const {
        unsigned short chain[4] = {j, j, j, j};
        unsigned count = 1;
        detail::AffineColumns<T> w;
        bool started = false;
        const Joint* a = detail::parentInSkeleton(skeleton, skeleton.joint(j));
        const Joint* stop = nullptr;
        for (unsigned steps = skeleton.numJoints(); a && steps; --steps) {
            if (a->id() < evaluated) {
                stop = a;
                break;
            }
            if (a->id() < numJoints) {
                if (count == 4) {
                    multiplyOn(w, started, chain, count);
                    count = 0;
                }
                chain[count++] = a->id();
            }
            a = detail::parentInSkeleton(skeleton, *a);
        }
        multiplyOn(w, started, chain, count);
        const Rows<T> rows = w.rows();
        return stop ? detail::affineTimes(rows, Rows<T>::load(world[stop->id()])) : rows;
    }

    // The pass's rare walk, kept out of its loop.
    ZELTO_NOINLINE void walkOutOfLine(unsigned short j, Imath::Matrix44<T>* world) const {
        walk(j, j, world).store(world[j]);
    }

    // One pass in id order, local matrices built four at a time. A joint whose parent comes later
    // walks up to the first ancestor the pass has already evaluated, so the result never depends
    // on what `world` held before.
    ZELTO_ALWAYS_INLINE void evaluateAll(Imath::Matrix44<T>* world) const {
        // Not unsigned short: the block start passes 65535 for the largest skeletons.
        for (unsigned first = 0; first < numJoints; first += 4) {
            unsigned short ids[4];
            for (unsigned l = 0; l < 4; ++l)
                ids[l] = static_cast<unsigned short>(first + l < numJoints ? first + l : first);
            const Block block = localBlock(ids);
            const unsigned end = numJoints - first > 4 ? first + 4 : numJoints;
            for (unsigned short j = static_cast<unsigned short>(first); j < end; ++j) {
                const detail::AffineLane<T> m{block, static_cast<int>(j - first)};
                const Joint* parent = detail::parentInSkeleton(skeleton, skeleton.joint(j));
                if (!parent) {
                    detail::affineRows<T>(m).store(world[j]);
                } else if (parent->id() < j) {
                    detail::affineTimes(m, Rows<T>::load(world[parent->id()])).store(world[j]);
                } else {
                    walkOutOfLine(j, world);
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

// f(local matrices of the space).
template <class T, class F>
ZELTO_ALWAYS_INLINE void inSpace(Space space, const Skeleton& skeleton, const JointPose* poses,
                                 unsigned short n, F f) {
    switch (space) {
        case Space::Parent:
            return f(LocalMatrices<T, Space::Parent>{skeleton, poses, n});
        case Space::Local:
            return f(LocalMatrices<T, Space::Local>{skeleton, poses, n});
        case Space::Bind:
            return f(LocalMatrices<T, Space::Bind>{skeleton, poses, n});
    }
}

// Function objects rather than lambdas, so that they are inlined into the AVX2 clones.
template <class T>
struct EvaluateAll {
    Imath::Matrix44<T>* world;
    template <class M>
    ZELTO_ALWAYS_INLINE void operator()(const M& m) const {
        m.evaluateAll(world);
    }
};

struct Walk {
    unsigned short id;
    M44d& world;
    template <class M>
    ZELTO_ALWAYS_INLINE void operator()(const M& m) const {
        m.walk(id, 0, nullptr).store(world);
    }
};

template <class T>
ZELTO_ALWAYS_INLINE void evaluateAllIn(Space space, const Skeleton& skeleton,
                                       const JointPose* poses, unsigned short n,
                                       Imath::Matrix44<T>* world) {
    inSpace<T>(space, skeleton, poses, n, EvaluateAll<T>{world});
}

ZELTO_AVX2_CLONES void evaluateAll(Space space, const Skeleton& skeleton, const JointPose* poses,
                                   unsigned short n, M44d* world) {
    evaluateAllIn(space, skeleton, poses, n, world);
}

ZELTO_AVX2_CLONES void evaluateAll(Space space, const Skeleton& skeleton, const JointPose* poses,
                                   unsigned short n, M44f* world) {
    evaluateAllIn(space, skeleton, poses, n, world);
}

// The world matrix of one joint by walking its ancestors.
ZELTO_AVX2_CLONES M44d walkedWorld(Space space, const Skeleton& skeleton, const JointPose* poses,
                                   unsigned short n, unsigned short id) {
    M44d world;
    inSpace<double>(space, skeleton, poses, n, Walk{id, world});
    return world;
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
    return walkedWorld(pose.inParentSpace() ? Space::Parent : Space::Local, *m_skeleton,
                       &pose.jointPose(0), static_cast<unsigned short>(poseJoints), j);
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
    return walkedWorld(Space::Bind, *m_skeleton, nullptr, n, static_cast<unsigned short>(id));
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
