#include "core/ik/internal/IkCommon.h"

#include <cmath>
#include <limits>
#include <new>
#include <type_traits>

#include "core/ik/internal/Similarity.h"
#include "core/metadata/MetadataImpl.h"
#include "core/pose/Pose.h"
#include "core/pose/Poser.h"
#include "core/skeleton/Skeleton.h"
#include "core/skeleton/internal/Ancestors.h"

namespace ZeltoCore {
namespace detail {

namespace {

bool checkInput(const Pose& pose, const Skeleton& skeleton, const unsigned short* ids,
                std::size_t count, const V3d& target, const V3d* pole) {
    const unsigned short n = skeleton.numJoints();
    for (std::size_t i = 0; i < count; ++i) {
        if (ids[i] >= n) {
            ikWarning(kBadJointIdWarning);
            return false;
        }
    }
    if (pose.numJoints() != n) {
        ikWarning(kPoseSizeWarning);
        return false;
    }
    if (!isFinite(target) || (pole && !isFinite(*pole))) {
        ikWarning(kNotFiniteWarning);
        return false;
    }
    return true;
}

// Parent of a joint as an id, or -1; a link that leaves the skeleton counts as none.
int parentId(const Skeleton& skeleton, unsigned short id) {
    const Joint* parent = skeleton.joint(id).parent();
    return parent && parent->id() < skeleton.numJoints() ? parent->id() : -1;
}

bool checkChain(const Skeleton& skeleton, const unsigned short* chain, std::size_t count) {
    bool ok = count > 0;
    for (std::size_t i = 1; ok && i < count; ++i)
        ok = isAncestor(skeleton, chain[i - 1], chain[i]);
    if (ok) {
        // The top of the chain must reach a joint without parent, or the poser never returns.
        int k = chain[0];
        unsigned int steps = 0;
        while (k >= 0 && steps++ <= skeleton.numJoints())
            k = parentId(skeleton, static_cast<unsigned short>(k));
        ok = k < 0;
    }
    if (!ok) ikWarning(kNotAChainWarning);
    return ok;
}

}  // namespace

bool checkIkInput(const Pose& pose, const Skeleton& skeleton,
                  std::initializer_list<unsigned short> ids, const V3d& target, const V3d* pole) {
    return checkInput(pose, skeleton, ids.begin(), ids.size(), target, pole);
}

bool checkIkInput(const Pose& pose, const Skeleton& skeleton, IdSpan ids, const V3d& target,
                  const V3d* pole) {
    return checkInput(pose, skeleton, ids.ids, ids.size, target, pole);
}

bool checkIkChain(const Skeleton& skeleton, std::initializer_list<unsigned short> chain) {
    return checkChain(skeleton, chain.begin(), chain.size());
}

bool checkIkChain(const Skeleton& skeleton, IdSpan chain) {
    return checkChain(skeleton, chain.ids, chain.size);
}

bool isAncestor(const Skeleton& skeleton, unsigned short ancestor, unsigned short id) {
    int k = parentId(skeleton, id);
    for (unsigned int steps = 0; k >= 0 && steps < skeleton.numJoints(); ++steps) {
        if (k == ancestor) return true;
        k = parentId(skeleton, static_cast<unsigned short>(k));
    }
    return false;
}

namespace {

// x - x is 0 for a finite x and NaN otherwise, so one sum of them tests all ten without branches.
bool isFinitePose(const JointPose& p) {
    const double sum = (p.rotation.r - p.rotation.r) + (p.rotation.v.x - p.rotation.v.x) +
                       (p.rotation.v.y - p.rotation.v.y) + (p.rotation.v.z - p.rotation.v.z) +
                       (p.translation.x - p.translation.x) + (p.translation.y - p.translation.y) +
                       (p.translation.z - p.translation.z) + (p.scale.x - p.scale.x) +
                       (p.scale.y - p.scale.y) + (p.scale.z - p.scale.z);
    return sum == 0.0;
}

}  // namespace

FiniteResultGuard::FiniteResultGuard(Pose& pose, const Skeleton& skeleton, unsigned short upperId,
                                     std::initializer_list<unsigned short> lowerIds,
                                     const std::vector<unsigned short>& extraIds)
    : m_pose(pose) {
    const auto keepOne = [this](unsigned short id) { keep(id); };
    keep(upperId);
    for (unsigned short id : lowerIds)
        forPathBelow(skeleton, upperId, id, keepOne);
    for (unsigned short id : extraIds)
        keep(id);
}

bool FiniteResultGuard::isKept(unsigned short id) const {
    for (std::size_t i = 0; i < m_count; ++i)
        if (m_ids[i] == id) return true;
    for (const auto& kept : m_more)
        if (kept.first == id) return true;
    return false;
}

void FiniteResultGuard::keep(unsigned short id) {
    static_assert(std::is_trivially_destructible<JointPose>::value, "kept poses are not destroyed");
    if (id >= m_pose.numJoints() || isKept(id)) return;
    if (m_count < kInline) {
        m_ids[m_count] = id;
        new (m_poses + m_count++ * sizeof(JointPose)) JointPose(m_pose.jointPose(id));
    } else {
        m_more.emplace_back(id, m_pose.jointPose(id));
    }
}

FiniteResultGuard::~FiniteResultGuard() {
    const unsigned short n = m_pose.numJoints();
    auto finiteAt = [&](unsigned short id) {
        return id >= n || isFinitePose(m_pose.jointPose(id));
    };
    bool finite = true;
    for (std::size_t i = 0; finite && i < m_count; ++i)
        finite = finiteAt(m_ids[i]);
    for (const auto& kept : m_more)
        finite = finite && finiteAt(kept.first);
    if (finite) return;
    for (std::size_t i = 0; i < m_count; ++i)
        if (m_ids[i] < n)
            m_pose.jointPose(m_ids[i]) =
                *std::launder(reinterpret_cast<const JointPose*>(m_poses + i * sizeof(JointPose)));
    for (const auto& kept : m_more)
        if (kept.first < n) m_pose.jointPose(kept.first) = kept.second;
    ikWarning(kNotFiniteResultWarning);
}

M44d parentWorldMatrix(const Pose& pose, const Skeleton& skeleton, unsigned short upperId) {
    M44d m;
    parentWorldAffine(pose, skeleton, upperId).store(m);
    return m;
}

Aff parentWorldAffine(const Pose& pose, const Skeleton& skeleton, unsigned short upperId) {
    const Joint* parent = skeleton.joint(upperId).parent();
    if (!parent) return Aff::of(M44d());
    // A top joint (the usual hip) is its own world transform: the poser's walk would build four
    // local matrices to use one.
    if (parent == parentInSkeleton(skeleton, skeleton.joint(upperId)) &&
        !parentInSkeleton(skeleton, *parent) && pose.numJoints() == skeleton.numJoints()) {
        return localAffine(pose.jointPose(parent->id()), skeleton, parent->id(),
                           pose.inParentSpace());
    }
    return Aff::of(Poser(&skeleton).getWorldMatrix(pose, parent->id()));
}

namespace {

// The product of the local transforms strictly between `upperId` and `lowerId`, times upperWorld:
// the world transform of lowerId's parent. Bounded so that cyclic links cannot keep the walk going.
template <class Local>
Aff parentWorldBelow(const Skeleton& skeleton, unsigned short upperId, const Aff& upperWorld,
                     unsigned short lowerId, Local local) {
    int k = parentId(skeleton, lowerId);
    if (k == upperId || k < 0) return upperWorld;
    Aff between = local(static_cast<unsigned short>(k));
    k = parentId(skeleton, static_cast<unsigned short>(k));
    for (unsigned int steps = 1; k >= 0 && k != upperId && steps < skeleton.numJoints(); ++steps) {
        between = between * local(static_cast<unsigned short>(k));
        k = parentId(skeleton, static_cast<unsigned short>(k));
    }
    return between * upperWorld;
}

Aff parentWorldBelow(const Pose& pose, const Skeleton& skeleton, unsigned short upperId,
                     const Aff& upperWorld, unsigned short lowerId, bool parentSpace) {
    return parentWorldBelow(skeleton, upperId, upperWorld, lowerId, [&](unsigned short k) {
        return localAffine(pose.jointPose(k), skeleton, k, parentSpace);
    });
}

}  // namespace

Aff worldAffineBelow(const Pose& pose, const Skeleton& skeleton, unsigned short upperId,
                     const Aff& upperWorld, unsigned short lowerId, const JointPose& lowerPose,
                     bool parentSpace) {
    return localAffine(lowerPose, skeleton, lowerId, parentSpace) *
           parentWorldBelow(pose, skeleton, upperId, upperWorld, lowerId, parentSpace);
}

M44d worldMatrixBelow(const Pose& pose, const Skeleton& skeleton, unsigned short upperId,
                      const M44d& upperWorld, unsigned short lowerId, bool parentSpace) {
    M44d m;
    worldAffineBelow(pose, skeleton, upperId, Aff::of(upperWorld), lowerId, pose.jointPose(lowerId),
                     parentSpace)
        .store(m);
    return m;
}

V3d worldPositionBelow(const Pose& pose, const Skeleton& skeleton, unsigned short upperId,
                       const Aff& upperWorld, unsigned short lowerId, bool parentSpace) {
    // The translation row of the local matrix: the pose's, carried through the bind transform
    // in local space.
    const V3d& t = pose.jointPose(lowerId).translation;
    const V3d local = parentSpace ? t : affinePoint(t, bindAffine(skeleton, lowerId));
    return affinePoint(local,
                       parentWorldBelow(pose, skeleton, upperId, upperWorld, lowerId, parentSpace));
}

V3d worldPositionBelow(const Pose& pose, const Skeleton& skeleton, unsigned short upperId,
                       const M44d& upperWorld, unsigned short lowerId, bool parentSpace) {
    return worldPositionBelow(pose, skeleton, upperId, Aff::of(upperWorld), lowerId, parentSpace);
}

V3d bindPositionBelow(const Skeleton& skeleton, unsigned short upperId, const M44d& upperWorld,
                      unsigned short lowerId) {
    const Aff parent = parentWorldBelow(skeleton, upperId, Aff::of(upperWorld), lowerId,
                                        [&](unsigned short k) { return bindAffine(skeleton, k); });
    return affinePoint(skeleton.joint(lowerId).translation(), parent);
}

void applyWorldRotation(Pose& pose, unsigned short id, const M44d& world, const V3d& axis,
                        double angle) {
    if (axis.length() == 0.0) return;
    Quatd q;
    q.setAxisAngle(axis, angle);
    applyWorldRotation(pose, id, world, q);
}

void applyWorldRotation(Pose& pose, unsigned short id, const M44d& world, const Quatd& rotation) {
    Quatd& r = pose.jointPose(id).rotation;
    r = rotatedInWorld(r, Aff::of(world), rotation);
}

Quatd rotatedInWorld(const Quatd& jointRotation, const Aff& world, const Quatd& rotation) {
    // The same angle about the axis carried into the joint's frame: (cos, sin * axis) keeps its
    // cosine and sine, so no angle needs to be taken out and put back. The axis is v times the
    // adjugate of the world rotation rows (the inverse up to 1 / det, whose size the
    // normalisation drops and whose sign is kept); normalisation, sine and quaternion length are
    // one factor.
    const V3d& v = rotation.v;
    if (v == V3d(0.0)) return jointRotation;
    const V3d r0(world.a[0][0], world.a[0][1], world.a[0][2]),
        r1(world.a[1][0], world.a[1][1], world.a[1][2]),
        r2(world.a[2][0], world.a[2][1], world.a[2][2]);
    const V3d c0 = r1 % r2, c1 = r2 % r0, c2 = r0 % r1;
    const double det = r0 ^ c0;
    const V3d axis = det == 0.0 ? v : V3d(v ^ c0, v ^ c1, v ^ c2);
    const double v2 = v ^ v, a2 = axis ^ axis;
    const double length = std::sqrt(rotation.r * rotation.r + v2);
    const double scale = std::sqrt(v2) / length / a2 * std::sqrt(a2);
    const double image2 = det == 0.0 ? a2 : a2 / (det * det);
    const auto normal = [](double x) {
        return x >= std::numeric_limits<double>::min() && x <= std::numeric_limits<double>::max();
    };
    if (normal(v2) && normal(a2) && normal(image2) && normal(scale))
        return jointRotation * Quatd(rotation.r / length, axis * (det < 0.0 ? -scale : scale));
    // Off the normal range (axis, sine or the inverse's image too small or too large to
    // square): the plain form, with lengths that do not overflow.
    const double sinHalf = v.length();
    if (sinHalf == 0.0) return jointRotation;
    V3d carried = multDirInverse(world, v);
    carried.normalize();
    if ((carried ^ carried) == 0.0) return jointRotation;
    const double plainLength = rotation.length();
    return jointRotation * Quatd(rotation.r / plainLength, carried * (sinHalf / plainLength));
}

V3d offsetFromLine(const V3d& p, const V3d& a, const V3d& c) {
    return projectOntoPlane(p - a, c - a);
}

void writeWorldMatrix(Pose& pose, const Skeleton& skeleton, unsigned short id, const M44d& world,
                      const M44d& parentWorld, bool parentSpace) {
    const M44d relative = world * parentWorld.inverse();
    pose.jointPose(id).setMatrix(parentSpace ? relative
                                             : relative * skeleton.joint(id).matrix().inverse());
}

void scaleJointOffset(Pose& pose, const Skeleton& skeleton, unsigned short id, double s,
                      bool parentSpace) {
    V3d& t = pose.jointPose(id).translation;
    t = scaledJointOffset(t, skeleton, id, s, parentSpace);
}

V3d scaledJointOffset(const V3d& t, const Skeleton& skeleton, unsigned short id, double s,
                      bool parentSpace) {
    if (parentSpace) return t * s;
    // The offset is t * B + tB (B the bind matrix); keeping B, the pose translation takes up
    // the change of tB too: tB carried back through B's linear part. A bind rotation with one
    // scale is undone by its conjugate and that scale.
    Similarity similarity;
    if (bindSimilarity(skeleton, id, similarity)) {
        return t * s + turned(~similarity.rotation, similarity.translation) *
                           ((s - 1.0) / similarity.scale);
    }
    const Aff bind = bindAffine(skeleton, id);
    return t * s + multDirInverse(bind, bind.translation()) * (s - 1.0);
}

bool hasSkipIk(const Skeleton& skeleton, unsigned short id) {
    if (!skeleton.jointHasMetadata(id)) return false;
    const MapMetadata& map = skeleton.jointMetadata(id);
    return map.hasKey(kSkipIkKey) || map.hasKey(kSkipIkPrefixedKey);
}

JointLimits jointLimits(const Skeleton& skeleton, unsigned short id) {
    JointLimits limits;
    if (!skeleton.jointHasMetadata(id)) return limits;
    const MapMetadata& map = skeleton.jointMetadata(id);
    auto read = [&map](const char* key, V3d& out) {
        const std::shared_ptr<const Metadata> value = map.getEntry(key);
        if (value && value->typeId() == MetadataImpl<V3d>::staticTypeId())
            out = static_cast<const MetadataImpl<V3d>&>(*value).get();
    };
    read(kJointLimitMinKey, limits.min);
    read(kJointLimitMaxKey, limits.max);
    return limits;
}

}  // namespace detail
}  // namespace ZeltoCore
