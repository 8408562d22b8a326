#include "utils/Compression.h"

#include <cstdlib>
#include <cstring>
#include <limits>

#include <lz4.h>
#include <zstd.h>

namespace ZeltoUtils {

namespace {

enum Method : unsigned char { kStored = 0, kLz4 = 1, kZstd = 2 };

constexpr size_t kMaxVarintBytes = 10;  // 64 bits in 7-bit groups
constexpr size_t kMaxHeaderBytes = 1 + kMaxVarintBytes;

// An LZ4 sequence gains at most 255 output bytes per input byte (match length extension bytes);
// the slack covers the minimal sequences of tiny blocks.
constexpr uint64_t kLz4MaxRatio = 255;
constexpr uint64_t kLz4Slack = 64;
// A zstd block expands to at most 128 KiB and takes at least 4 bytes (an RLE block).
constexpr uint64_t kZstdMaxRatio = (128 * 1024) / 4;
constexpr uint64_t kZstdSlack = 1024;

constexpr int kZstdLevel = 1;

// Per-thread zstd contexts: creating one per call costs ~7 us, more than decompressing a 4 KiB
// block with a reused one (bench_utils). A context keeps its tables (a few MB at most) until its
// thread ends.
struct ZstdContexts {
    ZSTD_CCtx* compress = nullptr;
    ZSTD_DCtx* decompress = nullptr;
    ~ZstdContexts() {
        ZSTD_freeCCtx(compress);
        ZSTD_freeDCtx(decompress);
    }
};
thread_local ZstdContexts zstdContexts;

size_t zstdCompress(unsigned char* out, size_t capacity, const unsigned char* data, size_t size) {
    if (!zstdContexts.compress) zstdContexts.compress = ZSTD_createCCtx();
    if (!zstdContexts.compress) return ZSTD_compress(out, capacity, data, size, kZstdLevel);
    return ZSTD_compressCCtx(zstdContexts.compress, out, capacity, data, size, kZstdLevel);
}

size_t zstdDecompress(unsigned char* out, size_t capacity, const unsigned char* data, size_t size) {
    if (!zstdContexts.decompress) zstdContexts.decompress = ZSTD_createDCtx();
    if (!zstdContexts.decompress) return ZSTD_decompress(out, capacity, data, size);
    return ZSTD_decompressDCtx(zstdContexts.decompress, out, capacity, data, size);
}

size_t writeVarint(uint64_t value, unsigned char* out) {
    size_t n = 0;
    while (value >= 0x80) {
        out[n++] = static_cast<unsigned char>(value | 0x80);
        value >>= 7;
    }
    out[n++] = static_cast<unsigned char>(value);
    return n;
}

// Reads a varint from [in, in + size); 0 on truncation or overflow, else the bytes consumed.
size_t readVarint(const unsigned char* in, size_t size, uint64_t& value) {
    value = 0;
    for (size_t i = 0; i < size && i < kMaxVarintBytes; ++i) {
        const uint64_t group = in[i] & 0x7f;
        const unsigned shift = unsigned(7 * i);
        if (shift == 63 && group > 1) return 0;
        value |= group << shift;
        if ((in[i] & 0x80) == 0) return i + 1;
    }
    return 0;
}

// Compresses into `capacity` bytes at `out`; 0 when the codec fails or does not fit.
size_t compressPayload(Method method, const unsigned char* data, size_t size, unsigned char* out,
                       size_t capacity) {
    if (capacity == 0) return 0;
    if (method == kLz4) {
        const int n = LZ4_compress_default(reinterpret_cast<const char*>(data),
                                           reinterpret_cast<char*>(out), int(size), int(capacity));
        return n > 0 ? size_t(n) : 0;
    }
    const size_t n = zstdCompress(out, capacity, data, size);
    return ZSTD_isError(n) ? 0 : n;
}

}  // namespace

unsigned char* compressBuffer(unsigned char* data, size_t size, size_t& outSize) {
    outSize = 0;
    if ((!data && size > 0) || uint64_t(size) > kMaxDecompressedSize) return nullptr;

    unsigned char* block = static_cast<unsigned char*>(std::malloc(kMaxHeaderBytes + size));
    if (!block) return nullptr;
    const size_t header = 1 + writeVarint(size, block + 1);

    // LZ4 takes int sizes; the threshold keeps it far below that.
    const Method method = size < kZstdThreshold ? kLz4 : kZstd;
    // Room for one byte less than the input: a payload that does not shrink is stored instead.
    size_t payload = size > 0 ? compressPayload(method, data, size, block + header, size - 1) : 0;
    if (payload > 0) {
        block[0] = method;
    } else {
        block[0] = kStored;
        if (size > 0) std::memcpy(block + header, data, size);
        payload = size;
    }
    outSize = header + payload;
    if (outSize < kMaxHeaderBytes + size) {
        if (void* shrunk = std::realloc(block, outSize))
            block = static_cast<unsigned char*>(shrunk);
    }
    return block;
}

unsigned char* decompressBuffer(unsigned char* data, size_t size, size_t& outSize) {
    outSize = 0;
    if (!data || size < 2) return nullptr;
    const unsigned char method = data[0];
    if (method != kStored && method != kLz4 && method != kZstd) return nullptr;

    uint64_t declared = 0;
    const size_t varintBytes = readVarint(data + 1, size - 1, declared);
    if (varintBytes == 0) return nullptr;
    const unsigned char* payload = data + 1 + varintBytes;
    const uint64_t payloadSize = size - 1 - varintBytes;

    // Refuse sizes the payload cannot produce before allocating anything.
    if (declared > kMaxDecompressedSize) return nullptr;
    switch (method) {
        case kStored:
            if (declared != payloadSize) return nullptr;
            break;
        case kLz4:
            if (payloadSize == 0 || declared == 0 ||
                declared > payloadSize * kLz4MaxRatio + kLz4Slack ||
                declared > uint64_t(std::numeric_limits<int>::max()) ||
                payloadSize > uint64_t(std::numeric_limits<int>::max())) {
                return nullptr;
            }
            break;
        default:
            if (payloadSize == 0 || declared > payloadSize * kZstdMaxRatio + kZstdSlack ||
                ZSTD_getFrameContentSize(payload, payloadSize) != declared) {
                return nullptr;
            }
            break;
    }

    // malloc(0) may give null, which would read as failure.
    unsigned char* out = static_cast<unsigned char*>(std::malloc(declared > 0 ? declared : 1));
    if (!out) return nullptr;
    bool ok = false;
    if (method == kStored) {
        if (declared > 0) std::memcpy(out, payload, declared);
        ok = true;
    } else if (method == kLz4) {
        const int n =
            LZ4_decompress_safe(reinterpret_cast<const char*>(payload),
                                reinterpret_cast<char*>(out), int(payloadSize), int(declared));
        ok = n >= 0 && uint64_t(n) == declared;
    } else {
        const size_t n = zstdDecompress(out, declared, payload, payloadSize);
        ok = !ZSTD_isError(n) && n == declared;
    }
    if (!ok) {
        std::free(out);
        return nullptr;
    }
    outSize = declared;
    return out;
}

}  // namespace ZeltoUtils
