// FabrikCommon: what the FABRIK solvers share beyond the IK conventions (internal, not exported).
//
// FABRIK (Aristidou and Lasenby, 2011) alternates a backward pass that drags the chain from the
// goal and a forward pass that drags it back from its fixed base, each keeping bone lengths.
// The position passes below work on plain position arrays; a bone whose ends lie closer than
// `minStep` (and never at distance 0) is left as it is, so coincident joints never divide by zero.
// The pose passes turn solved positions into joint rotations through the IK conventions.
#pragma once

#include <Imath/ImathMatrix.h>
#include <Imath/ImathVec.h>

#include <vector>

#include "core/ik/internal/IkCommon.h"
#include "core/ik/internal/SmallVector.h"

namespace ZeltoCore {

class Pose;
class Skeleton;

namespace detail {

// Chains up to this long are solved without allocating.
constexpr std::size_t kInlineJoints = 8;
template <class V>
using Points = SmallVector<V, kInlineJoints>;
using Positions = Points<Imath::Vec3<double>>;
using Lengths = SmallVector<double, kInlineJoints>;
using JointIds = std::vector<unsigned short>;
using ChainIds = SmallVector<unsigned short, 2 * kInlineJoints>;

constexpr const char* kFabrikPoleWarning = "Missing or 0 length pole vector!";

// Iterates FABRIK on `p` (bone k from p[k] to p[k+1] of length lengths[k]) with p[0] as the fixed
// base, until p.back() is within `tolerance` of `goal` or `iterations` reaches `maxIterations`.
// Runs at least once. `iterations` is the caller's counter and is not reset, so a cap spent by one
// call leaves one iteration to each later call. Also stops once an iteration no longer moves the
// end (by 1e-12 of the chain length), so a huge cap cannot spin on a goal it cannot improve;
// returns false in that case.
bool fabrikIterate(Positions& p, const Lengths& lengths, const Imath::Vec3<double>& goal,
                   double tolerance, unsigned int maxIterations, unsigned int& iterations,
                   double minStep);
// The same in a plane.
bool fabrikIterate(Points<Imath::V2d>& p, const Lengths& lengths, const Imath::V2d& goal,
                   double tolerance, unsigned int maxIterations, unsigned int& iterations,
                   double minStep);

// Lays the chain out from p[0] straight towards `goal`, every bone at its length (the pass for a
// goal out of reach). Bones whose start is within `minStep` of the goal stay where they are.
void fabrikLayTowards(Positions& p, const Lengths& lengths, const Imath::Vec3<double>& goal,
                      double minStep);

// Fills `chain` with the list (start, mids..., end).
void namedChain(unsigned short start, const JointIds& mids, unsigned short end, ChainIds& chain);

// Refuses (the chain warning, false) a list in which a joint is not the direct child of the one
// before, and a chain whose top sits on cyclic links. Ids must already be within the skeleton.
bool checkDirectChain(const Skeleton& skeleton, IdSpan chain);

// Refuses (the not-finite warning, false) a target whose distance from `from` overflows.
bool checkReachable(const Imath::Vec3<double>& from, const Imath::Vec3<double>& target);

// A world matrix as rows of two 16-byte halves: each product stores and reloads it in the same
// pieces, so the next product down the chain reads it straight from the stores.
using WorldRows = Rows<double, Halves<double>>;

// One listed joint of a chain. Evaluated with matrices: its local matrix (in local space built on
// its bind transform, which is read once per solve) and its world matrix, local * the world matrix
// above. `direct` when the joint before it in the chain is its parent, whose world matrix is then
// the one above; `above` is kept only for the other joints. `translationOnly`: only the
// translation rows of local and world are kept (the end joint, which nothing turns, when its
// position is all a solver reads).
// Evaluated `rigid` (every transform a unit rotation with one positive scale): only the world
// translation row and `rotation`, the world rotation, are set.
struct ChainJoint {
    ChainJoint() {}  // filled by evaluateChain; no zeroing first
    unsigned short id;
    bool direct, translationOnly, rigid;
    WorldRows bind, local, above, world;
    Quatd rotation;
    V3d position() const { return V3d(world.r[3][0], world.r[3][1], world.r[3][2]); }
};
using ChainJoints = SmallVector<ChainJoint, kInlineJoints>;

// The Imath matrix of a world matrix.
M44d toMatrix(const WorldRows& m);

// applyWorldRotation for a world matrix held as rows.
void turnJoint(Pose& pose, unsigned short id, const WorldRows& world, const Quatd& rotation);

// Evaluates the listed joints from the world matrix of the first one's parent down; joints
// between two listed ones are carried along. The chain must have passed checkIkChain.
// `endPosition`: of the last joint (of two or more) only the translation rows are kept.
// `rigid`: a chain whose transforms, from the top of the skeleton down to its end, are all unit
// rotations with one positive scale is evaluated rigid (see ChainJoint).
void evaluateChain(const Pose& pose, const Skeleton& skeleton, IdSpan ids, bool parentSpace,
                   ChainJoints& chain, bool endPosition = false, bool rigid = true);

// Turns every joint of `chain` but the last, from the top down, so that its bone points where
// `goals` say: at goals[k+1] from the joint's current position, or with `bones` along
// goals[k+1] - goals[k]. Then, given `aimTarget`, turns the first joint about its position so
// that the end lies on the way to it. Returns the end's position before that aim. The chain's
// matrices are no longer current afterwards.
//
// In a chain evaluated rigid, a turn moves all below the joint rigidly, so the positions and world
// rotations are carried along by the turns instead of evaluated again.
V3d turnBones(Pose& pose, const Skeleton& skeleton, ChainJoints& chain, const Positions& goals,
              bool bones, bool parentSpace, const V3d* aimTarget = nullptr);
// The same for a chain evaluated with matrices, evaluating them again after every turn (they are
// current up to the aim).
V3d turnBonesEvaluated(Pose& pose, const Skeleton& skeleton, ChainJoints& chain,
                       const Positions& goals, bool bones, bool parentSpace,
                       const V3d* aimTarget = nullptr);

}  // namespace detail
}  // namespace ZeltoCore
