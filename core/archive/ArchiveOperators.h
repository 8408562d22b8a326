// operator<< / operator>> of Archive for every encodable value, std::string and std::vector.
// Reads never allocate for a count or length that cannot fit in the bytes left.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
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

// Walks encoded elements in a buffer as values, so a vector can be filled straight from it.
template <class T>
class EncodedIterator {
public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = T;
    using difference_type = std::ptrdiff_t;
    using pointer = const T*;
    using reference = T;

    explicit EncodedIterator(const unsigned char* at) : m_at(at) {}
    T operator*() const {
        T v{};
        Encoding<T>::load(m_at, v);
        return v;
    }
    EncodedIterator& operator++() {
        m_at += Encoding<T>::size;
        return *this;
    }
    EncodedIterator operator++(int) {
        EncodedIterator old = *this;
        ++*this;
        return old;
    }
    bool operator==(const EncodedIterator& o) const { return m_at == o.m_at; }
    bool operator!=(const EncodedIterator& o) const { return m_at != o.m_at; }

private:
    const unsigned char* m_at;
};

// Reads n elements into v, leaving it with exactly n: the elements it already holds are read in
// place, the others are appended straight from the buffer, so growing never value-initialises
// first (a pass over the whole array). The caller has checked that n elements fit.
template <class T>
inline void readVector(Archive& a, std::vector<T>& v, size_t n) {
    const size_t held = v.size() < n ? v.size() : n;
    v.resize(held);
    readElements(a, v.data(), held);
    if (n == held) return;
    const unsigned char* in = a.take((n - held) * Encoding<T>::size);
    if (!in) return;
    v.reserve(n);
    v.insert(v.end(), EncodedIterator<T>(in),
             EncodedIterator<T>(in + (n - held) * Encoding<T>::size));
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
    if constexpr (std::is_same_v<T, bool>) {
        v.resize(n);
        for (uint64_t i = 0; i < n; ++i) {
            bool b = false;
            a >> b;
            v[i] = b;
        }
    } else {
        readVector(a, v, n);
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
