// The scalar values of the Imath types.
#include "core/metadata/internal/MetadataImplDefinitions.h"

namespace ZeltoCore {

template class MetadataImpl<Imath::V2d>;
template class MetadataImpl<Imath::V2i>;
template class MetadataImpl<Imath::V2f>;
template class MetadataImpl<Imath::V3d>;
template class MetadataImpl<Imath::V3i>;
template class MetadataImpl<Imath::V3f>;
template class MetadataImpl<Imath::V4d>;
template class MetadataImpl<Imath::V4i>;
template class MetadataImpl<Imath::V4f>;
template class MetadataImpl<Imath::M44d>;
template class MetadataImpl<Imath::M44f>;
template class MetadataImpl<Imath::Quatd>;
template class MetadataImpl<Imath::Quatf>;
template class MetadataImpl<Imath::Eulerd>;
template class MetadataImpl<Imath::Eulerf>;
template class MetadataImpl<Imath::Box2d>;
template class MetadataImpl<Imath::Box2i>;
template class MetadataImpl<Imath::Box2f>;
template class MetadataImpl<Imath::Box3d>;
template class MetadataImpl<Imath::Box3i>;
template class MetadataImpl<Imath::Box3f>;

}  // namespace ZeltoCore
