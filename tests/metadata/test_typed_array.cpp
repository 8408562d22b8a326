// Typed arrays: element layouts, hash call sequences, isStatic tolerances, text, and damaged input.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "core/Init.h"
#include "core/metadata/TypedArrayMetadata.h"
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

Archive& written(Archive& a, const Metadata& m) {
    a.resize(m.memSize());
    a.position = 0;
    EXPECT_TRUE(m.serialise(a));
    EXPECT_EQ(a.position, a.size);
    a.reset();
    return a;
}

std::string textOf(const Metadata& m) {
    std::stringstream s;
    m.toString(s);
    return s.str();
}

MurmurHash3 seeded() {
    MurmurHash3 h;
    h.append(std::string("seed"));
    return h;
}

TEST(TypedArrayLayoutTest, EmptyDoubleArray) {
    TypedArrayMetadata<double> empty;
    Archive a;
    written(a, empty);
    ASSERT_EQ(a.size, 12u);
    EXPECT_EQ(at<uint32_t>(a, 0), 12u);
    EXPECT_EQ(at<uint64_t>(a, 4), 0u);
    EXPECT_EQ(textOf(empty), "()");
    EXPECT_FALSE(empty.isStatic());

    // One zero-length call: it moves a non-fresh accumulator.
    MurmurHash3 h = seeded();
    empty.hash(h);
    MurmurHash3 expected = seeded();
    expected.hash(nullptr, 0);
    EXPECT_EQ(h, expected);
    EXPECT_NE(h, seeded());
}

TEST(TypedArrayLayoutTest, BoolElementsAreSixteenBitWordsAndOnlyOneIsTrue) {
    TypedArrayMetadata<bool> flags({true, false, true});
    EXPECT_EQ(flags.memSize(), 18u);
    Archive a;
    written(a, flags);
    EXPECT_EQ(at<uint16_t>(a, 12), 1u);
    EXPECT_EQ(at<uint16_t>(a, 14), 0u);
    EXPECT_EQ(at<uint16_t>(a, 16), 1u);
    EXPECT_EQ(textOf(flags), "(1, 0, 1)");

    const uint16_t words[3] = {2, 1, 256};
    std::memcpy(a.data + 12, words, 6);
    TypedArrayMetadata<bool> back;
    EXPECT_TRUE(back.deserialise(a));
    EXPECT_EQ(back.get(), std::vector<bool>({false, true, false}));
}

TEST(TypedArrayLayoutTest, VectorsAreOneBlockQuaternionsPutTheScalarLast) {
    TypedArrayMetadata<Imath::V3d> points({{1, 2, 3}, {4, 5, 6}});
    Archive a;
    written(a, points);
    EXPECT_EQ(a.size, 12u + 48);
    EXPECT_EQ(std::memcmp(a.data + 12, points.get().data(), 48), 0);

    TypedArrayMetadata<Imath::Quatf> turns({Imath::Quatf(4, 1, 2, 3)});
    Archive b;
    written(b, turns);
    EXPECT_EQ(at<float>(b, 12), 1.f);
    EXPECT_EQ(at<float>(b, 24), 4.f);
}

TEST(TypedArrayLayoutTest, StringsCurvesAndMeshesUseTheirScalarLayout) {
    TypedArrayMetadata<std::string> names({"hip", ""});
    EXPECT_EQ(names.memSize(), 12u + 11 + 8);
    EXPECT_EQ(textOf(names), "(hip, )");

    const ZeltoUtils::Curve c = sample<ZeltoUtils::Curve>();
    EXPECT_EQ(TypedArrayMetadata<ZeltoUtils::Curve>({c, c}).memSize(),
              12 + 2 * (MetadataImpl<ZeltoUtils::Curve>(c).memSize() - 4));
    const ZeltoUtils::Mesh m = sample<ZeltoUtils::Mesh>();
    EXPECT_EQ(TypedArrayMetadata<ZeltoUtils::Mesh>({m}).memSize(),
              12 + MetadataImpl<ZeltoUtils::Mesh>(m).memSize() - 4);
    EXPECT_EQ(textOf(TypedArrayMetadata<ZeltoUtils::Mesh>({m})), "");
}

TEST(TypedArrayLayoutTest, MeshesOfVersionTwoHaveNoRecords) {
    unsigned char bytes[12 + 56] = {105};
    bytes[4] = 1;  // one mesh, its seven arrays empty
    Archive a(sizeof(bytes), 0);
    std::memcpy(a.data, bytes, sizeof(bytes));
    a.version = 2;
    TypedArrayMetadata<ZeltoUtils::Mesh> meshes;
    EXPECT_TRUE(meshes.deserialise(a));
    EXPECT_EQ(meshes.size(), 1u);
    EXPECT_EQ(a.position, a.size);
}

TEST(TypedArrayLayoutTest, ReadingReplacesTheWholeContent) {
    TypedArrayMetadata<double> three({1, 2, 3});
    Archive a;
    written(a, three);
    TypedArrayMetadata<double> five({9, 9, 9, 9, 9});
    EXPECT_TRUE(five.deserialise(a));
    EXPECT_EQ(five.get(), std::vector<double>({1, 2, 3}));
}

TEST(TypedArrayLayoutTest, EulerElementsKeepTheirOrderNewOnesGetTheDefault) {
    const Imath::Eulerd zyx(1, 2, 3, Imath::Eulerd::ZYX);
    TypedArrayMetadata<Imath::Eulerd> written2({zyx, zyx});
    EXPECT_EQ(written2.memSize(), 12u + 48);
    Archive a;
    written(a, written2);

    TypedArrayMetadata<Imath::Eulerd> fresh;
    EXPECT_TRUE(fresh.deserialise(a));
    ASSERT_EQ(fresh.size(), 2u);
    EXPECT_EQ(fresh.get()[1].order(), Imath::Eulerd::XYZ);
    EXPECT_EQ(Imath::V3d(fresh.get()[1]), Imath::V3d(1, 2, 3));

    TypedArrayMetadata<Imath::Eulerd> existing({Imath::Eulerd(0, 0, 0, Imath::Eulerd::YZX)});
    a.reset();
    EXPECT_TRUE(existing.deserialise(a));
    EXPECT_EQ(existing.get()[0].order(), Imath::Eulerd::YZX);
    EXPECT_EQ(existing.get()[1].order(), Imath::Eulerd::XYZ);
}

TEST(TypedArrayHashTest, CallSequences) {
    // Fixed-size elements: one call over the storage.
    const std::vector<int> ints{1, 2, 3};
    MurmurHash3 h, expected;
    TypedArrayMetadata<int>(ints).hash(h);
    expected.hash(ints.data(), 12);
    EXPECT_EQ(h, expected);

    // Euler elements include their order fields.
    MurmurHash3 xyz, zyx;
    TypedArrayMetadata<Imath::Eulerf>({Imath::Eulerf(1, 2, 3)}).hash(xyz);
    TypedArrayMetadata<Imath::Eulerf>({Imath::Eulerf(1, 2, 3, Imath::Eulerf::ZYX)}).hash(zyx);
    EXPECT_NE(xyz, zyx);

    // Strings: one call per element, none for an empty array.
    MurmurHash3 s = seeded(), se = seeded();
    TypedArrayMetadata<std::string>({"ab", "c"}).hash(s);
    se.append(std::string("ab"));
    se.append(std::string("c"));
    EXPECT_EQ(s, se);
    MurmurHash3 none = seeded();
    TypedArrayMetadata<std::string>().hash(none);
    EXPECT_EQ(none, seeded());

    // Geometry: the count, then each element's own sequence.
    const ZeltoUtils::Curve c = sample<ZeltoUtils::Curve>();
    MurmurHash3 g, ge;
    TypedArrayMetadata<ZeltoUtils::Curve>({c}).hash(g);
    ge.append(uint64_t(1));
    MetadataImpl<ZeltoUtils::Curve>(c).hash(ge);
    EXPECT_EQ(g, ge);
}

TEST(TypedArrayStaticTest, TolerancesPerKind) {
    EXPECT_FALSE(TypedArrayMetadata<double>({1.0, 1.00001}).isStatic());
    EXPECT_TRUE(TypedArrayMetadata<double>({1.0, 1.000009}).isStatic());
    EXPECT_TRUE(TypedArrayMetadata<Imath::V3d>({{0, 0, 0}, {1e-5, -1e-5, 1e-5}}).isStatic());
    EXPECT_FALSE(TypedArrayMetadata<Imath::V3d>({{0, 0, 0}, {2e-5, 0, 0}}).isStatic());
    EXPECT_TRUE(
        TypedArrayMetadata<Imath::M44d>({Imath::M44d(), Imath::M44d() * 1.000001}).isStatic());
    EXPECT_FALSE(TypedArrayMetadata<Imath::V2i>({{0, 0}, {0, 1}}).isStatic());
    EXPECT_TRUE(TypedArrayMetadata<Imath::Eulerd>(
                    {Imath::Eulerd(), Imath::Eulerd(0, 0, 0, Imath::Eulerd::ZYX)})
                    .isStatic());
    // Quaternions: the scalar part strictly, the vector part inclusively.
    const Imath::Quatd q(0, 0, 0, 0);
    EXPECT_TRUE(TypedArrayMetadata<Imath::Quatd>({q, Imath::Quatd(0, 1e-5, 0, 0)}).isStatic());
    EXPECT_FALSE(TypedArrayMetadata<Imath::Quatd>({q, Imath::Quatd(1e-5, 0, 0, 0)}).isStatic());
    const ZeltoUtils::Curve c = sample<ZeltoUtils::Curve>();
    EXPECT_TRUE(TypedArrayMetadata<ZeltoUtils::Curve>({c}).isStatic());
    EXPECT_FALSE(TypedArrayMetadata<ZeltoUtils::Curve>({c, c}).isStatic());
}

TEST(TypedArrayTextTest, ElementsInTheirScalarForm) {
    EXPECT_EQ(textOf(TypedArrayMetadata<char>({'a', 'b'})), "(a, b)");
    EXPECT_EQ(textOf(TypedArrayMetadata<Imath::V2i>({{1, 2}})), "((1, 2))");
    EXPECT_EQ(textOf(TypedArrayMetadata<Imath::Box2i>({Imath::Box2i({0, 0}, {1, 1})})),
              "(min: (0, 0) max: (1, 1))");
}

TEST(TypedArrayDamageTest, AbsurdCountIsRefusedBeforeAllocating) {
    Archive a(12 + 16, 0);
    const uint32_t id = 12;
    const uint64_t count = uint64_t(1) << 60;
    std::memcpy(a.data, &id, 4);
    std::memcpy(a.data + 4, &count, 8);
    std::memset(a.data + 12, 0, 16);
    TypedArrayMetadata<double> arr({5.0});
    EXPECT_FALSE(arr.deserialise(a));
    EXPECT_TRUE(a.failed());
    EXPECT_EQ(arr.get(), std::vector<double>({5.0}));

    // Three elements announced, two present.
    const uint64_t three = 3;
    std::memcpy(a.data + 4, &three, 8);
    a.reset();
    EXPECT_FALSE(arr.deserialise(a));
    EXPECT_TRUE(a.failed());
}

TEST(TypedArrayDamageTest, AbsurdCountsInsideElementsAreRefused) {
    // A mesh array of one element whose first inner count claims more points than bytes left.
    TypedArrayMetadata<ZeltoUtils::Mesh> meshes({sample<ZeltoUtils::Mesh>()});
    Archive a;
    written(a, meshes);
    const uint64_t huge = uint64_t(1) << 62;
    std::memcpy(a.data + 12, &huge, 8);
    TypedArrayMetadata<ZeltoUtils::Mesh> back;
    EXPECT_FALSE(back.deserialise(a));
    EXPECT_TRUE(a.failed());
    EXPECT_LE(a.position, a.size);

    // An image whose dimensions multiply past 64 bits.
    Archive img(4 + 14, 0);
    const uint32_t header[4] = {102, 0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu};
    const uint16_t floats = 1;
    std::memcpy(img.data, header, 16);
    std::memcpy(img.data + 16, &floats, 2);
    MetadataImpl<ZeltoUtils::Image> image;
    EXPECT_FALSE(image.deserialise(img));
    EXPECT_TRUE(img.failed());
    EXPECT_EQ(image.get().numSamples(), 0u);
}

TEST(TypedArrayDamageTest, NoRoomToWriteIsReportedAndNothingOverruns) {
    TypedArrayMetadata<double> arr({1, 2, 3});
    Archive small(20, 0);
    EXPECT_FALSE(arr.serialise(small));
    EXPECT_TRUE(small.failed());
    EXPECT_LE(small.position, small.size);
}

}  // namespace
