// Golden byte layouts, the reading, comparison and ordering rules of the scalar values where a
// plausible implementation would go wrong.
#include <cfloat>
#include <climits>
#include <limits>

#include "core/Init.h"
#include "core/metadata/TypedArrayMetadata.h"
#include "tests/metadata/ValueSamples.h"

namespace {

using namespace ZeltoCore;
using namespace ZeltoTest;

template <class T>
std::shared_ptr<Metadata> value(const T& v) {
    return std::make_shared<MetadataImpl<T>>(v);
}

template <class T>
bool equal(const T& a, const T& b, double tolerance) {
    return MetadataImpl<T>(a).isEqual(value(b).get(), tolerance);
}

// "" (neither), ">", "<" or "><" (both): isGreater and isLess.
template <class T>
std::string order(const T& a, const T& b) {
    MetadataImpl<T> ma(a), mb(b);
    return std::string(ma.isGreater(&mb) ? ">" : "") + (ma.isLess(&mb) ? "<" : "");
}

TEST(ScalarLayoutTest, GoldenBytes) {
    initZeltoCore();
    const MurmurHash3 h = sample<MurmurHash3>();
    ZeltoUtils::Curve curve;
    curve.cvs() = {{1, 2, 3}};
    curve.knots() = {0, 1};
    unsigned char px[4] = {1, 2, 3, 4};
    float half = 0.5f;
    ZeltoUtils::Mesh mesh;
    mesh.faceCounts = {3};
    mesh.uvSets = {{"uv", {{0.5f, 1}}, {7}}};

    const std::pair<std::shared_ptr<Metadata>, std::vector<unsigned char>> table[] = {
        {value(true), bytes(13u, '\1')},
        {value(0.5), bytes(4u, 0.5)},
        {value(std::string()), bytes(10u, u64(0))},
        {value(std::string("ab")), bytes(10u, u64(2), 'a', 'b')},
        {value(Imath::V3f(1, 2, 3)), bytes(39u, 1.f, 2.f, 3.f)},
        {value(Imath::Quatd(1, 0.1, 0.2, 0.3)), bytes(8u, 0.1, 0.2, 0.3, 1.0)},
        {value(Imath::Eulerf(1, 2, 3)), bytes(45u, 1.f, 2.f, 3.f)},
        {value(Imath::Box2d()), bytes(29u, DBL_MAX, DBL_MAX, -DBL_MAX, -DBL_MAX)},
        {value(Imath::Box3i()), bytes(49u, INT_MAX, INT_MAX, INT_MAX, INT_MIN, INT_MIN, INT_MIN)},
        {value(h), bytes(106u, h.h1, h.h2)},
        {value(curve), bytes(103u, u64(1), 1.f, 2.f, 3.f, u64(2), 0.f, 1.f, 3u)},
        {value(ZeltoUtils::Image(px, 1, 2, 2)), bytes(102u, 1u, 2u, 2u, u16(0), px)},
        {value(ZeltoUtils::Image(&half, 1, 1, 1)), bytes(102u, 1u, 1u, 1u, u16(1), half)},
        {value(mesh), bytes(101u, u64(0), u64(0), u64(1), 3, u64(0), u64(0), u64(0), u64(0), u64(1),
                            u64(2), 'u', 'v', u64(1), 0.5f, 1.f, u64(1), 7)},
    };
    for (const auto& [m, expected] : table)
        expectRoundTrip(*m, &expected);
}

TEST(ScalarLayoutTest, ReadingKeepsEulerOrderAndResamplesCurves) {
    MetadataImpl<Imath::Eulerd> euler(Imath::Eulerd(0, 0, 0, Imath::Eulerd::YXZ));
    EXPECT_TRUE(euler.deserialise(*archiveOf(bytes(9u, 1., 2., 3.))));
    EXPECT_EQ(euler.get().order(), Imath::Eulerd::YXZ);
    EXPECT_EQ(Imath::V3d(euler.get()), Imath::V3d(1, 2, 3));

    MetadataImpl<ZeltoUtils::SampledCurve> curve;
    EXPECT_TRUE(
        curve.deserialise(*archiveOf(bytes(107u, u64(1), 1.f, 2.f, 3.f, u64(0), 1u, u16(9)))));
    EXPECT_EQ(curve.get().samples().size(), 9u);
}

TEST(ScalarCompareTest, ToleranceAndOrderRules) {
    EXPECT_FALSE(equal(2.0, 2.5, 0.5));     // strict
    EXPECT_FALSE(equal(0.f, 1e-5f, 1e-5));  // the tolerance is a float too
    EXPECT_TRUE(equal(Imath::V3d(0, 0, 0), Imath::V3d(0.5, 0, 0), 0.5));  // inclusive
    EXPECT_TRUE(equal(Imath::V2i(0, 0), Imath::V2i(1, 1), 1.9));          // truncated to 1
    EXPECT_FALSE(equal(Imath::V2i(0, 0), Imath::V2i(1, 1), 0.9));
    const Imath::Quatd q(1, 0, 0, 0);
    EXPECT_TRUE(equal(q, Imath::Quatd(1, 0.5, 0, 0), 0.5));   // vector part inclusive
    EXPECT_FALSE(equal(q, Imath::Quatd(1.5, 0, 0, 0), 0.5));  // scalar part strict
    Imath::M44d m;
    m[3][0] = 1e-12;
    EXPECT_FALSE(equal(Imath::M44d(), m, 1.0));
    EXPECT_FALSE(equal(Imath::Box2f({0, 0}, {1, 1}), Imath::Box2f({0, 0}, {1, 1.0001f}), 1.0));
    ZeltoUtils::SampledCurve c = sample<ZeltoUtils::SampledCurve>();
    c.resample(6);  // the sample count counts
    EXPECT_FALSE(equal(c, sample<ZeltoUtils::SampledCurve>(), 1.0));
    ZeltoUtils::Mesh mesh = sample<ZeltoUtils::Mesh>();
    mesh.uvSets.clear();
    EXPECT_TRUE(equal(mesh, sample<ZeltoUtils::Mesh>(), 0.0));  // records are not compared
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(equal(Imath::V3d(0, nan, 0), Imath::V3d(0, nan, 0), 1e300));

    EXPECT_EQ(order(3000000000u, 1u), ">");
    EXPECT_EQ(order(Imath::V2d(1, 5), Imath::V2d(2, 4)), "");
    EXPECT_EQ(order(Imath::V2d(1, 1), Imath::V2d(1, 1)), "><");
    EXPECT_EQ(order(std::string("b"), std::string("a")), "");
}

}  // namespace

namespace {

template <class M>
std::string textOf(const M& m) {
    std::stringstream s;
    m.toString(s);
    return s.str();
}

}  // namespace

TEST(ScalarTextTest, SeparatorsAndComponentOrder) {
    using ZeltoCore::MetadataImpl;
    using ZeltoCore::TypedArrayMetadata;
    EXPECT_EQ(textOf(MetadataImpl<bool>(true)), "1");
    EXPECT_EQ(textOf(MetadataImpl<char>('k')), "k");
    EXPECT_EQ(textOf(MetadataImpl<Imath::V3d>(Imath::V3d(1, 2, 3))), "(1, 2, 3)");
    EXPECT_EQ(textOf(MetadataImpl<Imath::Quatd>()), "(1, 0, 0, 0)");  // scalar part first
    EXPECT_EQ(textOf(MetadataImpl<Imath::Quatf>(Imath::Quatf(4, 1, 2, 3))), "(4, 1, 2, 3)");
    EXPECT_EQ(textOf(MetadataImpl<Imath::Eulerd>()), "(0, 0, 0, XYZ)");
    EXPECT_EQ(textOf(MetadataImpl<Imath::Eulerd>(Imath::Eulerd(1, 2, 3, Imath::Eulerd::ZXY))),
              "(1, 2, 3, ZXY)");
    EXPECT_EQ(textOf(MetadataImpl<Imath::Box2d>(Imath::Box2d(Imath::V2d(0), Imath::V2d(1)))),
              "min: (0, 0) max: (1, 1)");
    EXPECT_EQ(textOf(MetadataImpl<ZeltoCore::MurmurHash3>()), std::string(32, '0'));
    EXPECT_EQ(textOf(MetadataImpl<ZeltoUtils::Image>()), "");
    EXPECT_EQ(textOf(TypedArrayMetadata<bool>(std::vector<bool>{true, false})), "(1, 0)");
    EXPECT_EQ(textOf(TypedArrayMetadata<std::string>(std::vector<std::string>{"a", "b"})),
              "(a, b)");
    EXPECT_EQ(textOf(TypedArrayMetadata<double>()), "()");
    EXPECT_EQ(textOf(TypedArrayMetadata<ZeltoUtils::Curve>(std::vector<ZeltoUtils::Curve>(1))), "");
}
