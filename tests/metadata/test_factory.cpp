// The registry: lookups by name and id, first registration wins, deregistration, unknown types.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "core/Init.h"
#include "core/metadata/MetadataFactory.h"
#include "core/metadata/TypedArrayMetadata.h"

namespace {

using namespace ZeltoCore;

Metadata* makeFloat() {
    return new MetadataImpl<float>();
}

class FactoryTest : public ::testing::Test {
protected:
    void SetUp() override { initZeltoCore(); }
    MetadataFactory& factory = MetadataFactory::instance();
};

TEST_F(FactoryTest, CreatesByNameAndId) {
    std::shared_ptr<Metadata> v = factory.createMetadata("Vector3ArrayMetadata");
    auto* arr = dynamic_cast<TypedArrayMetadata<Imath::V3d>*>(v.get());
    ASSERT_NE(arr, nullptr);
    EXPECT_EQ(arr->typeId(), 15u);
    EXPECT_EQ(arr->size(), 0u);
    EXPECT_NE(dynamic_cast<MetadataImpl<MurmurHash3>*>(factory.createMetadata(106u).get()),
              nullptr);
    EXPECT_EQ(factory.getMetadataName(106), "HashMetadata");

    EXPECT_EQ(factory.createMetadata(22u), nullptr);
    EXPECT_EQ(factory.getMetadataName(22), "");
    EXPECT_EQ(factory.createMetadata("NoSuchMetadata"), nullptr);
    unsigned int id = 22;
    EXPECT_EQ(factory.createMetadataRawPtr(id), nullptr);
    EXPECT_EQ(id, 22u);
}

TEST_F(FactoryTest, InitialisingAgainChangesNothing) {
    const size_t before = factory.getRegisteredMetadata().size();
    initMetadata();
    initZeltoCore();
    EXPECT_EQ(factory.getRegisteredMetadata().size(), before);
    const std::vector<std::string> names = factory.getRegisteredMetadata();
    for (const char* name : {"BoolMetadata", "SampledCurveMetadata", "MapMetadata",
                             "Box3iArrayMetadata", "HashMetadata"}) {
        EXPECT_NE(std::find(names.begin(), names.end(), name), names.end()) << name;
    }
}

TEST_F(FactoryTest, FirstRegistrationWins) {
    factory.registerMetadata("DoubleMetadata", 999, &makeFloat);
    EXPECT_EQ(factory.getMetadataName(999), "");
    EXPECT_NE(dynamic_cast<MetadataImpl<double>*>(factory.createMetadata("DoubleMetadata").get()),
              nullptr);
}

TEST_F(FactoryTest, DeregisteringKeepsTheIdsName) {
    factory.deregisterMetadata("IntMetadata");
    EXPECT_FALSE(factory.isRegistered("IntMetadata"));
    EXPECT_EQ(factory.createMetadata(3u), nullptr);
    EXPECT_EQ(factory.getMetadataName(3), "IntMetadata");
    // Arrays hand out their elements through the factory, so they cannot while it is gone.
    EXPECT_EQ(TypedArrayMetadata<int>({1}).getBasicTypeMetadata(0), nullptr);
    factory.deregisterMetadata("NoSuchMetadata");

    factory.registerMetadata(MetadataImpl<int>::staticTypeStr(), MetadataImpl<int>::staticTypeId(),
                             &MetadataImpl<int>::creator);
    EXPECT_TRUE(factory.isRegistered("IntMetadata"));
    EXPECT_NE(factory.createMetadata(3u), nullptr);
}

TEST_F(FactoryTest, LaterNameOwnsASharedIdForCreationById) {
    factory.registerMetadata("FactoryTestAMetadata", 9001, &makeFloat);
    factory.registerMetadata("FactoryTestBMetadata", 9001, &MetadataImpl<int>::creator);
    EXPECT_EQ(factory.getMetadataName(9001), "FactoryTestBMetadata");
    EXPECT_NE(dynamic_cast<MetadataImpl<int>*>(factory.createMetadata(9001u).get()), nullptr);
    EXPECT_NE(factory.createMetadata("FactoryTestAMetadata"), nullptr);
    factory.deregisterMetadata("FactoryTestAMetadata");
    factory.deregisterMetadata("FactoryTestBMetadata");
}

TEST_F(FactoryTest, ReadingAnUnknownIdLeavesTheCursor) {
    Archive a(8, 0);
    const uint32_t words[2] = {22, 0};
    std::memcpy(a.data, words, 8);
    EXPECT_EQ(readMetadata(a), nullptr);
    EXPECT_EQ(a.position, 0u);
}

}  // namespace
