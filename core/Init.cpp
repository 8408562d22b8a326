#include "core/Init.h"

#include "core/metadata/ArrayMetadata.h"
#include "core/metadata/MapMetadata.h"
#include "core/metadata/MetadataFactory.h"

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
    (void)factory;
    // Scalars.
    // Containers.
    add<MapMetadata>(factory);
    add<ArrayMetadata>(factory);
    // Typed arrays.
    // Poses, skeletons and hashes.
}

void initZeltoCore() {
    if (!g_initPending) return;
    initMetadata();
    g_initPending = false;
}

}  // namespace ZeltoCore
