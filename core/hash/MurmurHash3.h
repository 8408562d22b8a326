// MurmurHash3: a 128-bit fingerprint accumulator (x64_128 variant, Austin Appleby).
//
// The two words are the whole state: every hash() call runs the full function, finalisation
// included, seeded with the current words. So the result depends on how input is cut into
// calls, and each append overload fixes that cut for its type. A fresh accumulator fed one
// byte sequence holds the published MurmurHash3_x64_128 of it with seed 0.
//
//   MurmurHash3 h;
//   h.append(3.5); h.append(std::string("joint"));
#pragma once

// Declarations suffice: the Imath appends are templates or take references.
#include <Imath/ImathForward.h>

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <type_traits>
#include <vector>

#include "utils/Export.h"

namespace ZeltoCore {

class ZELTO_API MurmurHash3 {
public:
    uint64_t h1 = 0;
    uint64_t h2 = 0;

    MurmurHash3() = default;
    MurmurHash3(const MurmurHash3&) = default;
    const MurmurHash3& operator=(const MurmurHash3& other) {
        h1 = other.h1;
        h2 = other.h2;
        return *this;
    }

    // Runs the whole hash over `length` bytes with (h1, h2) as the lane seeds.
    void hash(const void* data, size_t length);

    void append(bool v);
    void append(char v) { hash(&v, 1); }
    void append(unsigned char v) { hash(&v, 1); }
    void append(short v) { hash(&v, 2); }
    void append(unsigned short v) { hash(&v, 2); }
    void append(int v) { hash(&v, 4); }
    void append(unsigned int v) { hash(&v, 4); }
    void append(int64_t v) { hash(&v, 8); }
    void append(uint64_t v) { hash(&v, 8); }
    void append(float v) { hash(&v, 4); }
    void append(double v) { hash(&v, 8); }
    void append(const std::string& s) { hash(s.data(), s.size()); }
    void append(const char* s);
    void append(const MurmurHash3& other);

    template <class T>
    void append(const Imath::Vec2<T>& v) {
        hash(&v, sizeof(v));
    }
    template <class T>
    void append(const Imath::Vec3<T>& v) {
        hash(&v, sizeof(v));
    }
    template <class T>
    void append(const Imath::Vec4<T>& v) {
        for (int i = 0; i < 4; ++i)
            hash(&v[i], sizeof(T));
    }
    template <class T>
    void append(const Imath::Quat<T>& q) {
        hash(&q.r, sizeof(T));
        hash(&q.v, sizeof(q.v));
    }
    template <class T>
    void append(const Imath::Matrix44<T>& m) {
        hash(&m, sizeof(m));
    }
    template <class V>
    void append(const Imath::Box<V>& b) {
        hash(&b.min, sizeof(V));
        hash(&b.max, sizeof(V));
    }
    void append(const Imath::Euler<float>& e);
    void append(const Imath::Euler<double>& e);

    // Vectors of fixed-size values: one call over the storage, even when empty.
    template <class T>
    void append(const std::vector<T>& v) {
        // Imath types are not trivially copyable, but their bytes are exactly their components.
        static_assert(std::is_standard_layout_v<T>, "no hash rule for this element type");
        hash(v.data(), v.size() * sizeof(T));
    }
    void append(const std::vector<Imath::Euler<float>>& v);
    void append(const std::vector<Imath::Euler<double>>& v);
    // Element by element; nothing at all when empty.
    void append(const std::vector<std::string>& v);
    void append(const std::vector<bool>& v);

    bool operator==(const MurmurHash3& o) const { return h1 == o.h1 && h2 == o.h2; }
    bool operator!=(const MurmurHash3& o) const { return !(*this == o); }
    bool operator<(const MurmurHash3& o) const { return h1 < o.h1 || (h1 == o.h1 && h2 < o.h2); }
};

// 32 lowercase hex digits: h1 then h2, each zero-padded to 16.
ZELTO_API std::ostream& operator<<(std::ostream& os, const MurmurHash3& h);

}  // namespace ZeltoCore
