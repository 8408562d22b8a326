// A mutator that knows the compressed container layouts: it finds the table of a map or array
// after the fuzz program's mode byte, decompresses one value block, mutates the plain bytes,
// compresses them again and fixes the table. Plain byte flips almost never survive
// decompression, so without this the readers behind a successful decompression stay unreached.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "utils/Compression.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

namespace {

struct Row {
    size_t sizeField;    // where the row's block length is stored
    size_t offsetField;  // where the row's block offset is stored
    uint64_t size;
    uint64_t offset;
};

bool readU64(const uint8_t* data, size_t size, size_t at, uint64_t& v) {
    if (at > size || size - at < 8) return false;
    std::memcpy(&v, data + at, 8);
    return true;
}

// The rows of the container that starts at `at`, and where its value area begins.
bool parseTable(const uint8_t* data, size_t size, size_t at, std::vector<Row>& rows, size_t& area) {
    uint32_t id = 0;
    if (size < at + 4) return false;
    std::memcpy(&id, data + at, 4);
    uint64_t count = 0;
    if (!readU64(data, size, at + 4, count) || count > size / 16) return false;
    size_t p = at + 12;
    if (id == 1) {
        uint64_t tableSize = 0;
        if (!readU64(data, size, p, tableSize)) return false;
        p += 8;
        for (uint64_t i = 0; i < count; ++i) {
            uint64_t keyLen = 0;
            if (!readU64(data, size, p, keyLen) || keyLen > size) return false;
            p += 8 + keyLen;
            Row r{p, p + 8, 0, 0};
            if (!readU64(data, size, r.sizeField, r.size) ||
                !readU64(data, size, r.offsetField, r.offset))
                return false;
            p += 16;
            rows.push_back(r);
        }
    } else if (id == 2) {
        for (uint64_t i = 0; i < count; ++i) {
            Row r{p + 8, p, 0, 0};
            if (!readU64(data, size, r.sizeField, r.size) ||
                !readU64(data, size, r.offsetField, r.offset))
                return false;
            p += 16;
            rows.push_back(r);
        }
    } else {
        return false;
    }
    area = p;
    return true;
}

size_t mutateBlock(uint8_t* data, size_t size, size_t maxSize, unsigned seed) {
    std::vector<Row> rows;
    size_t area = 0;
    if (!parseTable(data, size, 1, rows, area) || rows.empty()) return 0;
    const Row& row = rows[seed % rows.size()];
    if (row.offset > size || row.size > size - area || area + row.offset > size - row.size)
        return 0;
    size_t plainSize = 0;
    unsigned char* plain =
        ZeltoUtils::decompressBuffer(data + area + row.offset, row.size, plainSize);
    if (!plain) return 0;
    std::vector<uint8_t> buf(plain, plain + plainSize);
    std::free(plain);
    const size_t room = plainSize + 64;
    buf.resize(room);
    buf.resize(LLVMFuzzerMutate(buf.data(), plainSize, room));
    size_t packedSize = 0;
    unsigned char* packed = ZeltoUtils::compressBuffer(buf.data(), buf.size(), packedSize);
    if (!packed) return 0;
    const size_t start = area + row.offset;
    const size_t newSize = size - row.size + packedSize;
    if (newSize > maxSize) {
        std::free(packed);
        return 0;
    }
    std::vector<uint8_t> out(data, data + start);
    out.insert(out.end(), packed, packed + packedSize);
    out.insert(out.end(), data + start + row.size, data + size);
    std::free(packed);
    const int64_t delta = int64_t(packedSize) - int64_t(row.size);
    for (const Row& r : rows) {
        if (r.offset > row.offset) {
            const uint64_t moved = r.offset + delta;
            std::memcpy(out.data() + r.offsetField, &moved, 8);
        }
    }
    const uint64_t stored = packedSize;
    std::memcpy(out.data() + row.sizeField, &stored, 8);
    std::memcpy(data, out.data(), out.size());
    return out.size();
}

}  // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize,
                                          unsigned int seed) {
    // Half the time a structured mutation of one value block, otherwise the usual byte moves.
    if (seed % 2 == 0) {
        if (const size_t n = mutateBlock(data, size, maxSize, seed / 2)) return n;
    }
    return LLVMFuzzerMutate(data, size, maxSize);
}
