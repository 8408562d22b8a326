// Weighted blends of scalar values and blends of array elements: the per-type rounding, the
// thresholds and the rotation rules that a straightforward implementation gets wrong.
#include <cmath>

#include "core/Init.h"
#include "core/metadata/ArrayMetadata.h"
#include "core/metadata/MapMetadata.h"
#include "core/metadata/TypedArrayMetadata.h"
#include "tests/metadata/ValueSamples.h"
#include "tests/support/Matchers.h"

namespace {

using namespace ZeltoCore;
using namespace ZeltoTest;

// setWithValuesAndWeights of `values` into a value that held `start`.
template <class T>
T blend(const std::vector<T>& values, const std::vector<double>& weights,
        T start = ValueTraits<T>::defaultValue()) {
    std::vector<std::shared_ptr<Metadata>> shared;
    for (const T& v : values)
        shared.push_back(std::make_shared<MetadataImpl<T>>(v));
    MetadataImpl<T> a(start);
    EXPECT_TRUE(a.setWithValuesAndWeights(shared, weights));
    return a.get();
}

template <class T>
T lerp(const std::vector<T>& elements, double weight) {
    return TypedArrayMetadata<T>(elements).getBlendedBasicTypeValue(0, 1, weight);
}

template <class T>
const T& held(const std::shared_ptr<Metadata>& m) {
    return static_cast<MetadataImpl<T>&>(*m).get();
}

const double kTiny = std::ldexp(1.0, -24);  // half a float ulp at 1

// Both overloads; a weight list of another length, a value of another type or none, an
// unsupported type, and copies from another type or from nothing all leave the target as it was.
TEST(WeightedBlendTest, RefusedBlendsAndCopiesChangeNothing) {
    MetadataImpl<double> m(7.0);
    std::vector<std::shared_ptr<Metadata>> three(3, std::make_shared<MetadataImpl<double>>(1.0));
    MetadataImpl<int> other(3);
    EXPECT_FALSE(m.setWithValuesAndWeights(three, {0.5, 0.5}));
    EXPECT_FALSE(m.setWithValuesAndWeights(std::vector<Metadata*>{three[0].get(), &other}, {1, 1}));
    EXPECT_FALSE(
        m.setWithValuesAndWeights(std::vector<Metadata*>{three[0].get(), nullptr}, {1, 1}));
    m.copy(&other);
    m.copy(nullptr);
    EXPECT_EQ(m.get(), 7.0);
    EXPECT_TRUE(m.setWithValuesAndWeights(std::vector<Metadata*>{three[0].get(), three[1].get()},
                                          {0.5, 2.0}));
    EXPECT_EQ(m.get(), 2.5);

    MetadataImpl<std::string> text("a");
    MetadataImpl<ZeltoUtils::Mesh> mesh;
    for (Metadata* v : std::vector<Metadata*>{&text, &mesh}) {
        const MurmurHash3 before = hashOf(*v);
        EXPECT_FALSE(v->setWithValuesAndWeights(std::vector<Metadata*>{v}, {1.0})) << v->typeStr();
        EXPECT_EQ(hashOf(*v), before);
    }

    TypedArrayMetadata<double> doubles(std::vector<double>{1, 2});
    TypedArrayMetadata<float> floats(std::vector<float>{3});
    doubles.copy(&floats);
    EXPECT_EQ(doubles.get(), (std::vector<double>{1, 2}));
    MapMetadata map;
    map.addEntry("k", std::make_shared<MetadataImpl<int>>(1), false);
    ArrayMetadata array;
    array.push_back(std::make_shared<MetadataImpl<int>>(2));
    map.copy(&array);
    array.copy(&map);
    EXPECT_TRUE(map.hasKey("k"));
    EXPECT_EQ(array.size(), 1u);
}

TEST(WeightedBlendTest, NumbersRoundPerType) {
    EXPECT_TRUE(blend<bool>({true, false}, {0.9, 0.1}));  // threshold 0.9 inclusive
    EXPECT_FALSE(blend<bool>({true, false}, {0.89, 0.11}));
    EXPECT_EQ(blend<int>({3, 3}, {0.5, 0.5}), 3);  // one truncation at the end
    EXPECT_EQ(blend<int>({-3}, {0.5}), -1);
    EXPECT_EQ(blend<short>({3, 3}, {0.5, 0.5}), 2);           // every term truncated
    EXPECT_EQ(blend<unsigned char>({200, 100}, {1, 1}), 44);  // wraps in 8 bits
    EXPECT_EQ(blend<unsigned int>({3, 3}, {0.5, 0.5}), 2u);
    EXPECT_EQ(blend<int64_t>({3, 3}, {0.5, 0.5}), 2);
    EXPECT_EQ(blend<float>({1, 1, 1}, {1, kTiny, kTiny}), 1.f);  // summed in float
    EXPECT_EQ(blend<double>({1, 1, 1}, {1, kTiny, kTiny}), 1 + 2 * kTiny);
    EXPECT_EQ(blend<double>({2.0, 4.0}, {-1.0, 2.0}), 6.0);  // weights as given
}

TEST(WeightedBlendTest, VectorsAndRotationsByComponent) {
    const Imath::V3i a(1, 2, 3), b(10, 20, 30);
    EXPECT_EQ(blend<Imath::V3i>({a, b}, {0.5, 0.5}), Imath::V3i(0, 0, 0));  // weights truncated
    EXPECT_EQ(blend<Imath::V3i>({a, b}, {1, 1}), Imath::V3i(11, 22, 33));
    const Imath::Quatd q(0.5, 0.5, 0.5, 0.5);
    EXPECT_EQ(blend<Imath::Quatd>({q, -q}, {0.5, 0.5}), Imath::Quatd(0, 0, 0, 0));

    // Double angles take the default order, float angles keep the target's.
    const Imath::Eulerd zyx(1, 2, 3, Imath::Eulerd::ZYX), yzx(0, 0, 0, Imath::Eulerd::YZX);
    const Imath::Eulerd e = blend<Imath::Eulerd>({zyx, zyx}, {0.5, 0.25}, yzx);
    EXPECT_EQ(e, Imath::Eulerd(0.75, 1.5, 2.25));
    EXPECT_EQ(e.order(), Imath::Eulerd::XYZ);
    const Imath::Eulerf zxy(0, 0, 0, Imath::Eulerf::ZXY);
    EXPECT_EQ(blend<Imath::Eulerf>({Imath::Eulerf(1, 2, 3)}, {2.0}, zxy).order(), zxy.order());
}

TEST(ElementBlendTest, SinglePrecisionWeights) {
    EXPECT_FALSE(lerp<bool>({true, false}, 0.5));  // 0.5 is not above 0.5
    EXPECT_EQ(lerp<int>({0, 10}, 0.25), 2);
    EXPECT_EQ(lerp<short>({-10, 0}, 0.25), -7);
    EXPECT_EQ(lerp<double>({0.0, 1.0}, 0.1), double(0.1f));
    const int64_t big = (int64_t(1) << 40) + 1;
    EXPECT_EQ(lerp<int64_t>({big, big}, 0.3), big);
    const Imath::Eulerd e = lerp<Imath::Eulerd>(
        {Imath::Eulerd(0, 0, 0, Imath::Eulerd::ZYX), Imath::Eulerd(1, 2, 4, Imath::Eulerd::ZYX)},
        0.5);
    EXPECT_EQ(e, Imath::Eulerd(0.5, 1, 2));
    EXPECT_EQ(e.order(), Imath::Eulerd::XYZ);
}

TEST(ElementBlendTest, DoubleBlendsRoundInnerResultsAndTextsPickTheFirst) {
    const TypedArrayMetadata<int> ints({0, 1});
    EXPECT_EQ(ints.getDoubleBlendedBasicTypeMetadataValue(0, 1, 0.5, 0, 1, 0.5, 0.5), 0);
    const TypedArrayMetadata<bool> flags({true, false});
    // Inner blends: true (weight 0.25) and false (weight 0.75); 0.5 between them is not above 0.5.
    EXPECT_FALSE(flags.getDoubleBlendedBasicTypeMetadataValue(0, 1, 0.25, 0, 1, 0.75, 0.5));
    EXPECT_TRUE(flags.getDoubleBlendedBasicTypeMetadataValue(0, 1, 0.25, 0, 1, 0.75, 0.25));

    EXPECT_EQ(lerp<std::string>({"a", "b"}, 1.0), "a");
    const TypedArrayMetadata<std::string> s({"a", "b", "c", "d"});
    EXPECT_EQ(s.getDoubleBlendedBasicTypeMetadataValue(2, 1, 1.0, 3, 0, 1.0, 1.0), "c");
}

TEST(ElementBlendTest, Quaternions) {
    // Quat<double>: q and -q are one rotation; the short arc flips the first operand.
    Imath::Quatd q;
    q.setAxisAngle(Imath::V3d(0, 1, 0), 1.0);
    const Imath::Quatd r = lerp<Imath::Quatd>({q, -q}, 0.3);
    EXPECT_NEAR(r.r, -q.r, 1e-7);
    EXPECT_V3_NEAR(r.v, -q.v, 1e-7);
    Imath::Quatd quarter, eighth;
    quarter.setAxisAngle(Imath::V3d(0, 0, 1), M_PI / 2);
    eighth.setAxisAngle(Imath::V3d(0, 0, 1), M_PI / 4);
    const Imath::Quatd half = lerp<Imath::Quatd>({Imath::Quatd(), quarter}, 0.5);
    EXPECT_NEAR(half.r, eighth.r, 1e-12);
    EXPECT_V3_NEAR(half.v, eighth.v, 1e-12);
    // Not normalised: nearly parallel inputs blend linearly and keep their length.
    const Imath::Quatd two(2, 0, 0, 0);
    EXPECT_EQ(lerp<Imath::Quatd>({two, two}, 0.5), two);

    // Quat<float>: the second operand is flipped and the result normalised.
    const Imath::Quatf f = lerp<Imath::Quatf>({Imath::Quatf(2, 0, 0, 0), {-2, 0, 0, 0}}, 0.5);
    EXPECT_NEAR(f.r, 1.f, 1e-6);
    EXPECT_NEAR(f.v.length(), 0.f, 1e-6);
}

TEST(ElementBlendTest, MatricesDecomposeInterpolateAndRecompose) {
    // Imath's scale() and rotate() pre-multiply: scale, then rotation, then translation.
    // Scale 1 -> 3, a quarter turn about z, translation 0 -> 10: halfway is scale 2, an eighth
    // turn and translation 5.
    Imath::M44d b, expected;
    b.rotate(Imath::V3d(0, 0, M_PI / 2));
    b.scale(Imath::V3d(3, 3, 3));
    b[3][0] = 10;
    expected.rotate(Imath::V3d(0, 0, M_PI / 4));
    expected.scale(Imath::V3d(2, 2, 2));
    expected[3][0] = 5;
    EXPECT_M44_NEAR(lerp<Imath::M44d>({Imath::M44d(), b}, 0.5), expected, 1e-9);
    EXPECT_M44_NEAR(lerp<Imath::M44f>({Imath::M44f(), Imath::M44f(b)}, 0.5), Imath::M44f(expected),
                    1e-5);
}

TEST(ElementBlendTest, InPlaceFormReusesTheTarget) {
    initZeltoCore();
    const TypedArrayMetadata<Imath::V3d> arr({{0, 0, 0}, {2, 4, 8}, {4, 4, 4}});
    std::shared_ptr<Metadata> result = std::make_shared<MetadataImpl<Imath::V3d>>();
    Metadata* const before = result.get();
    arr.getDoubleBlendedBasicTypeMetadataInPlace(0, 1, 0.5, 2, 2, 0.0, 0.5, result);
    EXPECT_EQ(result.get(), before);
    EXPECT_EQ(held<Imath::V3d>(result), Imath::V3d(2.5, 3, 4));
}

}  // namespace
