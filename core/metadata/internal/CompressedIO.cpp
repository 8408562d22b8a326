#include "core/metadata/internal/CompressedIO.h"

#include <atomic>
#include <cstring>

#include "utils/Compression.h"

namespace ZeltoCore {
namespace internal {

bool compressValues(const std::vector<const Metadata*>& values, bool parallel,
                    std::vector<CompressedBlock>& blocks) {
    blocks.clear();
    blocks.resize(values.size());
    std::atomic<bool> ok{true};
    forEachIndex(values.size(), parallel, [&](size_t i) {
        const Metadata* value = values[i];
        if (!value) return;
        const size_t size = value->memSize();
        Archive plain(size, 0);
        value->serialise(plain);
        if (plain.failed() || plain.position != size || plain.size != size) {
            // Never compress bytes the value did not write.
            ok.store(false, std::memory_order_relaxed);
            return;
        }
        CompressedBlock& block = blocks[i];
        block.bytes.reset(ZeltoUtils::compressBuffer(plain.data, size, block.size));
        if (!block.bytes) block.size = 0;
    });
    return ok.load();
}

void placeBlocks(Archive& archive, uint64_t areaStart, const std::vector<CompressedBlock>& blocks,
                 const std::vector<uint64_t>& offsets, bool parallel) {
    unsigned char* const area = archive.data + areaStart;
    forEachIndex(blocks.size(), parallel, [&](size_t i) {
        if (blocks[i].size) std::memcpy(area + offsets[i], blocks[i].bytes.get(), blocks[i].size);
    });
}

bool decodeValue(const unsigned char* bytes, uint64_t size, bool compressed, uint64_t version,
                 std::shared_ptr<Metadata>& slot, bool reuse) {
    Archive source;
    source.version = version;
    source.flags = 0;
    if (compressed) {
        size_t plainSize = 0;
        // The compressor only reads its input; its interface predates const.
        source.data = ZeltoUtils::decompressBuffer(const_cast<unsigned char*>(bytes),
                                                   static_cast<size_t>(size), plainSize);
        if (!source.data) return false;
        source.size = plainSize;
    } else {
        source.ownsData = false;
        source.data = const_cast<unsigned char*>(bytes);
        source.size = size;
    }
    // Every value starts with its 4-byte type id; fewer bytes hold no value.
    if (source.size < sizeof(uint32_t)) {
        slot.reset();
        return true;
    }
    readValue(source, slot, reuse);
    return true;
}

bool decodeRows(const Archive& archive, uint64_t areaStart, const std::vector<ValueRow>& rows,
                bool compressed, bool parallel, std::vector<std::shared_ptr<Metadata>>& results,
                std::vector<char>& decoded) {
    results.resize(rows.size());
    decoded.assign(rows.size(), 0);
    const uint64_t available = archive.size > areaStart ? archive.size - areaStart : 0;
    std::atomic<bool> inside{true};
    forEachIndex(rows.size(), parallel, [&](size_t i) {
        const ValueRow& row = rows[i];
        if (row.offset > available || row.size > available - row.offset) {
            inside.store(false, std::memory_order_relaxed);
            return;
        }
        decoded[i] = decodeValue(archive.data + areaStart + row.offset, row.size, compressed,
                                 archive.version, results[i], false);
    });
    return inside.load();
}

}  // namespace internal
}  // namespace ZeltoCore
