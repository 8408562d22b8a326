// Weighted blends of scalar values and blends of array elements: the per-type rounding, the
// thresholds and the rotation rules that a straightforward implementation gets wrong.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "core/Init.h"
#include "core/metadata/TypedArrayMetadata.h"
#include "tests/metadata/ValueSamples.h"
#include "tests/support/Matchers.h"

namespace {

using namespace ZeltoCore;
using namespace ZeltoTest;

// setWithValuesAndWeights through the shared-pointer overload, checked against the raw one.
template <class T>
T blend(const std::vector<T>& values, const std::vector<double>& weights,
        T start = ValueTraits<T>::defaultValue()) {
    std::vector<std::shared_ptr<Metadata>> shared;
    std::vector<Metadata*> raw;
    for (const T& v : values) {
        shared.push_back(std::make_shared<MetadataImpl<T>>(v));
        raw.push_back(shared.back().get());
    }
    MetadataImpl<T> a(start), b(start);
    EXPECT_TRUE(a.setWithValuesAndWeights(shared, weights));
    EXPECT_TRUE(b.setWithValuesAndWeights(raw, weights));
    MurmurHash3 ha, hb;
    a.hash(ha);
    b.hash(hb);
    EXPECT_EQ(ha, hb) << "the two overloads differ";
    return a.get();
}

template <class T>
T lerp(const std::vector<T>& elements, double weight) {
    return TypedArrayMetadata<T>(elements).getBlendedBasicTypeValue(0, 1, weight);
}

TEST(WeightedBlendTest, ShapeErrorsLeaveTheValueUnchanged) {
    MetadataImpl<double> m(7.0);
    std::vector<std::shared_ptr<Metadata>> none;
    EXPECT_FALSE(m.setWithValuesAndWeights(none, {}));
    std::vector<std::shared_ptr<Metadata>> three(3, std::make_shared<MetadataImpl<double>>(1.0));
    EXPECT_FALSE(m.setWithValuesAndWeights(three, {0.5, 0.5}));
    EXPECT_EQ(m.get(), 7.0);
}

TEST(WeightedBlendTest, BoolThresholdIsInclusiveNinetyPercent) {
    EXPECT_TRUE(blend<bool>({true, false}, {0.9, 0.1}));
    EXPECT_FALSE(blend<bool>({true, false}, {0.89, 0.11}));
    EXPECT_TRUE(blend<bool>({true}, {1.0}));
    EXPECT_FALSE(blend<bool>({true, true}, {0.4, 0.4}, true));
}

TEST(WeightedBlendTest, IntTruncatesOnceSmallIntegersTruncateEveryTerm) {
    EXPECT_EQ(blend<int>({3, 4}, {0.5, 0.5}), 3);
    EXPECT_EQ(blend<int>({3, 3}, {0.5, 0.5}), 3);
    EXPECT_EQ(blend<short>({3, 3}, {0.5, 0.5}), 2);
    EXPECT_EQ(blend<short>({3, 4}, {0.5, 0.5}), 3);
    EXPECT_EQ(blend<int>({-3}, {0.5}), -1);
    EXPECT_EQ(blend<unsigned char>({200, 100}, {1, 1}), 44);  // wraps in 8 bits
    EXPECT_EQ(blend<unsigned int>({3, 3}, {0.5, 0.5}), 2u);
    EXPECT_EQ(blend<int64_t>({3, 3}, {0.5, 0.5}), 2);
    EXPECT_EQ(blend<uint64_t>({uint64_t(1) << 63}, {1.0}), uint64_t(1) << 63);
}

TEST(WeightedBlendTest, FloatRoundsEveryTermDoubleDoesNot) {
    EXPECT_EQ(blend<float>({1.f, 1.f, 1.f}, {0.1, 0.1, 0.1}), 0.1f + 0.1f + 0.1f);
    EXPECT_EQ(blend<double>({1.0, 1.0, 1.0}, {0.1, 0.1, 0.1}), 0.1 + 0.1 + 0.1);
    EXPECT_EQ(blend<double>({2.0, 4.0}, {-1.0, 2.0}), 6.0);  // weights are used as given
}

TEST(WeightedBlendTest, VectorsByComponentIntWeightsTruncated) {
    const Imath::V3i a(1, 2, 3), b(10, 20, 30);
    EXPECT_EQ(blend<Imath::V3i>({a, b}, {0.5, 0.5}), Imath::V3i(0, 0, 0));
    EXPECT_EQ(blend<Imath::V3i>({a, b}, {1, 1}), Imath::V3i(11, 22, 33));
    EXPECT_EQ(blend<Imath::V2d>({Imath::V2d(1, 2), Imath::V2d(3, 4)}, {0.5, 0.25}),
              Imath::V2d(1.25, 2));
    EXPECT_EQ(blend<Imath::V2f>({Imath::V2f(1, 0)}, {0.1}), Imath::V2f(float(0.1), 0));
}

TEST(WeightedBlendTest, QuaternionsSumWithoutNormalisingOrAligning) {
    const Imath::Quatd q(0.5, 0.5, 0.5, 0.5);
    EXPECT_EQ(blend<Imath::Quatd>({q, q}, {0.5, 0.5}), q);
    EXPECT_EQ(blend<Imath::Quatd>({q, -q}, {0.5, 0.5}), Imath::Quatd(0, 0, 0, 0));
    EXPECT_EQ(blend<Imath::Quatf>({Imath::Quatf(1, 0, 0, 0)}, {2.0}), Imath::Quatf(2, 0, 0, 0));
}

TEST(WeightedBlendTest, MatricesSumElementWise) {
    Imath::M44d t;
    t.setTranslation(Imath::V3d(2, 0, 0));
    const Imath::M44d r = blend<Imath::M44d>({Imath::M44d(), t}, {0.5, 0.5});
    EXPECT_EQ(r[0][0], 1.0);
    EXPECT_EQ(r[3][0], 1.0);
}

TEST(WeightedBlendTest, EulerOrderRules) {
    const Imath::Eulerd zyx(1, 2, 3, Imath::Eulerd::ZYX);
    const Imath::Eulerd r =
        blend<Imath::Eulerd>({zyx, zyx}, {0.5, 0.25}, Imath::Eulerd(0, 0, 0, Imath::Eulerd::YZX));
    EXPECT_EQ(r.order(), Imath::Eulerd::XYZ);
    EXPECT_EQ(Imath::V3d(r), Imath::V3d(0.75, 1.5, 2.25));

    const Imath::Eulerf f = blend<Imath::Eulerf>({Imath::Eulerf(1, 2, 3)}, {2.0},
                                                 Imath::Eulerf(0, 0, 0, Imath::Eulerf::ZXY));
    EXPECT_EQ(f.order(), Imath::Eulerf::ZXY);
    EXPECT_EQ(Imath::V3f(f), Imath::V3f(2, 4, 6));
}

template <class T>
void expectUnsupported() {
    MetadataImpl<T> target(sample<T>());
    std::vector<std::shared_ptr<Metadata>> values{std::make_shared<MetadataImpl<T>>()};
    EXPECT_FALSE(target.setWithValuesAndWeights(values, {1.0})) << target.typeStr();
    MurmurHash3 before, after;
    MetadataImpl<T>(sample<T>()).hash(before);
    target.hash(after);
    EXPECT_EQ(before, after);
}

TEST(WeightedBlendTest, TextsBoxesHashesAndGeometryRefuse) {
    initZeltoCore();
    expectUnsupported<std::string>();
    expectUnsupported<Imath::Box2d>();
    expectUnsupported<Imath::Box3i>();
    expectUnsupported<MurmurHash3>();
    expectUnsupported<ZeltoUtils::Curve>();
    expectUnsupported<ZeltoUtils::SampledCurve>();
    expectUnsupported<ZeltoUtils::Mesh>();
    expectUnsupported<ZeltoUtils::Image>();
}

TEST(ElementBlendTest, NumbersUseSinglePrecisionWeights) {
    EXPECT_FALSE(lerp<bool>({true, false}, 0.5));  // 0.5 is not above 0.5
    EXPECT_TRUE(lerp<bool>({true, false}, 0.4));
    EXPECT_EQ(lerp<int>({0, 10}, 0.25), 2);
    EXPECT_EQ(lerp<short>({-10, 0}, 0.25), -7);
    EXPECT_EQ(lerp<unsigned int>({4000000000u, 4000000000u}, 0.0), 4000000000u);
    EXPECT_EQ(lerp<double>({0.0, 1.0}, 0.1), double(0.1f));
    EXPECT_EQ(lerp<float>({0.f, 1.f}, 0.1), 0.1f);
    const int64_t big = (int64_t(1) << 40) + 1;
    EXPECT_EQ(lerp<int64_t>({big, big}, 0.3), big);
    const uint64_t huge = (uint64_t(1) << 63) + 2048;
    EXPECT_EQ(lerp<uint64_t>({huge, huge}, 0.0), huge);
}

TEST(ElementBlendTest, VectorsBoxesAndEulersByComponent) {
    EXPECT_EQ(lerp<Imath::V3i>({Imath::V3i(0, 10, -10), Imath::V3i(10, 0, 0)}, 0.25),
              Imath::V3i(2, 7, -7));
    const Imath::Box2f from(Imath::V2f(0, 0), Imath::V2f(1, 1));
    const Imath::Box2f to(Imath::V2f(2, 2), Imath::V2f(3, 5));
    const Imath::Box2f box = lerp<Imath::Box2f>({from, to}, 0.5);
    EXPECT_EQ(box.min, Imath::V2f(1, 1));
    EXPECT_EQ(box.max, Imath::V2f(2, 3));
    const Imath::Eulerd e = lerp<Imath::Eulerd>(
        {Imath::Eulerd(0, 0, 0, Imath::Eulerd::ZYX), Imath::Eulerd(1, 2, 4, Imath::Eulerd::ZYX)},
        0.5);
    EXPECT_EQ(e.order(), Imath::Eulerd::XYZ);
    EXPECT_EQ(Imath::V3d(e), Imath::V3d(0.5, 1, 2));
}

TEST(ElementBlendTest, TextsAndGeometryPickTheFirstElement) {
    EXPECT_EQ(lerp<std::string>({"a", "b"}, 1.0), "a");
    const TypedArrayMetadata<std::string> s({"a", "b", "c", "d"});
    EXPECT_EQ(s.getDoubleBlendedBasicTypeMetadataValue(2, 1, 1.0, 3, 0, 1.0, 1.0), "c");
    const ZeltoUtils::Curve c = lerp<ZeltoUtils::Curve>({sample<ZeltoUtils::Curve>(), {}}, 1.0);
    EXPECT_EQ(c.cvs().size(), 4u);
}

TEST(ElementBlendTest, DoubleBlendRoundsTheInnerResults) {
    const TypedArrayMetadata<int> ints({0, 1});
    EXPECT_EQ(ints.getDoubleBlendedBasicTypeMetadataValue(0, 1, 0.5, 0, 1, 0.5, 0.5), 0);
    const TypedArrayMetadata<double> doubles({0.0, 1.0});
    EXPECT_EQ(doubles.getDoubleBlendedBasicTypeMetadataValue(0, 1, 0.5, 0, 1, 0.5, 0.5), 0.5);
    const TypedArrayMetadata<bool> flags({true, false});
    // Inner blends: true (weight 0.25) and false (weight 0.75); outer at 0.5 is not above 0.5.
    EXPECT_FALSE(flags.getDoubleBlendedBasicTypeMetadataValue(0, 1, 0.25, 0, 1, 0.75, 0.5));
    EXPECT_TRUE(flags.getDoubleBlendedBasicTypeMetadataValue(0, 1, 0.25, 0, 1, 0.75, 0.25));
}

TEST(ElementBlendTest, QuaterniondTakesTheShortArcWithoutNormalising) {
    Imath::Quatd q;
    q.setAxisAngle(Imath::V3d(0, 1, 0), 1.0);
    for (double w : {0.0, 0.3, 1.0}) {
        const Imath::Quatd r = lerp<Imath::Quatd>({q, -q}, w);
        EXPECT_NEAR(r.r, -q.r, 1e-7);
        EXPECT_V3_NEAR(r.v, -q.v, 1e-7);
    }
    Imath::Quatd quarter;
    quarter.setAxisAngle(Imath::V3d(0, 0, 1), M_PI / 2);
    Imath::Quatd eighth;
    eighth.setAxisAngle(Imath::V3d(0, 0, 1), M_PI / 4);
    const Imath::Quatd half = lerp<Imath::Quatd>({Imath::Quatd(), quarter}, 0.5);
    EXPECT_NEAR(half.r, eighth.r, 1e-12);
    EXPECT_V3_NEAR(half.v, eighth.v, 1e-12);

    // Nearly parallel inputs blend linearly; the result keeps the inputs' scale.
    const Imath::Quatd linear =
        lerp<Imath::Quatd>({Imath::Quatd(2, 0, 0, 0), Imath::Quatd(2, 0, 0, 0)}, 0.5);
    EXPECT_EQ(linear, Imath::Quatd(2, 0, 0, 0));
}

TEST(ElementBlendTest, QuaternionfNormalisesAndAlignsSigns) {
    const Imath::Quatf r =
        lerp<Imath::Quatf>({Imath::Quatf(2, 0, 0, 0), Imath::Quatf(-2, 0, 0, 0)}, 0.5);
    EXPECT_NEAR(r.r, 1.f, 1e-6);
    EXPECT_NEAR(r.v.length(), 0.f, 1e-6);
}

TEST(ElementBlendTest, MatricesDecomposeInterpolateAndRecompose) {
    Imath::M44d a;
    a.setScale(Imath::V3d(1, 2, 3));
    Imath::M44d rot;
    rot.setAxisAngle(Imath::V3d(0, 1, 0), 0.5);
    a = a * rot;
    a[3][0] = 4;
    a[3][1] = 5;
    a[3][2] = 6;
    for (double w : {0.0, 0.3, 1.0}) {
        EXPECT_M44_NEAR(lerp<Imath::M44d>({a, a}, w), a, 1e-9);
    }

    Imath::M44d b;
    b.setScale(Imath::V3d(3, 3, 3));
    Imath::M44d turn;
    turn.setAxisAngle(Imath::V3d(0, 0, 1), M_PI / 2);
    b = b * turn;
    b.setTranslation(Imath::V3d(10, 0, 0));
    Imath::M44d expected;
    expected.setScale(Imath::V3d(2, 2, 2));
    Imath::M44d halfTurn;
    halfTurn.setAxisAngle(Imath::V3d(0, 0, 1), M_PI / 4);
    expected = expected * halfTurn;
    expected.setTranslation(Imath::V3d(5, 0, 0));
    EXPECT_M44_NEAR(lerp<Imath::M44d>({Imath::M44d(), b}, 0.5), expected, 1e-9);
    EXPECT_M44_NEAR(lerp<Imath::M44f>({Imath::M44f(), Imath::M44f(b)}, 0.5), Imath::M44f(expected),
                    1e-5);
}

TEST(ElementBlendTest, MetadataFormsDeliverTheSameValue) {
    initZeltoCore();
    const TypedArrayMetadata<Imath::V3d> arr({{0, 0, 0}, {2, 4, 8}, {4, 4, 4}});
    const std::shared_ptr<Metadata> made = arr.getBlendedBasicTypeMetadata(0, 1, 0.25);
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(static_cast<MetadataImpl<Imath::V3d>&>(*made).get(), Imath::V3d(0.5, 1, 2));

    std::shared_ptr<Metadata> result = std::make_shared<MetadataImpl<Imath::V3d>>();
    Metadata* const held = result.get();
    arr.getDoubleBlendedBasicTypeMetadataInPlace(0, 1, 0.5, 2, 2, 0.0, 0.5, result);
    EXPECT_EQ(result.get(), held);
    EXPECT_EQ(static_cast<MetadataImpl<Imath::V3d>&>(*result).get(), Imath::V3d(2.5, 3, 4));
    arr.getBasicTypeMetadataInPlace(2, result);
    EXPECT_EQ(static_cast<MetadataImpl<Imath::V3d>&>(*result).get(), Imath::V3d(4, 4, 4));
}

}  // namespace
