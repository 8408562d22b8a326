// Keyed readers of MapMetadata: chosen keys from a map held in an archive or stored in a file.
#include <algorithm>
#include <string_view>

#include "core/metadata/MapMetadata.h"
#include "core/metadata/internal/CompressedIO.h"
#include "core/metadata/internal/ContainerIO.h"
#include "core/metadata/internal/KeyedIO.h"

namespace ZeltoCore {

using internal::KeySet;
using internal::ValueRow;

namespace {

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
    const bool intact = internal::readRowBlocks(archive, areaStart, targetRows, compressed,
                                                parallel, results, decoded);
    for (size_t i = 0; i < targets.size(); ++i) {
        if (decoded[i]) targets[i]->second = std::move(results[i]);
    }
    archive.position = archive.size;
    if (!intact) archive.setFailed();
    return intact;
}

bool MapMetadata::deserialiseKeys(const std::string& path, const std::vector<std::string>& keys,
                                  bool merge, bool parallel) {
    ArchiveFileReader file;
    if (!file.open(path)) return false;
    const ArchiveFileHeader& header = file.header();
    if (header.flags & Archive::kCompressFile) {
        Archive archive;
        return file.readDataSection(archive) && deserialiseKeys(archive, keys, merge);
    }

    // Header and table are checked against the file before anything is allocated for them.
    internal::ContainerHead head;
    if (!internal::readContainerHead(file, true, head) || head.typeId != staticTypeId() ||
        head.tableSize > header.dataSize - head.bytes ||
        head.count > head.tableSize / internal::kMapRowBytes) {
        return false;
    }
    const uint64_t tableSize = head.tableSize;
    const internal::FileBytes table = internal::allocateBytes(tableSize);
    const uint64_t tableStart = header.dataOffset + head.bytes;
    if (!file.readAt(tableStart, tableSize, table.get())) return false;
    const KeySet wanted(keys);
    std::vector<ValueRow> rows;
    std::vector<char> found;
    uint64_t used = 0;
    if (!findRows(table.get(), tableSize, head.count, wanted, rows, found, used)) return false;

    // Held values read themselves in place when the map holds exactly the requested keys.
    const bool inPlace = !merge && holdsExactly(m_entries, keys);
    if (!merge && !inPlace) m_entries.clear();
    std::vector<const std::string*> targets;
    std::vector<ValueRow> targetRows;
    std::vector<std::shared_ptr<Metadata>> values;
    for (size_t k = 0; k < wanted.size(); ++k) {
        if (!found[k]) continue;
        targets.push_back(&wanted.key(k));
        targetRows.push_back(rows[k]);
        // An entry held without value is read like a new one.
        values.push_back(inPlace ? m_entries.find(wanted.key(k))->second : nullptr);
    }
    std::vector<char> decoded;
    const bool intact =
        internal::readFileRowBlocks(file, tableStart + used, targetRows, parallel, values, decoded);
    for (size_t i = 0; i < targets.size(); ++i) {
        if (decoded[i]) m_entries[*targets[i]] = std::move(values[i]);
    }
    return intact;
}

}  // namespace ZeltoCore
