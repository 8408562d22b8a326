#include "core/hash/MurmurHash3.h"

#include <Imath/ImathEuler.h>

#include <cstring>
#include <iomanip>
#include <sstream>

namespace ZeltoCore {
namespace {

// The canonical bytes of an Euler for hashing: angles, one byte of order flags, three zero
// bytes, the 32-bit initial axis (20 bytes for float, 32 for double).
template <class T>
constexpr size_t eulerHashSize() {
    return 3 * sizeof(T) + 8;
}
template <class T>
void eulerHashBytes(const Imath::Euler<T>& e, unsigned char* out) {
    std::memcpy(out, &e.x, 3 * sizeof(T));
    unsigned char* tail = out + 3 * sizeof(T);
    tail[0] = static_cast<unsigned char>((e.frameStatic() ? 1 : 0) | (e.initialRepeated() ? 2 : 0) |
                                         (e.parityEven() ? 4 : 0));
    tail[1] = tail[2] = tail[3] = 0;
    const int32_t axis = static_cast<int32_t>(e.initialAxis());
    std::memcpy(tail + 4, &axis, 4);
}

inline uint64_t rotl64(uint64_t x, int r) {
    return (x << r) | (x >> (64 - r));
}

inline uint64_t fmix64(uint64_t k) {
    k ^= k >> 33;
    k *= 0xff51afd7ed558ccdULL;
    k ^= k >> 33;
    k *= 0xc4ceb9fe1a85ec53ULL;
    k ^= k >> 33;
    return k;
}

constexpr uint64_t c1 = 0x87c37b91114253d5ULL;
constexpr uint64_t c2 = 0x4cf5ad432745937fULL;

template <class T>
void appendEulers(MurmurHash3& h, const std::vector<Imath::Euler<T>>& v) {
    constexpr size_t n = eulerHashSize<T>();
    std::vector<unsigned char> bytes(v.size() * n);
    for (size_t i = 0; i < v.size(); ++i)
        eulerHashBytes(v[i], bytes.data() + i * n);
    h.hash(bytes.data(), bytes.size());
}

}  // namespace

void MurmurHash3::hash(const void* key, size_t len) {
    const auto* data = static_cast<const unsigned char*>(key);
    const size_t nblocks = len / 16;
    uint64_t a = h1;
    uint64_t b = h2;

    for (size_t i = 0; i < nblocks; ++i) {
        uint64_t k1;
        uint64_t k2;
        std::memcpy(&k1, data + i * 16, 8);
        std::memcpy(&k2, data + i * 16 + 8, 8);

        k1 *= c1;
        k1 = rotl64(k1, 31);
        k1 *= c2;
        a ^= k1;
        a = rotl64(a, 27);
        a += b;
        a = a * 5 + 0x52dce729;

        k2 *= c2;
        k2 = rotl64(k2, 33);
        k2 *= c1;
        b ^= k2;
        b = rotl64(b, 31);
        b += a;
        b = b * 5 + 0x38495ab5;
    }

    const unsigned char* tail = data + nblocks * 16;
    uint64_t k1 = 0;
    uint64_t k2 = 0;
    switch (len & 15) {
        case 15:
            k2 ^= uint64_t(tail[14]) << 48;
            [[fallthrough]];
        case 14:
            k2 ^= uint64_t(tail[13]) << 40;
            [[fallthrough]];
        case 13:
            k2 ^= uint64_t(tail[12]) << 32;
            [[fallthrough]];
        case 12:
            k2 ^= uint64_t(tail[11]) << 24;
            [[fallthrough]];
        case 11:
            k2 ^= uint64_t(tail[10]) << 16;
            [[fallthrough]];
        case 10:
            k2 ^= uint64_t(tail[9]) << 8;
            [[fallthrough]];
        case 9:
            k2 ^= uint64_t(tail[8]);
            k2 *= c2;
            k2 = rotl64(k2, 33);
            k2 *= c1;
            b ^= k2;
            [[fallthrough]];
        case 8:
            k1 ^= uint64_t(tail[7]) << 56;
            [[fallthrough]];
        case 7:
            k1 ^= uint64_t(tail[6]) << 48;
            [[fallthrough]];
        case 6:
            k1 ^= uint64_t(tail[5]) << 40;
            [[fallthrough]];
        case 5:
            k1 ^= uint64_t(tail[4]) << 32;
            [[fallthrough]];
        case 4:
            k1 ^= uint64_t(tail[3]) << 24;
            [[fallthrough]];
        case 3:
            k1 ^= uint64_t(tail[2]) << 16;
            [[fallthrough]];
        case 2:
            k1 ^= uint64_t(tail[1]) << 8;
            [[fallthrough]];
        case 1:
            k1 ^= uint64_t(tail[0]);
            k1 *= c1;
            k1 = rotl64(k1, 31);
            k1 *= c2;
            a ^= k1;
            break;
        default:
            break;
    }

    a ^= len;
    b ^= len;
    a += b;
    b += a;
    a = fmix64(a);
    b = fmix64(b);
    a += b;
    b += a;
    h1 = a;
    h2 = b;
}

void MurmurHash3::append(bool v) {
    const unsigned char byte = v ? 1 : 0;
    hash(&byte, 1);
}

void MurmurHash3::append(const char* s) {
    hash(s, std::strlen(s));
}

void MurmurHash3::append(const MurmurHash3& other) {
    const uint64_t words[2] = {other.h1, other.h2};
    hash(words, sizeof(words));
}

void MurmurHash3::append(const Imath::Euler<float>& e) {
    unsigned char bytes[eulerHashSize<float>()];
    eulerHashBytes(e, bytes);
    hash(bytes, sizeof(bytes));
}

void MurmurHash3::append(const Imath::Euler<double>& e) {
    unsigned char bytes[eulerHashSize<double>()];
    eulerHashBytes(e, bytes);
    hash(bytes, sizeof(bytes));
}

void MurmurHash3::append(const std::vector<Imath::Euler<float>>& v) {
    appendEulers(*this, v);
}
void MurmurHash3::append(const std::vector<Imath::Euler<double>>& v) {
    appendEulers(*this, v);
}

void MurmurHash3::append(const std::vector<std::string>& v) {
    for (const std::string& s : v)
        hash(s.data(), s.size());
}

void MurmurHash3::append(const std::vector<bool>& v) {
    for (bool b : v)
        append(b);
}

std::ostream& operator<<(std::ostream& os, const MurmurHash3& h) {
    std::ostringstream text;
    text << std::hex << std::setfill('0') << std::setw(16) << h.h1 << std::setw(16) << h.h2;
    return os << text.str();
}

}  // namespace ZeltoCore
