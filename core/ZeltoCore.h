// The whole public API of the library, and the utility classes it uses.
#pragma once

#include "core/Init.h"
#include "core/archive/Archive.h"
#include "core/hash/HashedString.h"
#include "core/hash/MurmurHash3.h"
#include "core/math/Transform.h"
#include "core/metadata/ArrayMetadata.h"
#include "core/metadata/BaseTypedArrayMetadata.h"
#include "core/metadata/MapMetadata.h"
#include "core/metadata/Metadata.h"
#include "core/metadata/MetadataFactory.h"
#include "core/pose/JointPose.h"
#include "utils/Utils.h"
