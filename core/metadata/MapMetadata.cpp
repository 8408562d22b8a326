#include "core/metadata/MapMetadata.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <string_view>
#include <tuple>

#include "core/metadata/internal/ContainerIO.h"

namespace ZeltoCore {

using internal::ValueRow;

namespace {

bool strictlyAscending(const std::vector<std::string_view>& keys) {
    for (size_t i = 1; i < keys.size(); ++i) {
        if (!(keys[i - 1] < keys[i])) return false;
    }
    return true;
}

// True when `entries` holds exactly `keys` (as many of each); slots[i] then points at the value
// of keys[i]. Keys compare as views.
bool matchHeld(MapMetadata::Entries& entries, const std::vector<std::string_view>& keys,
               bool sorted, std::vector<std::shared_ptr<Metadata>*>& slots) {
    const size_t count = keys.size();
    std::vector<size_t> order;
    if (!sorted) {
        order.resize(count);
        std::iota(order.begin(), order.end(), size_t(0));
        std::sort(order.begin(), order.end(),
                  [&keys](size_t a, size_t b) { return keys[a] < keys[b]; });
    }
    auto it = entries.begin();
    for (size_t j = 0; j < count; ++j, ++it) {
        const size_t i = sorted ? j : order[j];
        if (std::string_view(it->first) != keys[i]) return false;
        slots[i] = &it->second;
    }
    return true;
}

// Key equality without a library call: keys are short, and a call per entry costs as much as
// the comparison.
bool sameKey(const std::string& held, std::string_view key) {
    const size_t n = key.size();
    if (held.size() != n) return false;
    const char* a = held.data();
    const char* b = key.data();
    if (n < 8) {
        for (size_t i = 0; i < n; ++i) {
            if (a[i] != b[i]) return false;
        }
        return true;
    }
    uint64_t x = 0;
    uint64_t y = 0;
    for (size_t i = 0; i + 8 < n; i += 8) {
        std::memcpy(&x, a + i, 8);
        std::memcpy(&y, b + i, 8);
        if (x != y) return false;
    }
    std::memcpy(&x, a + n - 8, 8);  // the last 8 bytes, overlapping the loop's when n % 8 != 0
    std::memcpy(&y, b + n - 8, 8);
    return x == y;
}

// What the checking walk over a map table learned before anything in the map changes.
struct TableScan {
    uint64_t used = 0;      // bytes of the rows
    ValueRow last;          // the last row, which ends the value area
    bool held = false;      // the map holds exactly the stored keys, in their order
    bool ascending = true;  // stored keys ascend strictly (known only when asked for)
};

// Checks `count` rows of the table at `table` and compares their keys with the held ones in
// order; slots[i] (room for count when the sizes match) then points at the value of row i.
bool scanTable(const unsigned char* table, uint64_t bytes, uint64_t count,
               MapMetadata::Entries& entries, bool wantOrder, std::shared_ptr<Metadata>** slots,
               TableScan& scan) {
    scan.held = count == entries.size();
    auto it = entries.begin();
    std::string_view previous;
    size_t i = 0;
    const bool ok = internal::walkMapRows(
        table, bytes, count, scan.used, [&](std::string_view key, const ValueRow& row) {
            if (scan.held) {
                scan.held = sameKey(it->first, key);
                slots[i] = &(it++)->second;
            }
            // Up to a mismatch the keys were the held ones, which ascend.
            if (!scan.held && wantOrder && i > 0 && scan.ascending) scan.ascending = previous < key;
            previous = key;
            scan.last = row;
            ++i;
        });
    return ok;
}

// Adds an entry without value for every row of the table at `table`, at the end while the keys
// ascend (a repeated key keeps one entry); slots[i] then points at the value of row i. Checks the
// rows as scanTable does; false when one runs past the end.
//
// The list of slots is one large request made before the nodes: glibc's malloc then merges the
// small chunks a cleared map left and hands nodes and keys out in address order. Taken one by one
// from its fast bins they came scattered, and interleaved with the values as well; both made a
// read about 1.4 times slower on the development machine.
bool addEntries(MapMetadata::Entries& entries, const unsigned char* table, uint64_t bytes,
                uint64_t count, std::vector<std::shared_ptr<Metadata>*>& slots, TableScan& scan) {
    slots.reserve(count);
    return internal::walkMapRows(
        table, bytes, count, scan.used, [&](std::string_view key, const ValueRow& row) {
            slots.push_back(&entries
                                 .emplace_hint(entries.end(), std::piecewise_construct,
                                               std::forward_as_tuple(key), std::forward_as_tuple())
                                 ->second);
            scan.last = row;
        });
}

}  // namespace

Metadata* MapMetadata::creator() {
    return new MapMetadata();
}

MapMetadata::MapMetadata(const MapMetadata& other) : Metadata(other) {
    for (const auto& [key, value] : other.m_entries) {
        if (value) m_entries.emplace_hint(m_entries.end(), key, value->clone());
    }
}

MapMetadata& MapMetadata::operator=(const MapMetadata& other) {
    copy(const_cast<MapMetadata*>(&other));
    return *this;
}

MapMetadata::~MapMetadata() = default;

void MapMetadata::copy(Metadata* other) {
    if (!other || other == this || other->typeId() != staticTypeId()) return;
    const Entries& source = static_cast<const MapMetadata*>(other)->m_entries;
    // One merge walk over both sorted key sequences.
    auto it = m_entries.begin();
    for (const auto& [key, value] : source) {
        while (it != m_entries.end() && it->first < key)
            it = m_entries.erase(it);
        const bool present = it != m_entries.end() && it->first == key;
        if (!value) {
            if (present) ++it;
            continue;
        }
        if (!present) {
            m_entries.emplace_hint(it, key, value->clone());
            continue;
        }
        if (it->second && it->second->typeId() == value->typeId()) {
            it->second->copy(value.get());
        } else {
            it->second = value->clone();
        }
        ++it;
    }
    m_entries.erase(it, m_entries.end());
}

std::shared_ptr<Metadata> MapMetadata::clone() const {
    return std::make_shared<MapMetadata>(*this);
}

size_t MapMetadata::memSize() const {
    size_t total = internal::kMapHeaderBytes;
    for (const auto& [key, value] : m_entries) {
        if (value) total += internal::kMapRowBytes + key.size() + value->memSize();
    }
    return total;
}

void MapMetadata::hash(MurmurHash3& hasher) const {
    hasher.append(static_cast<uint64_t>(m_entries.size()));
    for (const auto& [key, value] : m_entries) {
        if (!value) continue;
        hasher.append(key);
        value->hash(hasher);
    }
}

bool MapMetadata::serialise(Archive& archive) const {
    if (!(archive.flags & Archive::kCompressedContainers)) return serialisePlain(archive);
    // Parallel writing stays in effect for the compressed form.
    internal::ScopedFlags flags(archive, archive.flags & Archive::kParallel);
    return serialiseCompressed(archive);
}

bool MapMetadata::deserialise(Archive& archive) {
    if (!(archive.flags & Archive::kCompressedContainers)) return deserialisePlain(archive);
    internal::ScopedFlags flags(archive, 0);
    return deserialiseCompressed(archive);
}

bool MapMetadata::serialisePlain(Archive& archive) const {
    internal::TableItems table(true, m_entries.size());
    for (const auto& [key, value] : m_entries) {
        if (value) table.add(&key, value.get(), value->memSize());
    }
    return internal::writePlainLayout(archive, staticTypeId(), table);
}

bool MapMetadata::deserialisePlain(Archive& archive) {
    if (archive.size == 0) return false;
    const uint64_t start = archive.position;
    uint32_t id = 0;
    uint64_t count = 0;
    uint64_t tableSize = 0;
    if (!archive.read(&id, sizeof(id)) || id != staticTypeId() ||
        !archive.readCount(count, internal::kMapRowBytes) ||
        !archive.read(&tableSize, sizeof(tableSize))) {
        archive.position = start;
        return false;
    }

    // One walk checks the whole table before anything in the map changes and compares its keys,
    // as views, with the held ones. Into an empty map the same walk makes the entries, dropped
    // again when the table turns out damaged.
    const unsigned char* const table = archive.data + archive.position;
    const uint64_t bytes = archive.remaining();
    const bool sameSize = count == m_entries.size();
    const bool parallel =
        (archive.flags & Archive::kParallel) != 0 && internal::worthParallel(count, bytes);
    std::unique_ptr<std::shared_ptr<Metadata>*[]> slots(
        sameSize && count ? new std::shared_ptr<Metadata>*[count] : nullptr);
    TableScan scan;
    const bool intoEmpty = m_entries.empty() && !parallel;
    std::vector<std::shared_ptr<Metadata>*> fresh;
    if (intoEmpty
            ? !addEntries(m_entries, table, bytes, count, fresh, scan)
            : !scanTable(table, bytes, count, m_entries, sameSize || parallel, slots.get(), scan)) {
        if (intoEmpty) m_entries.clear();
        archive.setFailed();
        archive.position = start;
        return false;
    }
    // Parallel reads, and held keys stored out of order, take the general path.
    if (parallel || (sameSize && !scan.held && !scan.ascending)) {
        archive.position = start + sizeof(id);
        return deserialiseRows(archive);
    }

    // One more walk reads every value straight into its entry: in place when the map holds
    // exactly the stored keys, otherwise into new entries, inserted at the end while the keys
    // ascend (a repeated key keeps its last row). New values come from the reader's arena.
    archive.position += scan.used;
    const uint64_t areaStart = archive.position;
    internal::ReadDepth depth;
    internal::RowReader reader(archive, areaStart, depth.tooDeep(), scan.held ? 0 : count);
    bool intact = !depth.tooDeep();
    // New entries first, then every value through the list of their slots (addresses known
    // ahead, where each step of a tree iteration waits on the node before).
    if (!scan.held && !intoEmpty) {
        m_entries.clear();
        addEntries(m_entries, table, bytes, count, fresh, scan);
    }
    size_t i = 0;
    uint64_t used = 0;
    internal::walkMapRows(table, bytes, count, used, [&](std::string_view, const ValueRow& row) {
        if (scan.held) {
            // Nodes and values live in separate heap blocks: fetch them ahead in two stages.
            if (i + 16 < count) __builtin_prefetch(slots[i + 16]);
            if (i + 8 < count) __builtin_prefetch(slots[i + 8]->get());
            intact = reader.read(row, *slots[i++], true) && intact;
            return;
        }
        if (i + 16 < count) __builtin_prefetch(fresh[i + 16], 1);
        intact = reader.read(row, *fresh[i++], false) && intact;
    });
    archive.position = count ? internal::areaEnd(archive, areaStart, scan.last) : areaStart;
    if (!intact) archive.setFailed();
    return intact;
}

bool MapMetadata::deserialiseRows(Archive& archive) {
    std::vector<std::string_view> keys;
    std::vector<ValueRow> rows;
    internal::readMapTable(archive, keys, rows);  // checked by the caller
    const uint64_t count = rows.size();
    const uint64_t areaStart = archive.position;

    // Every row reads straight into its entry's slot. Held values are reused when the map holds
    // exactly the stored keys.
    std::vector<std::shared_ptr<Metadata>*> slots(count);
    const bool sameSize = count == m_entries.size();
    bool inPlace = sameSize && matchHeld(m_entries, keys, true, slots);
    const bool sorted = inPlace || strictlyAscending(keys);
    if (!inPlace && !sorted && sameSize) inPlace = matchHeld(m_entries, keys, false, slots);
    // Keys out of order (or repeated) go through a list first: repeats share an entry, and the
    // last row of a key wins as it always has.
    std::vector<std::shared_ptr<Metadata>> loose;
    if (!inPlace) {
        m_entries.clear();
        if (!sorted) loose.resize(count);
        for (size_t i = 0; i < count; ++i) {
            slots[i] = sorted ? &m_entries.emplace_hint(m_entries.end(), keys[i], nullptr)->second
                              : &loose[i];
        }
    }
    const bool parallel = (archive.flags & Archive::kParallel) != 0;
    const bool intact = internal::readRowValues(archive, areaStart, rows, slots, inPlace, parallel);
    for (size_t i = 0; i < loose.size(); ++i)
        m_entries[std::string(keys[i])] = std::move(loose[i]);

    archive.position = internal::areaEnd(archive, areaStart, rows);
    if (!intact) archive.setFailed();
    return intact;
}

void MapMetadata::addEntry(const std::string& key, const std::shared_ptr<Metadata>& value,
                           bool deepCopy) {
    if (!value) return;
    if (!deepCopy) {
        m_entries[key] = value;
        return;
    }
    std::shared_ptr<Metadata>& slot = m_entries[key];
    if (slot && slot->typeId() == value->typeId()) {
        slot->copy(value.get());
    } else {
        slot = value->clone();
    }
}

void MapMetadata::addEntry(const std::string& key, const std::shared_ptr<const Metadata>& value) {
    if (value) m_entries[key] = value->clone();
}

void MapMetadata::addEntry(const std::string& key, Metadata* value) {
    if (value) m_entries[key] = value->clone();
}

void MapMetadata::insertEntry(const std::string& key, std::shared_ptr<Metadata> value) {
    if (value) m_entries[key] = std::move(value);
}

void MapMetadata::addEmptyEntry(const std::string& key) {
    m_entries[key].reset();
}

std::shared_ptr<Metadata> MapMetadata::getEntry(const std::string& key) {
    auto it = m_entries.find(key);
    return it == m_entries.end() ? nullptr : it->second;
}

std::shared_ptr<const Metadata> MapMetadata::getEntry(const std::string& key) const {
    auto it = m_entries.find(key);
    return it == m_entries.end() ? nullptr : it->second;
}

bool MapMetadata::hasKey(const std::string& key) const {
    return m_entries.count(key) != 0;
}

void MapMetadata::eraseEntry(const std::string& key) {
    m_entries.erase(key);
}

std::vector<std::string> MapMetadata::getKeys() const {
    std::vector<std::string> keys;
    keys.reserve(m_entries.size());
    for (const auto& entry : m_entries)
        keys.push_back(entry.first);
    return keys;
}

Archive& operator<<(Archive& archive, const MapMetadata& map) {
    map.serialise(archive);
    return archive;
}

Archive& operator>>(Archive& archive, MapMetadata& map) {
    map.deserialise(archive);
    return archive;
}

}  // namespace ZeltoCore
