// ArchiveFileReader: an archive file opened for reading, the one reader of its data section.
//
// The header is read and checked on open; reads at absolute file positions are refused when they
// would run past the end of the file. Archive::readFromFile, the keyed container readers and the
// inspect tool all read through it.
//
//   ArchiveFileReader file;
//   Archive archive;
//   if (file.open(path) && file.readDataSection(archive)) ...
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "core/archive/Archive.h"
#include "core/archive/ArchiveFileHeader.h"
#include "utils/Export.h"

namespace ZeltoCore {

class ZELTO_API ArchiveFileReader {
public:
    // Opens `path` (environment variables expanded) and reads its header. False when the path is
    // empty or cannot be opened (isOpen() false) or the file holds no archive header.
    bool open(const std::string& path);
    bool isOpen() const { return m_file != nullptr; }
    const ArchiveFileHeader& header() const { return m_header; }
    uint64_t fileSize() const { return m_header.dataOffset + m_header.dataSize; }

    // Reads `size` bytes at absolute `offset` into `out`, with one positioned read.
    bool readAt(uint64_t offset, uint64_t size, void* out);

    // Replaces the content of `archive` with the whole data section, decompressed when the file's
    // flag 1 is set and the bytes decompress (wasExpanded() then answers true), and gives it the
    // file's version, flags and text, cursor at 0 and no read failure. False, `archive` untouched,
    // when the data cannot be read.
    bool readDataSection(Archive& archive);
    bool wasExpanded() const { return m_expanded; }

private:
    struct Closer {
        void operator()(std::FILE* f) const { std::fclose(f); }
    };
    std::unique_ptr<std::FILE, Closer> m_file;
    ArchiveFileHeader m_header;
    bool m_expanded = false;
};

}  // namespace ZeltoCore
