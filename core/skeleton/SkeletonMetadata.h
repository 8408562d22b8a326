// Skeletons as metadata values: MetadataImpl<Skeleton> ("SkeletonMetadata", 25) and
// TypedArrayMetadata<Skeleton> ("SkeletonArrayMetadata", 26), so a skeleton travels through
// property maps, heterogeneous arrays and archives like any other value.
//
// The archive form is the skeleton's own (core/skeleton/SkeletonArchive.h). The hash is the
// value's own sequence, not Skeleton::hash: per joint in id order its name ("noname" when empty),
// id, bind rotation, translation and scale, parent id (65535 for none), child count and child
// ids; the joint maps (count, then id and map per joint, ascending); feet (count, then ik, root
// and tip ids); pelvises (count and ids; joint 0 when none is registered); root id. Values are
// equal only to themselves and have no text; see ObjectValueKind for the rest.
//
//   MapMetadata bag;
//   bag.insertEntry("skeleton", std::make_shared<MetadataImpl<Skeleton>>(skeleton));
#pragma once

#include <cstddef>

#include "core/hash/MurmurHash3.h"
#include "core/metadata/MetadataImpl.h"
#include "core/metadata/TypedArrayMetadata.h"
#include "core/skeleton/ObjectValueKind.h"
#include "core/skeleton/Skeleton.h"
#include "core/skeleton/SkeletonArchive.h"
#include "utils/Export.h"

namespace ZeltoCore {

struct ZELTO_API SkeletonTraits : ObjectValueKind<Skeleton> {
    // Joint count, map count, foot count, pelvis count and root id of a skeleton without joints.
    static constexpr size_t kArrayMinBytes = 2 + 8 + 2 + 2 + 2;
    static void hash(MurmurHash3& h, const Skeleton& s);
    static void hashElement(MurmurHash3& h, const Skeleton& s) { hash(h, s); }
};

// clang-format off
template <> struct ValueTraits<Skeleton> : SkeletonTraits { ZELTO_VALUE_NAMES(25, "SkeletonMetadata", 26, "SkeletonArrayMetadata") };
// clang-format on

ZELTO_DECLARE_SCALARS(skeleton)
ZELTO_DECLARE_ARRAYS(skeleton)

}  // namespace ZeltoCore
