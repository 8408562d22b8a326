// Every value type of both families: registered name and id, memSize() equal to the bytes written,
// a round trip through the factory by the stored id that keeps the hash, refusal of every
// truncated input, copies, element access, and the comparisons all types share.
#include <type_traits>

#include "core/Init.h"
#include "core/metadata/TypedArrayMetadata.h"
#include "tests/metadata/ValueSamples.h"

namespace {

using namespace ZeltoCore;
using namespace ZeltoTest;

// The registered ids (" Name:id ", the name without "Metadata"), written out independently.
const std::string kIds =
    " Int:3 Double:4 Vector3:5 Vector4:6 Matrix:7 Quaternion:8 Euler:9 String:10 IntArray:11 "
    "DoubleArray:12 Bool:13 BoolArray:14 Vector3Array:15 Vector4Array:16 StringArray:17 "
    "EulerArray:18 MatrixArray:19 QuaternionArray:20 Box3:21 Vector2:27 Vector2Array:28 "
    "Box2:29 Char:30 UChar:31 Short:32 UShort:33 UInt:34 Int64:35 UInt64:36 Float:37 "
    "Vector2f:38 Vector3f:39 Vector4f:40 Vector2i:41 Vector3i:42 Vector4i:43 Quaternionf:44 "
    "Eulerf:45 Box2f:46 Box3f:47 Box2i:48 Box3i:49 Matrixf:50 CharArray:51 UCharArray:52 "
    "ShortArray:53 UShortArray:54 UIntArray:55 Int64Array:56 UInt64Array:57 FloatArray:58 "
    "Vector2fArray:59 Vector3fArray:60 Vector4fArray:61 Vector2iArray:62 Vector3iArray:63 "
    "Vector4iArray:64 QuaternionfArray:65 EulerfArray:66 MatrixfArray:67 Box2Array:68 "
    "Box3Array:69 Box2fArray:70 Box3fArray:71 Box2iArray:72 Box3iArray:73 Mesh:101 Image:102 "
    "Curve:103 CurveArray:104 MeshArray:105 Hash:106 SampledCurve:107 SampledCurveArray:108 ";

// The utility-library values: written as given (no sizing of an empty archive), no isStatic.
template <class T>
constexpr bool kGeometry =
    std::is_same_v<T, ZeltoUtils::Mesh> || std::is_same_v<T, ZeltoUtils::Image> ||
    std::is_same_v<T, ZeltoUtils::Curve> || std::is_same_v<T, ZeltoUtils::SampledCurve>;

// Registered under the name and id of the table; the factory makes the class.
template <class M>
void expectRegistered() {
    const std::string name = M::staticTypeStr(), id = std::to_string(M::staticTypeId());
    EXPECT_NE(kIds.find(" " + name.substr(0, name.size() - 8) + ":" + id + " "), std::string::npos)
        << name << " " << id;
    EXPECT_EQ(MetadataFactory::instance().getMetadataName(M::staticTypeId()), name);
    std::shared_ptr<Metadata> made = MetadataFactory::instance().createMetadata(name);
    ASSERT_NE(dynamic_cast<M*>(made.get()), nullptr);
    EXPECT_EQ(made->typeStr() + ":" + std::to_string(made->typeId()), name + ":" + id);
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
struct ScalarValueTest : ::testing::Test {};
TYPED_TEST_SUITE(ScalarValueTest, ScalarTypes);

TYPED_TEST(ScalarValueTest, RegisteredRoundTripsComparesAndRefusesTruncation) {
    using M = MetadataImpl<TypeParam>;
    initZeltoCore();
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
    EXPECT_FALSE(value.isEqual(nullptr, 1.0));
    EXPECT_FALSE(value.isGreater(&value));
    EXPECT_FALSE(value.isLess(&value));
    // Another type is unrelated, even holding the same number (double against float).
    MetadataImpl<float> number(1.0f);
    MetadataImpl<int> other(1);
    Metadata* o = std::is_same_v<TypeParam, float> ? static_cast<Metadata*>(&other) : &number;
    EXPECT_FALSE(value.isEqual(o, 1e9));
    EXPECT_FALSE(value.isGreater(o));
    EXPECT_FALSE(value.isLess(o));

    // Only self-contained values size an empty archive themselves.
    Archive empty;
    EXPECT_EQ(value.serialise(empty), !kGeometry<TypeParam>);
    EXPECT_EQ(empty.size, kGeometry<TypeParam> ? 0 : value.memSize());
}

template <class T>
struct ArrayValueTest : ::testing::Test {};
TYPED_TEST_SUITE(ArrayValueTest, ArrayElementTypes);

TYPED_TEST(ArrayValueTest, RegisteredRoundTripsElementsAndRules) {
    using A = TypedArrayMetadata<TypeParam>;
    using B = MetadataImpl<TypeParam>;
    initZeltoCore();
    const TypeParam v = sample<TypeParam>();
    A value({v, ValueTraits<TypeParam>::defaultValue(), v});
    expectRegistered<A>();
    EXPECT_TRUE(value.isArray());
    std::string name = B::staticTypeStr();
    EXPECT_EQ(A::staticTypeStr(), name.replace(name.size() - 8, 8, "ArrayMetadata"));
    EXPECT_EQ(A().memSize(), 12u);
    expectRoundTrip(A());
    expectRoundTrip(value);
    EXPECT_NE(hashOf(A()), hashOf(value));
    expectTruncationRefused(value);

    std::shared_ptr<Metadata> element = value.getBasicTypeMetadata(0);
    ASSERT_NE(dynamic_cast<B*>(element.get()), nullptr);
    EXPECT_EQ(hashOf(*element), hashOf(B(v)));
    value.getBasicTypeMetadataInPlace(1, element);
    EXPECT_EQ(hashOf(*element), hashOf(B()));
    EXPECT_EQ(value.getDoubleBlendedBasicTypeMetadata(0, 1, 0.5, 1, 0, 0.2, 0.7)->typeId(),
              B::staticTypeId());

    EXPECT_FALSE(value.isStatic());
    EXPECT_FALSE(A().isStatic());
    EXPECT_TRUE(A({v}).isStatic());
    EXPECT_EQ(A({v, v, v}).isStatic(), !kGeometry<TypeParam>);
    // Arrays neither compare nor blend as whole values.
    A copy(value);
    EXPECT_TRUE(value.isEqual(&value, 0.0));
    EXPECT_FALSE(value.isEqual(&copy, 1e9));
    EXPECT_FALSE(value.isGreater(&copy));
    EXPECT_FALSE(value.isLess(&copy));
    std::vector<std::shared_ptr<Metadata>> values{copy.clone()};
    EXPECT_FALSE(value.setWithValuesAndWeights(values, {1.0}));
}

}  // namespace
