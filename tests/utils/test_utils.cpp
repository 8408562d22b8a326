#include "utils/Utils.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/LogCapture.h"

using namespace ZeltoUtils;
using Bytes = std::vector<unsigned char>;
using Maybe = std::optional<Bytes>;

static std::string encoded(const std::string& plain, std::string text = "") {
    Base64().encode(reinterpret_cast<const unsigned char*>(plain.data()), plain.size(), text);
    return text;
}

// Decodes `text`, checking that nothing is written past the decoded length.
static std::string decoded(const std::string& text) {
    std::vector<unsigned char> out(Base64().decodeLength(text) + 8, 0xAA);
    size_t size = 12345;
    Base64().decode(text, out.data(), size);
    for (size_t i = size; i < out.size(); ++i)
        EXPECT_EQ(out[i], 0xAA) << text;
    return std::string(out.begin(), out.begin() + size);
}

TEST(Base64, GoldenVectorsAndRoundTrip) {
    const char* golden[] = {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"};
    for (size_t n = 0; n < 7; ++n) {
        EXPECT_EQ(encoded(std::string("foobar", n), "prefix:"), "prefix:" + std::string(golden[n]));
        EXPECT_EQ(Base64().decodeLength(golden[n]), n);
        EXPECT_EQ(decoded(golden[n]), std::string("foobar", n));
    }
    EXPECT_EQ(encoded("\xfb\xff"), "+/8=");
    std::string bytes;  // every byte value
    for (int i = 0; i < 769; ++i)
        bytes.push_back(static_cast<char>(i * 7 + 1));
    EXPECT_EQ(decoded(encoded(bytes)), bytes);
}

TEST(Base64, InvalidTextDecodesToNothing) {
    for (const std::string& text : std::vector<std::string>{
             "Zg=", "Zm9", "Zm9vY", "Zm 9v", "Zm9v\n", "Zm-v", "Zm_v", "=Zm9", "Z=m9", "Zm=v",
             "Z===", "====", "Zg==Zm9v", "Zm9v====", std::string("Zm\0v", 4)}) {
        EXPECT_EQ(Base64().decodeLength(text), 0u) << text;
        EXPECT_EQ(decoded(text), "") << text;
    }
}

// compressBuffer or decompressBuffer on `in`; nullopt when it returned null.
static Maybe run(unsigned char* (*fn)(unsigned char*, size_t, size_t&), Bytes in) {
    size_t size = 12345;
    unsigned char* out = fn(in.data(), in.size(), size);
    EXPECT_TRUE(out || size == 0);
    const Maybe result = out ? Maybe(Bytes(out, out + size)) : std::nullopt;
    std::free(out);
    return result;
}
static const auto pack = [](const Bytes& in) { return run(compressBuffer, in).value(); };
static const auto unpack = [](const Bytes& in) { return run(decompressBuffer, in); };

// Random bytes below `limit`: incompressible at 256, compressible with varied matches at 2.
static Bytes randomBytes(size_t size, unsigned limit = 256) {
    std::mt19937 rng(static_cast<unsigned>(size));
    Bytes bytes(size);
    std::generate(bytes.begin(), bytes.end(), [&] { return rng() % limit; });
    return bytes;
}

// `block`'s payload under another method byte and declared size.
static Bytes reheaded(const Bytes& block, unsigned char method, uint64_t size) {
    const auto payload =
        std::find_if(block.begin() + 1, block.end(), [](auto b) { return b < 0x80; }) + 1;
    Bytes out = {method};
    for (; size >= 0x80; size >>= 7)
        out.push_back(static_cast<unsigned char>(size | 0x80));
    out.push_back(static_cast<unsigned char>(size));
    out.insert(out.end(), payload, block.end());
    return out;
}

TEST(Compression, BlockLayout) {
    EXPECT_EQ(pack({}), (Bytes{0, 0}));
    EXPECT_EQ(pack({0x7f}), (Bytes{0, 1, 0x7f}));
    const Bytes random = randomBytes(300), stored = pack(random), zeros = pack(Bytes(300, 0));
    EXPECT_EQ(Bytes(stored.begin(), stored.begin() + 3), (Bytes{0, 0xAC, 0x02}));  // 300 as LEB128
    EXPECT_EQ(Bytes(stored.begin() + 3, stored.end()), random);
    EXPECT_EQ(Bytes(zeros.begin(), zeros.begin() + 3), (Bytes{1, 0xAC, 0x02}));
    EXPECT_EQ(unpack({0, 3, 'a', 'b', 'c'}), (Bytes{'a', 'b', 'c'}));
    EXPECT_EQ(unpack({0, 0}), Bytes());
}

TEST(Compression, ChoosesTheMethodAndRefusesDamagedBlocks) {
    // Stored when nothing is gained, LZ4 below kZstdThreshold, zstd from it on (an extreme ratio
    // included). Every truncation is refused, and so is the payload under another method or
    // declared size: one off, or a bomb's 1 GiB, 3 GiB or 2^40.
    const std::pair<Bytes, unsigned char> cases[] = {{randomBytes(100), 0},
                                                     {randomBytes(3000), 0},
                                                     {randomBytes(kZstdThreshold - 1, 2), 1},
                                                     {randomBytes(kZstdThreshold, 2), 2},
                                                     {Bytes(8 << 20, 0), 2}};
    for (const auto& [input, method] : cases) {
        const Bytes block = pack(input);
        EXPECT_EQ(block.at(0), method) << input.size();
        EXPECT_LE(block.size(), method == 0 ? input.size() + 3 : input.size() - 1);
        for (size_t n = 0; n < block.size(); ++n)
            EXPECT_FALSE(unpack(Bytes(block.begin(), block.begin() + n))) << n;
        for (uint64_t size : {input.size() - 1, input.size(), input.size() + 1, uint64_t(1) << 30,
                              uint64_t(3) << 30, uint64_t(1) << 40}) {
            for (unsigned char m : {0, 1, 2, 3, 0xff})
                EXPECT_TRUE(unpack(reheaded(block, m, size)) ==
                            (m == method && size == input.size() ? Maybe(input) : std::nullopt))
                    << input.size() << " " << size << " " << int(m);
        }
    }
    // Varints too long or too large, and LZ4 without payload.
    for (const Bytes& block :
         {Bytes(12, 0x80), Bytes{0, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x7f},
          Bytes{1, 0}})
        EXPECT_FALSE(unpack(block)) << block.size();
    size_t size = 1;
    EXPECT_EQ(decompressBuffer(nullptr, 4, size), nullptr);
}

TEST(Environment, ExpandsBothFormsAndLeavesTheRest) {
    ::setenv("ZELTO_T_DIR", "/data/rigs", 1);
    ::setenv("ZELTO_T_X", "x$ZELTO_T_DIR", 1);
    ::unsetenv("ZELTO_T_UNSET");
    const std::pair<const char*, const char*> cases[] = {
        {"$ZELTO_T_DIR/a.zelto", "/data/rigs/a.zelto"},
        {"${ZELTO_T_DIR}suffix", "/data/rigssuffix"},
        {"$ZELTO_T_DIRsuffix", ""},  // the name runs on: an unset variable
        {"a$ZELTO_T_UNSET/b${ZELTO_T_UNSET}c", "a/bc"},
        {"$ZELTO_T_X", "x$ZELTO_T_DIR"},  // values are not expanded again
        {"$$ZELTO_T_DIR", "$/data/rigs"},
        {"$5 $-x ${} ${1A} ${ZELTO T} $", "$5 $-x ${} ${1A} ${ZELTO T} $"},
        {"${ZELTO_T_DIR", "${ZELTO_T_DIR"},
    };
    for (const auto& [input, expected] : cases)
        EXPECT_EQ(expandEnvironmentVariables(input), expected) << input;
}

TEST(Logger, EmitsMessagesAsStreamedToOneReplaceableHandler) {
    ZeltoTest::LogCapture log;
    {
        auto proxy = Logger::warning();
        proxy << "Joint " << 1 << "  hip ";
        EXPECT_TRUE(log.warnings.empty());
    }
    Logger::error() << 0.5 << " then" << std::endl;
    Logger::warning();
    EXPECT_EQ(log.warnings, (std::vector<std::string>{"Joint 1  hip ", ""}));
    EXPECT_EQ(log.errors, std::vector<std::string>{"0.5 then\n"});

    // An empty handler brings back the default one; restoring the returned handler routes back.
    Logger::Handler previous = Logger::setHandler(nullptr);
    ASSERT_TRUE(previous);
    testing::internal::CaptureStderr();
    Logger::warning() << "to stderr ";
    Logger::error() << "bad";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Warning: to stderr \nError: bad\n");
    EXPECT_TRUE(Logger::setHandler(previous));
    Logger::warning() << "back";
    EXPECT_EQ(log.warnings.back(), "back");

    // Handlers run one at a time.
    const auto logMany = [] {
        for (int i = 0; i < 1000; ++i)
            Logger::warning() << "message " << i;
    };
    std::thread other(logMany);
    logMany();
    other.join();
    EXPECT_EQ(log.warnings.size(), 2003u);
}

TEST(ParallelFor, CoversEveryIndexExactlyOnceInNonEmptySubRanges) {
    const uint32_t begin = 5;
    for (uint32_t size : {0u, 1u, 7u, 100000u}) {
        const uint32_t end = begin + size;
        std::vector<std::atomic<int>> hits(end + 1);
        parallel_for({begin, end}, [&](const ParallelForRange& r) {
            EXPECT_LE(begin, r.begin);
            EXPECT_LT(r.begin, r.end);
            EXPECT_LE(r.end, end);
            for (uint32_t i = r.begin; i < r.end; ++i)
                ++hits[i];
        });
        for (uint32_t i = 0; i <= end; ++i)
            ASSERT_EQ(hits[i].load(), i >= begin && i < end ? 1 : 0) << size << " " << i;
    }
    // One element runs on the caller's thread; a reversed range is empty.
    std::thread::id ran;
    parallel_for({3, 4}, [&](const ParallelForRange&) { ran = std::this_thread::get_id(); });
    EXPECT_EQ(ran, std::this_thread::get_id());
    parallel_for({9, 2}, [](const ParallelForRange&) { ADD_FAILURE() << "reversed is empty"; });
}
