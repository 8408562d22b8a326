#include "core/archive/ArchiveFileReader.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "utils/Compression.h"
#include "utils/Environment.h"

namespace ZeltoCore {

bool ArchiveFileReader::open(const std::string& path) {
    m_file.reset();
    m_expanded = false;
    if (path.empty()) return false;
    m_file.reset(std::fopen(ZeltoUtils::expandEnvironmentVariables(path).c_str(), "rb"));
    return m_file && ArchiveFileHeader::read(m_file.get(), m_header);
}

bool ArchiveFileReader::readAt(uint64_t offset, uint64_t size, void* out) {
    const uint64_t end = fileSize();
    if (!m_file || offset > end || size > end - offset) return false;
    // One positioned read per request: no seek, and no detour through the stream's buffer.
    const int fd = fileno(m_file.get());
    auto* at = static_cast<unsigned char*>(out);
    while (size > 0) {
        const ssize_t n = pread(fd, at, size, static_cast<off_t>(offset));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        at += n;
        offset += static_cast<uint64_t>(n);
        size -= static_cast<uint64_t>(n);
    }
    return true;
}

bool ArchiveFileReader::readDataSection(Archive& archive) {
    // Everything is read before the archive changes: a refused file leaves it as it was.
    const uint64_t size = m_header.dataSize;
    Archive raw(size, 0);
    if (!readAt(m_header.dataOffset, size, raw.data)) return false;
    if (archive.ownsData) std::free(archive.data);
    archive.version = m_header.version;
    archive.flags = m_header.flags;
    archive.text = m_header.text;
    size_t plainSize = 0;
    unsigned char* plain = nullptr;
    if ((m_header.flags & Archive::kCompressFile) && size)
        plain = ZeltoUtils::decompressBuffer(raw.data, size, plainSize);
    m_expanded = plain != nullptr;
    if (plain && plainSize == 0) {
        std::free(plain);
        plain = nullptr;
    }
    if (m_expanded) {
        archive.data = plain;
        archive.size = plainSize;
    } else {
        archive.data = raw.data;
        archive.size = raw.size;
        raw.data = nullptr;
        raw.size = 0;
    }
    archive.ownsData = true;
    archive.reset();
    return true;
}

}  // namespace ZeltoCore
