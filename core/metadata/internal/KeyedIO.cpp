#include "core/metadata/internal/KeyedIO.h"

#include <cstdlib>
#include <cstring>

#include "utils/Compression.h"
#include "utils/Environment.h"

namespace ZeltoCore {
namespace internal {
namespace {

// A word-at-a-time multiply-xorshift hash; keys are short, and every table row is hashed.
uint64_t hashKey(std::string_view key) {
    uint64_t h = (key.size() + 1) * 0x9e3779b97f4a7c15ull;
    size_t i = 0;
    for (; i + 8 <= key.size(); i += 8) {
        uint64_t word;
        std::memcpy(&word, key.data() + i, 8);
        h = (h ^ word) * 0xff51afd7ed558ccdull;
        h ^= h >> 32;
    }
    if (i < key.size()) {
        uint64_t word = 0;
        std::memcpy(&word, key.data() + i, key.size() - i);
        h = (h ^ word) * 0xc4ceb9fe1a85ec53ull;
    }
    return h ^ (h >> 29);
}

}  // namespace

KeySet::KeySet(const std::vector<std::string>& keys) {
    uint64_t capacity = 8;
    while (capacity < 2 * keys.size())
        capacity *= 2;
    m_slots.assign(capacity, 0);
    m_mask = capacity - 1;
    m_keys.reserve(keys.size());
    for (const std::string& key : keys) {
        uint64_t slot = hashKey(key) & m_mask;
        for (; m_slots[slot] != 0; slot = (slot + 1) & m_mask) {
            if (*m_keys[m_slots[slot] - 1] == key) break;
        }
        if (m_slots[slot] != 0) continue;  // a repeat
        m_keys.push_back(&key);
        m_slots[slot] = static_cast<uint32_t>(m_keys.size());
    }
}

size_t KeySet::find(std::string_view key) const {
    for (uint64_t slot = hashKey(key) & m_mask; m_slots[slot] != 0; slot = (slot + 1) & m_mask) {
        const size_t index = m_slots[slot] - 1;
        if (*m_keys[index] == key) return index;
    }
    return npos;
}

bool ArchiveFileReader::open(const std::string& path) {
    m_file.reset(std::fopen(ZeltoUtils::expandEnvironmentVariables(path).c_str(), "rb"));
    return m_file && ArchiveFileHeader::read(m_file.get(), m_header);
}

bool ArchiveFileReader::readAt(uint64_t offset, uint64_t size, void* out) {
    const uint64_t end = fileSize();
    if (offset > end || size > end - offset) return false;
    if (size == 0) return true;
    return fseeko(m_file.get(), static_cast<off_t>(offset), SEEK_SET) == 0 &&
           std::fread(out, 1, size, m_file.get()) == size;
}

bool ArchiveFileReader::readData(Archive& archive) {
    const uint64_t size = m_header.dataSize;
    Archive raw(size, 0);
    if (!readAt(m_header.dataOffset, size, raw.data)) return false;
    archive.clear();
    archive.version = m_header.version;
    archive.flags = m_header.flags;
    archive.text = m_header.text;
    size_t plainSize = 0;
    unsigned char* plain = nullptr;
    if ((m_header.flags & Archive::kCompressFile) && size)
        plain = ZeltoUtils::decompressBuffer(raw.data, size, plainSize);
    if (plain) {
        archive.data = plain;
        archive.size = plainSize;
    } else {
        std::swap(archive.data, raw.data);
        std::swap(archive.size, raw.size);
    }
    archive.position = 0;
    archive.ownsData = true;
    return true;
}

}  // namespace internal
}  // namespace ZeltoCore
