// The scalar values of the utility-library geometry.
#include "core/metadata/internal/MetadataImplDefinitions.h"

namespace ZeltoCore {

template class MetadataImpl<ZeltoUtils::Mesh>;
template class MetadataImpl<ZeltoUtils::Image>;
template class MetadataImpl<ZeltoUtils::Curve>;
template class MetadataImpl<ZeltoUtils::SampledCurve>;

}  // namespace ZeltoCore
