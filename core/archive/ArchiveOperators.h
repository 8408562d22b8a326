// operator<< / operator>> of Archive for every encodable value, std::string and std::vector.
// Reads never allocate for a count or length that cannot fit in the bytes left.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

#include "core/archive/Archive.h"
#include "core/archive/Encoding.h"

namespace ZeltoCore {

template <class T, std::enable_if_t<isEncodable<T>, int> = 0>
inline Archive& operator<<(Archive& a, const T& v) {
    unsigned char buf[Encoding<T>::size];
    Encoding<T>::store(buf, v);
    a.write(buf, sizeof(buf));
    return a;
}

template <class T, std::enable_if_t<isEncodable<T>, int> = 0>
inline Archive& operator>>(Archive& a, T& v) {
    unsigned char buf[Encoding<T>::size];
    a.read(buf, sizeof(buf));  // a refused read leaves zeros, and so does the value
    Encoding<T>::load(buf, v);
    return a;
}

inline Archive& operator<<(Archive& a, const std::string& s) {
    const uint64_t n = s.size();
    a.write(&n, sizeof(n));
    a.write(s.data(), s.size());
    return a;
}

inline Archive& operator>>(Archive& a, std::string& s) {
    uint64_t n = 0;
    if (!a.readCount(n, 1)) return a;
    // readCount checked that n fits. Resizing a string that already has the length (a reader
    // reusing its values) fills nothing, so this beats assign() there.
    const unsigned char* bytes = a.take(n);
    s.resize(n);
    if (n) std::memcpy(s.data(), bytes, n);
    return a;
}

// Writes the elements of a contiguous range without its count.
template <class T>
inline void writeElements(Archive& a, const T* p, size_t n) {
    using E = Encoding<T>;
    if constexpr (E::raw) {
        a.write(p, n * sizeof(T));
    } else {
        if (n * E::size > a.remaining()) {
            a.setFailed();
            return;
        }
        unsigned char* out = a.data + a.position;
        for (size_t i = 0; i < n; ++i, out += E::size)
            E::store(out, p[i]);
        a.position += n * E::size;
    }
}

// Reads n elements into p; the caller has checked that n elements fit in the bytes left.
template <class T>
inline void readElements(Archive& a, T* p, size_t n) {
    using E = Encoding<T>;
    if constexpr (E::raw) {
        a.read(p, n * sizeof(T));
    } else {
        if (n * E::size > a.remaining()) {
            a.skip(n * E::size);
            return;
        }
        const unsigned char* in = a.data + a.position;
        for (size_t i = 0; i < n; ++i, in += E::size)
            E::load(in, p[i]);
        a.position += n * E::size;
    }
}

template <class T, std::enable_if_t<isEncodable<T>, int> = 0>
inline Archive& operator<<(Archive& a, const std::vector<T>& v) {
    const uint64_t n = v.size();
    a.write(&n, sizeof(n));
    if constexpr (std::is_same_v<T, bool>) {
        for (bool b : v)
            a << b;
    } else {
        writeElements(a, v.data(), v.size());
    }
    return a;
}

template <class T, std::enable_if_t<isEncodable<T>, int> = 0>
inline Archive& operator>>(Archive& a, std::vector<T>& v) {
    uint64_t n = 0;
    if (!a.readCount(n, Encoding<T>::size)) return a;
    v.resize(n);
    if constexpr (std::is_same_v<T, bool>) {
        for (uint64_t i = 0; i < n; ++i) {
            bool b = false;
            a >> b;
            v[i] = b;
        }
    } else {
        readElements(a, v.data(), v.size());
    }
    return a;
}

inline Archive& operator<<(Archive& a, const std::vector<std::string>& v) {
    const uint64_t n = v.size();
    a.write(&n, sizeof(n));
    for (const std::string& s : v)
        a << s;
    return a;
}

inline Archive& operator>>(Archive& a, std::vector<std::string>& v) {
    uint64_t n = 0;
    if (!a.readCount(n, sizeof(uint64_t))) return a;
    v.resize(n);
    for (std::string& s : v)
        a >> s;
    return a;
}

}  // namespace ZeltoCore
