#include "core/ik/internal/Similarity.h"

#include "core/ik/internal/SmallVector.h"
#include "core/pose/Pose.h"
#include "core/skeleton/Skeleton.h"
#include "core/skeleton/internal/Ancestors.h"

namespace ZeltoCore {
namespace detail {

namespace {

using Path = SmallVector<unsigned short, 16>;

// `world` followed, from the top down, by the local transforms of the joints of `path` (listed
// from the bottom up); false where one is not a similarity.
bool composeDown(const Pose& pose, const Skeleton& skeleton, const Path& path, bool parentSpace,
                 Similarity& world) {
    for (size_t i = path.size(); i-- > 0;) {
        Similarity local;
        if (!localSimilarity(pose.jointPose(path[i]), skeleton, path[i], parentSpace, local))
            return false;
        world = local.then(world);
    }
    return true;
}

}  // namespace

bool parentWorldSimilarity(const Pose& pose, const Skeleton& skeleton, unsigned short upperId,
                           Similarity& out) {
    out = {Quatd(), 1.0, V3d(0.0)};
    const Joint& upper = skeleton.joint(upperId);
    if (!upper.parent()) return true;
    // The poser's walk: ancestors within the skeleton, at most numJoints() of them, those beyond
    // the pose contributing nothing. A parent outside the skeleton is left to the matrix path.
    const Joint* parent = parentInSkeleton(skeleton, upper);
    if (!parent) return false;
    // Composed upwards, each ancestor's transform after what lies below it, so nothing is kept
    // aside for a second pass. Ancestors beyond the pose contribute nothing.
    const unsigned short n = pose.numJoints();
    const bool parentSpace = pose.inParentSpace();
    bool first = true;
    const Joint* a = parent;
    for (unsigned steps = skeleton.numJoints(); a && steps; --steps) {
        if (a->id() < n) {
            Similarity local;
            if (!localSimilarity(pose.jointPose(a->id()), skeleton, a->id(), parentSpace, local))
                return false;
            out = first ? local : out.then(local);
            first = false;
        }
        a = parentInSkeleton(skeleton, *a);
    }
    return true;
}

bool composeBetween(const Pose& pose, const Skeleton& skeleton, unsigned short upperId,
                    unsigned short lowerId, bool parentSpace, Similarity& world) {
    Path between;
    const unsigned short n = skeleton.numJoints();
    const Joint* parent = skeleton.joint(lowerId).parent();
    for (unsigned steps = 0; parent && parent->id() < n && parent->id() != upperId; ++steps) {
        if (steps >= n) return false;
        between.push_back(parent->id());
        parent = skeleton.joint(parent->id()).parent();
    }
    return composeDown(pose, skeleton, between, parentSpace, world);
}

}  // namespace detail
}  // namespace ZeltoCore
