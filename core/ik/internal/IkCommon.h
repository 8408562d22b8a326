// Operations every IK solver shares: joint matrices in both pose spaces, world matrices down a
// chain, world rotations composed onto joints, world matrices written back, the joint metadata
// keys the solvers read, their warnings and the input guard each solver runs first.
//
// Matrices are row-vector Imath matrices: world(j) = local(j) * world(parent(j)). `parentSpace`
// says how joint poses are read: true, local(j) = jointPose(j).matrix(); false (local space),
// local(j) = jointPose(j).matrix() * bind matrix of j. A chain whose upper joint has no parent
// uses the identity as that parent's world matrix.
//
// Guard texts (each emitted with one trailing space, like every solver warning):
//   "Invalid IK input: joint id beyond the skeleton"
//   "Invalid IK input: the pose does not have one joint pose per skeleton joint"
//   "Invalid IK input: target or pole vector is not finite"
//   "Invalid IK input: the joints do not form a chain"
//
//   if (!detail::checkIkInput(pose, skeleton, {root, mid, end}, target, pole)) return;
//   M44d parentWorld = detail::parentWorldMatrix(pose, skeleton, root);
#pragma once

#include <Imath/ImathMatrix.h>
#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

#include <cmath>
#include <cstddef>
#include <initializer_list>
#include <utility>
#include <vector>

#include "core/math/internal/AffineRows.h"
#include "core/pose/Pose.h"
#include "core/skeleton/Skeleton.h"
#include "utils/Logger.h"

namespace ZeltoCore {

namespace detail {

using M44d = Imath::Matrix44<double>;
using V3d = Imath::Vec3<double>;
using Quatd = Imath::Quat<double>;

// Guard texts, exported for the tests of every solver.
constexpr const char* kBadJointIdWarning = "Invalid IK input: joint id beyond the skeleton";
constexpr const char* kPoseSizeWarning =
    "Invalid IK input: the pose does not have one joint pose per skeleton joint";
constexpr const char* kNotFiniteWarning = "Invalid IK input: target or pole vector is not finite";
constexpr const char* kNotAChainWarning = "Invalid IK input: the joints do not form a chain";
constexpr const char* kNotFiniteResultWarning =
    "IK result is not finite (inputs too large); the pose is left unchanged";

// Joint metadata keys.
constexpr const char* kSkipIkKey = "skipIk";
constexpr const char* kSkipIkPrefixedKey = "zelto_skipIk";
constexpr const char* kJointLimitMinKey = "jointLimitRotationMin";
constexpr const char* kJointLimitMaxKey = "jointLimitRotationMax";

// One warning: every piece followed by one space ("a" 3 "b" -> "a 3 b ").
template <class... Pieces>
void ikWarning(const Pieces&... pieces) {
    auto proxy = ZeltoUtils::Logger::warning();
    ((proxy << pieces << ' '), ...);
}

// A list of joint ids held elsewhere: a std::vector or a SmallVector.
struct IdSpan {
    template <class Container>
    IdSpan(const Container& c) : ids(c.data()), size(c.size()) {}
    const unsigned short* begin() const { return ids; }
    const unsigned short* end() const { return ids + size; }
    const unsigned short& operator[](std::size_t i) const { return ids[i]; }
    const unsigned short* ids;
    std::size_t size;
};

// Refuses (one warning, false) ids at or beyond the skeleton's joint count, a pose whose joint
// count differs from the skeleton's, and a non-finite target or pole (pole may be null).
bool checkIkInput(const Pose& pose, const Skeleton& skeleton,
                  std::initializer_list<unsigned short> ids, const V3d& target, const V3d* pole);
bool checkIkInput(const Pose& pose, const Skeleton& skeleton, IdSpan ids, const V3d& target,
                  const V3d* pole);
// Refuses (one warning, false) a list in which a joint is not an ancestor of the next, or whose
// first joint does not reach a top joint within numJoints() steps (cyclic links). Ids must
// already be within the skeleton.
bool checkIkChain(const Skeleton& skeleton, std::initializer_list<unsigned short> chain);
bool checkIkChain(const Skeleton& skeleton, IdSpan chain);

// True when `ancestor` lies on the parent path of `id` (not id itself), within numJoints() steps.
bool isAncestor(const Skeleton& skeleton, unsigned short ancestor, unsigned short id);

inline bool isFinite(const V3d& v) {
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

// f(id) for each joint on the parent path from `lowerId` up to, not including, `upperId`: with
// upperId, the joints a finite-result guard checks. Ids beyond the skeleton end the walk, which
// also stops after numJoints() steps, so it is safe on links the solver goes on to refuse.
template <class F>
void forPathBelow(const Skeleton& skeleton, unsigned short upperId, unsigned short lowerId, F f) {
    const unsigned short n = skeleton.numJoints();
    unsigned short id = lowerId;
    for (unsigned steps = 0; id < n && id != upperId && steps < n; ++steps) {
        f(id);
        const Joint* parent = skeleton.joint(id).parent();
        if (!parent) break;
        id = parent->id();
    }
}

// The last line of defence of every solver: keeps the joint poses a solve may write (the parent
// path from each lower joint up to the upper joint, and any extra ids) and, when the solve has
// left one of them with a value that is not finite (inputs so large that the geometry overflows),
// puts them all back and warns kNotFiniteResultWarning. Ids beyond the pose are ignored, and the
// walks stop after numJoints() steps, so it is safe on input the solver goes on to refuse.
class FiniteResultGuard {
public:
    FiniteResultGuard(Pose& pose, const Skeleton& skeleton, unsigned short upperId,
                      std::initializer_list<unsigned short> lowerIds,
                      const std::vector<unsigned short>& extraIds = {});
    ~FiniteResultGuard();
    FiniteResultGuard(const FiniteResultGuard&) = delete;
    FiniteResultGuard& operator=(const FiniteResultGuard&) = delete;

private:
    // Short chains keep their joint poses inline; longer ones spill into m_more.
    static constexpr std::size_t kInline = 8;
    void keep(unsigned short id);
    bool isKept(unsigned short id) const;
    Pose& m_pose;
    std::size_t m_count = 0;
    unsigned short m_ids[kInline];
    // Storage rather than JointPose[kInline], so construction does not write eight defaults;
    // JointPose has a trivial destructor, so nothing needs to be destroyed.
    alignas(JointPose) unsigned char m_poses[kInline * sizeof(JointPose)];
    std::vector<std::pair<unsigned short, JointPose>> m_more;
};

// The bind matrix of a joint, and as rows for local-space local matrices.
inline Affine<double> bindAffine(const Skeleton& skeleton, unsigned short id) {
    const Joint& joint = skeleton.joint(id);
    return Affine<double>::of(joint.rotation(), joint.translation(), joint.scale());
}
inline Rows<double> bindRows(const Skeleton& skeleton, unsigned short id) {
    return bindAffine(skeleton, id).rows();
}

// p carried by an affine transform (row vector), without the projective divide.
inline V3d affinePoint(const V3d& p, const Affine<double>& m) {
    return V3d(p.x * m.a[0][0] + p.y * m.a[1][0] + p.z * m.a[2][0] + m.t[0],
               p.x * m.a[0][1] + p.y * m.a[1][1] + p.z * m.a[2][1] + m.t[1],
               p.x * m.a[0][2] + p.y * m.a[1][2] + p.z * m.a[2][2] + m.t[2]);
}
inline V3d affinePoint(const V3d& p, const M44d& m) {
    return affinePoint(p, Affine<double>::of(m));
}

using Aff = Affine<double>;

// The transform of joint `id` relative to its parent, `p` being its joint pose (the pose's own,
// or one being tried).
inline Aff localAffine(const JointPose& p, const Skeleton& skeleton, unsigned short id,
                       bool parentSpace) {
    const Aff m = Aff::of(p.rotation, p.translation, p.scale);
    return parentSpace ? m : m * bindAffine(skeleton, id);
}

// The local matrix of a local-space joint pose whose joint's bindRows() are known.
inline M44d localMatrix(const JointPose& p, const Rows<double>& bind) {
    M44d m;
    (Affine<double>::of(p.rotation, p.translation, p.scale) * bind).store(m);
    return m;
}

// The joint's transform relative to its parent joint.
inline M44d localMatrix(const Pose& pose, const Skeleton& skeleton, unsigned short id,
                        bool parentSpace) {
    const JointPose& p = pose.jointPose(id);
    return parentSpace ? p.matrix() : localMatrix(p, bindRows(skeleton, id));
}

// World matrix of the parent of `upperId` (one Poser::getWorldMatrix), the identity without one.
M44d parentWorldMatrix(const Pose& pose, const Skeleton& skeleton, unsigned short upperId);
Aff parentWorldAffine(const Pose& pose, const Skeleton& skeleton, unsigned short upperId);

// world(lower) from the known world transform of `upperId`, an ancestor of `lowerId`, with
// `lowerPose` standing for lowerId's joint pose.
Aff worldAffineBelow(const Pose& pose, const Skeleton& skeleton, unsigned short upperId,
                     const Aff& upperWorld, unsigned short lowerId, const JointPose& lowerPose,
                     bool parentSpace);
V3d worldPositionBelow(const Pose& pose, const Skeleton& skeleton, unsigned short upperId,
                       const Aff& upperWorld, unsigned short lowerId, bool parentSpace);

// world(lower) from the known world matrix of `upperId`, an ancestor of `lowerId`: the local
// matrices of the joints in between are multiplied up the parent path.
M44d worldMatrixBelow(const Pose& pose, const Skeleton& skeleton, unsigned short upperId,
                      const M44d& upperWorld, unsigned short lowerId, bool parentSpace);

// worldMatrixBelow(...).translation(), without building the lower joint's rotation.
V3d worldPositionBelow(const Pose& pose, const Skeleton& skeleton, unsigned short upperId,
                       const M44d& upperWorld, unsigned short lowerId, bool parentSpace);

// The same in the bind pose: upperWorld is the bind world matrix of upperId.
V3d bindPositionBelow(const Skeleton& skeleton, unsigned short upperId, const M44d& upperWorld,
                      unsigned short lowerId);

// Composes a world-space rotation onto joint `id`, whose world matrix before the change is
// `world`: the joint's new world matrix is its old one followed by the rotation. The axis is
// carried into the joint's frame; a zero axis (or zero vector part) leaves the joint unchanged.
void applyWorldRotation(Pose& pose, unsigned short id, const M44d& world, const V3d& axis,
                        double angle);
void applyWorldRotation(Pose& pose, unsigned short id, const M44d& world, const Quatd& rotation);
// The joint rotation applyWorldRotation gives: `jointRotation` with `rotation` composed on in
// world space, `world` being the joint's world transform. Values that are not finite reach the
// result (for the finite-result guard to see).
Quatd rotatedInWorld(const Quatd& jointRotation, const Aff& world, const Quatd& rotation);

// The shortest rotation taking direction `from` to `to`; the identity when either is zero (where
// Quat::setRotation would give the zero quaternion).
inline Quatd rotationBetween(const V3d& from, const V3d& to) {
    // The squares decide almost every case without a root; length() also sees vectors too short
    // to square.
    const auto nonZero = [](const V3d& v) { return (v ^ v) > 0.0 || v.length() > 0.0; };
    Quatd q;
    if (nonZero(from) && nonZero(to)) q.setRotation(from, to);
    return q;
}

// v without its component along `normal` (v itself for a zero normal).
inline V3d projectOntoPlane(const V3d& v, const V3d& normal) {
    const double nn = normal ^ normal;
    return nn > 0.0 ? v - normal * ((v ^ normal) / nn) : v;
}

// The offset of point p from the line through a and c (p - a for a == c).
V3d offsetFromLine(const V3d& p, const V3d& a, const V3d& c);

// Gives joint `id` the world matrix `world`, `parentWorld` being its parent's current world
// matrix. Goes through JointPose::setMatrix, so shear is dropped.
void writeWorldMatrix(Pose& pose, const Skeleton& skeleton, unsigned short id, const M44d& world,
                      const M44d& parentWorld, bool parentSpace);

// Scales the joint's offset from its parent joint by s, as seen in world space, keeping its
// rotation and scale: the translation part of writing back a world matrix whose offset from the
// parent's was scaled, without re-extracting the rest.
void scaleJointOffset(Pose& pose, const Skeleton& skeleton, unsigned short id, double s,
                      bool parentSpace);
// The translation scaleJointOffset gives joint `id` whose joint pose translation is `t`.
V3d scaledJointOffset(const V3d& t, const Skeleton& skeleton, unsigned short id, double s,
                      bool parentSpace);

// Whether the skeleton marks the joint to be left out of IK ("skipIk" or "zelto_skipIk", any
// value). Never inserts a metadata entry.
bool hasSkipIk(const Skeleton& skeleton, unsigned short id);

// Rotation limits of a joint in degrees, per axis. A key holding anything but a 3-vector of
// doubles keeps the default.
struct JointLimits {
    V3d min{-180.0, -180.0, -180.0};
    V3d max{180.0, 180.0, 180.0};
};
JointLimits jointLimits(const Skeleton& skeleton, unsigned short id);

}  // namespace detail
}  // namespace ZeltoCore
