// The compressed layout of ArrayMetadata and its keyed readers.
#include <cstring>

#include "core/metadata/ArrayMetadata.h"
#include "core/metadata/internal/CompressedIO.h"
#include "core/metadata/internal/ContainerIO.h"
#include "core/metadata/internal/KeyedIO.h"

namespace ZeltoCore {

using internal::ValueRow;

namespace {

constexpr uint64_t kHeaderBytes = 4 + 8;  // type id, element count
constexpr uint64_t kRowBytes = 8 + 8;     // offset, size

template <class T>
unsigned char* put(unsigned char* out, T value) {
    std::memcpy(out, &value, sizeof(T));
    return out + sizeof(T);
}

ValueRow rowAt(const unsigned char* table, uint64_t index) {
    ValueRow row;
    std::memcpy(&row.offset, table + kRowBytes * index, 8);
    std::memcpy(&row.size, table + kRowBytes * index + 8, 8);
    return row;
}

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
    std::vector<const Metadata*> values;
    values.reserve(m_elements.size());
    for (const auto& element : m_elements)
        values.push_back(element.get());
    const bool parallel = (archive.flags & Archive::kParallel) != 0;
    std::vector<internal::CompressedBlock> blocks;
    const bool ok = internal::compressValues(values, parallel, blocks);

    const uint64_t areaStart = kHeaderBytes + kRowBytes * blocks.size();
    std::vector<uint64_t> offsets(blocks.size());
    uint64_t areaSize = 0;
    for (size_t i = 0; i < blocks.size(); ++i) {
        offsets[i] = areaSize;
        areaSize += blocks[i].size;
    }
    const uint64_t total = areaStart + areaSize;
    if (archive.size != total) archive.resize(total);

    unsigned char* out = put<uint32_t>(archive.data, staticTypeId());
    out = put<uint64_t>(out, blocks.size());
    for (size_t i = 0; i < blocks.size(); ++i)
        out = put<uint64_t>(put<uint64_t>(out, offsets[i]), blocks[i].size);
    internal::placeBlocks(archive, areaStart, blocks, offsets, parallel);
    archive.position = total;
    if (!ok) archive.setFailed();
    return ok;
}

bool ArrayMetadata::deserialiseCompressed(Archive& archive) {
    const uint64_t start = archive.position;
    uint32_t id = 0;
    uint64_t count = 0;
    if (!archive.read(&id, sizeof(id)) || id != staticTypeId() ||
        !archive.readCount(count, kRowBytes)) {
        archive.position = start;
        return false;
    }
    std::vector<ValueRow> rows(count);
    for (uint64_t i = 0; i < count; ++i)
        rows[i] = rowAt(archive.data + archive.position, i);
    archive.position += kRowBytes * count;
    const uint64_t areaStart = archive.position;

    const bool parallel = (archive.flags & Archive::kParallel) != 0;
    std::vector<std::shared_ptr<Metadata>> results;
    std::vector<char> decoded;
    const bool intact =
        internal::decodeRows(archive, areaStart, rows, true, parallel, results, decoded);
    m_elements.resize(count);
    for (uint64_t i = 0; i < count; ++i) {
        if (decoded[i]) m_elements[i] = std::move(results[i]);
    }
    archive.position = intact && count ? areaStart + rows.back().offset + rows.back().size
                       : intact        ? areaStart
                                       : archive.size;
    if (!intact) archive.setFailed();
    return intact;
}

bool ArrayMetadata::deserialiseKeys(Archive& archive, const std::vector<size_t>& indices,
                                    bool /*merge*/) {
    const uint64_t start = archive.position;
    uint64_t count = 0;
    // The type id is the caller's business here, as in the plain reader.
    if (archive.version == 1 || !archive.skip(sizeof(uint32_t)) ||
        !archive.readCount(count, kRowBytes)) {
        archive.position = start;
        return false;
    }
    const unsigned char* table = archive.data + archive.position;
    const uint64_t areaStart = archive.position + kRowBytes * count;
    const std::vector<uint64_t> wanted = wantedIndices(indices, count);
    std::vector<ValueRow> rows(wanted.size());
    for (size_t k = 0; k < wanted.size(); ++k)
        rows[k] = rowAt(table, wanted[k]);

    const bool compressed = (archive.flags & Archive::kCompressedContainers) != 0;
    const bool parallel = (archive.flags & Archive::kParallel) != 0;
    std::vector<std::shared_ptr<Metadata>> results;
    std::vector<char> decoded;
    const bool intact =
        internal::decodeRows(archive, areaStart, rows, compressed, parallel, results, decoded);
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
    internal::ArchiveFileReader file;
    if (!file.open(path)) return false;
    const ArchiveFileHeader& header = file.header();
    if (header.flags & Archive::kCompressFile) {
        Archive archive;
        return file.readData(archive) && deserialiseKeys(archive, indices, merge);
    }

    unsigned char head[kHeaderBytes];
    uint32_t id = 0;
    uint64_t count = 0;
    if (header.version == 1 || header.dataSize < kHeaderBytes ||
        !file.readAt(header.dataOffset, kHeaderBytes, head)) {
        return false;
    }
    std::memcpy(&id, head, 4);
    std::memcpy(&count, head + 4, 8);
    if (id != staticTypeId() || count > (header.dataSize - kHeaderBytes) / kRowBytes) return false;
    const std::vector<uint64_t> wanted = wantedIndices(indices, count);
    if (wanted.empty()) {
        if (!merge) m_elements.clear();
        return false;
    }
    const uint64_t tableSize = kRowBytes * count;
    const internal::FileBytes table = internal::allocateBytes(tableSize);
    const uint64_t tableStart = header.dataOffset + kHeaderBytes;
    if (!file.readAt(tableStart, tableSize, table.get())) return false;
    const uint64_t areaStart = tableStart + tableSize;
    const uint64_t areaBytes = file.fileSize() - areaStart;

    // Blocks are read on this thread, one read each; decoding may then run in parallel tasks.
    const bool compressed = (header.flags & Archive::kCompressedContainers) != 0;
    std::vector<internal::FileBytes> blocks(wanted.size());
    std::vector<ValueRow> rows(wanted.size());
    std::vector<char> loaded(wanted.size());
    bool intact = true;
    for (size_t k = 0; k < wanted.size(); ++k) {
        const ValueRow row = rows[k] = rowAt(table.get(), wanted[k]);
        if (row.offset > areaBytes || row.size > areaBytes - row.offset) {
            intact = false;
            continue;
        }
        blocks[k] = internal::allocateBytes(row.size);
        loaded[k] = file.readAt(areaStart + row.offset, row.size, blocks[k].get());
        intact = intact && loaded[k];
    }
    if (!merge) m_elements.clear();
    const size_t base = m_elements.size();
    m_elements.resize(base + wanted.size());
    const bool parallel = (header.flags & Archive::kParallel) != 0;
    internal::forEachIndex(wanted.size(), parallel, [&](size_t k) {
        if (!loaded[k]) return;
        internal::decodeValue(blocks[k].get(), rows[k].size, compressed, header.version,
                              m_elements[base + k], false);
        blocks[k].reset();
    });
    return intact;
}

}  // namespace ZeltoCore
