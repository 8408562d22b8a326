// A non-default sample of every metadata value type, the type lists the typed tests run over, and
// the helpers the value tests share (expected bytes, hash, golden layout check).
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "core/metadata/MetadataFactory.h"
#include "core/metadata/MetadataImpl.h"
#include "tests/support/Bytes.h"

namespace ZeltoTest {

using namespace ZeltoCore;

template <class T>
T sample();

// clang-format off
template <> inline bool sample() { return true; }
template <> inline char sample() { return 'z'; }
template <> inline unsigned char sample() { return 200; }
template <> inline short sample() { return -1234; }
template <> inline unsigned short sample() { return 54321; }
template <> inline int sample() { return -123456; }
template <> inline unsigned int sample() { return 3000000000u; }
template <> inline int64_t sample() { return -(int64_t(1) << 40); }
template <> inline uint64_t sample() { return (uint64_t(1) << 63) + 5; }
template <> inline float sample() { return 1.5f; }
template <> inline double sample() { return -2.25; }
template <> inline std::string sample() { return "left knee"; }
template <> inline Imath::V2d sample() { return {1.5, -2}; }
template <> inline Imath::V2i sample() { return {7, -8}; }
template <> inline Imath::V2f sample() { return {0.25f, 4}; }
template <> inline Imath::V3d sample() { return {1, 2, 3.5}; }
template <> inline Imath::V3i sample() { return {-1, 0, 1}; }
template <> inline Imath::V3f sample() { return {9, 8, 7}; }
template <> inline Imath::V4d sample() { return {1, 2, 3, 4}; }
template <> inline Imath::V4i sample() { return {5, 6, 7, 8}; }
template <> inline Imath::V4f sample() { return {0.5f, 1.5f, 2.5f, 3.5f}; }
template <> inline Imath::Quatd sample() { return {0.5, 0.5, -0.5, 0.5}; }
template <> inline Imath::Quatf sample() { return {0.f, 1.f, 0.f, 0.f}; }
template <> inline Imath::Eulerd sample() { return Imath::Eulerd(0.1, 0.2, 0.3); }
template <> inline Imath::Eulerf sample() { return Imath::Eulerf(-0.5f, 0.25f, 1.f); }
template <> inline Imath::Box2d sample() { return {{0, 0}, {1, 1}}; }
template <> inline Imath::Box2i sample() { return {{-1, -2}, {3, 4}}; }
template <> inline Imath::Box2f sample() { return {{0.5f, 0}, {1, 2}}; }
template <> inline Imath::Box3d sample() { return {{0, 0, 0}, {1, 2, 3}}; }
template <> inline Imath::Box3i sample() { return {{1, 1, 1}, {2, 2, 2}}; }
template <> inline Imath::Box3f sample() { return {{-1, -1, -1}, {1, 1, 1}}; }
template <> inline Imath::M44d sample() { return {Imath::M33d(1, 2, 0, 0, 1, 0, 0, 0, 3), {4, 5, 6}}; }
template <> inline Imath::M44f sample() { return Imath::M44f(sample<Imath::M44d>()); }
template <> inline MurmurHash3 sample() { MurmurHash3 h; h.append(std::string("x")); return h; }
template <> inline ZeltoUtils::Curve sample() {
    ZeltoUtils::Curve c; c.cvs() = {{0, 0, 0}, {1, 1, 0}, {2, 0, 0}, {3, 1, 0}};
    c.knots() = {0, 0, 0, 0, 1, 1, 1, 1}; c.setDegree(2); return c; }
template <> inline ZeltoUtils::SampledCurve sample() {
    ZeltoUtils::SampledCurve c; static_cast<ZeltoUtils::Curve&>(c) = sample<ZeltoUtils::Curve>();
    c.resample(5); return c; }
template <> inline ZeltoUtils::Mesh sample() {
    // (emplace_back: braced lists of Vec3 trip a false "maybe uninitialised" warning)
    ZeltoUtils::Mesh m; m.points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}; m.normals.emplace_back(0, 0, 1);
    m.faceCounts = {3}; m.faceIndices = {0, 1, 2}; m.uvs = {{0, 0}, {1, 0}};
    m.colors.emplace_back(1, 0, 0); m.triangles.emplace_back(0, 1, 2);
    m.uvSets = {{"map1", {{0.5f, 0.5f}}, {0, 0, 0}}}; return m; }
template <> inline ZeltoUtils::Image sample() {
    float px[6] = {0.f, 0.25f, 0.5f, 0.75f, 1.f, 2.f}; return ZeltoUtils::Image(px, 2, 1, 3); }
// clang-format on

// The typed test lists: the metadata rows of the value type list (the pose and skeleton rows are
// tested with their layers).
template <class... Ts>
struct TypesAfterFirst;
template <class First, class... Ts>
struct TypesAfterFirst<First, Ts...> {
    using type = ::testing::Types<Ts...>;
};
#define ZELTO_TEST_SCALAR_(want, layer, group, T, Name, arrays) ZELTO_VALUE_WHEN(layer, want, , T)
#define ZELTO_TEST_ARRAY_(want, layer, group, T, Name, arrays) \
    ZELTO_VALUE_WHEN(layer, want, ZELTO_VALUE_WHEN(arrays, withArray, , T))
using ScalarTypes = TypesAfterFirst<void ZELTO_VALUE_TYPES(ZELTO_TEST_SCALAR_, metadata)>::type;
using ArrayElementTypes =
    TypesAfterFirst<void ZELTO_VALUE_TYPES(ZELTO_TEST_ARRAY_, metadata)>::type;
#undef ZELTO_TEST_SCALAR_
#undef ZELTO_TEST_ARRAY_

// Widths spelled out in the byte tables.
using u16 = uint16_t;
using u64 = uint64_t;

// The bytes of the given values one after another, as this (little-endian) host stores them.
template <class... Ts>
std::vector<unsigned char> bytes(const Ts&... values) {
    const std::string out = le(values...);
    return {out.begin(), out.end()};
}

inline MurmurHash3 hashOf(const Metadata& m) {
    MurmurHash3 h;
    m.hash(h);
    return h;
}

// An archive holding `content`, positioned at its start.
inline std::unique_ptr<Archive> archiveOf(const std::vector<unsigned char>& content) {
    auto a = std::make_unique<Archive>(content.size(), 0);
    if (!content.empty()) std::memcpy(a->data, content.data(), content.size());
    return a;
}

// `m` writes memSize() bytes (exactly `golden` when given) that read back through the factory, by
// the stored id, as a value of the same type and hash.
inline void expectRoundTrip(const Metadata& m, const std::vector<unsigned char>* golden = nullptr) {
    Archive a(m.memSize(), 0);
    ASSERT_TRUE(m.serialise(a)) << m.typeStr();
    ASSERT_EQ(a.position, a.size) << m.typeStr() << ": memSize() differs from the bytes written";
    if (golden) {
        EXPECT_EQ(std::vector<unsigned char>(a.data, a.data + a.size), *golden);
    }
    a.reset();
    std::shared_ptr<Metadata> back = readMetadata(a);
    ASSERT_NE(back, nullptr) << m.typeStr();
    EXPECT_EQ(a.position, a.size) << m.typeStr();
    EXPECT_EQ(back->typeId(), m.typeId());
    EXPECT_EQ(hashOf(*back), hashOf(m)) << m.typeStr();
}

}  // namespace ZeltoTest
