// Every value type of both families: registered name and id, memSize() equal to the bytes written,
// and a round trip through the factory by the id read from the archive that keeps the hash.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>

#include "core/Init.h"
#include "core/metadata/MetadataFactory.h"
#include "core/metadata/MetadataImpl.h"
#include "core/metadata/TypedArrayMetadata.h"
#include "tests/metadata/ValueSamples.h"

namespace {

using namespace ZeltoCore;
using namespace ZeltoTest;

// The registered names and ids, written out independently of the traits.
const std::map<std::string, unsigned>& expectedIds() {
    // clang-format off
    static const std::map<std::string, unsigned> ids = {
        {"IntMetadata", 3}, {"DoubleMetadata", 4}, {"Vector3Metadata", 5}, {"Vector4Metadata", 6},
        {"MatrixMetadata", 7}, {"QuaternionMetadata", 8}, {"EulerMetadata", 9},
        {"StringMetadata", 10}, {"IntArrayMetadata", 11}, {"DoubleArrayMetadata", 12},
        {"BoolMetadata", 13}, {"BoolArrayMetadata", 14}, {"Vector3ArrayMetadata", 15},
        {"Vector4ArrayMetadata", 16}, {"StringArrayMetadata", 17}, {"EulerArrayMetadata", 18},
        {"MatrixArrayMetadata", 19}, {"QuaternionArrayMetadata", 20}, {"Box3Metadata", 21},
        {"Vector2Metadata", 27}, {"Vector2ArrayMetadata", 28}, {"Box2Metadata", 29},
        {"CharMetadata", 30}, {"UCharMetadata", 31}, {"ShortMetadata", 32}, {"UShortMetadata", 33},
        {"UIntMetadata", 34}, {"Int64Metadata", 35}, {"UInt64Metadata", 36}, {"FloatMetadata", 37},
        {"Vector2fMetadata", 38}, {"Vector3fMetadata", 39}, {"Vector4fMetadata", 40},
        {"Vector2iMetadata", 41}, {"Vector3iMetadata", 42}, {"Vector4iMetadata", 43},
        {"QuaternionfMetadata", 44}, {"EulerfMetadata", 45}, {"Box2fMetadata", 46},
        {"Box3fMetadata", 47}, {"Box2iMetadata", 48}, {"Box3iMetadata", 49},
        {"MatrixfMetadata", 50}, {"CharArrayMetadata", 51}, {"UCharArrayMetadata", 52},
        {"ShortArrayMetadata", 53}, {"UShortArrayMetadata", 54}, {"UIntArrayMetadata", 55},
        {"Int64ArrayMetadata", 56}, {"UInt64ArrayMetadata", 57}, {"FloatArrayMetadata", 58},
        {"Vector2fArrayMetadata", 59}, {"Vector3fArrayMetadata", 60}, {"Vector4fArrayMetadata", 61},
        {"Vector2iArrayMetadata", 62}, {"Vector3iArrayMetadata", 63}, {"Vector4iArrayMetadata", 64},
        {"QuaternionfArrayMetadata", 65}, {"EulerfArrayMetadata", 66}, {"MatrixfArrayMetadata", 67},
        {"Box2ArrayMetadata", 68}, {"Box3ArrayMetadata", 69}, {"Box2fArrayMetadata", 70},
        {"Box3fArrayMetadata", 71}, {"Box2iArrayMetadata", 72}, {"Box3iArrayMetadata", 73},
        {"MeshMetadata", 101}, {"ImageMetadata", 102}, {"CurveMetadata", 103},
        {"CurveArrayMetadata", 104}, {"MeshArrayMetadata", 105}, {"HashMetadata", 106},
        {"SampledCurveMetadata", 107}, {"SampledCurveArrayMetadata", 108}};
    // clang-format on
    return ids;
}

MurmurHash3 hashOf(const Metadata& m) {
    MurmurHash3 h;
    m.hash(h);
    return h;
}

// Writes `m` into an archive of exactly memSize() bytes, reads it back through the factory by the
// stored id, and checks the bytes consumed, the type and the hash.
void expectRoundTrip(const Metadata& m) {
    Archive a(m.memSize(), 0);
    ASSERT_TRUE(m.serialise(a));
    EXPECT_FALSE(a.failed());
    EXPECT_EQ(a.position, m.memSize()) << "memSize() differs from the bytes written";
    a.reset();
    std::shared_ptr<Metadata> back = readMetadata(a);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(a.position, a.size);
    EXPECT_EQ(back->typeId(), m.typeId());
    EXPECT_EQ(back->memSize(), m.memSize());
    EXPECT_EQ(hashOf(*back), hashOf(m));
}

// Every proper prefix of a value's bytes is refused without reading past it or allocating for
// counts that cannot fit.
void expectTruncationRefused(const Metadata& m) {
    Archive full(m.memSize(), 0);
    ASSERT_TRUE(m.serialise(full));
    for (size_t n = 0; n < full.size; ++n) {
        Archive cut(n, 0);
        if (n) std::memcpy(cut.data, full.data, n);
        std::unique_ptr<Metadata> fresh(
            MetadataFactory::instance().createMetadataRawPtr(m.typeStr()));
        ASSERT_NE(fresh, nullptr);
        EXPECT_FALSE(fresh->deserialise(cut)) << m.typeStr() << " cut at " << n;
        EXPECT_TRUE(cut.failed());
        EXPECT_LE(cut.position, cut.size);
    }
}

template <class M>
void expectRegistered() {
    const auto it = expectedIds().find(M::staticTypeStr());
    ASSERT_NE(it, expectedIds().end()) << M::staticTypeStr();
    EXPECT_EQ(M::staticTypeId(), it->second) << M::staticTypeStr();
    MetadataFactory& f = MetadataFactory::instance();
    EXPECT_EQ(f.getMetadataName(M::staticTypeId()), M::staticTypeStr());
    std::shared_ptr<Metadata> made = f.createMetadata(M::staticTypeStr());
    ASSERT_NE(dynamic_cast<M*>(made.get()), nullptr);
    EXPECT_EQ(made->typeStr(), M::staticTypeStr());
    EXPECT_EQ(made->typeId(), M::staticTypeId());
    std::unique_ptr<Metadata> raw(M::creator());
    EXPECT_NE(dynamic_cast<M*>(raw.get()), nullptr);
}

template <class T>
class ScalarValueTest : public ::testing::Test {
protected:
    void SetUp() override { initZeltoCore(); }
};
TYPED_TEST_SUITE(ScalarValueTest, ScalarTypes);

TYPED_TEST(ScalarValueTest, IsRegisteredUnderItsNameAndId) {
    using M = MetadataImpl<TypeParam>;
    expectRegistered<M>();
    EXPECT_FALSE(M().isArray());
}

TYPED_TEST(ScalarValueTest, RoundTripsDefaultAndSampleValues) {
    using M = MetadataImpl<TypeParam>;
    expectRoundTrip(M());
    expectRoundTrip(M(sample<TypeParam>()));
    EXPECT_NE(hashOf(M()), hashOf(M(sample<TypeParam>())));
}

TYPED_TEST(ScalarValueTest, RefusesEveryTruncation) {
    expectTruncationRefused(MetadataImpl<TypeParam>(sample<TypeParam>()));
}

TYPED_TEST(ScalarValueTest, CopyCloneAndComparisonWithOtherTypes) {
    using M = MetadataImpl<TypeParam>;
    M a(sample<TypeParam>());
    M b;
    b.copy(&a);
    EXPECT_EQ(hashOf(b), hashOf(a));
    b.copy(nullptr);
    EXPECT_EQ(hashOf(b), hashOf(a));
    std::shared_ptr<Metadata> c = a.clone();
    EXPECT_NE(dynamic_cast<M*>(c.get()), nullptr);
    EXPECT_EQ(hashOf(*c), hashOf(a));

    EXPECT_TRUE(a.isEqual(&a, 0.0));
    EXPECT_FALSE(a.isGreater(&a));
    EXPECT_FALSE(a.isLess(&a));
    EXPECT_FALSE(a.isEqual(nullptr, 1.0));
    MetadataImpl<std::string> text("x");
    MetadataImpl<int> number(1);
    Metadata* other = std::is_same_v<TypeParam, int> ? static_cast<Metadata*>(&text) : &number;
    EXPECT_FALSE(a.isEqual(other, 1e9));
    EXPECT_FALSE(a.isGreater(other));
    EXPECT_FALSE(a.isLess(other));
}

TYPED_TEST(ScalarValueTest, SerialiseSizesAnEmptyArchiveOnlyForSelfContainedTypes) {
    using M = MetadataImpl<TypeParam>;
    M m(sample<TypeParam>());
    Archive a;
    m.serialise(a);
    if (ValueTraits<TypeParam>::kResizeEmptyArchive) {
        EXPECT_EQ(a.size, m.memSize());
        EXPECT_EQ(a.position, m.memSize());
    } else {
        EXPECT_EQ(a.size, 0u);
        EXPECT_TRUE(a.failed());
    }
}

template <class T>
class ArrayValueTest : public ::testing::Test {
protected:
    void SetUp() override { initZeltoCore(); }
};
TYPED_TEST_SUITE(ArrayValueTest, ArrayElementTypes);

TYPED_TEST(ArrayValueTest, IsRegisteredAndNamedAfterItsBasicType) {
    using A = TypedArrayMetadata<TypeParam>;
    using B = MetadataImpl<TypeParam>;
    expectRegistered<A>();
    A a;
    EXPECT_TRUE(a.isArray());
    EXPECT_EQ(a.basicTypeStr(), B::staticTypeStr());
    EXPECT_EQ(A::staticBasicTypeStr(), B::staticTypeStr());
    std::string name = B::staticTypeStr();
    name.replace(name.size() - 8, 8, "ArrayMetadata");
    EXPECT_EQ(A::staticTypeStr(), name);
}

TYPED_TEST(ArrayValueTest, RoundTripsEmptyAndSampleArrays) {
    using A = TypedArrayMetadata<TypeParam>;
    expectRoundTrip(A());
    expectRoundTrip(A(sampleArray<TypeParam>()));
    EXPECT_EQ(A().memSize(), 12u);
    EXPECT_NE(hashOf(A()), hashOf(A(sampleArray<TypeParam>())));
}

TYPED_TEST(ArrayValueTest, RefusesEveryTruncation) {
    expectTruncationRefused(TypedArrayMetadata<TypeParam>(sampleArray<TypeParam>()));
}

TYPED_TEST(ArrayValueTest, HandsOutElementsAsBasicValues) {
    using A = TypedArrayMetadata<TypeParam>;
    using B = MetadataImpl<TypeParam>;
    const A a({sample<TypeParam>(), ValueTraits<TypeParam>::defaultValue()});
    std::shared_ptr<Metadata> first = a.getBasicTypeMetadata(0);
    ASSERT_NE(dynamic_cast<B*>(first.get()), nullptr);
    EXPECT_EQ(hashOf(*first), hashOf(B(sample<TypeParam>())));
    a.getBasicTypeMetadataInPlace(1, first);
    EXPECT_EQ(hashOf(*first), hashOf(B()));

    for (const std::shared_ptr<Metadata>& blended :
         {a.getBlendedBasicTypeMetadata(0, 1, 0.5),
          a.getDoubleBlendedBasicTypeMetadata(0, 1, 0.5, 1, 0, 0.25, 0.75)}) {
        ASSERT_NE(blended, nullptr);
        EXPECT_EQ(blended->typeId(), B::staticTypeId());
    }

    A reversed = a;
    reversed.reverse();
    ASSERT_EQ(reversed.size(), 2u);
    EXPECT_EQ(hashOf(*reversed.getBasicTypeMetadata(1)), hashOf(B(sample<TypeParam>())));
}

TYPED_TEST(ArrayValueTest, IsStaticForOneElementAndForEqualElementsUnlessGeometry) {
    using A = TypedArrayMetadata<TypeParam>;
    const TypeParam v = sample<TypeParam>();
    EXPECT_FALSE(A().isStatic());
    EXPECT_TRUE(A({v}).isStatic());
    const bool comparable = !std::is_base_of_v<GeometryKind<TypeParam>, ValueTraits<TypeParam>>;
    EXPECT_EQ(A({v, v, v}).isStatic(), comparable);
    EXPECT_FALSE(A({v, ValueTraits<TypeParam>::defaultValue()}).isStatic());
}

TYPED_TEST(ArrayValueTest, DistinctArraysAreNeverEqual) {
    using A = TypedArrayMetadata<TypeParam>;
    A a(sampleArray<TypeParam>());
    A b(sampleArray<TypeParam>());
    EXPECT_TRUE(a.isEqual(&a, 0.0));
    EXPECT_FALSE(a.isEqual(&b, 1e9));
    EXPECT_FALSE(a.isGreater(&b));
    EXPECT_FALSE(a.isLess(&b));
    std::vector<std::shared_ptr<Metadata>> values{b.clone()};
    EXPECT_FALSE(a.setWithValuesAndWeights(values, {1.0}));
}

}  // namespace
