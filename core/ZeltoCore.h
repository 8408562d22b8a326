// The whole public API of the library, and the utility classes it uses.
#pragma once

#include <Imath/ImathBox.h>
#include <Imath/ImathEuler.h>
#include <Imath/ImathMatrix.h>
#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

#include "core/Init.h"
#include "core/archive/Archive.h"
#include "core/archive/ArchiveFileHeader.h"
#include "core/archive/ArchiveFileReader.h"
#include "core/archive/ArchiveOperators.h"
#include "core/hash/HashedString.h"
#include "core/hash/MurmurHash3.h"
#include "core/math/JointPose.h"
#include "core/math/Transform.h"
#include "core/metadata/ArrayMetadata.h"
#include "core/metadata/BaseTypedArrayMetadata.h"
#include "core/metadata/MapMetadata.h"
#include "core/metadata/Metadata.h"
#include "core/metadata/MetadataFactory.h"
#include "core/metadata/MetadataImpl.h"
#include "core/metadata/TypedArrayMetadata.h"
#include "core/metadata/ValueTraits.h"
#include "core/pose/JointChain.h"
#include "core/pose/Pose.h"
#include "core/pose/PoseMetadata.h"
#include "core/pose/Poser.h"
#include "core/skeleton/FootData.h"
#include "core/skeleton/Joint.h"
#include "core/skeleton/PelvisChain.h"
#include "core/skeleton/Skeleton.h"
#include "core/skeleton/SkeletonArchive.h"
#include "core/skeleton/SkeletonLod.h"
#include "core/skeleton/SkeletonMetadata.h"
#include "utils/Utils.h"
