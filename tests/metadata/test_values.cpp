// Every value type of both families: registered name and id, memSize() equal to the bytes written,
// a round trip through the factory by the stored id that keeps the hash, refusal of every
// truncated input, copies, element access, and the comparisons all types share.
#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <type_traits>

#include "core/Init.h"
#include "core/metadata/MetadataFactory.h"
#include "core/metadata/TypedArrayMetadata.h"
#include "tests/metadata/ValueSamples.h"

namespace {

using namespace ZeltoCore;
using namespace ZeltoTest;

// The registered ids ("Name:id", the name without "Metadata"), written out independently.
std::map<std::string, unsigned> parseIds() {
    std::istringstream table(
        "Int:3 Double:4 Vector3:5 Vector4:6 Matrix:7 Quaternion:8 Euler:9 String:10 IntArray:11 "
        "DoubleArray:12 Bool:13 BoolArray:14 Vector3Array:15 Vector4Array:16 StringArray:17 "
        "EulerArray:18 MatrixArray:19 QuaternionArray:20 Box3:21 Vector2:27 Vector2Array:28 "
        "Box2:29 Char:30 UChar:31 Short:32 UShort:33 UInt:34 Int64:35 UInt64:36 Float:37 "
        "Vector2f:38 Vector3f:39 Vector4f:40 Vector2i:41 Vector3i:42 Vector4i:43 Quaternionf:44 "
        "Eulerf:45 Box2f:46 Box3f:47 Box2i:48 Box3i:49 Matrixf:50 CharArray:51 UCharArray:52 "
        "ShortArray:53 UShortArray:54 UIntArray:55 Int64Array:56 UInt64Array:57 FloatArray:58 "
        "Vector2fArray:59 Vector3fArray:60 Vector4fArray:61 Vector2iArray:62 Vector3iArray:63 "
        "Vector4iArray:64 QuaternionfArray:65 EulerfArray:66 MatrixfArray:67 Box2Array:68 "
        "Box3Array:69 Box2fArray:70 Box3fArray:71 Box2iArray:72 Box3iArray:73 Mesh:101 Image:102 "
        "Curve:103 CurveArray:104 MeshArray:105 Hash:106 SampledCurve:107 SampledCurveArray:108 ");
    std::map<std::string, unsigned> ids;
    for (std::string entry; table >> entry;) {
        const size_t colon = entry.find(':');
        ids[entry.substr(0, colon) + "Metadata"] = std::stoul(entry.substr(colon + 1));
    }
    return ids;
}
const std::map<std::string, unsigned> kIds = parseIds();

// The utility-library values: written as given (no sizing of an empty archive), no isStatic.
template <class T>
constexpr bool kGeometry =
    std::is_same_v<T, ZeltoUtils::Mesh> || std::is_same_v<T, ZeltoUtils::Image> ||
    std::is_same_v<T, ZeltoUtils::Curve> || std::is_same_v<T, ZeltoUtils::SampledCurve>;

// Registered under the name and id of the table; the factory and creator() make the class.
template <class M>
void expectRegistered() {
    ASSERT_EQ(kIds.size(), 74u);
    ASSERT_EQ(kIds.count(M::staticTypeStr()), 1u) << M::staticTypeStr();
    EXPECT_EQ(M::staticTypeId(), kIds.at(M::staticTypeStr())) << M::staticTypeStr();
    EXPECT_EQ(MetadataFactory::instance().getMetadataName(M::staticTypeId()), M::staticTypeStr());
    std::shared_ptr<Metadata> made = MetadataFactory::instance().createMetadata(M::staticTypeStr());
    ASSERT_NE(dynamic_cast<M*>(made.get()), nullptr);
    EXPECT_EQ(made->typeStr() + std::to_string(made->typeId()),
              M::staticTypeStr() + std::to_string(M::staticTypeId()));
    EXPECT_NE(dynamic_cast<M*>(std::unique_ptr<Metadata>(M::creator()).get()), nullptr);
}

// Every proper prefix of the bytes is refused without reading past it.
void expectTruncationRefused(const Metadata& m) {
    Archive full(m.memSize(), 0);
    ASSERT_TRUE(m.serialise(full));
    for (size_t n = 0; n < full.size; ++n) {
        std::unique_ptr<Archive> cut = archiveOf({full.data, full.data + n});
        std::unique_ptr<Metadata> fresh(
            MetadataFactory::instance().createMetadataRawPtr(m.typeStr()));
        EXPECT_FALSE(fresh->deserialise(*cut)) << m.typeStr() << " cut at " << n;
        EXPECT_TRUE(cut->failed());
        EXPECT_LE(cut->position, cut->size);
    }
}

template <class T>
class ScalarValueTest : public ::testing::Test {
protected:
    void SetUp() override { initZeltoCore(); }
};
TYPED_TEST_SUITE(ScalarValueTest, ScalarTypes);

TYPED_TEST(ScalarValueTest, RegisteredRoundTripsComparesAndRefusesTruncation) {
    using M = MetadataImpl<TypeParam>;
    M value(sample<TypeParam>());
    expectRegistered<M>();
    EXPECT_FALSE(value.isArray());
    expectRoundTrip(M());
    expectRoundTrip(value);
    EXPECT_NE(hashOf(M()), hashOf(value));
    expectTruncationRefused(value);

    M copy;
    copy.copy(&value);
    copy.copy(nullptr);
    EXPECT_EQ(hashOf(copy), hashOf(value));
    EXPECT_TRUE(value.isEqual(&value, 0.0));
    EXPECT_FALSE(value.isEqual(nullptr, 1.0) || value.isGreater(&value) || value.isLess(&value));
    // Another type is unrelated, even holding the same number (double against float).
    MetadataImpl<float> number(1.0f);
    MetadataImpl<int> other(1);
    Metadata* o = std::is_same_v<TypeParam, float> ? static_cast<Metadata*>(&other) : &number;
    EXPECT_FALSE(value.isEqual(o, 1e9) || value.isGreater(o) || value.isLess(o));

    // Only self-contained values size an empty archive themselves.
    Archive empty;
    EXPECT_EQ(value.serialise(empty), !kGeometry<TypeParam>);
    EXPECT_EQ(empty.size, kGeometry<TypeParam> ? 0 : value.memSize());
}

template <class T>
class ArrayValueTest : public ::testing::Test {
protected:
    void SetUp() override { initZeltoCore(); }
};
TYPED_TEST_SUITE(ArrayValueTest, ArrayElementTypes);

TYPED_TEST(ArrayValueTest, RegisteredRoundTripsAndRefusesTruncation) {
    using A = TypedArrayMetadata<TypeParam>;
    using B = MetadataImpl<TypeParam>;
    const A value(sampleArray<TypeParam>());
    expectRegistered<A>();
    EXPECT_TRUE(value.isArray());
    EXPECT_EQ(value.basicTypeStr(), B::staticTypeStr());
    EXPECT_EQ(A::staticBasicTypeStr(), B::staticTypeStr());
    std::string name = B::staticTypeStr();
    EXPECT_EQ(A::staticTypeStr(), name.replace(name.size() - 8, 8, "ArrayMetadata"));

    EXPECT_EQ(A().memSize(), 12u);
    expectRoundTrip(A());
    expectRoundTrip(value);
    EXPECT_NE(hashOf(A()), hashOf(value));
    expectTruncationRefused(value);
}

TYPED_TEST(ArrayValueTest, ElementsStaticnessAndComparisons) {
    using A = TypedArrayMetadata<TypeParam>;
    using B = MetadataImpl<TypeParam>;
    A a({sample<TypeParam>(), ValueTraits<TypeParam>::defaultValue()});
    std::shared_ptr<Metadata> first = a.getBasicTypeMetadata(0);
    ASSERT_NE(dynamic_cast<B*>(first.get()), nullptr);
    EXPECT_EQ(hashOf(*first), hashOf(B(sample<TypeParam>())));
    a.getBasicTypeMetadataInPlace(1, first);
    EXPECT_EQ(hashOf(*first), hashOf(B()));
    EXPECT_EQ(a.getBlendedBasicTypeMetadata(0, 1, 0.5)->typeId(), B::staticTypeId());
    EXPECT_EQ(a.getDoubleBlendedBasicTypeMetadata(0, 1, 0.5, 1, 0, 0.2, 0.7)->typeId(),
              B::staticTypeId());

    const TypeParam v = sample<TypeParam>();
    EXPECT_FALSE(a.isStatic() || A().isStatic());
    EXPECT_TRUE(A({v}).isStatic());
    EXPECT_EQ(A({v, v, v}).isStatic(), !kGeometry<TypeParam>);
    A b(a);
    EXPECT_TRUE(a.isEqual(&a, 0.0));
    EXPECT_FALSE(a.isEqual(&b, 1e9) || a.isGreater(&b) || a.isLess(&b));
    std::vector<std::shared_ptr<Metadata>> values{b.clone()};
    EXPECT_FALSE(a.setWithValuesAndWeights(values, {1.0}));
}

}  // namespace
