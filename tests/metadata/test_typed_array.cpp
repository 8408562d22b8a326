// Typed arrays: golden element layouts, reading rules, hash call sequences, isStatic tolerances
// and damaged input.
#include "core/Init.h"
#include "core/metadata/TypedArrayMetadata.h"
#include "tests/metadata/ValueSamples.h"

namespace {

using namespace ZeltoCore;
using namespace ZeltoTest;

template <class T>
std::shared_ptr<Metadata> array(const std::vector<T>& v) {
    return std::make_shared<TypedArrayMetadata<T>>(v);
}

TEST(TypedArrayLayoutTest, GoldenBytes) {
    initZeltoCore();
    ZeltoUtils::Curve curve;
    curve.cvs() = {{1, 2, 3}};
    const std::pair<std::shared_ptr<Metadata>, std::vector<unsigned char>> table[] = {
        {array<double>({}), bytes(12u, u64(0))},
        {array<bool>({true, false, true}), bytes(14u, u64(3), u16(1), u16(0), u16(1))},
        {array<short>({-2, 3}), bytes(53u, u64(2), short(-2), short(3))},
        {array<std::string>({"hip", ""}), bytes(17u, u64(2), u64(3), 'h', 'i', 'p', u64(0))},
        {array<Imath::V3d>({{1, 2, 3}, {4, 5, 6}}), bytes(15u, u64(2), 1., 2., 3., 4., 5., 6.)},
        {array<Imath::Quatf>({Imath::Quatf(4, 1, 2, 3)}), bytes(65u, u64(1), 1.f, 2.f, 3.f, 4.f)},
        {array<Imath::Eulerd>({Imath::Eulerd(1, 2, 3)}), bytes(18u, u64(1), 1., 2., 3.)},
        {array<Imath::Box2i>({Imath::Box2i({0, 1}, {2, 3})}), bytes(72u, u64(1), 0, 1, 2, 3)},
        {array<ZeltoUtils::Curve>({curve}), bytes(104u, u64(1), u64(1), 1.f, 2.f, 3.f, u64(0), 3u)},
    };
    for (const auto& [m, expected] : table)
        expectRoundTrip(*m, &expected);
}

TEST(TypedArrayReadTest, BoolsEulersAndCounts) {
    // Only a word of exactly 1 reads as true.
    TypedArrayMetadata<bool> flags;
    EXPECT_TRUE(flags.deserialise(*archiveOf(bytes(14u, u64(3), u16(2), u16(1), u16(256)))));
    EXPECT_EQ(flags.get(), std::vector<bool>({false, true, false}));

    // The stored count replaces the whole content.
    TypedArrayMetadata<double> five({9, 9, 9, 9, 9});
    EXPECT_TRUE(five.deserialise(*archiveOf(bytes(12u, u64(3), 1., 2., 3.))));
    EXPECT_EQ(five.get(), std::vector<double>({1, 2, 3}));

    // Existing Euler elements keep their order, new ones get XYZ.
    TypedArrayMetadata<Imath::Eulerd> eulers({Imath::Eulerd(0, 0, 0, Imath::Eulerd::YZX)});
    EXPECT_TRUE(eulers.deserialise(*archiveOf(bytes(18u, u64(2), 0., 0., 0., 1., 2., 3.))));
    EXPECT_EQ(eulers.get()[0].order(), Imath::Eulerd::YZX);
    EXPECT_EQ(eulers.get()[1].order(), Imath::Eulerd::XYZ);

    // Meshes of version-2 archives have no record section.
    std::unique_ptr<Archive> v2 =
        archiveOf(bytes(105u, u64(1), u64(0), u64(0), u64(0), u64(0), u64(0), u64(0), u64(0)));
    v2->version = 2;
    TypedArrayMetadata<ZeltoUtils::Mesh> meshes;
    EXPECT_TRUE(meshes.deserialise(*v2));
    EXPECT_EQ(meshes.size(), 1u);
    EXPECT_EQ(v2->position, v2->size);
}

// Whatever the array held before (fewer, as many or more elements), it ends with exactly the
// stored ones, through the metadata value and through the plain vector operator alike.
template <class T>
void checkReadsFromAnySize(const std::vector<T>& stored, const T& filler) {
    TypedArrayMetadata<T> source(stored);
    Archive bytes(source.memSize(), 0);
    source.serialise(bytes);
    for (size_t held = 0; held <= stored.size() + 2; ++held) {
        TypedArrayMetadata<T> target(std::vector<T>(held, filler));
        bytes.reset();
        EXPECT_TRUE(target.deserialise(bytes));
        EXPECT_EQ(bytes.position, bytes.size);
        EXPECT_TRUE(target.get() == stored) << held;

        std::vector<T> plain(held, filler);
        bytes.reset();
        bytes.skip(sizeof(uint32_t));
        bytes >> plain;
        EXPECT_FALSE(bytes.failed());
        EXPECT_TRUE(plain == stored) << held;
    }
}

TEST(TypedArrayReadTest, AnyHeldSizeEndsWithTheStoredElements) {
    checkReadsFromAnySize<double>({1.5, -2, 3, 4}, 9);
    checkReadsFromAnySize<Imath::Quatf>({Imath::Quatf(4, 1, 2, 3), Imath::Quatf(0.5f, 0, 1, 0)},
                                        Imath::Quatf(7, 7, 7, 7));
    checkReadsFromAnySize<Imath::M44f>({Imath::M44f(2.f), Imath::M44f()}, Imath::M44f(5.f));
}

TEST(TypedArrayHashTest, CallSequences) {
    const MurmurHash3 seeded = hashOf(MetadataImpl<std::string>("seed"));
    auto hashed = [&seeded](const Metadata& m) {
        MurmurHash3 h = seeded;
        m.hash(h);
        return h;
    };
    // Fixed-size elements: one call over the storage.
    const std::vector<int> ints{1, 2, 3};
    MurmurHash3 expected = seeded;
    expected.hash(ints.data(), 12);
    EXPECT_EQ(hashed(TypedArrayMetadata<int>(ints)), expected);
    // Euler elements include their order fields.
    EXPECT_NE(hashed(TypedArrayMetadata<Imath::Eulerf>({Imath::Eulerf(1, 2, 3)})),
              hashed(TypedArrayMetadata<Imath::Eulerf>({{1, 2, 3, Imath::Eulerf::ZYX}})));
    // Strings: one call per element, none for an empty array.
    expected = seeded;
    expected.append(std::string("ab"));
    expected.append(std::string("c"));
    EXPECT_EQ(hashed(TypedArrayMetadata<std::string>({"ab", "c"})), expected);
    EXPECT_EQ(hashed(TypedArrayMetadata<std::string>()), seeded);
    // Geometry: the count, then each element's own sequence.
    const ZeltoUtils::Curve c = sample<ZeltoUtils::Curve>();
    expected = seeded;
    expected.append(uint64_t(1));
    MetadataImpl<ZeltoUtils::Curve>(c).hash(expected);
    EXPECT_EQ(hashed(TypedArrayMetadata<ZeltoUtils::Curve>({c})), expected);
}

template <class T>
bool isStatic(const std::vector<T>& v) {
    return TypedArrayMetadata<T>(v).isStatic();
}

TEST(TypedArrayStaticTest, TolerancesPerKind) {
    EXPECT_FALSE(isStatic<double>({1.0, 1.00001}));                       // strict
    EXPECT_TRUE(isStatic<float>({0.f, 1e-5f}));                           // compared in double
    EXPECT_TRUE(isStatic<Imath::V3d>({{0, 0, 0}, {1e-5, -1e-5, 1e-5}}));  // inclusive
    EXPECT_FALSE(isStatic<Imath::V3d>({{0, 0, 0}, {2e-5, 0, 0}}));
    EXPECT_FALSE(isStatic<Imath::V2i>({{0, 0}, {0, 1}}));
    EXPECT_TRUE(isStatic<Imath::Quatd>({{0, 0, 0, 0}, {0, 1e-5, 0, 0}}));
    EXPECT_FALSE(isStatic<Imath::Quatd>({{0, 0, 0, 0}, {1e-5, 0, 0, 0}}));  // scalar part strict
}

TEST(TypedArrayDamageTest, ImpossibleCountsAndSizesAreRefused) {
    // A count far beyond the bytes left: refused before allocating, the content kept.
    std::unique_ptr<Archive> a = archiveOf(bytes(12u, u64(1) << 60, 0., 0.));
    TypedArrayMetadata<double> arr({5.0});
    EXPECT_FALSE(arr.deserialise(*a));
    EXPECT_TRUE(a->failed());
    EXPECT_EQ(arr.get(), std::vector<double>({5.0}));

    // Image dimensions whose product overflows 64 bits.
    std::unique_ptr<Archive> img = archiveOf(bytes(102u, ~0u, ~0u, ~0u, u16(1)));
    MetadataImpl<ZeltoUtils::Image> image;
    EXPECT_FALSE(image.deserialise(*img));
    EXPECT_EQ(image.get().numSamples(), 0u);

    // No room to write: reported, nothing written past the end.
    Archive small(20, 0);
    EXPECT_FALSE(TypedArrayMetadata<double>({1, 2, 3}).serialise(small));
    EXPECT_LE(small.position, small.size);
}

}  // namespace
