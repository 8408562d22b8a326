// The arrays of utility-library geometry.
#include "core/metadata/internal/TypedArrayMetadataDefinitions.h"

namespace ZeltoCore {

template class TypedArrayMetadata<ZeltoUtils::Mesh>;
template class TypedArrayMetadata<ZeltoUtils::Curve>;
template class TypedArrayMetadata<ZeltoUtils::SampledCurve>;

}  // namespace ZeltoCore
