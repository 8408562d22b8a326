// The arrays of Imath values.
#include "core/metadata/internal/TypedArrayMetadataDefinitions.h"

namespace ZeltoCore {

template class TypedArrayMetadata<Imath::V2d>;
template class TypedArrayMetadata<Imath::V2i>;
template class TypedArrayMetadata<Imath::V2f>;
template class TypedArrayMetadata<Imath::V3d>;
template class TypedArrayMetadata<Imath::V3i>;
template class TypedArrayMetadata<Imath::V3f>;
template class TypedArrayMetadata<Imath::V4d>;
template class TypedArrayMetadata<Imath::V4i>;
template class TypedArrayMetadata<Imath::V4f>;
template class TypedArrayMetadata<Imath::M44d>;
template class TypedArrayMetadata<Imath::M44f>;
template class TypedArrayMetadata<Imath::Quatd>;
template class TypedArrayMetadata<Imath::Quatf>;
template class TypedArrayMetadata<Imath::Eulerd>;
template class TypedArrayMetadata<Imath::Eulerf>;
template class TypedArrayMetadata<Imath::Box2d>;
template class TypedArrayMetadata<Imath::Box2i>;
template class TypedArrayMetadata<Imath::Box2f>;
template class TypedArrayMetadata<Imath::Box3d>;
template class TypedArrayMetadata<Imath::Box3i>;
template class TypedArrayMetadata<Imath::Box3f>;

}  // namespace ZeltoCore
