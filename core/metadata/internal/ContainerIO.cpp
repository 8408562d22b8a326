#include "core/metadata/internal/ContainerIO.h"

#include <atomic>

#include "core/metadata/MetadataFactory.h"

namespace ZeltoCore {
namespace internal {
namespace {

// Nesting limit for reading (see ReadDepth); real property bags are a handful of levels deep.
constexpr int kMaxReadDepth = 200;
constexpr size_t kSlotAhead = 16;
constexpr size_t kValueAhead = 8;
thread_local int t_readDepth = 0;

}  // namespace

ReadDepth::ReadDepth() {
    ++t_readDepth;
}
ReadDepth::~ReadDepth() {
    --t_readDepth;
}
bool ReadDepth::tooDeep() const {
    return t_readDepth > kMaxReadDepth;
}

std::shared_ptr<Metadata> ValueMaker::makeFirst(unsigned int id) {
    std::shared_ptr<Metadata> value = MetadataFactory::instance().createMetadata(id);
    if (m_prototypes.size() < m_maxTypes) {
        m_prototypes.emplace_back(id, value);
        if (value) return m_arena ? value->cloneInto(*m_arena) : value->clone();
    }
    return value;
}

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
    const bool parallel =
        (archive.flags & Archive::kParallel) != 0 && worthParallel(items.size(), table.areaSize);
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
    return rows.empty() ? areaStart : areaEnd(archive, areaStart, rows.back());
}

uint64_t areaEnd(const Archive& archive, uint64_t areaStart, const ValueRow& last) {
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
                   const std::vector<std::shared_ptr<Metadata>*>& slots, bool inPlace,
                   bool parallel) {
    ReadDepth depth;
    const bool tooDeep = depth.tooDeep();
    std::atomic<bool> intact{!tooDeep};
    const uint64_t area = areaEnd(archive, areaStart, rows) - areaStart;
    parallel = parallel && worthParallel(rows.size(), area);
    forEachRange(rows.size(), parallel, [&](size_t begin, size_t end) {
        RowReader reader(archive, areaStart, tooDeep, inPlace ? 0 : end - begin);
        for (size_t i = begin; i < end; ++i) {
            // Slots and values live in separate heap blocks (map nodes, value objects): fetch
            // them ahead in two stages, as a walk over a large bag otherwise waits on each.
            if (i + kSlotAhead < end) __builtin_prefetch(slots[i + kSlotAhead]);
            if (i + kValueAhead < end) __builtin_prefetch(slots[i + kValueAhead]->get());
            if (!reader.read(rows[i], *slots[i], inPlace))
                intact.store(false, std::memory_order_relaxed);
        }
    });
    return intact.load();
}

bool readRowValues(const Archive& archive, uint64_t areaStart, const std::vector<ValueRow>& rows,
                   std::vector<std::shared_ptr<Metadata>>& results, bool inPlace, bool parallel) {
    results.resize(rows.size());
    std::vector<std::shared_ptr<Metadata>*> slots(rows.size());
    for (size_t i = 0; i < rows.size(); ++i)
        slots[i] = &results[i];
    return readRowValues(archive, areaStart, rows, slots, inPlace, parallel);
}

void readValueInto(Archive& source, std::shared_ptr<Metadata>& slot, bool inPlace) {
    ReadDepth depth;
    if (depth.tooDeep()) {
        slot.reset();
        return;
    }
    ValueMaker maker(0, 0);
    readInto(source, slot, inPlace, maker);
}

std::shared_ptr<Metadata> readNextValue(Archive& archive) {
    ReadDepth depth;
    std::shared_ptr<Metadata> value;
    if (!depth.tooDeep()) {
        ArchiveView view(archive, archive.position, archive.size);
        ValueMaker maker(0, 0);
        readInto(view, value, false, maker);
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
