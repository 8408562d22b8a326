#include "utils/Compression.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using ZeltoUtils::compressBuffer;
using ZeltoUtils::decompressBuffer;
using Bytes = std::vector<unsigned char>;

struct FreeDeleter {
    void operator()(unsigned char* p) const { std::free(p); }
};

// nullopt-like: `ok` false when the call returned null.
struct Result {
    bool ok = false;
    Bytes bytes;
};

Result call(unsigned char* (*fn)(unsigned char*, size_t, size_t&), Bytes input) {
    size_t outSize = 12345;
    std::unique_ptr<unsigned char, FreeDeleter> out(fn(input.data(), input.size(), outSize));
    if (!out) {
        EXPECT_EQ(outSize, 0u);
        return {};
    }
    return {true, Bytes(out.get(), out.get() + outSize)};
}

Bytes compress(const Bytes& input) {
    Result r = call(compressBuffer, input);
    EXPECT_TRUE(r.ok);
    return r.bytes;
}

Result decompress(const Bytes& block) {
    return call(decompressBuffer, block);
}

Bytes randomBytes(size_t size, unsigned seed) {
    std::mt19937 rng(seed);
    Bytes bytes(size);
    for (auto& b : bytes)
        b = static_cast<unsigned char>(rng());
    return bytes;
}

// A small serialised record: type id, key, a few doubles.
Bytes record(int i) {
    Bytes bytes = {15, 0, 0, 0};
    const std::string key = "joint_" + std::to_string(i % 97) + "_zelto_poleVector";
    bytes.insert(bytes.end(), key.begin(), key.end());
    for (double v : {1.0, 0.25 * i, -3.5}) {
        unsigned char raw[8];
        std::memcpy(raw, &v, 8);
        bytes.insert(bytes.end(), raw, raw + 8);
    }
    return bytes;
}

// 8 MiB of a smooth signal as doubles, with some text mixed in.
Bytes largeCompressible() {
    Bytes bytes;
    bytes.reserve(8 << 20);
    for (int i = 0; bytes.size() < (8u << 20); ++i) {
        const double v = std::sin(i * 0.001) * 100.0;
        unsigned char raw[8];
        std::memcpy(raw, &v, 8);
        bytes.insert(bytes.end(), raw, raw + 8);
        if (i % 64 == 0) {
            const std::string text = "Vector3ArrayMetadata frame " + std::to_string(i);
            bytes.insert(bytes.end(), text.begin(), text.end());
        }
    }
    bytes.resize(8 << 20);
    return bytes;
}

void expectRoundTrip(const Bytes& input, unsigned char method) {
    const Bytes block = compress(input);
    ASSERT_GE(block.size(), 2u);
    EXPECT_EQ(block[0], method) << input.size();
    if (method == 0) {
        EXPECT_LE(block.size(), input.size() + 11);
    } else {
        EXPECT_LT(block.size(), input.size());
    }
    const Result back = decompress(block);
    ASSERT_TRUE(back.ok) << input.size();
    EXPECT_TRUE(back.bytes == input) << input.size();
}

TEST(Compression, RoundTripsChooseTheMethodBySizeAndGain) {
    expectRoundTrip({}, 0);
    expectRoundTrip({42}, 0);
    expectRoundTrip(randomBytes(4000, 1), 0);
    expectRoundTrip(randomBytes(200000, 2), 0);
    expectRoundTrip(Bytes(2000, 0), 1);
    expectRoundTrip(Bytes(ZeltoUtils::kZstdThreshold - 1, 'a'), 1);
    expectRoundTrip(Bytes(ZeltoUtils::kZstdThreshold, 'a'), 2);
    expectRoundTrip(Bytes(8 << 20, 0), 2);  // extreme ratio stays within the bomb limit
    expectRoundTrip(largeCompressible(), 2);
    for (int i = 0; i < 200; ++i) {
        const Bytes value = record(i);
        ASSERT_GE(value.size(), 30u);
        ASSERT_LE(value.size(), 80u);
        const Bytes block = compress(value);
        EXPECT_LE(block.size(), value.size() + 3);
        EXPECT_TRUE(decompress(block).bytes == value);
    }
}

TEST(Compression, BlockLayout) {
    EXPECT_EQ(compress({}), (Bytes{0, 0}));
    EXPECT_EQ(compress({0x7f}), (Bytes{0, 1, 0x7f}));
    // 300 = 0b10'0101100: LEB128 0xAC 0x02.
    const Bytes raw = randomBytes(300, 3);
    Bytes expected = {0, 0xAC, 0x02};
    expected.insert(expected.end(), raw.begin(), raw.end());
    EXPECT_EQ(compress(raw), expected);
    const Bytes zeros = compress(Bytes(300, 0));
    EXPECT_EQ(Bytes(zeros.begin(), zeros.begin() + 3), (Bytes{1, 0xAC, 0x02}));
    // A hand-made stored block decodes.
    EXPECT_EQ(decompress({0, 3, 'a', 'b', 'c'}).bytes, (Bytes{'a', 'b', 'c'}));
    const Result empty = decompress({0, 0});
    EXPECT_TRUE(empty.ok);
    EXPECT_TRUE(empty.bytes.empty());
}

TEST(Compression, RefusesMalformedBlocks) {
    EXPECT_FALSE(decompress({}).ok);
    EXPECT_FALSE(decompress({0}).ok);
    size_t outSize = 1;
    EXPECT_EQ(decompressBuffer(nullptr, 4, outSize), nullptr);
    for (unsigned char method : {3, 0x80, 0xff})
        EXPECT_FALSE(decompress({method, 1, 'x'}).ok);
    EXPECT_FALSE(decompress({1, 0x80}).ok);        // truncated varint
    EXPECT_FALSE(decompress(Bytes(12, 0x80)).ok);  // varint longer than 64 bits
    EXPECT_FALSE(decompress({0, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x7f}).ok);
    EXPECT_FALSE(decompress({0, 4, 'a', 'b', 'c'}).ok);  // stored, short
    EXPECT_FALSE(decompress({0, 2, 'a', 'b', 'c'}).ok);  // stored, trailing byte
    EXPECT_FALSE(decompress({1, 0}).ok);                 // lz4 without payload

    for (const Bytes& input : {Bytes(1000, 'z'), largeCompressible()}) {
        const Bytes block = compress(input);
        ASSERT_NE(block[0], 0);
        // Truncation anywhere fails.
        std::vector<size_t> cuts = {block.size() / 2, block.size() - 1};
        for (size_t n = 0; n < 40 && n < block.size(); ++n)
            cuts.push_back(n);
        for (size_t n : cuts) {
            EXPECT_FALSE(decompress(Bytes(block.begin(), block.begin() + n)).ok) << n;
        }
        // A declared size one off either way is refused.
        for (int delta : {-1, 1}) {
            Bytes wrong;
            wrong.push_back(block[0]);
            uint64_t size = input.size() + delta;
            while (size >= 0x80) {
                wrong.push_back(static_cast<unsigned char>(size | 0x80));
                size >>= 7;
            }
            wrong.push_back(static_cast<unsigned char>(size));
            size_t header = 1;
            while (block[header] & 0x80)
                ++header;
            wrong.insert(wrong.end(), block.begin() + header + 1, block.end());
            EXPECT_FALSE(decompress(wrong).ok) << input.size() << " " << delta;
        }
        // The wrong codec for the payload.
        Bytes swapped = block;
        swapped[0] = block[0] == 1 ? 2 : 1;
        EXPECT_FALSE(decompress(swapped).ok);
    }
}

TEST(Compression, RefusesDecompressionBombs) {
    // A few payload bytes declaring 1 GiB, 3 GiB and 2^40 bytes.
    for (const Bytes& header :
         {Bytes{0x80, 0x80, 0x80, 0x80, 0x04}, Bytes{0x80, 0x80, 0x80, 0x80, 0x0c},
          Bytes{0x80, 0x80, 0x80, 0x80, 0x80, 0x20}}) {
        for (unsigned char method : {0, 1, 2}) {
            Bytes block = {method};
            block.insert(block.end(), header.begin(), header.end());
            const Bytes payload = compress(Bytes(1000, 0));
            block.insert(block.end(), payload.begin() + 3, payload.end());
            EXPECT_FALSE(decompress(block).ok);
        }
    }
}

}  // namespace
