#include "core/ik/TwoJointsIK.h"

#include <algorithm>
#include <cmath>

#include "core/ik/internal/IkCommon.h"
#include "core/ik/internal/Similarity.h"
#include "core/ik/internal/SmallVector.h"
#include "core/math/Transform.h"
#include "core/pose/Pose.h"
#include "core/pose/Poser.h"
#include "core/skeleton/Skeleton.h"

namespace ZeltoCore {

using namespace detail;

namespace {

constexpr double kStretchOff = 0.0001;
constexpr double kReachedRatio = 1e-12;

struct ChainIds {
    unsigned short root, mid, end;
};

// World transforms of root and mid and the end's position, below the root's parent's. `midPose`
// stands for the mid joint's pose, which a parent-space solve bends from its bind rotation. Rigid
// chains (see Similarity) are held as similarities, others as affine transforms.
struct Chain {
    Chain(const Pose& p, const Skeleton& s, ChainIds i, bool space, const JointPose& m)
        : pose(p), skeleton(s), ids(i), parentSpace(space), midPose(m) {}
    const Pose& pose;
    const Skeleton& skeleton;
    ChainIds ids;
    bool parentSpace;
    JointPose midPose;
    bool rigid = false;
    Aff root, mid;  // set by the measures before any read
    Similarity rootS, midS;
    V3d end;

    void measureRoot() {
        Similarity parent;
        rigid = parentWorldSimilarity(pose, skeleton, ids.root, parent) &&
                localSimilarity(pose.jointPose(ids.root), skeleton, ids.root, parentSpace, rootS);
        if (rigid)
            rootS = rootS.then(parent);
        else
            measureRootAffine();
    }
    void measureRootAffine() {
        root = localAffine(pose.jointPose(ids.root), skeleton, ids.root, parentSpace) *
               parentWorldAffine(pose, skeleton, ids.root);
    }
    void measureBelowRoot() {
        if (rigid) {
            Similarity endS;
            if (worldSimilarityBelow(pose, skeleton, ids.root, rootS, ids.mid, midPose, parentSpace,
                                     midS) &&
                worldSimilarityBelow(pose, skeleton, ids.mid, midS, ids.end,
                                     pose.jointPose(ids.end), parentSpace, endS, true)) {
                end = endS.translation;
                return;
            }
            rigid = false;
            measureRootAffine();
        }
        mid = worldAffineBelow(pose, skeleton, ids.root, root, ids.mid, midPose, parentSpace);
        end = worldPositionBelow(pose, skeleton, ids.mid, mid, ids.end, parentSpace);
    }
    V3d rootPosition() const { return rigid ? rootS.translation : root.translation(); }
    V3d midPosition() const { return rigid ? midS.translation : mid.translation(); }
    // The joint rotation q of root or mid with world rotation r composed on.
    Quatd turnRoot(const Quatd& q, const Quatd& r) const {
        return rigid ? turnedInWorld(q, rootS.rotation, r) : rotatedInWorld(q, root, r);
    }
    Quatd turnMid(const Quatd& q, const Quatd& r) const {
        return rigid ? turnedInWorld(q, midS.rotation, r) : rotatedInWorld(q, mid, r);
    }
};

// Cosine and sine of half the angle acos(x), x clamped to [-1, 1]: both halves of the bend come
// from these without taking the angles themselves. Given x, 1 - x and 1 + x lose nothing where
// they matter, so the roots are as accurate as the angle would be.
struct HalfAngle {
    double c, s;
};
HalfAngle halfAngleOfCosine(double x) {
    x = std::clamp(x, -1.0, 1.0);
    return {std::sqrt(0.5 * (1.0 + x)), std::sqrt(0.5 * (1.0 - x))};
}

// Bend axis of a chain without a bend plane (parallel bones, or a zero-length one): perpendicular
// to the chain and turned so that bending moves the mid joint towards `pole`.
V3d straightBendAxis(const V3d& ab, const V3d& bc, const V3d& pole) {
    const V3d u = (ab ^ ab) > 0.0 ? ab : bc;
    if ((u ^ u) == 0.0) return V3d(0.0);
    V3d n = pole % u;
    if (n.length() <= 1e-9 * u.length()) {
        // No usable pole: the coordinate axis least aligned with the chain.
        const V3d m(std::abs(u.x), std::abs(u.y), std::abs(u.z));
        const V3d e = m.x <= m.y && m.x <= m.z ? V3d(1, 0, 0)
                      : m.y <= m.z             ? V3d(0, 1, 0)
                                               : V3d(0, 0, 1);
        n = u % e;
    }
    return n.normalized();
}

// Pole of the forms without one: the bind pose's bend (the mid joint's offset from the bind line
// from root to end), turned as the skeleton's top joint has moved.
V3d bindPole(const Chain& chain) {
    const Skeleton& skeleton = chain.skeleton;
    const Poser poser(&skeleton);
    const M44d root = poser.getWorldBindMatrix(chain.ids.root);
    const V3d b0 = bindPositionBelow(skeleton, chain.ids.root, root, chain.ids.mid);
    const V3d c0 = bindPositionBelow(skeleton, chain.ids.root, root, chain.ids.end);
    const V3d p0 = root.translation();
    // How the top joint has moved; without a parent, its world transform is its local one.
    const unsigned short top = skeleton.root()->id();
    V3d r0, r;
    if (top < skeleton.numJoints() && !skeleton.joint(top).parent()) {
        r0 = skeleton.joint(top).translation();
        const V3d& t = chain.pose.jointPose(top).translation;
        r = chain.pose.inParentSpace() ? t : affinePoint(t, bindAffine(skeleton, top));
    } else {
        r0 = poser.getWorldBindMatrix(top).translation();
        r = poser.getWorldMatrix(chain.pose, top).translation();
    }
    return rotationBetween(r0, r).rotateVector(offsetFromLine(b0, p0, c0).normalized());
}

// Twist about the root-to-target line that turns the side the mid joint lies on (the aimed
// first bone across the line, or the aimed bend when that bone lies on it) onto `towards`.
Quatd twistTowards(const Quatd& aim, const V3d& towards, const V3d& bend, const V3d& ab,
                   const V3d& at) {
    if (isParallel(towards, at) || (at ^ at) == 0.0) return Quatd();
    const V3d aimedAb = turned(aim, ab);
    const V3d f = isParallel(aimedAb, at) ? turned(aim, bend) : aimedAb;
    const V3d fp = projectOntoPlane(f, at);
    const V3d gp = projectOntoPlane(towards, at);
    // Compared squared: one root and one division for the whole test.
    const double ff = fp ^ fp, gg = gp ^ gp;
    if (ff <= 1e-10 * (f ^ f) || gg <= 1e-10 * (towards ^ towards)) return Quatd();
    if (std::abs((fp ^ gp) / std::sqrt(ff * gg) + 1.0) < 1e-5) {
        // Opposite sides: half a turn about the line itself (setRotation would pick any axis).
        Quatd half;
        half.setAxisAngle(at, M_PI);
        return half;
    }
    return rotationBetween(fp, gp);
}

// The new rotations and the stretch of a solve, written back only when all are finite.
struct Result {
    Quatd root, mid;
    double s = 1.0;
};

// Writes `r` back, or nothing (with the not-finite warning) when a value overflowed: inputs so
// large that the geometry does.
void commit(Pose& pose, const Skeleton& skeleton, ChainIds ids, const Result& r, bool parentSpace) {
    const auto finite = [](const Quatd& q) { return std::isfinite(q.r) && isFinite(q.v); };
    bool ok = finite(r.root) && finite(r.mid) && std::isfinite(r.s);
    // The stretched translations from the end up to the root's child.
    SmallVector<std::pair<unsigned short, V3d>, 4> offsets;
    if (r.s != 1.0) {
        for (int j = ids.end; ok && j != ids.root;
             j = skeleton.joint(static_cast<unsigned short>(j)).parent()->id()) {
            const unsigned short id = static_cast<unsigned short>(j);
            offsets.push_back({id, scaledJointOffset(pose.jointPose(id).translation, skeleton, id,
                                                     r.s, parentSpace)});
            ok = isFinite(offsets.back().second);
        }
    }
    if (!ok) {
        ikWarning(kNotFiniteResultWarning);
        return;
    }
    for (const auto& offset : offsets)
        pose.jointPose(offset.first).translation = offset.second;
    pose.jointPose(ids.root).rotation = r.root;
    pose.jointPose(ids.mid).rotation = r.mid;
}

void solve(Pose& pose, const Skeleton& skeleton, const V3d& target, ChainIds ids, double stretch,
           bool soft, double softDistance, const V3d* poleVector, bool bindPoleForm,
           bool parentSpace) {
    if (!checkIkInput(pose, skeleton, {ids.root, ids.mid, ids.end}, target, poleVector) ||
        !checkIkChain(skeleton, {ids.root, ids.mid, ids.end})) {
        return;
    }
    const Quatd& rootRotation = pose.jointPose(ids.root).rotation;
    Chain chain{pose, skeleton, ids, parentSpace, pose.jointPose(ids.mid)};
    chain.measureRoot();
    if (parentSpace) {
        // Bend from the bind bend, unless the bind chain is straight.
        chain.midPose.rotation = skeleton.joint(ids.mid).rotation();
        chain.measureBelowRoot();
        const V3d a = chain.rootPosition();
        if (((chain.midPosition() - a).normalized() ^ (chain.end - a).normalized()) > 0.9999) {
            chain.midPose.rotation = pose.jointPose(ids.mid).rotation;
            chain.measureBelowRoot();
        }
    } else {
        chain.measureBelowRoot();
    }
    const V3d a = chain.rootPosition();
    const V3d b = chain.midPosition();
    const V3d c = chain.end;
    const V3d ab = b - a, bc = c - b, ac = c - a;
    const V3d bend = projectOntoPlane(ab, ac);
    V3d pole = bindPoleForm ? bindPole(chain) : poleVector ? *poleVector : bend;
    pole.normalize();

    // Divisions and roots share one unit and most of them wait on each other: each one saved
    // shortens the solve.
    V3d at = target - a;
    const double l1 = ab.length(), l2 = bc.length();
    const double d = at.length();
    double lt = d;
    bool softApplied = false;
    if (soft && softDistance > 0.0 && std::isfinite(softDistance)) {
        const double da = std::max(l1 + l2 - softDistance, 0.0);
        if (d > da) {
            // Pulled in along the line to the target: its new length is known.
            lt = da + softDistance * (1.0 - std::exp(-(d - da) / softDistance));
            at *= lt / d;
            softApplied = true;
        }
    }

    // Bend the mid joint to the root-to-target distance.
    const double l12 = l1 * l2;
    const HalfAngle current = halfAngleOfCosine(l12 > 0.0 ? (ab ^ bc) / l12 : 0.0);
    V3d n = ab % bc;
    const double nl = n.length();
    n = nl > 1e-9 * l12 ? n * (1.0 / nl) : straightBendAxis(ab, bc, pole);
    const HalfAngle wanted =
        l12 > 0.0 ? halfAngleOfCosine((lt * lt - l1 * l1 - l2 * l2) / (2.0 * l12)) : current;
    // Half of wanted - current by the difference formulas; n is a unit vector or zero (no bend).
    const double cosHalf = wanted.c * current.c + wanted.s * current.s;
    const double sinHalf = wanted.s * current.c - wanted.c * current.s;
    const Quatd bendRotation = (n ^ n) > 0.0 ? Quatd(cosHalf, n * sinHalf) : Quatd();
    Result result;
    result.mid = chain.turnMid(chain.midPose.rotation, bendRotation);

    // Aim the root at the target, then twist it about the root-to-target line: the given pole,
    // or the bind pole as the aim carries it. (Twisting first would move the end off the line.)
    const V3d aimed = ab + turned(bendRotation, bc);
    const Quatd aim = rotationBetween(aimed, at);
    const V3d towards = bindPoleForm ? turned(aim, pole) : pole;
    result.root = chain.turnRoot(rootRotation, twistTowards(aim, towards, bend, ab, at) * aim);

    // Stretch every segment from the root's child to the end by s. The rotations carried the end
    // to the aimed root-to-end vector, so its length is known without evaluating the pose again;
    // and s = 1 would write back what the joints already hold. A reached target gives a ratio
    // within rounding of 1, which stretches nothing.
    const double ratio = softApplied ? d / lt : lt / aimed.length();
    result.s = stretch > kStretchOff && std::isfinite(stretch) && std::isfinite(ratio) &&
                       ratio > 1.0 + kReachedRatio
                   ? 1.0 + (ratio - 1.0) * stretch
                   : 1.0;
    commit(pose, skeleton, ids, result, parentSpace);
}

}  // namespace

void solveTwoJointsIK(Pose& pose, const Skeleton& skeleton, const Imath::Vec3<double>& target,
                      unsigned short rootId, unsigned short midId, unsigned short endId,
                      double stretch, bool soft, double softDistance,
                      Imath::Vec3<double>* poleVector) {
    solve(pose, skeleton, target, {rootId, midId, endId}, stretch, soft, softDistance, poleVector,
          false, pose.inParentSpace());
}

void solveTwoJointsIKInParentSpace(Pose& pose, const Skeleton& skeleton,
                                   const Imath::Vec3<double>& target, unsigned short rootId,
                                   unsigned short midId, unsigned short endId, double stretch,
                                   bool soft, double softDistance,
                                   Imath::Vec3<double>* poleVector) {
    solve(pose, skeleton, target, {rootId, midId, endId}, stretch, soft, softDistance, poleVector,
          false, true);
}

void solveTwoJointsIKNoPoleVector(Pose& pose, const Skeleton& skeleton,
                                  const Imath::Vec3<double>& target, unsigned short rootId,
                                  unsigned short midId, unsigned short endId, double stretch,
                                  bool soft, double softDistance) {
    solve(pose, skeleton, target, {rootId, midId, endId}, stretch, soft, softDistance, nullptr,
          true, pose.inParentSpace());
}

void solveTwoJointsIKNoPoleVectorInParentSpace(Pose& pose, const Skeleton& skeleton,
                                               const Imath::Vec3<double>& target,
                                               unsigned short rootId, unsigned short midId,
                                               unsigned short endId, double stretch, bool soft,
                                               double softDistance) {
    solve(pose, skeleton, target, {rootId, midId, endId}, stretch, soft, softDistance, nullptr,
          true, true);
}

}  // namespace ZeltoCore
