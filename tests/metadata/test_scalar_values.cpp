// Byte layouts, comparison rules and text of the scalar values where a plausible implementation
// would go wrong.
#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <sstream>
#include <string>

#include "core/Init.h"
#include "core/metadata/MetadataImpl.h"
#include "tests/metadata/ValueSamples.h"

namespace {

using namespace ZeltoCore;
using namespace ZeltoTest;

template <class T>
T at(const Archive& a, size_t offset) {
    T v;
    std::memcpy(&v, a.data + offset, sizeof(T));
    return v;
}

std::string textOf(const Metadata& m) {
    std::stringstream s;
    m.toString(s);
    return s.str();
}

template <class T>
std::string text(const T& v) {
    return textOf(MetadataImpl<T>(v));
}

template <class T>
bool equal(const T& a, const T& b, double tolerance) {
    MetadataImpl<T> ma(a), mb(b);
    return ma.isEqual(&mb, tolerance);
}

template <class T>
std::pair<bool, bool> order(const T& a, const T& b) {
    MetadataImpl<T> ma(a), mb(b);
    return {ma.isGreater(&mb), ma.isLess(&mb)};
}

class ScalarLayoutTest : public ::testing::Test {
protected:
    void SetUp() override { initZeltoCore(); }
};

TEST_F(ScalarLayoutTest, DoubleSizesAnEmptyArchiveAndWritesIdThenValue) {
    Archive a;
    EXPECT_TRUE(MetadataImpl<double>(0.5).serialise(a));
    ASSERT_EQ(a.size, 12u);
    EXPECT_EQ(a.position, 12u);
    EXPECT_EQ(at<uint32_t>(a, 0), 4u);
    EXPECT_EQ(at<double>(a, 4), 0.5);
}

TEST_F(ScalarLayoutTest, FixedSizes) {
    EXPECT_EQ(MetadataImpl<bool>().memSize(), 5u);
    EXPECT_EQ(MetadataImpl<unsigned short>().memSize(), 6u);
    EXPECT_EQ(MetadataImpl<float>().memSize(), 8u);
    EXPECT_EQ(MetadataImpl<uint64_t>().memSize(), 12u);
    EXPECT_EQ(MetadataImpl<Imath::Eulerf>().memSize(), 16u);
    EXPECT_EQ(MetadataImpl<Imath::Eulerd>().memSize(), 28u);
    EXPECT_EQ(MetadataImpl<Imath::Quatf>().memSize(), 20u);
    EXPECT_EQ(MetadataImpl<Imath::M44d>().memSize(), 132u);
    EXPECT_EQ(MetadataImpl<Imath::Box3d>().memSize(), 52u);
    EXPECT_EQ(MetadataImpl<Imath::Box2i>().memSize(), 20u);
    EXPECT_EQ(MetadataImpl<MurmurHash3>().memSize(), 20u);
}

TEST_F(ScalarLayoutTest, DefaultBoxesAreEmpty) {
    Archive a;
    MetadataImpl<Imath::Box2d>().serialise(a);
    ASSERT_EQ(a.size, 36u);
    EXPECT_EQ(at<uint32_t>(a, 0), 29u);
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(at<double>(a, 4 + 8 * i), DBL_MAX);
        EXPECT_EQ(at<double>(a, 20 + 8 * i), -DBL_MAX);
    }
    const Imath::Box3i box = MetadataImpl<Imath::Box3i>().get();
    EXPECT_EQ(box.min, Imath::V3i(INT_MAX));
    EXPECT_EQ(box.max, Imath::V3i(INT_MIN));
    EXPECT_EQ(MetadataImpl<Imath::Box2f>().get().min.x, FLT_MAX);
}

TEST_F(ScalarLayoutTest, DefaultsOfRotationsAndMatricesAreIdentities) {
    EXPECT_EQ(MetadataImpl<Imath::Quatd>().get(), Imath::Quatd(1, 0, 0, 0));
    EXPECT_EQ(MetadataImpl<Imath::M44f>().get(), Imath::M44f());
    EXPECT_EQ(MetadataImpl<Imath::Eulerd>().get().order(), Imath::Eulerd::XYZ);
    EXPECT_EQ(MetadataImpl<Imath::V4i>().get(), Imath::V4i(0));
}

TEST_F(ScalarLayoutTest, EmptyStringIsIdAndZeroLength) {
    Archive a;
    MetadataImpl<std::string>("").serialise(a);
    ASSERT_EQ(a.size, 12u);
    EXPECT_EQ(at<uint32_t>(a, 0), 10u);
    EXPECT_EQ(at<uint64_t>(a, 4), 0u);
}

TEST_F(ScalarLayoutTest, QuaternionWritesVectorPartThenScalar) {
    Archive a;
    MetadataImpl<Imath::Quatd>(Imath::Quatd(1, 0.1, 0.2, 0.3)).serialise(a);
    ASSERT_EQ(a.size, 36u);
    EXPECT_EQ(at<double>(a, 4), 0.1);
    EXPECT_EQ(at<double>(a, 12), 0.2);
    EXPECT_EQ(at<double>(a, 20), 0.3);
    EXPECT_EQ(at<double>(a, 28), 1.0);
}

TEST_F(ScalarLayoutTest, EulerWritesAnglesAndKeepsTheReadersOrder) {
    MetadataImpl<Imath::Eulerd> written(Imath::Eulerd(1, 2, 3, Imath::Eulerd::ZYX));
    Archive a;
    written.serialise(a);
    ASSERT_EQ(a.size, 28u);
    EXPECT_EQ(at<double>(a, 4), 1.0);
    EXPECT_EQ(at<double>(a, 20), 3.0);

    MetadataImpl<Imath::Eulerd> reader(Imath::Eulerd(0, 0, 0, Imath::Eulerd::YXZ));
    a.reset();
    EXPECT_TRUE(reader.deserialise(a));
    EXPECT_EQ(reader.get().order(), Imath::Eulerd::YXZ);
    EXPECT_EQ(Imath::V3d(reader.get()), Imath::V3d(1, 2, 3));
}

TEST_F(ScalarLayoutTest, HashValueWritesBothWords) {
    MurmurHash3 h;
    h.h1 = 0x0102030405060708ull;
    h.h2 = 42;
    Archive a;
    MetadataImpl<MurmurHash3>(h).serialise(a);
    ASSERT_EQ(a.size, 20u);
    EXPECT_EQ(at<uint32_t>(a, 0), 106u);
    EXPECT_EQ(at<uint64_t>(a, 4), h.h1);
    EXPECT_EQ(at<uint64_t>(a, 12), 42u);
}

TEST_F(ScalarLayoutTest, CurveLayoutAndSampledCurveResamplesOnRead) {
    ZeltoUtils::SampledCurve c = sample<ZeltoUtils::SampledCurve>();
    c.resample(9);
    MetadataImpl<ZeltoUtils::SampledCurve> m(c);
    EXPECT_EQ(m.memSize(), 26u + 12 * 4 + 4 * 8);
    Archive a(m.memSize(), 0);
    m.serialise(a);
    EXPECT_EQ(at<uint32_t>(a, 0), 107u);
    EXPECT_EQ(at<uint64_t>(a, 4), 4u);
    EXPECT_EQ(at<float>(a, 12 + 3 * 12), 3.0f);  // x of the fourth control point
    EXPECT_EQ(at<uint64_t>(a, 60), 8u);
    EXPECT_EQ(at<uint32_t>(a, 100), 3u);
    EXPECT_EQ(at<uint16_t>(a, 104), 9u);

    a.reset();
    MetadataImpl<ZeltoUtils::SampledCurve> back;
    EXPECT_TRUE(back.deserialise(a));
    EXPECT_EQ(back.get().sampleCount(), 9u);
    EXPECT_EQ(back.get().samples().size(), 9u);
    EXPECT_TRUE(back.isEqual(&m, 0.0));
}

TEST_F(ScalarLayoutTest, ImageLayoutForFloatAndByteSamples) {
    MetadataImpl<ZeltoUtils::Image> floats(sample<ZeltoUtils::Image>());
    EXPECT_EQ(floats.memSize(), 18u + 6 * 4);
    Archive a(floats.memSize(), 0);
    floats.serialise(a);
    EXPECT_EQ(at<uint32_t>(a, 4), 2u);
    EXPECT_EQ(at<uint32_t>(a, 12), 3u);
    EXPECT_EQ(at<uint16_t>(a, 16), 1u);
    EXPECT_EQ(at<float>(a, 18 + 4 * 5), 2.0f);

    unsigned char px[4] = {1, 2, 3, 4};
    MetadataImpl<ZeltoUtils::Image> bytes(ZeltoUtils::Image(px, 1, 2, 2));
    EXPECT_EQ(bytes.memSize(), 22u);
    Archive b(bytes.memSize(), 0);
    bytes.serialise(b);
    b.reset();
    MetadataImpl<ZeltoUtils::Image> back;
    EXPECT_TRUE(back.deserialise(b));
    ASSERT_NE(back.get().byteSamples(), nullptr);
    EXPECT_EQ(back.get().byteSamples()[3], 4);
    EXPECT_EQ(back.get().channels(), 2u);
}

TEST_F(ScalarLayoutTest, MeshRecordsAreReadFromVersionThreeOnly) {
    MetadataImpl<ZeltoUtils::Mesh> m(sample<ZeltoUtils::Mesh>());
    // 68 + 12 * (3 + 1 + 1 + 1) + 4 * (1 + 3) + 8 * 2 + record ("map1": 4 + 24 + 8 + 12)
    EXPECT_EQ(m.memSize(), 68u + 72 + 16 + 16 + 48);
    Archive a(m.memSize(), 0);
    m.serialise(a);

    ZeltoUtils::Mesh previous;
    previous.uvSets = {{"old", {}, {7}}};
    a.reset();
    a.version = 2;
    MetadataImpl<ZeltoUtils::Mesh> reader(previous);
    EXPECT_TRUE(reader.deserialise(a));
    EXPECT_EQ(reader.get().points, m.get().points);
    ASSERT_EQ(reader.get().uvSets.size(), 1u);
    EXPECT_EQ(reader.get().uvSets[0].name, "old");

    a.reset();
    a.version = 3;
    EXPECT_TRUE(reader.deserialise(a));
    EXPECT_EQ(reader.get().uvSets[0].name, "map1");
    EXPECT_EQ(reader.get().uvSets[0].indices.size(), 3u);
}

TEST(ScalarCompareTest, FloatsAreStrictVectorsInclusive) {
    EXPECT_FALSE(equal(2.0, 2.5, 0.5));
    EXPECT_TRUE(equal(2.0, 2.5, 0.5000001));
    EXPECT_FALSE(equal(2.0, 2.0, 0.0));  // distinct objects are never equal at tolerance 0
    EXPECT_FALSE(equal(1.0f, 1.5f, 0.5));
    EXPECT_TRUE(equal(Imath::V3d(0, 0, 0), Imath::V3d(0.5, 0, 0), 0.5));
    EXPECT_FALSE(equal(Imath::V3d(0, 0, 0), Imath::V3d(0.5, 0, 0.6), 0.5));
    EXPECT_TRUE(
        equal(Imath::Eulerf(0, 0, 0.25f, Imath::Eulerf::ZYX), Imath::Eulerf(0, 0, 0), 0.25));
}

TEST(ScalarCompareTest, IntegersIgnoreToleranceAndIntVectorsTruncateIt) {
    EXPECT_FALSE(equal(3, 4, 10.0));
    EXPECT_FALSE(equal<unsigned char>(3, 4, 10.0));
    EXPECT_TRUE(equal(Imath::V2i(0, 0), Imath::V2i(1, 1), 1.9));
    EXPECT_FALSE(equal(Imath::V2i(0, 0), Imath::V2i(1, 1), 0.9));
    EXPECT_TRUE(equal(Imath::V4i(INT_MIN), Imath::V4i(INT_MAX), 1e300));
}

TEST(ScalarCompareTest, QuaternionsTestTheScalarPartStrictly) {
    const Imath::Quatd q(1, 0, 0, 0);
    EXPECT_TRUE(equal(q, Imath::Quatd(1, 0.5, 0, 0), 0.5));
    EXPECT_FALSE(equal(q, Imath::Quatd(1.5, 0, 0, 0), 0.5));
    EXPECT_EQ(order(q, q), std::make_pair(false, false));
    EXPECT_EQ(order(Imath::Quatd(2, 1, 1, 1), q), std::make_pair(true, false));
    EXPECT_EQ(order(Imath::Quatd(2, -1, 0, 0), q), std::make_pair(false, false));
}

TEST(ScalarCompareTest, MatricesBoxesAndGeometryCompareExactly) {
    Imath::M44d m;
    Imath::M44d n = m;
    n[3][0] = 1e-12;
    EXPECT_FALSE(equal(m, n, 1.0));
    EXPECT_TRUE(equal(m, m, 0.0));
    EXPECT_FALSE(equal(Imath::Box2f({0, 0}, {1, 1}), Imath::Box2f({0, 0}, {1, 1.0001f}), 1.0));

    ZeltoUtils::Curve c = sample<ZeltoUtils::Curve>();
    EXPECT_TRUE(equal(c, sample<ZeltoUtils::Curve>(), 0.0));
    c.setDegree(2);
    EXPECT_FALSE(equal(c, sample<ZeltoUtils::Curve>(), 1.0));

    ZeltoUtils::Mesh mesh = sample<ZeltoUtils::Mesh>();
    mesh.uvSets.clear();
    EXPECT_TRUE(equal(mesh, sample<ZeltoUtils::Mesh>(), 0.0));  // records are not compared
    mesh.triangles[0].z = 1;
    EXPECT_FALSE(equal(mesh, sample<ZeltoUtils::Mesh>(), 1.0));
}

TEST(ScalarCompareTest, ImagesAreEqualWhenTheyShareStorage) {
    const ZeltoUtils::Image image = sample<ZeltoUtils::Image>();
    const ZeltoUtils::Image copy = image;
    EXPECT_TRUE(equal(image, copy, 0.0));
    EXPECT_FALSE(equal(image, sample<ZeltoUtils::Image>(), 0.0));
}

TEST(ScalarCompareTest, NanIsNeverEqual) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(equal(nan, nan, 1e300));
    EXPECT_FALSE(equal(Imath::V3d(0, nan, 0), Imath::V3d(0, nan, 0), 1e300));
    ZeltoUtils::Mesh a;
    a.points = {{0, float(nan), 0}};
    EXPECT_FALSE(equal(a, a, 1.0));
}

TEST(ScalarCompareTest, OrderingUsesTheValuesOwnType) {
    EXPECT_EQ(order(3000000000u, 1u), std::make_pair(true, false));
    EXPECT_EQ(order<char>(-1, 1), std::make_pair(false, true));
    EXPECT_EQ(order<unsigned char>(200, 100), std::make_pair(true, false));
    EXPECT_EQ(order(true, false), std::make_pair(true, false));
    EXPECT_EQ(order(Imath::V2d(1, 5), Imath::V2d(2, 4)), std::make_pair(false, false));
    EXPECT_EQ(order(Imath::V2d(1, 1), Imath::V2d(1, 1)), std::make_pair(true, true));
    EXPECT_EQ(order(std::string("b"), std::string("a")), std::make_pair(false, false));
    EXPECT_EQ(order(Imath::M44d(), Imath::M44d()), std::make_pair(false, false));
}

TEST(ScalarCompareTest, DifferentTypesHoldingTheSameNumberAreUnrelated) {
    MetadataImpl<double> d(1.0);
    MetadataImpl<float> f(1.0f);
    EXPECT_FALSE(d.isEqual(&f, 1.0));
    EXPECT_FALSE(d.isGreater(&f));
    EXPECT_FALSE(d.isLess(&f));
}

TEST(ScalarTextTest, NumbersCharactersAndFlags) {
    EXPECT_EQ(text(true), "1");
    EXPECT_EQ(text(false), "0");
    EXPECT_EQ(text('a'), "a");
    EXPECT_EQ(text<unsigned char>(65), "A");
    EXPECT_EQ(text<int64_t>(-(int64_t(1) << 40)), "-1099511627776");
    EXPECT_EQ(text(1.0 / 3), "0.333333");
    std::stringstream s;
    s.precision(3);
    MetadataImpl<double>(1.0 / 3).toString(s);
    EXPECT_EQ(s.str(), "0.333");  // the stream's own formatting
    EXPECT_EQ(text(std::string("left knee")), "left knee");
}

TEST(ScalarTextTest, ImathValues) {
    EXPECT_EQ(text(Imath::V3d(1, 2, 3)), "(1, 2, 3)");
    EXPECT_EQ(text(Imath::V4i(1, -2, 3, 4)), "(1, -2, 3, 4)");
    EXPECT_EQ(text(Imath::Quatd()), "(1, 0, 0, 0)");
    EXPECT_EQ(text(Imath::Quatf(0.5f, 1, 2, 3)), "(0.5, 1, 2, 3)");
    EXPECT_EQ(text(Imath::Eulerd()), "(0, 0, 0, XYZ)");
    EXPECT_EQ(text(Imath::Eulerd(1, 2, 3, Imath::Eulerd::ZYX)), "(1, 2, 3, ZYX)");
    Imath::Eulerf rotating;
    rotating.set(Imath::Eulerf::Y, true, false, false);  // initial Y, odd parity, rotating frame
    EXPECT_EQ(text(rotating), "(0, 0, 0, YXZr)");
    EXPECT_EQ(text(Imath::Eulerf(0, 0, 0, Imath::Eulerf::XZX)), "(0, 0, 0, XZX)");
    EXPECT_EQ(text(Imath::M44f()), "(1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1)");
    EXPECT_EQ(text(Imath::Box2d({0, 0}, {1, 1})), "min: (0, 0) max: (1, 1)");
    EXPECT_EQ(text(MurmurHash3()), std::string(32, '0'));
}

TEST(ScalarTextTest, GeometryWritesNothing) {
    EXPECT_EQ(text(sample<ZeltoUtils::Image>()), "");
    EXPECT_EQ(text(sample<ZeltoUtils::Mesh>()), "");
    EXPECT_EQ(text(sample<ZeltoUtils::SampledCurve>()), "");
}

}  // namespace
