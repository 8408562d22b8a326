#include "core/Init.h"

#include "core/metadata/ArrayMetadata.h"
#include "core/metadata/MapMetadata.h"
#include "core/metadata/MetadataFactory.h"
#include "core/metadata/MetadataImpl.h"

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
