// The registry: unknown types, first registration of a name wins, the last of an id owns it,
// deregistration keeps the id's name.
#include <gtest/gtest.h>

#include <cstring>

#include "core/Init.h"
#include "core/metadata/MetadataFactory.h"
#include "core/metadata/MetadataImpl.h"

namespace {

using namespace ZeltoCore;

TEST(FactoryTest, UnknownIdsAndNameAndIdOwnership) {
    initZeltoCore();
    MetadataFactory& factory = MetadataFactory::instance();
    // An unknown id gives nothing and leaves the cursor.
    Archive a(8, 0);
    std::memset(a.data, 0, 8);
    a.data[0] = 22;
    EXPECT_EQ(readMetadata(a), nullptr);
    EXPECT_EQ(a.position, 0u);
    EXPECT_EQ(factory.createMetadata("NoSuchMetadata"), nullptr);
    // Empty, not a null pointer with counts: readers reuse an empty pointer's storage as it is.
    EXPECT_EQ(factory.createMetadata("NoSuchMetadata").use_count(), 0);
    EXPECT_EQ(factory.createMetadata(0xFFFFFFF0u).use_count(), 0);

    // The first registration of a name wins, the last of an id owns it.
    const size_t before = factory.getRegisteredMetadata().size();
    initMetadata();
    factory.registerMetadata("DoubleMetadata", 999, &MetadataImpl<float>::creator);
    EXPECT_EQ(factory.getRegisteredMetadata().size(), before);
    EXPECT_EQ(factory.getMetadataName(999), "");
    EXPECT_EQ(factory.createMetadata("DoubleMetadata")->typeId(), 4u);
    factory.registerMetadata("FactoryTestAMetadata", 9001, &MetadataImpl<float>::creator);
    factory.registerMetadata("FactoryTestBMetadata", 9001, &MetadataImpl<int>::creator);
    EXPECT_EQ(factory.getMetadataName(9001), "FactoryTestBMetadata");
    EXPECT_EQ(factory.createMetadata(9001u)->typeId(), 3u);
    factory.deregisterMetadata("FactoryTestAMetadata");
    factory.deregisterMetadata("FactoryTestBMetadata");
    EXPECT_EQ(factory.createMetadata(9001u), nullptr);

    // Deregistering keeps the id's name: the name still answers while creation fails.
    factory.deregisterMetadata("IntMetadata");
    EXPECT_FALSE(factory.isRegistered("IntMetadata"));
    EXPECT_EQ(factory.createMetadata(3u), nullptr);
    EXPECT_EQ(factory.getMetadataName(3), "IntMetadata");
    factory.registerMetadata("IntMetadata", 3, &MetadataImpl<int>::creator);
    EXPECT_EQ(factory.createMetadata(3u)->typeId(), 3u);
}

}  // namespace
