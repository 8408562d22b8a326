// The registry: unknown types, first registration of a name wins, shared ids, deregistration.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

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

TEST_F(FactoryTest, UnknownTypesGiveNothingAndLeaveTheCursor) {
    unsigned int id = 22;
    EXPECT_EQ(factory.createMetadataRawPtr(id), nullptr);
    EXPECT_EQ(id, 22u);
    EXPECT_EQ(factory.getMetadataName(22), "");
    EXPECT_EQ(factory.createMetadata("NoSuchMetadata"), nullptr);
    Archive a(8, 0);
    std::memset(a.data, 0, 8);
    a.data[0] = 22;
    EXPECT_EQ(readMetadata(a), nullptr);
    EXPECT_EQ(a.position, 0u);
}

TEST_F(FactoryTest, FirstRegistrationOfANameWinsTheLastOfAnIdOwnsIt) {
    const size_t before = factory.getRegisteredMetadata().size();
    initMetadata();
    factory.registerMetadata("DoubleMetadata", 999, &makeFloat);
    EXPECT_EQ(factory.getRegisteredMetadata().size(), before);
    EXPECT_EQ(factory.getMetadataName(999), "");
    EXPECT_EQ(factory.createMetadata("DoubleMetadata")->typeId(), 4u);

    factory.registerMetadata("FactoryTestAMetadata", 9001, &makeFloat);
    factory.registerMetadata("FactoryTestBMetadata", 9001, &MetadataImpl<int>::creator);
    EXPECT_EQ(factory.getMetadataName(9001), "FactoryTestBMetadata");
    EXPECT_EQ(factory.createMetadata(9001u)->typeId(), 3u);
    EXPECT_NE(factory.createMetadata("FactoryTestAMetadata"), nullptr);
    factory.deregisterMetadata("FactoryTestAMetadata");
    factory.deregisterMetadata("FactoryTestBMetadata");
}

TEST_F(FactoryTest, DeregisteringKeepsTheIdsName) {
    factory.deregisterMetadata("IntMetadata");
    EXPECT_FALSE(factory.isRegistered("IntMetadata"));
    EXPECT_EQ(factory.createMetadata(3u), nullptr);
    EXPECT_EQ(factory.getMetadataName(3), "IntMetadata");
    // Arrays hand out their elements through the factory, so they cannot while it is gone.
    EXPECT_EQ(TypedArrayMetadata<int>({1}).getBasicTypeMetadata(0), nullptr);
    factory.registerMetadata("IntMetadata", 3, &MetadataImpl<int>::creator);
    EXPECT_NE(factory.createMetadata(3u), nullptr);
}

}  // namespace
