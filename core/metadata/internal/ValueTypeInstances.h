// Explicit instantiation of the value types of one group of the value type list: a source
// includes this header and names its group once.
//
//   ZELTO_INSTANTIATE_VALUE_TYPES(numbers)
#pragma once

#include "core/metadata/ValueTypeList.h"
#include "core/metadata/internal/MetadataImplDefinitions.h"
#include "core/metadata/internal/TypedArrayMetadataDefinitions.h"

#define ZELTO_INSTANTIATE_VALUE_(want, layer, group, T, Name, arrays) \
    ZELTO_VALUE_WHEN(group, want, template class MetadataImpl<T>;     \
                     ZELTO_VALUE_WHEN(arrays, withArray, template class TypedArrayMetadata<T>;))
#define ZELTO_INSTANTIATE_VALUE_TYPES(group)           \
    namespace ZeltoCore {                              \
    ZELTO_VALUE_TYPES(ZELTO_INSTANTIATE_VALUE_, group) \
    }
