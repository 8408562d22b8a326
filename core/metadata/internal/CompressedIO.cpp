#include "core/metadata/internal/CompressedIO.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "utils/Compression.h"

namespace ZeltoCore {
namespace internal {

namespace {

struct FreeBytes {
    void operator()(unsigned char* p) const { std::free(p); }
};

// One compressed value; size 0 (no bytes) for no value or when the compressor gave nothing.
struct CompressedBlock {
    std::unique_ptr<unsigned char, FreeBytes> bytes;
    size_t size = 0;
};

// Compresses every value (null: an empty block). False when a value did not write exactly
// memSize() bytes; its block is then left empty.
bool compressValues(const std::vector<TableItem>& items, bool parallel,
                    std::vector<CompressedBlock>& blocks) {
    blocks.clear();
    blocks.resize(items.size());
    std::atomic<bool> ok{true};
    forEachIndex(items.size(), parallel, [&](size_t i) {
        const Metadata* value = items[i].value;
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

}  // namespace

bool writeCompressedLayout(Archive& archive, uint32_t typeId, const TableItems& table) {
    const std::vector<TableItem>& items = table.items;
    const bool parallel = (archive.flags & Archive::kParallel) != 0;
    std::vector<CompressedBlock> blocks;
    const bool ok = compressValues(items, parallel, blocks);

    std::vector<uint64_t> offsets(items.size());
    uint64_t areaSize = 0;
    for (size_t i = 0; i < items.size(); ++i) {
        offsets[i] = areaSize;
        areaSize += blocks[i].size;
    }
    const uint64_t areaStart = table.tableEnd;
    const uint64_t total = areaStart + areaSize;
    if (archive.size != total) archive.resize(total);

    unsigned char* out = putHeader(archive.data, typeId, table.keyed, items.size(),
                                   table.tableEnd - table.headerBytes());
    for (size_t i = 0; i < items.size(); ++i)
        out = putRow(out, items[i], offsets[i], blocks[i].size);
    unsigned char* const area = archive.data + areaStart;
    forEachIndex(blocks.size(), parallel, [&](size_t i) {
        if (blocks[i].size) std::memcpy(area + offsets[i], blocks[i].bytes.get(), blocks[i].size);
    });
    archive.position = total;
    if (!ok) archive.setFailed();
    return ok;
}

bool readBlockInto(const unsigned char* bytes, uint64_t size, bool compressed, uint64_t version,
                   std::shared_ptr<Metadata>& slot, bool inPlace) {
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
    readValueInto(source, slot, inPlace);
    return true;
}

bool readRowBlocks(const Archive& archive, uint64_t areaStart, const std::vector<ValueRow>& rows,
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
        decoded[i] = readBlockInto(archive.data + areaStart + row.offset, row.size, compressed,
                                   archive.version, results[i], false);
    });
    return inside.load();
}

}  // namespace internal
}  // namespace ZeltoCore
