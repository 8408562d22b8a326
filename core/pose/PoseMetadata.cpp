// The pose value's hash, and the instances of the pose rows of the value type list.
#include "core/pose/PoseMetadata.h"

#include <cstdint>

#include "core/metadata/internal/ValueTypeInstances.h"

namespace ZeltoCore {

void PoseTraits::hashElement(MurmurHash3& h, const Pose& p) {
    h.append(p.numJoints());
    h.append(uint64_t(p.hash(10)));
    p.poseMetadata().hash(h);
    h.append(uint64_t(p.jointsMetadata().size()));
    for (const auto& [id, map] : p.jointsMetadata()) {
        h.append(id);
        map.hash(h);
    }
    h.append(p.getDirection());
}

void PoseTraits::hash(MurmurHash3& h, const Pose& p) {
    hashElement(h, p);
    h.append(p.inParentSpace());
}

}  // namespace ZeltoCore

ZELTO_INSTANTIATE_VALUE_TYPES(pose)
