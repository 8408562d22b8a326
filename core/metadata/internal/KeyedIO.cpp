#include "core/metadata/internal/KeyedIO.h"

#include <cstring>

#include "core/metadata/internal/CompressedIO.h"

namespace ZeltoCore {
namespace internal {
namespace {

// A word-at-a-time multiply-xorshift hash; keys are short, and every table row is hashed. The
// last partial word is read as the key's last eight bytes, overlapping the previous word, so no
// byte count is variable.
uint64_t hashKey(std::string_view key) {
    const size_t size = key.size();
    const char* bytes = key.data();
    uint64_t h = (size + 1) * 0x9e3779b97f4a7c15ull;
    auto mix = [&h](uint64_t word) {
        h = (h ^ word) * 0xff51afd7ed558ccdull;
        h ^= h >> 32;
    };
    uint64_t word = 0;
    if (size < 8) {
        for (size_t i = 0; i < size; ++i)
            word |= uint64_t(static_cast<unsigned char>(bytes[i])) << (8 * i);
        mix(word);
        return h;
    }
    size_t i = 0;
    for (; i + 8 <= size; i += 8) {
        std::memcpy(&word, bytes + i, 8);
        mix(word);
    }
    if (i < size) {
        std::memcpy(&word, bytes + size - 8, 8);
        mix(word);
    }
    return h;
}

}  // namespace

KeySet::KeySet(const std::vector<std::string>& keys) {
    uint64_t capacity = 16;
    while (capacity < 4 * keys.size())
        capacity *= 2;
    m_slots.assign(capacity, Slot());
    m_mask = capacity - 1;
    m_keys.reserve(keys.size());
    for (const std::string& key : keys) {
        if (find(key) != npos) continue;  // a repeat
        const uint64_t hash = hashKey(key);
        uint64_t slot = hash & m_mask;
        while (m_slots[slot].index != npos)
            slot = (slot + 1) & m_mask;
        m_slots[slot] = {hash, m_keys.size()};
        m_keys.push_back(&key);
    }
}

size_t KeySet::find(std::string_view key) const {
    // Most table rows are not requested: they end at a free slot or a hash that differs.
    const uint64_t hash = hashKey(key);
    for (uint64_t slot = hash & m_mask; m_slots[slot].index != npos; slot = (slot + 1) & m_mask) {
        const Slot& s = m_slots[slot];
        if (s.hash == hash && *m_keys[s.index] == key) return s.index;
    }
    return npos;
}

bool readContainerHead(ArchiveFileReader& file, bool keyed, ContainerHead& head) {
    unsigned char bytes[kMapHeaderBytes] = {};
    head.bytes = keyed ? kMapHeaderBytes : kArrayHeaderBytes;
    const ArchiveFileHeader& header = file.header();
    if (header.dataSize < head.bytes || !file.readAt(header.dataOffset, head.bytes, bytes))
        return false;
    std::memcpy(&head.typeId, bytes, 4);
    std::memcpy(&head.count, bytes + 4, 8);
    if (keyed) std::memcpy(&head.tableSize, bytes + 12, 8);
    return true;
}

bool readFileRowBlocks(ArchiveFileReader& file, uint64_t areaStart,
                       const std::vector<ValueRow>& rows, bool parallel,
                       std::vector<std::shared_ptr<Metadata>>& slots, std::vector<char>& decoded) {
    const uint64_t areaBytes = file.fileSize() - areaStart;
    std::vector<FileBytes> blocks(rows.size());
    std::vector<char> loaded(rows.size(), 0);
    bool intact = true;
    for (size_t i = 0; i < rows.size(); ++i) {
        const ValueRow& row = rows[i];
        if (row.offset <= areaBytes && row.size <= areaBytes - row.offset) {
            blocks[i] = allocateBytes(row.size);
            loaded[i] = file.readAt(areaStart + row.offset, row.size, blocks[i].get());
        }
        intact = intact && loaded[i];
    }
    const ArchiveFileHeader& header = file.header();
    const bool compressed = (header.flags & Archive::kCompressedContainers) != 0;
    decoded.assign(rows.size(), 0);
    forEachIndex(rows.size(), parallel, [&](size_t i) {
        if (!loaded[i]) return;
        decoded[i] = readBlockInto(blocks[i].get(), rows[i].size, compressed, header.version,
                                   slots[i], slots[i] != nullptr);
        blocks[i].reset();
    });
    return intact;
}

}  // namespace internal
}  // namespace ZeltoCore
