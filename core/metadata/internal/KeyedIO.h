// Helpers of the keyed readers of MapMetadata and ArrayMetadata. Private to the metadata
// sources: never include it from a public header.
//
// A keyed read walks a table that can hold 100,000 rows to pick out a handful of them, so rows
// are matched as views against a small hash set of the requested keys (no string per row), and
// files are read by position: the header, the table in one read, then one read per value.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/archive/Archive.h"
#include "core/archive/ArchiveFileReader.h"
#include "core/metadata/Metadata.h"
#include "core/metadata/internal/ContainerIO.h"

namespace ZeltoCore {
namespace internal {

// A buffer for bytes about to be read from a file: allocated, never zeroed.
using FileBytes = std::unique_ptr<unsigned char[]>;
inline FileBytes allocateBytes(uint64_t size) {
    return FileBytes(new unsigned char[size ? size : 1]);
}

// The distinct requested keys, in order of first request, looked up by view.
class KeySet {
public:
    static constexpr size_t npos = static_cast<size_t>(-1);

    explicit KeySet(const std::vector<std::string>& keys);
    // Index of `key` among the distinct keys, or npos.
    size_t find(std::string_view key) const;
    size_t size() const { return m_keys.size(); }
    const std::string& key(size_t i) const { return *m_keys[i]; }

private:
    struct Slot {
        uint64_t hash = 0;
        size_t index = npos;  // npos: a free slot
    };
    std::vector<const std::string*> m_keys;
    std::vector<Slot> m_slots;  // open addressing, linear probing
    uint64_t m_mask = 0;
};

struct ContainerHead {
    uint32_t typeId = 0;
    uint64_t count = 0;
    uint64_t tableSize = 0;
    uint64_t bytes = 0;  // length of the header itself
};

// The header of the container at the start of a file's data section (a map's when `keyed`; an
// array's has no table size). False when the data section is shorter.
bool readContainerHead(ArchiveFileReader& file, bool keyed, ContainerHead& head);

// Reads the block of every row of the value area at file position `areaStart`, all on this
// thread, then decodes each into slots[i] (in parallel tasks when asked): a compressed block when
// the file's flag 2 is set, plain bytes otherwise; a slot that holds a value reads in place.
// decoded[i] is false, slots[i] untouched, when the row lies outside the file, the read fails or
// the block does not decompress. False when a row lies outside the file or a read fails.
bool readFileRowBlocks(ArchiveFileReader& file, uint64_t areaStart,
                       const std::vector<ValueRow>& rows, bool parallel,
                       std::vector<std::shared_ptr<Metadata>>& slots, std::vector<char>& decoded);

}  // namespace internal
}  // namespace ZeltoCore
