#include "core/ik/internal/FabrikCommon.h"

#include <cmath>
#include <limits>
#include <utility>

#include "core/ik/internal/IkCommon.h"
#include "core/ik/internal/Similarity.h"
#include "core/pose/Pose.h"
#include "core/skeleton/Skeleton.h"

namespace ZeltoCore {
namespace detail {

namespace {

// Moves `moved` to `length` from `anchor` along the line through both, unless they lie closer
// than the step whose square is `minStep2`, or at distance 0. length / r is taken as
// sqrt(r^2) * (length / r^2), so that the root and the quotient run side by side instead of one
// after the other: every pull waits on the one before, and this is most of an iteration's time.
// Where that form overflows (r^2 tiny), the plain quotient.
template <class V>
inline void pull(const V& anchor, V& moved, double length, double minStep2) {
    const V d = moved - anchor;
    const double r2 = d ^ d;
    if (!(r2 >= minStep2 && r2 > 0.0)) return;
    const double s = std::sqrt(r2), q = length / r2;
    if (s * q <= std::numeric_limits<double>::max()) {
        moved = anchor + d * q * s;  // the root, slower than the quotient, joins last
    } else {
        moved = anchor + d * (length / s);
    }
}

// c = affineTimes(a, b), written row by row into c: every value of a and b is read first, so c
// may be either and no whole product has to be kept aside and copied.
template <class A>
ZELTO_ALWAYS_INLINE void multiplyInto(const A& a, const WorldRows& b, WorldRows& c) {
    using L = Halves<double>;
    const L b0 = b.r[0], b1 = b.r[1], b2 = b.r[2], b3 = b.r[3];
    double s[4][3];
    for (int i = 0; i < 4; ++i)
        for (int k = 0; k < 3; ++k)
            s[i][k] = a(i, k);
    for (int i = 0; i < 3; ++i)
        c.r[i] = L::splat(s[i][0]) * b0 + L::splat(s[i][1]) * b1 + L::splat(s[i][2]) * b2;
    c.r[3] = (L::splat(s[3][0]) * b0 + L::splat(s[3][1]) * b1 + L::splat(s[3][2]) * b2) + b3;
}

void setLocal(const Pose& pose, ChainJoint& joint, bool parentSpace) {
    const JointPose& p = pose.jointPose(joint.id);
    const Affine<double> own = Affine<double>::of(p.rotation, p.translation, p.scale);
    if (parentSpace)
        joint.local = affineRows<double, Halves<double>>(own);
    else
        multiplyInto(own, joint.bind, joint.local);
}

// The translation row of a * b, a's translation row being `t`: the last row of affineTimes().
ZELTO_ALWAYS_INLINE Halves<double> translationRow(const Halves<double>& t, const WorldRows& b) {
    using L = Halves<double>;
    return L::splat(t[0]) * b.r[0] + L::splat(t[1]) * b.r[1] + L::splat(t[2]) * b.r[2] + b.r[3];
}

// The translation row of a joint's local matrix, without converting its rotation. The other rows
// are left unset.
void localTranslationOf(const Pose& pose, ChainJoint& joint, bool parentSpace) {
    const V3d& t = pose.jointPose(joint.id).translation;
    const Halves<double> own = Halves<double>::set(t.x, t.y, t.z, 1.0);
    joint.local.r[3] = parentSpace ? own : translationRow(own, joint.bind);
}

const WorldRows& above(const ChainJoints& chain, size_t k) {
    return chain[k].direct ? chain[k - 1].world : chain[k].above;
}

// Brings chain[k + 1] up to date with chain[k]'s world matrix; its local matrix is unchanged.
// Of a joint kept as translations only, only the translation row.
ZELTO_ALWAYS_INLINE void descend(const Pose& pose, const Skeleton& skeleton, ChainJoints& chain,
                                 size_t k, bool parentSpace) {
    ChainJoint& lower = chain[k + 1];
    if (!lower.direct) {
        M44d world = worldMatrixBelow(pose, skeleton, chain[k].id, toMatrix(chain[k].world),
                                      skeleton.joint(lower.id).parent()->id(), parentSpace);
        lower.above = WorldRows::load(world);
    }
    if (lower.translationOnly) {
        lower.world.r[3] = translationRow(lower.local.r[3], above(chain, k + 1));
    } else {
        multiplyInto(lower.local, above(chain, k + 1), lower.world);
    }
}

// The iterations on the n points at p; `passes` runs one backward and one forward pass.
template <class V, class Passes>
ZELTO_ALWAYS_INLINE bool iterate(V* p, size_t n, const V& goal, double tolerance2,
                                 unsigned int maxIterations, unsigned int& iterations,
                                 double stalled, Passes passes) {
    unsigned int count = iterations;
    bool moving = true;
    while (true) {
        const V before = p[n - 1];
        p[n - 1] = goal;
        passes();
        ++count;
        if (count >= maxIterations || !((p[n - 1] - goal).length2() > tolerance2)) break;
        if ((p[n - 1] - before).length2() <= stalled) {
            moving = false;
            break;
        }
    }
    iterations = count;
    return moving;
}

// The passes over points in memory, for chains too long to be held inline. The backward pass
// stops at p[1]: p[0] goes back to the base whatever it would pull.
template <class V>
bool iterateLoop(Points<V>& p, const double* lengths, const V& goal, double tolerance2,
                 unsigned int maxIterations, unsigned int& iterations, double minStep2,
                 double stalled) {
    const size_t n = p.size();
    const V base = p[0];
    return iterate(p.data(), n, goal, tolerance2, maxIterations, iterations, stalled, [&] {
        for (size_t i = n - 1; i > 1; --i)
            pull(p[i], p[i - 1], lengths[i - 1], minStep2);
        p[0] = base;
        for (size_t i = 0; i + 1 < n; ++i)
            pull(p[i], p[i + 1], lengths[i], minStep2);
    });
}

// The same passes for N points with every index a constant from the start, so the points are
// taken apart into registers: each pull waits on the one before, and a store and reload of the
// point between them would add to every wait.
template <size_t N, class V, size_t... I>
bool iterateFixed(Points<V>& p, const double* lengths, const V& goal, double tolerance2,
                  unsigned int maxIterations, unsigned int& iterations, double minStep2,
                  double stalled, std::index_sequence<I...>) {
    V q[N] = {p[I]..., p[N - 1]};
    const V base = q[0];
    const bool moving = iterate(q, N, goal, tolerance2, maxIterations, iterations, stalled, [&] {
        ((I + 2 < N ? pull(q[N - 1 - I], q[N - 2 - I], lengths[N - 2 - I], minStep2) : void()),
         ...);
        q[0] = base;
        (pull(q[I], q[I + 1], lengths[I], minStep2), ...);
    });
    ((p[I] = q[I]), ...);
    p[N - 1] = q[N - 1];
    return moving;
}

template <size_t N, class V>
bool iterateFixed(Points<V>& p, const double* lengths, const V& goal, double tolerance2,
                  unsigned int maxIterations, unsigned int& iterations, double minStep2,
                  double stalled) {
    return iterateFixed<N>(p, lengths, goal, tolerance2, maxIterations, iterations, minStep2,
                           stalled, std::make_index_sequence<N - 1>());
}

template <class V>
bool iterateChain(Points<V>& p, const Lengths& lengths, const V& goal, double tolerance,
                  unsigned int maxIterations, unsigned int& iterations, double minStep) {
    const size_t n = p.size();
    if (n < 2) return false;
    double total = 0.0;
    for (double l : lengths)
        total += l;
    const double stalled = 1e-24 * total * total;  // squared: a move of 1e-12 of the length
    const double minStep2 = minStep * minStep;
    // Squared, as the miss is: a negative tolerance never counts as met, like any distance.
    const double tolerance2 = tolerance >= 0.0 ? tolerance * tolerance : -1.0;
    const double* l = lengths.data();
    // Chains that fit inline have their own unrolled passes.
    using Fixed = bool (*)(Points<V>&, const double*, const V&, double, unsigned int, unsigned int&,
                           double, double);
    static constexpr Fixed fixed[] = {iterateFixed<2, V>, iterateFixed<3, V>, iterateFixed<4, V>,
                                      iterateFixed<5, V>, iterateFixed<6, V>, iterateFixed<7, V>,
                                      iterateFixed<8, V>};
    static_assert(sizeof(fixed) / sizeof(*fixed) == kInlineJoints - 1, "one per inline length");
    if (n <= kInlineJoints)
        return fixed[n - 2](p, l, goal, tolerance2, maxIterations, iterations, minStep2, stalled);
    return iterateLoop(p, l, goal, tolerance2, maxIterations, iterations, minStep2, stalled);
}

}  // namespace

bool fabrikIterate(Positions& p, const Lengths& lengths, const V3d& goal, double tolerance,
                   unsigned int maxIterations, unsigned int& iterations, double minStep) {
    return iterateChain(p, lengths, goal, tolerance, maxIterations, iterations, minStep);
}

bool fabrikIterate(Points<Imath::V2d>& p, const Lengths& lengths, const Imath::V2d& goal,
                   double tolerance, unsigned int maxIterations, unsigned int& iterations,
                   double minStep) {
    return iterateChain(p, lengths, goal, tolerance, maxIterations, iterations, minStep);
}

void fabrikLayTowards(Positions& p, const Lengths& lengths, const V3d& goal, double minStep) {
    for (size_t k = 0; k + 1 < p.size(); ++k) {
        const V3d d = goal - p[k];
        const double r = d.length();
        if (r >= minStep && r > 0.0) p[k + 1] = p[k] + d * (lengths[k] / r);
    }
}

void namedChain(unsigned short start, const JointIds& mids, unsigned short end, ChainIds& chain) {
    chain.push_back(start);
    for (unsigned short id : mids)
        chain.push_back(id);
    chain.push_back(end);
}

bool checkDirectChain(const Skeleton& skeleton, IdSpan chain) {
    for (size_t i = 1; i < chain.size; ++i) {
        if (skeleton.joint(chain[i]).parent() != &skeleton.joint(chain[i - 1])) {
            ikWarning(kNotAChainWarning);
            return false;
        }
    }
    // Parent links one by one make each joint an ancestor of the next; what is left to check is
    // that the top reaches a root.
    return chain.size == 0 ? checkIkChain(skeleton, chain) : checkIkChain(skeleton, {chain[0]});
}

bool checkReachable(const V3d& from, const V3d& target) {
    // The length overflows exactly when its square does.
    if (std::isfinite((target - from).length2())) return true;
    ikWarning(kNotFiniteWarning);
    return false;
}

M44d toMatrix(const WorldRows& m) {
    M44d out;
    m.store(out);
    return out;
}

void turnJoint(Pose& pose, unsigned short id, const WorldRows& world, const Quatd& q) {
    Quatd& r = pose.jointPose(id).rotation;
    Affine<double> m;
    for (int i = 0; i < 3; ++i) {
        for (int k = 0; k < 3; ++k)
            m.a[i][k] = world.r[i][k];
        m.t[i] = world.r[3][i];
    }
    r = rotatedInWorld(r, m, q);
}

namespace {

// evaluateChain for a rigid chain; false (chain unfinished) for any other.
bool evaluateRigid(const Pose& pose, const Skeleton& skeleton, IdSpan ids, bool parentSpace,
                   bool endPosition, ChainJoints& chain) {
    Similarity world;
    if (!parentWorldSimilarity(pose, skeleton, ids[0], world)) return false;
    chain.resize(ids.size);
    for (size_t k = 0; k < ids.size; ++k) {
        const unsigned short id = ids[k];
        ChainJoint& joint = chain[k];
        joint.id = id;
        joint.direct = k > 0 && skeleton.joint(id).parent()->id() == ids[k - 1];
        joint.rigid = true;
        // The end's rotation and scale move nothing a solver reads when only its position is.
        joint.translationOnly = endPosition && k > 0 && k + 1 == ids.size;
        const JointPose& p = pose.jointPose(id);
        Similarity below;
        if (k == 0) {
            if (!localSimilarity(p, skeleton, id, parentSpace, below)) return false;
            below = below.then(world);
        } else if (!worldSimilarityBelow(pose, skeleton, ids[k - 1], world, id, p, parentSpace,
                                         below, joint.translationOnly)) {
            return false;
        }
        world = below;
        joint.rotation = world.rotation;
        const V3d& t = world.translation;
        joint.world.r[3] = Halves<double>::set(t.x, t.y, t.z, 1.0);
    }
    return true;
}

}  // namespace

void evaluateChain(const Pose& pose, const Skeleton& skeleton, IdSpan ids, bool parentSpace,
                   ChainJoints& chain, bool endPosition, bool rigid) {
    if (rigid && evaluateRigid(pose, skeleton, ids, parentSpace, endPosition, chain)) return;
    const Aff parent = parentWorldAffine(pose, skeleton, ids[0]);
    chain.resize(ids.size);
    for (size_t k = 0; k < ids.size; ++k) {
        ChainJoint& joint = chain[k];
        joint.id = ids[k];
        joint.direct = k > 0 && skeleton.joint(ids[k]).parent()->id() == ids[k - 1];
        joint.rigid = false;
        if (!parentSpace)
            joint.bind = affineRows<double, Halves<double>>(bindAffine(skeleton, ids[k]));
        joint.translationOnly = endPosition && k > 0 && k + 1 == ids.size;
        if (!joint.translationOnly)
            setLocal(pose, joint, parentSpace);
        else
            localTranslationOf(pose, joint, parentSpace);
    }
    chain[0].above = affineRows<double, Halves<double>>(parent);
    multiplyInto(chain[0].local, chain[0].above, chain[0].world);
    for (size_t k = 0; k + 1 < chain.size(); ++k)
        descend(pose, skeleton, chain, k, parentSpace);
}

V3d turnBonesEvaluated(Pose& pose, const Skeleton& skeleton, ChainJoints& chain,
                       const Positions& goals, bool bones, bool parentSpace, const V3d* aimTarget) {
    for (size_t k = 0; k + 1 < chain.size(); ++k) {
        ChainJoint& joint = chain[k];
        // The turns above moved the next joint; only its position is needed before this turn.
        V3d next;
        if (k == 0) {
            next = chain[1].position();
        } else if (chain[k + 1].direct) {
            // The translation row of local(k + 1) * world(k), the sums of the full product.
            const Halves<double> t = translationRow(chain[k + 1].local.r[3], joint.world);
            next = V3d(t[0], t[1], t[2]);
        } else {
            descend(pose, skeleton, chain, k, parentSpace);
            next = chain[k + 1].position();
        }
        const V3d at = joint.position();
        const V3d from = next - at;
        const V3d to = bones ? goals[k + 1] - goals[k] : goals[k + 1] - at;
        turnJoint(pose, joint.id, joint.world, rotationBetween(from, to));
        setLocal(pose, joint, parentSpace);
        multiplyInto(joint.local, above(chain, k), joint.world);
        descend(pose, skeleton, chain, k, parentSpace);
    }
    const V3d end = chain.back().position();
    if (aimTarget) {
        const ChainJoint& start = chain.front();
        const V3d at = start.position();
        turnJoint(pose, start.id, start.world, rotationBetween(end - at, *aimTarget - at));
    }
    return end;
}

namespace {

void turnRigidJoint(Pose& pose, unsigned short id, const Quatd& world, const Quatd& r) {
    Quatd& q = pose.jointPose(id).rotation;
    q = turnedInWorld(q, world, r);
}

V3d turnRigid(Pose& pose, const ChainJoints& chain, const Positions& goals, bool bones,
              const V3d* aimTarget) {
    // done: the turns so far, which every joint below the last turned one has been carried by.
    Quatd done, first;
    V3d at = chain[0].position();
    for (size_t k = 0; k + 1 < chain.size(); ++k) {
        const V3d from = turned(done, chain[k + 1].position() - chain[k].position());
        const V3d to = bones ? goals[k + 1] - goals[k] : goals[k + 1] - at;
        const Quatd r = rotationBetween(from, to);
        turnRigidJoint(pose, chain[k].id, done * chain[k].rotation, r);
        done = r * done;
        if (k == 0) first = r;
        at += turned(r, from);
    }
    if (aimTarget) {
        const V3d start = chain[0].position();
        turnRigidJoint(pose, chain[0].id, first * chain[0].rotation,
                       rotationBetween(at - start, *aimTarget - start));
    }
    return at;
}

}  // namespace

V3d turnBones(Pose& pose, const Skeleton& skeleton, ChainJoints& chain, const Positions& goals,
              bool bones, bool parentSpace, const V3d* aimTarget) {
    if (chain[0].rigid) return turnRigid(pose, chain, goals, bones, aimTarget);
    return turnBonesEvaluated(pose, skeleton, chain, goals, bones, parentSpace, aimTarget);
}

}  // namespace detail
}  // namespace ZeltoCore
