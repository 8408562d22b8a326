// The compressed layout of ArrayMetadata and its keyed readers.

#include "core/metadata/ArrayMetadata.h"
#include "core/metadata/internal/CompressedIO.h"
#include "core/metadata/internal/ContainerIO.h"
#include "core/metadata/internal/KeyedIO.h"

namespace ZeltoCore {

using internal::ValueRow;

namespace {

// The indices below `count`, in order, repeats kept.
std::vector<uint64_t> wantedIndices(const std::vector<size_t>& indices, uint64_t count) {
    std::vector<uint64_t> wanted;
    wanted.reserve(indices.size());
    for (size_t index : indices) {
        if (index < count) wanted.push_back(index);
    }
    return wanted;
}

}  // namespace

bool ArrayMetadata::serialiseCompressed(Archive& archive) const {
    internal::TableItems table(false, m_elements.size());
    for (const auto& element : m_elements)
        table.add(nullptr, element.get(), 0);
    return internal::writeCompressedLayout(archive, staticTypeId(), table);
}

bool ArrayMetadata::deserialiseCompressed(Archive& archive) {
    const uint64_t start = archive.position;
    uint32_t id = 0;
    std::vector<ValueRow> rows;
    if (!archive.read(&id, sizeof(id)) || id != staticTypeId() ||
        !internal::readArrayTable(archive, rows)) {
        archive.position = start;
        return false;
    }
    const uint64_t areaStart = archive.position;
    const bool parallel = (archive.flags & Archive::kParallel) != 0;
    std::vector<std::shared_ptr<Metadata>> results;
    std::vector<char> decoded;
    const bool intact =
        internal::readRowBlocks(archive, areaStart, rows, true, parallel, results, decoded);
    m_elements.resize(rows.size());
    for (size_t i = 0; i < rows.size(); ++i) {
        if (decoded[i]) m_elements[i] = std::move(results[i]);
    }
    archive.position = internal::areaEnd(archive, areaStart, rows);
    if (!intact) archive.setFailed();
    return intact;
}

bool ArrayMetadata::deserialiseKeys(Archive& archive, const std::vector<size_t>& indices,
                                    bool /*merge*/) {
    const uint64_t start = archive.position;
    uint64_t count = 0;
    // The type id is the caller's business here, as in the plain reader.
    if (archive.version == 1 || !archive.skip(sizeof(uint32_t)) ||
        !archive.readCount(count, internal::kArrayRowBytes)) {
        archive.position = start;
        return false;
    }
    const unsigned char* table = archive.data + archive.position;
    const uint64_t areaStart = archive.position + internal::kArrayRowBytes * count;
    const std::vector<uint64_t> wanted = wantedIndices(indices, count);
    std::vector<ValueRow> rows(wanted.size());
    for (size_t k = 0; k < wanted.size(); ++k)
        rows[k] = internal::arrayRowAt(table, wanted[k]);

    const bool compressed = (archive.flags & Archive::kCompressedContainers) != 0;
    const bool parallel = (archive.flags & Archive::kParallel) != 0;
    std::vector<std::shared_ptr<Metadata>> results;
    std::vector<char> decoded;
    const bool intact =
        internal::readRowBlocks(archive, areaStart, rows, compressed, parallel, results, decoded);
    m_elements.resize(wanted.size());
    for (size_t k = 0; k < wanted.size(); ++k) {
        if (decoded[k]) m_elements[k] = std::move(results[k]);
    }
    archive.position = start;
    if (!intact) archive.setFailed();
    return intact;
}

bool ArrayMetadata::deserialiseKeys(const std::string& path, const std::vector<size_t>& indices,
                                    bool merge) {
    ArchiveFileReader file;
    if (!file.open(path)) return false;
    const ArchiveFileHeader& header = file.header();
    if (header.flags & Archive::kCompressFile) {
        Archive archive;
        return file.readDataSection(archive) && deserialiseKeys(archive, indices, merge);
    }

    internal::ContainerHead head;
    if (header.version == 1 || !internal::readContainerHead(file, false, head) ||
        head.typeId != staticTypeId() ||
        head.count > (header.dataSize - head.bytes) / internal::kArrayRowBytes) {
        return false;
    }
    const std::vector<uint64_t> wanted = wantedIndices(indices, head.count);
    if (wanted.empty()) {
        if (!merge) m_elements.clear();
        return false;
    }
    const uint64_t tableSize = internal::kArrayRowBytes * head.count;
    const internal::FileBytes table = internal::allocateBytes(tableSize);
    const uint64_t tableStart = header.dataOffset + head.bytes;
    if (!file.readAt(tableStart, tableSize, table.get())) return false;
    std::vector<ValueRow> rows(wanted.size());
    for (size_t k = 0; k < wanted.size(); ++k)
        rows[k] = internal::arrayRowAt(table.get(), wanted[k]);

    std::vector<std::shared_ptr<Metadata>> values(wanted.size());
    std::vector<char> decoded;
    const bool parallel = (header.flags & Archive::kParallel) != 0;
    const bool intact =
        internal::readFileRowBlocks(file, tableStart + tableSize, rows, parallel, values, decoded);
    if (!merge) m_elements.clear();
    for (auto& value : values)
        m_elements.push_back(std::move(value));
    return intact;
}

}  // namespace ZeltoCore
