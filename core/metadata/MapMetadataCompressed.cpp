// The compressed layout of MapMetadata: the plain table over one compressed block per entry.
#include <cstring>
#include <string_view>

#include "core/metadata/MapMetadata.h"
#include "core/metadata/internal/CompressedIO.h"
#include "core/metadata/internal/ContainerIO.h"

namespace ZeltoCore {

using internal::ValueRow;

namespace {

constexpr uint64_t kHeaderBytes = 4 + 8 + 8;  // type id, entry count, table size

template <class T>
unsigned char* put(unsigned char* out, T value) {
    std::memcpy(out, &value, sizeof(T));
    return out + sizeof(T);
}

}  // namespace

bool MapMetadata::serialiseCompressed(Archive& archive) const {
    std::vector<const Metadata*> values;
    values.reserve(m_entries.size());
    uint64_t tableSize = 0;
    for (const auto& [key, value] : m_entries) {
        values.push_back(value.get());
        tableSize += internal::kMapRowBytes + key.size();
    }
    const bool parallel = (archive.flags & Archive::kParallel) != 0;
    std::vector<internal::CompressedBlock> blocks;
    const bool ok = internal::compressValues(values, parallel, blocks);

    std::vector<uint64_t> offsets(blocks.size());
    uint64_t areaSize = 0;
    for (size_t i = 0; i < blocks.size(); ++i) {
        offsets[i] = areaSize;
        areaSize += blocks[i].size;
    }
    const uint64_t areaStart = kHeaderBytes + tableSize;
    const uint64_t total = areaStart + areaSize;
    if (archive.size != total) archive.resize(total);

    unsigned char* out = put<uint32_t>(archive.data, staticTypeId());
    out = put<uint64_t>(out, m_entries.size());
    out = put<uint64_t>(out, tableSize);
    size_t i = 0;
    for (const auto& entry : m_entries) {
        const std::string& key = entry.first;
        out = put<uint64_t>(out, key.size());
        if (!key.empty()) std::memcpy(out, key.data(), key.size());
        out = put<uint64_t>(out + key.size(), blocks[i].size);
        out = put<uint64_t>(out, offsets[i]);
        ++i;
    }
    internal::placeBlocks(archive, areaStart, blocks, offsets, parallel);
    archive.position = total;
    if (!ok) archive.setFailed();
    return ok;
}

bool MapMetadata::deserialiseCompressed(Archive& archive) {
    const uint64_t start = archive.position;
    uint32_t id = 0;
    std::vector<std::string_view> keys;
    std::vector<ValueRow> rows;
    if (!archive.read(&id, sizeof(id)) || id != staticTypeId() ||
        !internal::readMapTable(archive, keys, rows)) {
        archive.position = start;
        return false;
    }
    const bool parallel = (archive.flags & Archive::kParallel) != 0;
    std::vector<std::shared_ptr<Metadata>> results;
    std::vector<char> decoded;
    const bool intact =
        internal::decodeRows(archive, archive.position, rows, true, parallel, results, decoded);

    // The map ends up holding exactly the stored keys, every one with a new value or none.
    Entries fresh;
    for (size_t i = 0; i < rows.size(); ++i) {
        std::shared_ptr<Metadata> value = decoded[i] ? std::move(results[i]) : nullptr;
        fresh.insert_or_assign(fresh.end(), std::string(keys[i]), std::move(value));
    }
    m_entries.swap(fresh);
    archive.position = archive.size;
    if (!intact) archive.setFailed();
    return intact;
}

}  // namespace ZeltoCore
