// Value placement shared by MapMetadata and ArrayMetadata. Private to the metadata sources:
// never include it from a public header.
//
// Both containers write a table of (offset, size) rows followed by a value area, and both read
// or write every value through its own non-owning view of the one buffer, bounded by its row.
// A damaged value can therefore never touch a neighbour's bytes, and the sequential and parallel
// paths run the same per-value code and produce the same bytes.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/archive/Archive.h"
#include "core/metadata/Metadata.h"
#include "core/metadata/ValueArena.h"
#include "utils/ParallelFor.h"

namespace ZeltoCore {
namespace internal {

// Where a value lives, counted from the start of the value area.
struct ValueRow {
    uint64_t offset = 0;
    uint64_t size = 0;
};

constexpr uint64_t kMapHeaderBytes = 4 + 8 + 8;  // type id, entry count, table size
constexpr uint64_t kMapRowBytes = 8 + 8 + 8;     // key length, value size, value offset (+ key)
constexpr uint64_t kArrayHeaderBytes = 4 + 8;    // type id, element count
constexpr uint64_t kArrayRowBytes = 8 + 8;       // offset, size

template <class T>
unsigned char* put(unsigned char* out, T value) {
    std::memcpy(out, &value, sizeof(T));
    return out + sizeof(T);
}

inline ValueRow arrayRowAt(const unsigned char* table, uint64_t index) {
    ValueRow row;
    std::memcpy(&row.offset, table + kArrayRowBytes * index, 8);
    std::memcpy(&row.size, table + kArrayRowBytes * index + 8, 8);
    return row;
}

// One value of a container being written, in table order. A map item carries its key (rows of
// key length, key, size, offset); an array item has none (rows of offset, size). `value` may be
// null in the compressed form only (an empty block). `row` is where its row starts, counted
// from the start of the container; `offset` where its value starts in the value area.
struct TableItem {
    const std::string* key;
    const Metadata* value;
    uint64_t row;
    uint64_t offset;
};

inline uint64_t rowBytes(const std::string* key) {
    return key ? kMapRowBytes + key->size() : kArrayRowBytes;
}

// The items of a container's table, gathered in one walk over the container.
struct TableItems {
    TableItems(bool keyed, size_t capacity)
        : keyed(keyed), tableEnd(keyed ? kMapHeaderBytes : kArrayHeaderBytes) {
        items.reserve(capacity);
    }
    // `size`: the bytes the value takes in the value area (0 when not yet known).
    void add(const std::string* key, const Metadata* value, uint64_t size) {
        items.push_back({key, value, tableEnd, areaSize});
        tableEnd += rowBytes(key);
        areaSize += size;
    }
    uint64_t headerBytes() const { return keyed ? kMapHeaderBytes : kArrayHeaderBytes; }

    bool keyed;
    std::vector<TableItem> items;
    uint64_t tableEnd;      // where the next row goes
    uint64_t areaSize = 0;  // sum of the sizes
};

// Writes the plain layout of `table` (sizes: the values' memSize()) under `typeId` at the
// cursor, sizing an empty archive first. False, nothing written, when an archive with a buffer
// has too little room; false as well when a value's memSize() and serialise() disagree. Values
// are written by parallel tasks, each into its own row and byte range, when the archive's flag 4
// is set.
bool writePlainLayout(Archive& archive, uint32_t typeId, const TableItems& table);

// The header of a container table: the type id, the count and, for a map, the table size.
// Returns where the first row goes.
unsigned char* putHeader(unsigned char* out, uint32_t typeId, bool keyed, uint64_t count,
                         uint64_t tableSize);
// The row of `item` with its value's place; returns where the next row goes.
inline unsigned char* putRow(unsigned char* out, const TableItem& item, uint64_t offset,
                             uint64_t size) {
    if (!item.key) return put<uint64_t>(put<uint64_t>(out, offset), size);
    const std::string& key = *item.key;
    out = put<uint64_t>(out, key.size());
    if (!key.empty()) std::memcpy(out, key.data(), key.size());  // NOLINT: no terminator on disk
    return put<uint64_t>(put<uint64_t>(out + key.size(), size), offset);
}

// Reads the element count and the rows of an array table at the cursor, which stands just after
// the type id, and leaves the cursor after the table. False, failure set, for an absurd count or
// a cut table.
bool readArrayTable(Archive& archive, std::vector<ValueRow>& rows);

// Where a read of a value area at `areaStart` leaves the cursor: after the last row's value, or
// the end of the buffer when that row points outside it.
uint64_t areaEnd(const Archive& archive, uint64_t areaStart, const std::vector<ValueRow>& rows);
// The same given the last row.
uint64_t areaEnd(const Archive& archive, uint64_t areaStart, const ValueRow& last);

// Walks `count` map table rows in [table, table + bytes), calling visit(key, row) with the key as
// a view into the table. False, as soon as it shows, when a row runs past the end; `used` is then
// meaningless, otherwise it is the length of the rows.
template <class Visit>
bool walkMapRows(const unsigned char* table, uint64_t bytes, uint64_t count, uint64_t& used,
                 Visit&& visit) {
    uint64_t at = 0;
    for (uint64_t i = 0; i < count; ++i) {
        uint64_t length = 0;
        if (bytes - at < sizeof(length)) return false;
        std::memcpy(&length, table + at, sizeof(length));
        at += sizeof(length);
        if (length > bytes - at || bytes - at - length < 2 * sizeof(uint64_t)) return false;
        const std::string_view key(reinterpret_cast<const char*>(table + at), length);
        at += length;
        ValueRow row;
        std::memcpy(&row.size, table + at, sizeof(row.size));
        std::memcpy(&row.offset, table + at + sizeof(row.size), sizeof(row.offset));
        at += 2 * sizeof(uint64_t);
        visit(key, row);
    }
    used = at;
    return true;
}

// Reads the entry count, the table size (not used) and the rows of a map table at the cursor,
// which stands just after the type id, and leaves the cursor after the table. Keys are views into
// the archive's buffer. False, failure set, when the table is damaged or its count absurd.
bool readMapTable(Archive& archive, std::vector<std::string_view>& keys,
                  std::vector<ValueRow>& rows);

// A view onto bytes [0, end) of `parent`'s buffer with the cursor at `begin`: never owns or
// releases the buffer, carries the parent's version and no flags (nested values are always
// written and read in plain, sequential form).
class ArchiveView : public Archive {
public:
    ArchiveView(const Archive& parent, uint64_t begin, uint64_t end) {
        ownsData = false;
        data = parent.data;
        version = parent.version;
        flags = 0;
        aim(begin, end);
    }
    // Points the same view at another byte range of the parent, failure forgotten; one view then
    // serves a whole run of values.
    void aim(uint64_t begin, uint64_t end) {
        reset();
        size = end;
        position = begin;
    }
};

// Gives an archive other flags for the lifetime of the guard.
class ScopedFlags {
public:
    ScopedFlags(Archive& archive, uint64_t flags) : m_archive(archive), m_saved(archive.flags) {
        archive.flags = flags;
    }
    ~ScopedFlags() { m_archive.flags = m_saved; }
    ScopedFlags(const ScopedFlags&) = delete;
    ScopedFlags& operator=(const ScopedFlags&) = delete;

private:
    Archive& m_archive;
    uint64_t m_saved;
};

// Whether spreading the plain write or read of `entries` values of `bytes` in all over worker
// threads can pay. A parallel_for costs some 10-20 us to start its workers, and a small map
// finishes before they do: measured with bench_containers BM_WriteSmall on the 2-core
// development machine, flag 4 made every size up to 128 arrays of 1,000 doubles (1 MB) and
// 256 scalars slower (16 scalars 0.4 -> 1.0 us, 8 arrays 1.7 -> 2.2 us, 128 arrays
// 33 -> 40 us) and 4,096 scalars (130 us) no faster (0.76-1.01x). The sequential write costs
// about 60 ns per entry plus 0.05 ns per byte, so an entry weighs like 1 KiB of bytes; parallel
// work starts at the equivalent of 8 MiB (about 400 us sequential), where the start-up is
// a few percent.
inline bool worthParallel(uint64_t entries, uint64_t bytes) {
    constexpr uint64_t kEntryWeight = 1024;
    constexpr uint64_t kMinWork = uint64_t(8) << 20;
    return entries > 1 && bytes + entries * kEntryWeight >= kMinWork;
}

// Runs run(begin, end) over sub-ranges that cover [0, count) exactly once: one call on the calling
// thread, or through parallel_for when `parallel` (each call must then touch only what belongs
// to its indices). Per-range set-up (a view, a cache) is then paid once per task, not per item.
template <class Run>
void forEachRange(size_t count, bool parallel, const Run& run) {
    if (parallel && count > 1 && count <= UINT32_MAX) {
        ZeltoUtils::parallel_for(
            ZeltoUtils::ParallelForRange(0, static_cast<uint32_t>(count)),
            [&run](const ZeltoUtils::ParallelForRange& r) { run(size_t(r.begin), size_t(r.end)); });
        return;
    }
    if (count) run(size_t(0), count);
}

// Runs item(i) for every i in [0, count), by the rules of forEachRange.
template <class Item>
void forEachIndex(size_t count, bool parallel, const Item& item) {
    forEachRange(count, parallel, [&item](size_t begin, size_t end) {
        for (size_t i = begin; i < end; ++i)
            item(i);
    });
}

// Serialises `value` into bytes [begin, end) of `archive`'s buffer; false when it did not fill
// them exactly (its memSize() and serialise() disagree).
bool writeValue(Archive& archive, uint64_t begin, uint64_t end, const Metadata& value);

// Counts nested container reads on this thread for as long as it lives: a crafted archive of
// containers inside containers could otherwise recurse until the stack runs out.
class ReadDepth {
public:
    ReadDepth();
    ~ReadDepth();
    ReadDepth(const ReadDepth&) = delete;
    ReadDepth& operator=(const ReadDepth&) = delete;
    bool tooDeep() const;
};

// New values for one run of reads: the factory is asked once per type id met, later values of
// that type are clones of its first, empty one (no registry lookups). A run of many new values
// places them in a ValueArena: a heap allocation per block of values rather than per value.
class ValueMaker {
public:
    // Runs of fewer new values allocate each one: a block would outweigh them.
    static constexpr size_t kArenaMinValues = 16;

    // At most `types` prototypes are kept (0: every value straight from the factory, for a
    // single read). Bounded, so that an archive of many distinct (say unknown) ids stays linear.
    // `expected`: about how many new values the run makes.
    ValueMaker(size_t types, size_t expected) : m_maxTypes(types) {
        if (types && expected >= kArenaMinValues) m_arena.emplace(expected);
    }

    std::shared_ptr<Metadata> make(unsigned int id) {
        for (const auto& [known, prototype] : m_prototypes) {
            if (known != id) continue;
            if (!prototype) return nullptr;
            return m_arena ? prototype->cloneInto(*m_arena) : prototype->clone();
        }
        return makeFirst(id);
    }

private:
    std::shared_ptr<Metadata> makeFirst(unsigned int id);

    size_t m_maxTypes;
    std::vector<std::pair<unsigned int, std::shared_ptr<Metadata>>> m_prototypes;
    std::optional<ValueArena> m_arena;
};

// Reads the value at the cursor of `view` into `slot` (see readRowValues for `inPlace`); the
// slot ends empty when the type is unknown or the value damaged.
inline void readInto(Archive& view, std::shared_ptr<Metadata>& slot, bool inPlace,
                     ValueMaker& maker) {
    const unsigned int id = view.peekTypeId();
    if (inPlace) {
        if (!slot) return;
        if (slot->typeId() != id) slot = maker.make(id);
    } else if (!slot && slot.use_count() == 0) {
        // Made straight in the slot. Moved in through a temporary, the new pointer is reloaded
        // as 16 bytes that the callee has just stored as two halves, and that load waits for every
        // earlier store (new values in cold lines) to land: a tenth of a read into an empty map.
        // A shared_ptr that owns nothing (no counts, not merely a null pointer) has a destructor
        // that does nothing, so its storage is reused as it is.
        new (&slot) std::shared_ptr<Metadata>(maker.make(id));
    } else {
        slot = maker.make(id);
    }
    if (slot && (!slot->deserialise(view) || view.failed())) slot.reset();
}

// Reads values at rows of one value area, one after another, through one view and one maker.
class RowReader {
public:
    // `fresh`: about how many of the reads make new values (see ValueMaker).
    RowReader(const Archive& archive, uint64_t areaStart, bool tooDeep, size_t fresh)
        : m_view(archive, 0, 0),
          m_maker(16, fresh),
          m_areaStart(areaStart),
          m_available(archive.size > areaStart ? archive.size - areaStart : 0),
          m_tooDeep(tooDeep) {}

    // The value of `row` into `slot` by the rules of readRowValues; false (slot emptied) when
    // the row lies outside the buffer.
    bool read(const ValueRow& row, std::shared_ptr<Metadata>& slot, bool inPlace) {
        // Every value starts with a 4-byte type id; a shorter row cannot hold one.
        const bool inside = row.offset <= m_available && row.size <= m_available - row.offset &&
                            (row.size == 0 || row.size >= sizeof(uint32_t));
        if (!inside || m_tooDeep || row.size == 0) {
            slot.reset();
            return inside && !m_tooDeep;
        }
        const uint64_t begin = m_areaStart + row.offset;
        m_view.aim(begin, begin + row.size);
        readInto(m_view, slot, inPlace, m_maker);
        return true;
    }

private:
    ArchiveView m_view;
    ValueMaker m_maker;
    uint64_t m_areaStart;
    uint64_t m_available;
    bool m_tooDeep;
};

// Reads the plain value of every row of a value area into *slots[i] (one distinct slot per row).
//
// Without `inPlace` every value is created anew from its stored type id. With `inPlace`, the slots
// hold the values to read into: a held value of the stored type reads itself in place, a held
// value of another type is replaced by a new value of the stored type, and an empty slot stays
// empty. A row of size 0, an unknown type id or a value that fails to read leaves its slot empty.
// Returns false when a row lies outside the buffer (its slot is left empty; others still read).
bool readRowValues(const Archive& archive, uint64_t areaStart, const std::vector<ValueRow>& rows,
                   const std::vector<std::shared_ptr<Metadata>*>& slots, bool inPlace,
                   bool parallel);
// The same into results[i], which is sized to the rows first.
bool readRowValues(const Archive& archive, uint64_t areaStart, const std::vector<ValueRow>& rows,
                   std::vector<std::shared_ptr<Metadata>>& results, bool inPlace, bool parallel);

// A new value read at the cursor of `archive`, bounded by the archive's size; advances the
// cursor. Null (cursor at the end of the buffer) when the type is unknown or the value is damaged.
std::shared_ptr<Metadata> readNextValue(Archive& archive);

// Reads the value at the cursor of `source` into `slot` by the rules of readRowValues for one row:
// with `inPlace` a held value of the stored type reads itself in place and an empty slot stays
// empty; otherwise a new value is made from the stored type id. Damaged or unknown: empty.
void readValueInto(Archive& source, std::shared_ptr<Metadata>& slot, bool inPlace);

}  // namespace internal
}  // namespace ZeltoCore
