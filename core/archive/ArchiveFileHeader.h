// The header of an archive file ("ZELTO", version, flags, reserved words, text), read and checked
// without touching any Archive, so that whole-file and keyed readers share one reader.
//
//   ArchiveFileHeader header;
//   if (ArchiveFileHeader::read(file, header)) fseek(file, header.dataOffset, SEEK_SET);
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "utils/Export.h"

namespace ZeltoCore {

struct ZELTO_API ArchiveFileHeader {
    uint64_t version = 0;
    uint64_t flags = 0;
    std::string text;         // cut at its first zero byte
    uint64_t dataOffset = 0;  // where the data section begins
    uint64_t dataSize = 0;    // file size minus the header

    // Reads the header of a file opened for binary reading, from its start, leaving the file at
    // the data section. False for anything that is not an archive file or whose header lengths
    // run past its end.
    static bool read(std::FILE* file, ArchiveFileHeader& header);
};

}  // namespace ZeltoCore
