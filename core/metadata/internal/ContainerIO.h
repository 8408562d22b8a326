// Value placement shared by MapMetadata and ArrayMetadata. Private to the metadata sources:
// never include it from a public header.
//
// Both containers write a table of (offset, size) rows followed by a value area, and both read
// or write every value through its own non-owning view of the one buffer, bounded by its row.
// A damaged value can therefore never touch a neighbour's bytes, and the sequential and parallel
// paths run the same per-value code and produce the same bytes.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "core/archive/Archive.h"
#include "core/metadata/Metadata.h"
#include "utils/ParallelFor.h"

namespace ZeltoCore {
namespace internal {

// Archive flag bits the containers react to.
constexpr uint64_t kCompressedFlag = 2;
constexpr uint64_t kParallelFlag = 4;

// Where a value lives, counted from the start of the value area.
struct ValueRow {
    uint64_t offset = 0;
    uint64_t size = 0;
};

// A view onto bytes [0, end) of `parent`'s buffer with the cursor at `begin`: never owns or
// releases the buffer, carries the parent's version and no flags (nested values are always
// written and read in plain, sequential form).
class ArchiveView : public Archive {
public:
    ArchiveView(const Archive& parent, uint64_t begin, uint64_t end) {
        ownsData = false;
        data = parent.data;
        size = end;
        position = begin;
        version = parent.version;
        flags = 0;
    }
};

// Runs item(i) for every i in [0, count): on the calling thread, or through parallel_for when
// `parallel` (each call must then touch only what belongs to index i).
template <class Item>
void forEachIndex(size_t count, bool parallel, const Item& item) {
    if (parallel && count > 1 && count <= UINT32_MAX) {
        ZeltoUtils::parallel_for(ZeltoUtils::ParallelForRange(0, static_cast<uint32_t>(count)),
                                 [&item](const ZeltoUtils::ParallelForRange& r) {
                                     for (uint32_t i = r.begin; i < r.end; ++i)
                                         item(i);
                                 });
        return;
    }
    for (size_t i = 0; i < count; ++i)
        item(i);
}

// Serialises `value` into bytes [begin, end) of `archive`'s buffer; false when it did not fill
// them exactly (its memSize() and serialise() disagree).
bool writeValue(const Archive& archive, uint64_t begin, uint64_t end, const Metadata& value);

// Reads the value of every row into results[i] (results has one slot per row).
//
// Without `reuse` every value is created anew from its stored type id. With `reuse`, results
// holds the values to read into: a held value of the stored type reads itself in place, a held
// value of another type is replaced by a new value of the stored type, and an empty slot stays
// empty. A row of size 0, an unknown type id or a value that fails to read leaves its slot empty.
// Returns false when a row lies outside the buffer (its slot is left empty; others still read).
bool readValues(const Archive& archive, uint64_t areaStart, const std::vector<ValueRow>& rows,
                std::vector<std::shared_ptr<Metadata>>& results, bool reuse, bool parallel);

// Reads one value at the cursor of `archive`, bounded by the archive's size, and advances it.
// Null (cursor at the end of the buffer) when the type is unknown or the value is damaged.
std::shared_ptr<Metadata> readValueInPlace(Archive& archive);

}  // namespace internal
}  // namespace ZeltoCore
