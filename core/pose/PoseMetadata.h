// Poses as metadata values: MetadataImpl<Pose> ("PoseMetadata", 23) and TypedArrayMetadata<Pose>
// ("PoseArrayMetadata", 24), so a pose travels through property maps, heterogeneous arrays and
// archives like any other value.
//
// The archive form is the pose's own, so its version rule holds inside containers too: a pose
// read from an archive (or a compressed container block) older than version 4 is in local space.
// The hash: joint count, Pose::hash(10) as 64 bits, the pose map, the joint maps (count, then
// id and map per joint, ascending), the direction, and, for a single value only, the space flag:
// poses that differ only in space hash apart as values and alike as array elements. Values are
// equal only to themselves and have no text; see ObjectValueKind for the rest. copy() and set()
// assign through Pose's masked assignment, like the pose itself; clone() is a full copy.
//
//   auto value = std::make_shared<MetadataImpl<Pose>>(Pose(&skeleton, true));
#pragma once

#include <cstddef>

#include "core/hash/MurmurHash3.h"
#include "core/metadata/MetadataImpl.h"
#include "core/metadata/TypedArrayMetadata.h"
#include "core/pose/Pose.h"
#include "core/skeleton/ObjectValueKind.h"
#include "utils/Export.h"

namespace ZeltoCore {

struct ZELTO_API PoseTraits : ObjectValueKind<Pose> {
    // Joint count, empty pose map, joint map count and direction (no space flag before version 4).
    static constexpr size_t kArrayMinBytes = 2 + 20 + 8 + 24;
    static void hash(MurmurHash3& h, const Pose& p);
    // Everything but the space flag.
    static void hashElement(MurmurHash3& h, const Pose& p);
};

// clang-format off
template <> struct ValueTraits<Pose> : PoseTraits { ZELTO_VALUE_NAMES(23, "PoseMetadata", 24, "PoseArrayMetadata") };
// clang-format on

ZELTO_DECLARE_SCALARS(pose)
ZELTO_DECLARE_ARRAYS(pose)

}  // namespace ZeltoCore
