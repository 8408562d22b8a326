// Keyed readers of MapMetadata: chosen keys from a map held in an archive or stored in a file.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <string_view>

#include "core/metadata/MapMetadata.h"
#include "core/metadata/internal/CompressedIO.h"
#include "core/metadata/internal/ContainerIO.h"
#include "core/metadata/internal/KeyedIO.h"

namespace ZeltoCore {

using internal::KeySet;
using internal::ValueRow;

namespace {

constexpr uint64_t kHeaderBytes = 4 + 8 + 8;  // type id, entry count, table size

// Finds the rows of the requested keys in a table of `count` rows: found[k] tells whether
// distinct key k has a row, rows[k] is its first one. False for a damaged table.
bool findRows(const unsigned char* table, uint64_t bytes, uint64_t count, const KeySet& wanted,
              std::vector<ValueRow>& rows, std::vector<char>& found, uint64_t& used) {
    rows.assign(wanted.size(), ValueRow());
    found.assign(wanted.size(), 0);
    size_t left = wanted.size();
    return internal::walkMapRows(table, bytes, count, used,
                                 [&](std::string_view key, const ValueRow& row) {
                                     if (left == 0) return;
                                     const size_t k = wanted.find(key);
                                     if (k == KeySet::npos || found[k]) return;
                                     rows[k] = row;
                                     found[k] = 1;
                                     --left;
                                 });
}

// True when the map's keys are exactly `keys` (a sorted copy compared with the sorted map).
bool holdsExactly(const MapMetadata::Entries& entries, const std::vector<std::string>& keys) {
    if (entries.size() != keys.size()) return false;
    std::vector<std::string_view> sorted(keys.begin(), keys.end());
    std::sort(sorted.begin(), sorted.end());
    return std::equal(sorted.begin(), sorted.end(), entries.begin(),
                      [](std::string_view key, const auto& entry) { return key == entry.first; });
}

}  // namespace

bool MapMetadata::deserialiseKeys(Archive& archive, const std::vector<std::string>& keys,
                                  bool merge) {
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
    const KeySet wanted(keys);
    std::vector<ValueRow> rows;
    std::vector<char> found;
    uint64_t used = 0;
    if (!findRows(archive.data + archive.position, archive.remaining(), count, wanted, rows, found,
                  used)) {
        archive.setFailed();
        archive.position = start;
        return false;
    }
    const uint64_t areaStart = archive.position + used;

    if (!merge) m_entries.clear();
    std::vector<iterator> targets;
    std::vector<ValueRow> targetRows;
    for (size_t k = 0; k < wanted.size(); ++k) {
        if (!found[k]) continue;
        auto it = m_entries.try_emplace(wanted.key(k)).first;
        it->second.reset();
        targets.push_back(it);
        targetRows.push_back(rows[k]);
    }
    const bool compressed = (archive.flags & Archive::kCompressedContainers) != 0;
    const bool parallel = (archive.flags & Archive::kParallel) != 0;
    std::vector<std::shared_ptr<Metadata>> results;
    std::vector<char> decoded;
    const bool intact = internal::decodeRows(archive, areaStart, targetRows, compressed, parallel,
                                             results, decoded);
    for (size_t i = 0; i < targets.size(); ++i) {
        if (decoded[i]) targets[i]->second = std::move(results[i]);
    }
    archive.position = archive.size;
    if (!intact) archive.setFailed();
    return intact;
}

bool MapMetadata::deserialiseKeys(const std::string& path, const std::vector<std::string>& keys,
                                  bool merge, bool parallel) {
    internal::ArchiveFileReader file;
    if (!file.open(path)) return false;
    const ArchiveFileHeader& header = file.header();
    if (header.flags & Archive::kCompressFile) {
        Archive archive;
        return file.readData(archive) && deserialiseKeys(archive, keys, merge);
    }

    // Header and table are checked against the file before anything is allocated for them.
    unsigned char head[kHeaderBytes];
    uint32_t id = 0;
    uint64_t count = 0;
    uint64_t tableSize = 0;
    if (header.dataSize < kHeaderBytes || !file.readAt(header.dataOffset, kHeaderBytes, head))
        return false;
    std::memcpy(&id, head, 4);
    std::memcpy(&count, head + 4, 8);
    std::memcpy(&tableSize, head + 12, 8);
    if (id != staticTypeId() || tableSize > header.dataSize - kHeaderBytes ||
        count > tableSize / internal::kMapRowBytes) {
        return false;
    }
    const internal::FileBytes table = internal::allocateBytes(tableSize);
    const uint64_t tableStart = header.dataOffset + kHeaderBytes;
    if (!file.readAt(tableStart, tableSize, table.get())) return false;
    const KeySet wanted(keys);
    std::vector<ValueRow> rows;
    std::vector<char> found;
    uint64_t used = 0;
    if (!findRows(table.get(), tableSize, count, wanted, rows, found, used)) return false;
    const uint64_t areaStart = tableStart + used;

    // Held values read themselves in place when the map holds exactly the requested keys.
    const bool reuse = !merge && holdsExactly(m_entries, keys);
    if (!merge && !reuse) m_entries.clear();

    struct Item {
        const std::string* key;
        ValueRow row;
        internal::FileBytes bytes;
        std::shared_ptr<Metadata> value;
        bool decoded = false;
    };
    std::vector<Item> items;
    for (size_t k = 0; k < wanted.size(); ++k) {
        if (found[k]) items.push_back({&wanted.key(k), rows[k], {}, nullptr, false});
    }
    if (reuse) {
        for (Item& item : items)
            item.value = m_entries.find(*item.key)->second;
    }

    const bool compressed = (header.flags & Archive::kCompressedContainers) != 0;
    bool intact = true;
    const uint64_t areaBytes = file.fileSize() - areaStart;
    auto load = [&](Item& item) {
        if (item.row.offset > areaBytes || item.row.size > areaBytes - item.row.offset)
            return false;
        item.bytes = internal::allocateBytes(item.row.size);
        return file.readAt(areaStart + item.row.offset, item.row.size, item.bytes.get());
    };
    auto decode = [&](Item& item) {
        // An entry held without value is read like a new one.
        item.decoded = internal::decodeValue(item.bytes.get(), item.row.size, compressed,
                                             header.version, item.value, item.value != nullptr);
        item.bytes.reset();
    };
    if (parallel) {
        // File reads stay on this thread; only decoding is spread over tasks.
        std::vector<char> loaded(items.size());
        for (size_t i = 0; i < items.size(); ++i) {
            loaded[i] = load(items[i]);
            intact = intact && loaded[i];
        }
        internal::forEachIndex(items.size(), true, [&](size_t i) {
            if (loaded[i]) decode(items[i]);
        });
    } else {
        for (Item& item : items) {
            if (load(item)) {
                decode(item);
            } else {
                intact = false;
            }
        }
    }
    for (Item& item : items) {
        if (item.decoded) m_entries[*item.key] = std::move(item.value);
    }
    return intact;
}

}  // namespace ZeltoCore
