// Helpers shared by the skeleton, pose and IK bindings.
#pragma once

#include <memory>

#include "core/metadata/MapMetadata.h"
#include "core/skeleton/Skeleton.h"
#include "python/src/Common.h"

namespace zelto_py {

// `id` when it names a joint of `s`; IndexError otherwise.
unsigned short checkedJoint(const ZeltoCore::Skeleton& s, long id);

}  // namespace zelto_py
