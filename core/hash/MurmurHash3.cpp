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

// The function in two halves so that input can be fed in pieces: whole 16-byte blocks, then the
// last 0..15 bytes with the finalisation. hash() is one call of each.
struct State {
    uint64_t a;
    uint64_t b;

    void blocks(const unsigned char* p, size_t count) {
        uint64_t x = a;
        uint64_t y = b;
        for (const unsigned char* end = p + 16 * count; p != end; p += 16) {
            uint64_t k1;
            uint64_t k2;
            std::memcpy(&k1, p, 8);
            std::memcpy(&k2, p + 8, 8);

            k1 *= c1;
            k1 = rotl64(k1, 31);
            k1 *= c2;
            x ^= k1;
            x = rotl64(x, 27);
            x += y;
            x = x * 5 + 0x52dce729;

            k2 *= c2;
            k2 = rotl64(k2, 33);
            k2 *= c1;
            y ^= k2;
            y = rotl64(y, 31);
            y += x;
            y = y * 5 + 0x38495ab5;
        }
        a = x;
        b = y;
    }

    // `tail` holds the last len % 16 bytes of the `len` fed in all.
    void finish(const unsigned char* tail, size_t len) {
        uint64_t k1 = 0;
        uint64_t k2 = 0;
        const size_t rest = len & 15;
        for (size_t i = rest; i > 8; --i)
            k2 = (k2 << 8) | tail[i - 1];
        if (rest > 8) {
            k2 *= c2;
            k2 = rotl64(k2, 33);
            k2 *= c1;
            b ^= k2;
        }
        for (size_t i = rest < 8 ? rest : 8; i > 0; --i)
            k1 = (k1 << 8) | tail[i - 1];
        if (rest) {
            k1 *= c1;
            k1 = rotl64(k1, 31);
            k1 *= c2;
            a ^= k1;
        }
        a ^= len;
        b ^= len;
        a += b;
        b += a;
        a = fmix64(a);
        b = fmix64(b);
        a += b;
        b += a;
    }
};

// Euler arrays hash their canonical bytes as one sequence, produced into a small stack window
// and fed a run of whole blocks at a time.
template <class T>
void appendEulers(MurmurHash3& h, const std::vector<Imath::Euler<T>>& v) {
    constexpr size_t n = eulerHashSize<T>();
    unsigned char window[16 * n];  // a multiple of both 16 and n
    State state{h.h1, h.h2};
    size_t held = 0;
    for (const Imath::Euler<T>& e : v) {
        eulerHashBytes(e, window + held);
        held += n;
        if (held == sizeof(window)) {
            state.blocks(window, sizeof(window) / 16);
            held = 0;
        }
    }
    state.blocks(window, held / 16);
    state.finish(window + held / 16 * 16, v.size() * n);
    h.h1 = state.a;
    h.h2 = state.b;
}

}  // namespace

void MurmurHash3::hash(const void* key, size_t len) {
    const auto* data = static_cast<const unsigned char*>(key);
    State state{h1, h2};
    state.blocks(data, len / 16);
    state.finish(data + len / 16 * 16, len);
    h1 = state.a;
    h2 = state.b;
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
