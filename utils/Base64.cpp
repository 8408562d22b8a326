#include "utils/Base64.h"

#include <array>
#include <cstdint>

namespace ZeltoUtils {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr uint8_t kInvalid = 0xff;

constexpr std::array<uint8_t, 256> makeDecodeTable() {
    std::array<uint8_t, 256> table{};
    for (auto& entry : table)
        entry = kInvalid;
    for (uint8_t i = 0; i < 64; ++i)
        table[static_cast<unsigned char>(kAlphabet[i])] = i;
    return table;
}

constexpr std::array<uint8_t, 256> kDecode = makeDecodeTable();

uint8_t sextet(char c) {
    return kDecode[static_cast<unsigned char>(c)];
}

}  // namespace

void Base64::encode(const unsigned char* data, size_t size, std::string& out) {
    const size_t start = out.size();
    out.resize(start + (size + 2) / 3 * 4);
    char* dst = &out[start];
    size_t i = 0;
    for (; i + 3 <= size; i += 3) {
        const uint32_t v = uint32_t(data[i]) << 16 | uint32_t(data[i + 1]) << 8 | data[i + 2];
        *dst++ = kAlphabet[v >> 18];
        *dst++ = kAlphabet[(v >> 12) & 63];
        *dst++ = kAlphabet[(v >> 6) & 63];
        *dst++ = kAlphabet[v & 63];
    }
    if (i < size) {
        const bool two = i + 1 < size;
        const uint32_t v = uint32_t(data[i]) << 16 | (two ? uint32_t(data[i + 1]) << 8 : 0);
        *dst++ = kAlphabet[v >> 18];
        *dst++ = kAlphabet[(v >> 12) & 63];
        *dst++ = two ? kAlphabet[(v >> 6) & 63] : '=';
        *dst++ = '=';
    }
}

size_t Base64::decodeLength(const std::string& text) {
    const size_t n = text.size();
    if (n == 0 || n % 4 != 0) return 0;
    const size_t padding = text[n - 1] != '=' ? 0 : text[n - 2] != '=' ? 1 : 2;
    for (size_t i = 0; i < n - padding; ++i) {
        if (sextet(text[i]) == kInvalid) return 0;
    }
    return n / 4 * 3 - padding;
}

void Base64::decode(const std::string& text, unsigned char* out, size_t& outSize) {
    outSize = 0;
    const size_t length = decodeLength(text);
    if (length == 0) return;
    size_t o = 0;
    for (size_t i = 0; i < text.size(); i += 4) {
        uint32_t v = 0;
        for (size_t j = 0; j < 4; ++j) {
            const char c = text[i + j];
            v = v << 6 | (c == '=' ? 0 : sextet(c));
        }
        const unsigned char bytes[3] = {static_cast<unsigned char>(v >> 16),
                                        static_cast<unsigned char>(v >> 8),
                                        static_cast<unsigned char>(v)};
        for (size_t j = 0; j < 3 && o < length; ++j)
            out[o++] = bytes[j];
    }
    outSize = length;
}

}  // namespace ZeltoUtils
