#include "core/metadata/internal/ContainerIO.h"

#include <atomic>

#include "core/metadata/MetadataFactory.h"
#include "utils/ParallelFor.h"

namespace ZeltoCore {
namespace internal {
namespace {

// Nesting limit for reading: a crafted archive of containers inside containers could otherwise
// recurse until the stack runs out. Real property bags are a handful of levels deep.
constexpr int kMaxReadDepth = 200;
thread_local int t_readDepth = 0;

struct DepthGuard {
    DepthGuard() { ++t_readDepth; }
    ~DepthGuard() { --t_readDepth; }
    bool tooDeep() const { return t_readDepth > kMaxReadDepth; }
};

// Runs item(i) for every i in [0, count), one task per index range when parallel.
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

// Reads the value in `view` into `slot` following the rules of readValues.
void readOne(ArchiveView& view, std::shared_ptr<Metadata>& slot, bool reuse) {
    const unsigned int id = view.peekTypeId();
    if (reuse && !slot) return;
    if (!reuse || slot->typeId() != id) slot = MetadataFactory::instance().createMetadata(id);
    if (slot && (!slot->deserialise(view) || view.failed())) slot.reset();
}

}  // namespace

uint64_t layoutRows(const std::vector<const Metadata*>& values, std::vector<ValueRow>& rows) {
    rows.reserve(rows.size() + values.size());
    uint64_t offset = 0;
    for (const Metadata* value : values) {
        const uint64_t size = value->memSize();
        rows.push_back({offset, size});
        offset += size;
    }
    return offset;
}

bool writeValues(const Archive& archive, uint64_t areaStart,
                 const std::vector<const Metadata*>& values, const std::vector<ValueRow>& rows,
                 bool parallel) {
    std::atomic<bool> ok{true};
    forEachIndex(values.size(), parallel, [&](size_t i) {
        const uint64_t begin = areaStart + rows[i].offset;
        const uint64_t end = begin + rows[i].size;
        ArchiveView view(archive, begin, end);
        values[i]->serialise(view);
        if (view.failed() || view.position != end) ok.store(false, std::memory_order_relaxed);
    });
    return ok.load();
}

bool readValues(const Archive& archive, uint64_t areaStart, const std::vector<ValueRow>& rows,
                std::vector<std::shared_ptr<Metadata>>& results, bool reuse, bool parallel) {
    DepthGuard depth;
    const uint64_t available = archive.size > areaStart ? archive.size - areaStart : 0;
    const bool tooDeep = depth.tooDeep();
    std::atomic<bool> intact{!tooDeep};
    forEachIndex(rows.size(), parallel, [&](size_t i) {
        const ValueRow& row = rows[i];
        std::shared_ptr<Metadata>& slot = results[i];
        // Every value starts with a 4-byte type id; a shorter row cannot hold one.
        const bool inside = row.offset <= available && row.size <= available - row.offset &&
                            (row.size == 0 || row.size >= sizeof(uint32_t));
        if (!inside || tooDeep) {
            intact.store(false, std::memory_order_relaxed);
            slot.reset();
            return;
        }
        if (row.size == 0) {
            slot.reset();
            return;
        }
        const uint64_t begin = areaStart + row.offset;
        ArchiveView view(archive, begin, begin + row.size);
        readOne(view, slot, reuse);
    });
    return intact.load();
}

std::shared_ptr<Metadata> readValueInPlace(Archive& archive) {
    DepthGuard depth;
    std::shared_ptr<Metadata> value;
    if (!depth.tooDeep()) {
        ArchiveView view(archive, archive.position, archive.size);
        readOne(view, value, false);
        if (value) {
            archive.position = view.position;
            return value;
        }
    }
    archive.position = archive.size;
    return value;
}

}  // namespace internal
}  // namespace ZeltoCore
