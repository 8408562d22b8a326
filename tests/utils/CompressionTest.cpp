#include "utils/Compression.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Bytes = std::vector<unsigned char>;

// The output of compressBuffer/decompressBuffer; `ok` false when they returned null.
struct Result {
    bool ok = false;
    Bytes bytes;
};

Result call(unsigned char* (*fn)(unsigned char*, size_t, size_t&), Bytes input) {
    size_t outSize = 12345;
    unsigned char* out = fn(input.data(), input.size(), outSize);
    Result result{out != nullptr, out ? Bytes(out, out + outSize) : Bytes()};
    if (!out) {
        EXPECT_EQ(outSize, 0u);
    }
    std::free(out);
    return result;
}

Bytes compress(const Bytes& input) {
    return call(ZeltoUtils::compressBuffer, input).bytes;
}
Result decompress(const Bytes& block) {
    return call(ZeltoUtils::decompressBuffer, block);
}

Bytes randomBytes(size_t size) {
    std::mt19937 rng(static_cast<unsigned>(size));
    Bytes bytes(size);
    for (auto& b : bytes)
        b = static_cast<unsigned char>(rng());
    return bytes;
}

// Doubles of a smooth signal with a metadata-like key every few values; 8 MiB by default.
Bytes serialised(size_t size = 8 << 20, int keyEvery = 64) {
    Bytes bytes;
    for (int i = 0; bytes.size() < size; ++i) {
        const double v = std::sin(i * 0.001) * 100.0;
        bytes.insert(bytes.end(), reinterpret_cast<const unsigned char*>(&v),
                     reinterpret_cast<const unsigned char*>(&v) + 8);
        if (i % keyEvery == 0) {
            const std::string key = "joint_" + std::to_string(i % 97) + "_poleVector";
            bytes.insert(bytes.end(), key.begin(), key.end());
        }
    }
    bytes.resize(size);
    return bytes;
}

// `block` with its declared original size replaced.
Bytes withDeclaredSize(const Bytes& block, uint64_t size) {
    size_t header = 1;
    while (block[header] & 0x80)
        ++header;
    Bytes out = {block[0]};
    for (; size >= 0x80; size >>= 7)
        out.push_back(static_cast<unsigned char>(size | 0x80));
    out.push_back(static_cast<unsigned char>(size));
    out.insert(out.end(), block.begin() + header + 1, block.end());
    return out;
}

TEST(Compression, RoundTripsChooseTheMethodBySizeAndGain) {
    const std::pair<Bytes, unsigned char> cases[] = {
        {{}, 0},
        {{42}, 0},
        {randomBytes(4000), 0},
        {randomBytes(200000), 0},
        {Bytes(ZeltoUtils::kZstdThreshold - 1, 0), 1},
        {Bytes(ZeltoUtils::kZstdThreshold, 'a'), 2},
        {Bytes(8 << 20, 0), 2},  // an extreme ratio stays within the bomb limit
        {serialised(), 2},
    };
    for (const auto& [input, method] : cases) {
        const Bytes block = compress(input);
        ASSERT_GE(block.size(), 2u);
        EXPECT_EQ(block[0], method) << input.size();
        EXPECT_LE(block.size(), method == 0 ? input.size() + 11 : input.size() - 1);
        EXPECT_TRUE(decompress(block).bytes == input) << input.size();
    }
    // Small values: never more than the header larger.
    for (int i = 0; i < 100; ++i) {
        const Bytes value = serialised(30 + i % 51, 2 + i % 3);
        const Bytes block = compress(value);
        EXPECT_LE(block.size(), value.size() + 2);
        EXPECT_TRUE(decompress(block).bytes == value);
    }
}

TEST(Compression, BlockLayout) {
    EXPECT_EQ(compress({}), (Bytes{0, 0}));
    EXPECT_EQ(compress({0x7f}), (Bytes{0, 1, 0x7f}));
    // 300 as LEB128: 0xAC 0x02.
    Bytes raw = randomBytes(300);
    raw.insert(raw.begin(), {0, 0xAC, 0x02});
    EXPECT_EQ(compress(Bytes(raw.begin() + 3, raw.end())), raw);
    const Bytes zeros = compress(Bytes(300, 0));
    EXPECT_EQ(Bytes(zeros.begin(), zeros.begin() + 3), (Bytes{1, 0xAC, 0x02}));

    EXPECT_EQ(decompress({0, 3, 'a', 'b', 'c'}).bytes, (Bytes{'a', 'b', 'c'}));
    const Result empty = decompress({0, 0});
    EXPECT_TRUE(empty.ok);
    EXPECT_TRUE(empty.bytes.empty());
}

TEST(Compression, RefusesMalformedBlocks) {
    size_t outSize = 1;
    EXPECT_EQ(ZeltoUtils::decompressBuffer(nullptr, 4, outSize), nullptr);
    const Bytes invalid[] = {
        {},
        {0},
        {3, 1, 'x'},      // unknown method
        {0xff, 1, 'x'},   // unknown method
        {1, 0x80},        // truncated varint
        Bytes(12, 0x80),  // varint longer than 64 bits
        {0, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x7f},
        {0, 4, 'a', 'b', 'c'},  // stored, short
        {0, 2, 'a', 'b', 'c'},  // stored, trailing byte
        {1, 0},                 // LZ4 without payload
    };
    for (const Bytes& block : invalid)
        EXPECT_FALSE(decompress(block).ok) << block.size();

    for (const Bytes& input : {Bytes(1000, 'z'), serialised()}) {
        const Bytes block = compress(input);
        std::vector<size_t> cuts = {block.size() / 2, block.size() - 1};
        for (size_t n = 0; n < 40 && n < block.size(); ++n)
            cuts.push_back(n);
        for (size_t n : cuts) {
            EXPECT_FALSE(decompress(Bytes(block.begin(), block.begin() + n)).ok) << n;
        }
        EXPECT_FALSE(decompress(withDeclaredSize(block, input.size() - 1)).ok);
        EXPECT_FALSE(decompress(withDeclaredSize(block, input.size() + 1)).ok);
        Bytes swapped = block;
        swapped[0] = block[0] == 1 ? 2 : 1;
        EXPECT_FALSE(decompress(swapped).ok);
    }
}

TEST(Compression, RefusesDecompressionBombs) {
    // A 20-byte payload declaring 1 GiB, 3 GiB or 2^40 bytes, whatever the method.
    const Bytes block = compress(Bytes(1000, 0));
    for (uint64_t declared : {uint64_t(1) << 30, uint64_t(3) << 30, uint64_t(1) << 40}) {
        for (unsigned char method : {0, 1, 2}) {
            Bytes bomb = withDeclaredSize(block, declared);
            bomb[0] = method;
            EXPECT_FALSE(decompress(bomb).ok) << declared << " " << int(method);
        }
    }
}

}  // namespace
