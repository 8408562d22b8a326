#include "core/Init.h"

#include "core/metadata/ArrayMetadata.h"
#include "core/metadata/MapMetadata.h"
#include "core/metadata/MetadataFactory.h"
#include "core/metadata/MetadataImpl.h"
#include "core/metadata/TypedArrayMetadata.h"

namespace ZeltoCore {
namespace {

// Set while loading the library; cleared by the first initZeltoCore().
bool g_initPending = true;

template <class T>
void add(MetadataFactory& factory) {
    factory.registerMetadata(T::staticTypeStr(), T::staticTypeId(), &T::creator);
}

}  // namespace

void initMetadata() {
    MetadataFactory& factory = MetadataFactory::instance();
    // Scalars.
    add<MetadataImpl<bool>>(factory);
    add<MetadataImpl<char>>(factory);
    add<MetadataImpl<unsigned char>>(factory);
    add<MetadataImpl<short>>(factory);
    add<MetadataImpl<unsigned short>>(factory);
    add<MetadataImpl<int>>(factory);
    add<MetadataImpl<unsigned int>>(factory);
    add<MetadataImpl<int64_t>>(factory);
    add<MetadataImpl<uint64_t>>(factory);
    add<MetadataImpl<float>>(factory);
    add<MetadataImpl<double>>(factory);
    add<MetadataImpl<std::string>>(factory);
    add<MetadataImpl<Imath::V2d>>(factory);
    add<MetadataImpl<Imath::V2i>>(factory);
    add<MetadataImpl<Imath::V2f>>(factory);
    add<MetadataImpl<Imath::V3d>>(factory);
    add<MetadataImpl<Imath::V3i>>(factory);
    add<MetadataImpl<Imath::V3f>>(factory);
    add<MetadataImpl<Imath::V4d>>(factory);
    add<MetadataImpl<Imath::V4i>>(factory);
    add<MetadataImpl<Imath::V4f>>(factory);
    add<MetadataImpl<Imath::M44d>>(factory);
    add<MetadataImpl<Imath::M44f>>(factory);
    add<MetadataImpl<Imath::Quatd>>(factory);
    add<MetadataImpl<Imath::Quatf>>(factory);
    add<MetadataImpl<Imath::Eulerd>>(factory);
    add<MetadataImpl<Imath::Eulerf>>(factory);
    add<MetadataImpl<Imath::Box2d>>(factory);
    add<MetadataImpl<Imath::Box2i>>(factory);
    add<MetadataImpl<Imath::Box2f>>(factory);
    add<MetadataImpl<Imath::Box3d>>(factory);
    add<MetadataImpl<Imath::Box3i>>(factory);
    add<MetadataImpl<Imath::Box3f>>(factory);
    add<MetadataImpl<ZeltoUtils::Mesh>>(factory);
    add<MetadataImpl<ZeltoUtils::Image>>(factory);
    add<MetadataImpl<ZeltoUtils::Curve>>(factory);
    add<MetadataImpl<ZeltoUtils::SampledCurve>>(factory);
    // Containers.
    add<MapMetadata>(factory);
    add<ArrayMetadata>(factory);
    // Typed arrays.
    add<TypedArrayMetadata<char>>(factory);
    add<TypedArrayMetadata<unsigned char>>(factory);
    add<TypedArrayMetadata<short>>(factory);
    add<TypedArrayMetadata<unsigned short>>(factory);
    add<TypedArrayMetadata<int>>(factory);
    add<TypedArrayMetadata<unsigned int>>(factory);
    add<TypedArrayMetadata<int64_t>>(factory);
    add<TypedArrayMetadata<uint64_t>>(factory);
    add<TypedArrayMetadata<double>>(factory);
    add<TypedArrayMetadata<float>>(factory);
    add<TypedArrayMetadata<bool>>(factory);
    add<TypedArrayMetadata<Imath::V2d>>(factory);
    add<TypedArrayMetadata<Imath::V2i>>(factory);
    add<TypedArrayMetadata<Imath::V2f>>(factory);
    add<TypedArrayMetadata<Imath::V3d>>(factory);
    add<TypedArrayMetadata<Imath::V3i>>(factory);
    add<TypedArrayMetadata<Imath::V3f>>(factory);
    add<TypedArrayMetadata<Imath::V4d>>(factory);
    add<TypedArrayMetadata<Imath::V4i>>(factory);
    add<TypedArrayMetadata<Imath::V4f>>(factory);
    add<TypedArrayMetadata<Imath::Quatd>>(factory);
    add<TypedArrayMetadata<Imath::Quatf>>(factory);
    add<TypedArrayMetadata<std::string>>(factory);
    add<TypedArrayMetadata<Imath::M44d>>(factory);
    add<TypedArrayMetadata<Imath::M44f>>(factory);
    add<TypedArrayMetadata<Imath::Eulerd>>(factory);
    add<TypedArrayMetadata<Imath::Eulerf>>(factory);
    add<TypedArrayMetadata<ZeltoUtils::Mesh>>(factory);
    add<TypedArrayMetadata<ZeltoUtils::Curve>>(factory);
    add<TypedArrayMetadata<ZeltoUtils::SampledCurve>>(factory);
    add<TypedArrayMetadata<Imath::Box2d>>(factory);
    add<TypedArrayMetadata<Imath::Box2i>>(factory);
    add<TypedArrayMetadata<Imath::Box2f>>(factory);
    add<TypedArrayMetadata<Imath::Box3d>>(factory);
    add<TypedArrayMetadata<Imath::Box3i>>(factory);
    add<TypedArrayMetadata<Imath::Box3f>>(factory);
    // Poses, skeletons and hashes.
    // The hash value is registered last, after the pose and skeleton types.
    add<MetadataImpl<MurmurHash3>>(factory);
}

void initZeltoCore() {
    if (!g_initPending) return;
    initMetadata();
    g_initPending = false;
}

}  // namespace ZeltoCore
