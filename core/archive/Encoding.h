// Byte encodings of the primitive, string, vector and Imath values that go into an Archive.
//
// Encoding<T> says how one value is laid out: its encoded size and, when the layout equals the
// in-memory bytes on this (little-endian) host, `raw` so vectors of it move as one block. Quat
// (x, y, z, r on the wire, r first in memory) and Euler (angles only) are converted per value.
//
//   Archive a(8 + 3 * 24, 0);
//   a << std::vector<Imath::V3d>{...};
#pragma once

// Declarations suffice: a value's layout is used only where the caller has the complete type.
#include <Imath/ImathForward.h>

#include <cstddef>
#include <cstring>
#include <type_traits>

namespace ZeltoCore {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the archive format is little-endian");

// Primary template: not encodable.
template <class T, class = void>
struct Encoding {
    static constexpr bool defined = false;
};

// Types whose wire bytes are their memory bytes.
template <class T>
struct RawEncoding {
    static constexpr bool defined = true;
    static constexpr bool raw = true;
    static constexpr size_t size = sizeof(T);
    static void store(unsigned char* out, const T& v) {
        std::memcpy(out, static_cast<const void*>(&v), sizeof(T));
    }
    static void load(const unsigned char* in, T& v) {
        std::memcpy(static_cast<void*>(&v), in, sizeof(T));
    }
};

template <class T>
struct Encoding<T, std::enable_if_t<std::is_arithmetic_v<T> && !std::is_same_v<T, bool>>>
    : RawEncoding<T> {};

// A scalar bool is one byte, 0 or 1; any non-zero byte reads as true.
template <>
struct Encoding<bool> {
    static constexpr bool defined = true;
    static constexpr bool raw = false;
    static constexpr size_t size = 1;
    static void store(unsigned char* out, const bool& v) { *out = v ? 1 : 0; }
    static void load(const unsigned char* in, bool& v) { v = *in != 0; }
};

template <class T>
struct Encoding<Imath::Vec2<T>> : RawEncoding<Imath::Vec2<T>> {};
template <class T>
struct Encoding<Imath::Vec3<T>> : RawEncoding<Imath::Vec3<T>> {};
template <class T>
struct Encoding<Imath::Vec4<T>> : RawEncoding<Imath::Vec4<T>> {};
template <class T>
struct Encoding<Imath::Matrix44<T>> : RawEncoding<Imath::Matrix44<T>> {};
template <class V>
struct Encoding<Imath::Box<V>> : RawEncoding<Imath::Box<V>> {};

template <class T>
struct Encoding<Imath::Quat<T>> {
    static constexpr bool defined = true;
    static constexpr bool raw = false;
    static constexpr size_t size = 4 * sizeof(T);
    static void store(unsigned char* out, const Imath::Quat<T>& q) {
        std::memcpy(out, static_cast<const void*>(&q.v), 3 * sizeof(T));
        std::memcpy(out + 3 * sizeof(T), &q.r, sizeof(T));
    }
    static void load(const unsigned char* in, Imath::Quat<T>& q) {
        std::memcpy(static_cast<void*>(&q.v), in, 3 * sizeof(T));
        std::memcpy(&q.r, in + 3 * sizeof(T), sizeof(T));
    }
};

// Only the angles travel; a value read back keeps its rotation order.
template <class T>
struct Encoding<Imath::Euler<T>> {
    static constexpr bool defined = true;
    static constexpr bool raw = false;
    static constexpr size_t size = 3 * sizeof(T);
    static void store(unsigned char* out, const Imath::Euler<T>& e) {
        std::memcpy(out, &e.x, sizeof(T));
        std::memcpy(out + sizeof(T), &e.y, sizeof(T));
        std::memcpy(out + 2 * sizeof(T), &e.z, sizeof(T));
    }
    static void load(const unsigned char* in, Imath::Euler<T>& e) {
        std::memcpy(&e.x, in, sizeof(T));
        std::memcpy(&e.y, in + sizeof(T), sizeof(T));
        std::memcpy(&e.z, in + 2 * sizeof(T), sizeof(T));
    }
};

template <class T>
inline constexpr bool isEncodable = Encoding<T>::defined;

}  // namespace ZeltoCore
