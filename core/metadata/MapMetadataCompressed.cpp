// The compressed layout of MapMetadata: the plain table over one compressed block per entry.
#include <string_view>

#include "core/metadata/MapMetadata.h"
#include "core/metadata/internal/CompressedIO.h"
#include "core/metadata/internal/ContainerIO.h"

namespace ZeltoCore {

using internal::ValueRow;

bool MapMetadata::serialiseCompressed(Archive& archive) const {
    internal::TableItems table(true, m_entries.size());
    for (const auto& [key, value] : m_entries)
        table.add(&key, value.get(), 0);
    return internal::writeCompressedLayout(archive, staticTypeId(), table);
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
        internal::readRowBlocks(archive, archive.position, rows, true, parallel, results, decoded);

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
