#include "core/pose/Poser.h"

#include "core/math/Transform.h"
#include "core/math/internal/AffineBlock.h"
#include "core/math/internal/AffineRows.h"
#include "core/skeleton/Skeleton.h"
#include "core/skeleton/internal/Ancestors.h"

#include <type_traits>

namespace ZeltoCore {

namespace {

using M44d = Imath::Matrix44<double>;
using M44f = Imath::Matrix44<float>;
using detail::Affine;

// Where a pass reads M(j): the pose's joint transform (parent space), the pose's then the bind
// transform (local space), or the bind transform alone (bind pose).
enum class Space { Parent, Local, Bind };

#if defined(__GNUC__)
#define ZELTO_NOINLINE __attribute__((noinline))
#else
#define ZELTO_NOINLINE
#endif

// Local matrices and the passes over them in lanes L, four joints a block.
template <class T, Space S, class L>
struct LocalMatrices {
    using Block = Affine<L>;
    using Rows = detail::Rows<T, L>;
    using Lane = detail::AffineLane<T, L>;
    using Columns = detail::AffineColumns<T, L>;
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
        return detail::affineBlock<T, L>(x);
    }

    // w = M(chain[0]) * ... * M(chain[count - 1]), or w times them when `started`. Lanes past
    // `count` are built from ids left over from earlier blocks (joints in range) and unused.
    ZELTO_ALWAYS_INLINE void multiplyOn(Columns& w, bool& started, const unsigned short (&chain)[4],
                                        unsigned count) const {
        const Block block = localBlock(chain);
        for (unsigned l = 0; l < count; ++l) {
            const Lane m{block, int(l)};
            w = started ? w * m : Columns::of(m);
            started = true;
        }
    }

    // M(j) times the local matrices of its ancestors, up to the first ancestor whose id is below
    // `evaluated`; that one's world matrix is taken from `world`. Ancestors beyond the evaluated
    // joints contribute nothing. The local matrices are built four at a time. The walk is that
    // of detail::forEachAncestor, written out so that it is compiled with its caller.
    ZELTO_ALWAYS_INLINE Rows walk(unsigned short j, unsigned short evaluated,
                                  const Imath::Matrix44<T>* world) const {
        unsigned short chain[4] = {j, j, j, j};
        unsigned count = 1;
        Columns w{};  // set by the first product; the compiler cannot see that there is one
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
        const Rows rows = w.rows();
        return stop ? detail::affineTimes(rows, Rows::load(world[stop->id()])) : rows;
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
        unsigned first = 0;
        for (; first + 4 <= numJoints; first += 4) {
            const unsigned short ids[4] = {
                static_cast<unsigned short>(first), static_cast<unsigned short>(first + 1),
                static_cast<unsigned short>(first + 2), static_cast<unsigned short>(first + 3)};
            evaluateBlock(first, 4, localBlock(ids), world);
        }
        if (first < numJoints) {
            unsigned short ids[4];
            for (unsigned l = 0; l < 4; ++l)
                ids[l] = static_cast<unsigned short>(first + l < numJoints ? first + l : first);
            evaluateBlock(first, numJoints - first, localBlock(ids), world);
        }
    }
    ZELTO_ALWAYS_INLINE void evaluateBlock(unsigned first, unsigned count, const Block& block,
                                           Imath::Matrix44<T>* world) const {
        const Joint* joints = &skeleton.joint(0);
        const unsigned skeletonJoints = skeleton.numJoints();
        for (unsigned l = 0; l < count; ++l) {
            const unsigned j = first + l;
            const Lane m{block, static_cast<int>(l)};
            // detail::parentInSkeleton, with the skeleton's array and count at hand.
            const Joint* parent = joints[j].parent();
            const unsigned p = parent ? parent->id() : 0;
            if (!parent || p >= skeletonJoints || joints + p != parent) {
                detail::affineRows<T, L>(m).store(world[j]);
            } else if (p < j) {
                detail::affineTimes(m, Rows::load(world[p])).store(world[j]);
            } else {
                walkOutOfLine(static_cast<unsigned short>(j), world);
            }
        }
    }
};

// f(local matrices of the space).
template <class T, class L, class F>
ZELTO_ALWAYS_INLINE void inSpace(Space space, const Skeleton& skeleton, const JointPose* poses,
                                 unsigned short n, F f) {
    switch (space) {
        case Space::Parent:
            return f(LocalMatrices<T, Space::Parent, L>{skeleton, poses, n});
        case Space::Local:
            return f(LocalMatrices<T, Space::Local, L>{skeleton, poses, n});
        case Space::Bind:
            return f(LocalMatrices<T, Space::Bind, L>{skeleton, poses, n});
    }
}

// Function objects rather than lambdas, so that they are inlined into the AVX2 versions.
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

// Lanes of the baseline build: double rows in 16-byte halves, float rows in one register.
template <class T>
using BaseLanes = typename std::conditional<std::is_same<T, double>::value, detail::Halves<T>,
                                            detail::Lanes<T>>::type;

// The passes and walks are also built for AVX2 (one 32-byte register per double row), chosen at
// run time. AVX2 without FMA: the same operations in the same order, so both give the same bits.
// Sanitizer builds run the baseline code only.
#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__) && \
    !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
#define ZELTO_AVX2_DISPATCH 1

template <class T>
__attribute__((target("avx2"))) void evaluateAllAvx2(Space space, const Skeleton& skeleton,
                                                     const JointPose* poses, unsigned short n,
                                                     Imath::Matrix44<T>* world) {
    inSpace<T, detail::Lanes<T>>(space, skeleton, poses, n, EvaluateAll<T>{world});
}

__attribute__((target("avx2"))) void walkAvx2(Space space, const Skeleton& skeleton,
                                              const JointPose* poses, unsigned short n,
                                              unsigned short id, M44d& world) {
    inSpace<double, detail::Lanes<double>>(space, skeleton, poses, n, Walk{id, world});
}

bool hasAvx2() {
    return __builtin_cpu_supports("avx2");
}
#endif

template <class T>
void evaluateAll(Space space, const Skeleton& skeleton, const JointPose* poses, unsigned short n,
                 Imath::Matrix44<T>* world) {
#ifdef ZELTO_AVX2_DISPATCH
    if (hasAvx2()) return evaluateAllAvx2(space, skeleton, poses, n, world);
#endif
    inSpace<T, BaseLanes<T>>(space, skeleton, poses, n, EvaluateAll<T>{world});
}

// The world matrix of one joint by walking its ancestors.
M44d walkedWorld(Space space, const Skeleton& skeleton, const JointPose* poses, unsigned short n,
                 unsigned short id) {
    M44d world;
#ifdef ZELTO_AVX2_DISPATCH
    if (hasAvx2()) {
        walkAvx2(space, skeleton, poses, n, id, world);
        return world;
    }
#endif
    inSpace<double, BaseLanes<double>>(space, skeleton, poses, n, Walk{id, world});
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
