// Per-value compression shared by the compressed and keyed forms of MapMetadata and
// ArrayMetadata. Private to the metadata sources: never include it from a public header.
//
// A value travels as the compressor's block of its plain bytes, serialised into an archive of
// exactly memSize(); reading decompresses a block into an archive of its own, so a damaged block
// can only ever spoil its own value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "core/archive/Archive.h"
#include "core/metadata/Metadata.h"
#include "core/metadata/internal/ContainerIO.h"

namespace ZeltoCore {
namespace internal {

// Writes the compressed layout of `table` (sizes not needed) under `typeId` as the whole
// content of `archive`: resized to exactly its length, written from position 0, cursor left at
// the end. Flag 4 compresses and places the blocks in parallel, with the same bytes. False when
// a value's memSize() and serialise() disagree (its block is then empty).
bool writeCompressedLayout(Archive& archive, uint32_t typeId, const TableItems& table);

// Reads the value held by `size` bytes at `bytes` (a compressed block when `compressed`, plain
// bytes otherwise) into `slot`, by the rules of readValueInto; the value's archive carries
// `version` and no flags. False, `slot` untouched, when a compressed block does not decompress.
bool readBlockInto(const unsigned char* bytes, uint64_t size, bool compressed, uint64_t version,
                   std::shared_ptr<Metadata>& slot, bool inPlace);

// readBlockInto for every row of an archive's value area, into new values only. decoded[i] is false
// when row i lies outside the buffer or its block does not decompress; results[i] is then
// untouched. Returns false when a row lies outside the buffer.
bool readRowBlocks(const Archive& archive, uint64_t areaStart, const std::vector<ValueRow>& rows,
                   bool compressed, bool parallel, std::vector<std::shared_ptr<Metadata>>& results,
                   std::vector<char>& decoded);

}  // namespace internal
}  // namespace ZeltoCore
