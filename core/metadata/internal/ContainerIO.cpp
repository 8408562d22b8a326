#include "core/metadata/internal/ContainerIO.h"

#include <atomic>

#include "core/metadata/MetadataFactory.h"

namespace ZeltoCore {
namespace internal {
namespace {

// Nesting limit for reading: a crafted archive of containers inside containers could otherwise
// recurse until the stack runs out. Real property bags are a handful of levels deep.
constexpr int kMaxReadDepth = 200;
thread_local int t_readDepth = 0;

struct DepthGuard {
    DepthGuard() { ++t_readDepth; }
    ~DepthGuard() { --t_readDepth; }
    bool tooDeep() const { return t_readDepth > kMaxReadDepth; }
};

void readInto(Archive& view, std::shared_ptr<Metadata>& slot, bool inPlace) {
    const unsigned int id = view.peekTypeId();
    if (inPlace && !slot) return;
    if (!inPlace || slot->typeId() != id) slot = MetadataFactory::instance().createMetadata(id);
    if (slot && (!slot->deserialise(view) || view.failed())) slot.reset();
}

}  // namespace

bool readMapTable(Archive& archive, std::vector<std::string_view>& keys,
                  std::vector<ValueRow>& rows) {
    uint64_t count = 0;
    uint64_t tableSize = 0;
    if (!archive.readCount(count, kMapRowBytes) || !archive.read(&tableSize, sizeof(tableSize)))
        return false;
    keys.clear();
    rows.clear();
    keys.reserve(count);
    rows.reserve(count);
    uint64_t used = 0;
    const bool ok = walkMapRows(archive.data + archive.position, archive.remaining(), count, used,
                                [&](std::string_view key, const ValueRow& row) {
                                    keys.push_back(key);
                                    rows.push_back(row);
                                });
    if (!ok) {
        archive.setFailed();
        return false;
    }
    archive.position += used;
    return true;
}

unsigned char* putHeader(unsigned char* out, uint32_t typeId, bool keyed, uint64_t count,
                         uint64_t tableSize) {
    out = put<uint64_t>(put<uint32_t>(out, typeId), count);
    return keyed ? put<uint64_t>(out, tableSize) : out;
}

bool writePlainLayout(Archive& archive, uint32_t typeId, const TableItems& table) {
    const std::vector<TableItem>& items = table.items;
    const uint64_t total = table.tableEnd + table.areaSize;
    if (archive.size == 0) archive.resize(total);
    if (archive.remaining() < total) {
        archive.setFailed();
        return false;
    }
    unsigned char* const base = archive.data + archive.position;
    putHeader(base, typeId, table.keyed, items.size(), table.tableEnd - table.headerBytes());
    const uint64_t areaStart = archive.position + table.tableEnd;

    // Each item writes only its own row and value bytes, so the parallel form is the same loop
    // spread over tasks.
    std::atomic<bool> ok{true};
    const bool parallel = (archive.flags & Archive::kParallel) != 0;
    forEachIndex(items.size(), parallel, [&](size_t i) {
        const TableItem& item = items[i];
        const uint64_t end = i + 1 < items.size() ? items[i + 1].offset : table.areaSize;
        putRow(base + item.row, item, item.offset, end - item.offset);
        if (!writeValue(archive, areaStart + item.offset, areaStart + end, *item.value))
            ok.store(false, std::memory_order_relaxed);
    });
    archive.position = areaStart + table.areaSize;
    if (!ok.load()) archive.setFailed();
    return ok.load();
}

bool readArrayTable(Archive& archive, std::vector<ValueRow>& rows) {
    uint64_t count = 0;
    if (!archive.readCount(count, kArrayRowBytes)) return false;
    rows.resize(count);
    const unsigned char* table = archive.data + archive.position;
    for (uint64_t i = 0; i < count; ++i)
        rows[i] = arrayRowAt(table, i);
    archive.position += kArrayRowBytes * count;
    return true;
}

uint64_t areaEnd(const Archive& archive, uint64_t areaStart, const std::vector<ValueRow>& rows) {
    if (rows.empty()) return areaStart;
    const ValueRow& last = rows.back();
    const uint64_t available = archive.size > areaStart ? archive.size - areaStart : 0;
    return last.offset <= available && last.size <= available - last.offset
               ? areaStart + last.offset + last.size
               : archive.size;
}

bool writeValue(Archive& archive, uint64_t begin, uint64_t end, const Metadata& value) {
    ArchiveView view(archive, begin, end);
    value.serialise(view);
    return !view.failed() && view.position == end;
}

bool readRowValues(const Archive& archive, uint64_t areaStart, const std::vector<ValueRow>& rows,
                   std::vector<std::shared_ptr<Metadata>>& results, bool inPlace, bool parallel) {
    DepthGuard depth;
    const uint64_t available = archive.size > areaStart ? archive.size - areaStart : 0;
    const bool tooDeep = depth.tooDeep();
    std::atomic<bool> intact{!tooDeep};
    forEachIndex(rows.size(), parallel, [&](size_t i) {
        const ValueRow& row = rows[i];
        std::shared_ptr<Metadata>& slot = results[i];
        // Every value starts with a 4-byte type id; a shorter row cannot hold one.
        const bool inside = row.offset <= available && row.size <= available - row.offset &&
                            (row.size == 0 || row.size >= sizeof(uint32_t));
        if (!inside || tooDeep) {
            intact.store(false, std::memory_order_relaxed);
            slot.reset();
            return;
        }
        if (row.size == 0) {
            slot.reset();
            return;
        }
        const uint64_t begin = areaStart + row.offset;
        ArchiveView view(archive, begin, begin + row.size);
        readInto(view, slot, inPlace);
    });
    return intact.load();
}

void readValueInto(Archive& source, std::shared_ptr<Metadata>& slot, bool inPlace) {
    DepthGuard depth;
    if (depth.tooDeep()) {
        slot.reset();
        return;
    }
    readInto(source, slot, inPlace);
}

std::shared_ptr<Metadata> readNextValue(Archive& archive) {
    DepthGuard depth;
    std::shared_ptr<Metadata> value;
    if (!depth.tooDeep()) {
        ArchiveView view(archive, archive.position, archive.size);
        readInto(view, value, false);
        if (value) {
            archive.position = view.position;
            return value;
        }
    }
    archive.position = archive.size;
    return value;
}

}  // namespace internal
}  // namespace ZeltoCore
