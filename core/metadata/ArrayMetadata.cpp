#include "core/metadata/ArrayMetadata.h"

#include <atomic>
#include <cstring>

#include "core/metadata/internal/ContainerIO.h"

namespace ZeltoCore {

using internal::ValueRow;

namespace {

constexpr uint64_t kHeaderBytes = 4 + 8;  // type id, element count
constexpr uint64_t kRowBytes = 8 + 8;     // offset, size
constexpr uint64_t kVersion1RowBytes = 8;

template <class T>
unsigned char* put(unsigned char* out, T value) {
    std::memcpy(out, &value, sizeof(T));
    return out + sizeof(T);
}

std::shared_ptr<Metadata> cloneOf(const Metadata* value) {
    return value ? value->clone() : nullptr;
}

}  // namespace

Metadata* ArrayMetadata::creator() {
    return new ArrayMetadata();
}

ArrayMetadata::ArrayMetadata(const ArrayMetadata& other) : Metadata(other) {
    m_elements.reserve(other.m_elements.size());
    for (const auto& element : other.m_elements)
        m_elements.push_back(cloneOf(element.get()));
}

ArrayMetadata& ArrayMetadata::operator=(const ArrayMetadata& other) {
    copy(const_cast<ArrayMetadata*>(&other));
    return *this;
}

ArrayMetadata::~ArrayMetadata() = default;

void ArrayMetadata::copy(Metadata* other) {
    if (!other) return;
    // Cloned before anything is released, so copying from itself is safe.
    ArrayMetadata fresh(*static_cast<const ArrayMetadata*>(other));
    m_elements.swap(fresh.m_elements);
}

std::shared_ptr<Metadata> ArrayMetadata::clone() const {
    return std::make_shared<ArrayMetadata>(*this);
}

size_t ArrayMetadata::memSize() const {
    size_t total = kHeaderBytes;
    for (const auto& element : m_elements) {
        if (element) total += kRowBytes + element->memSize();
    }
    return total;
}

void ArrayMetadata::hash(MurmurHash3& hasher) const {
    hasher.append(static_cast<uint64_t>(m_elements.size()));
    for (const auto& element : m_elements) {
        if (element) element->hash(hasher);
    }
}

bool ArrayMetadata::serialise(Archive& archive) const {
    if (!(archive.flags & Archive::kCompressedContainers)) return serialisePlain(archive);
    // Parallel writing stays in effect for the compressed form.
    internal::ScopedFlags flags(archive, archive.flags & Archive::kParallel);
    return serialiseCompressed(archive);
}

bool ArrayMetadata::deserialise(Archive& archive) {
    // Version-1 archives predate the compressed form.
    if (archive.version == 1 || !(archive.flags & Archive::kCompressedContainers))
        return deserialisePlain(archive);
    internal::ScopedFlags flags(archive, 0);
    return deserialiseCompressed(archive);
}

bool ArrayMetadata::serialisePlain(Archive& archive) const {
    // Each element writes its own row and its own value bytes, sequentially or as a task.
    struct Slot {
        const Metadata* value;
        uint64_t offset;  // from the start of the element area
    };
    std::vector<Slot> slots;
    slots.reserve(m_elements.size());
    uint64_t offset = 0;
    for (const auto& element : m_elements) {
        if (!element) continue;
        slots.push_back({element.get(), offset});
        offset += element->memSize();
    }
    const uint64_t areaSize = offset;
    const uint64_t tableStart = kHeaderBytes;
    const uint64_t areaOffset = tableStart + kRowBytes * slots.size();
    const uint64_t total = areaOffset + areaSize;

    if (archive.size == 0) archive.resize(total);
    if (archive.remaining() < total) {
        archive.setFailed();
        return false;
    }
    unsigned char* const base = archive.data + archive.position;
    put<uint64_t>(put<uint32_t>(base, staticTypeId()), slots.size());
    const uint64_t areaStart = archive.position + areaOffset;

    std::atomic<bool> ok{true};
    const bool parallel = (archive.flags & Archive::kParallel) != 0;
    internal::forEachIndex(slots.size(), parallel, [&](size_t i) {
        const Slot& slot = slots[i];
        const uint64_t end = i + 1 < slots.size() ? slots[i + 1].offset : areaSize;
        put<uint64_t>(put<uint64_t>(base + tableStart + kRowBytes * i, slot.offset),
                      end - slot.offset);
        if (!internal::writeValue(archive, areaStart + slot.offset, areaStart + end, *slot.value)) {
            ok.store(false, std::memory_order_relaxed);
        }
    });
    archive.position = areaStart + areaSize;
    if (!ok.load()) archive.setFailed();
    return ok.load();
}

bool ArrayMetadata::deserialisePlain(Archive& archive) {
    if (archive.size == 0) return false;
    const uint64_t start = archive.position;
    uint32_t id = 0;
    if (!archive.read(&id, sizeof(id)) || id != staticTypeId()) {
        archive.position = start;
        return false;
    }
    // Version-1 tables hold one number per element and no offsets: the elements can only be
    // found one after another.
    const bool version1 = archive.version == 1;
    const uint64_t rowBytes = version1 ? kVersion1RowBytes : kRowBytes;
    uint64_t count = 0;
    std::vector<ValueRow> rows;
    bool ok = archive.readCount(count, rowBytes);
    if (ok && version1) {
        ok = archive.skip(rowBytes * count);
    } else if (ok) {
        rows.resize(count);
        for (ValueRow& row : rows) {
            if (!archive.read(&row.offset, sizeof(row.offset)) ||
                !archive.read(&row.size, sizeof(row.size))) {
                ok = false;
                break;
            }
        }
    }
    if (!ok) {
        archive.position = start;
        return false;
    }
    const uint64_t areaStart = archive.position;

    std::vector<std::shared_ptr<Metadata>> results(count);
    bool intact = true;
    uint64_t end = areaStart;
    if (version1) {
        for (auto& result : results) {
            result = internal::readValueInPlace(archive);
            // Without offsets nothing after an unreadable element can be found.
            if (!result) {
                intact = false;
                break;
            }
        }
        end = archive.position;
    } else {
        const bool parallel = (archive.flags & Archive::kParallel) != 0;
        intact = internal::readValues(archive, areaStart, rows, results, false, parallel);
        if (count) {
            const ValueRow& last = rows.back();
            const uint64_t available = archive.size - areaStart;
            end = last.offset <= available && last.size <= available - last.offset
                      ? areaStart + last.offset + last.size
                      : archive.size;
        }
    }
    m_elements.swap(results);
    archive.position = end;
    if (!intact) archive.setFailed();
    return intact;
}

void ArrayMetadata::push_back(const std::shared_ptr<Metadata>& value) {
    if (value) m_elements.push_back(value->clone());
}

void ArrayMetadata::push_back(Metadata* value) {
    if (value) m_elements.push_back(value->clone());
}

void ArrayMetadata::insert(size_t index, const std::shared_ptr<Metadata>& value) {
    insert(index, value.get());
}

void ArrayMetadata::insert(size_t index, Metadata* value) {
    if (!value) return;
    if (index > m_elements.size()) index = m_elements.size();
    m_elements.insert(m_elements.begin() + static_cast<std::ptrdiff_t>(index), value->clone());
}

void ArrayMetadata::erase(size_t index) {
    if (index < m_elements.size()) {
        m_elements.erase(m_elements.begin() + static_cast<std::ptrdiff_t>(index));
    }
}

std::shared_ptr<Metadata> ArrayMetadata::operator[](size_t index) {
    return index < m_elements.size() ? m_elements[index] : nullptr;
}

std::shared_ptr<const Metadata> ArrayMetadata::operator[](size_t index) const {
    return index < m_elements.size() ? m_elements[index] : nullptr;
}

Archive& operator<<(Archive& archive, const ArrayMetadata& array) {
    array.serialise(archive);
    return archive;
}

Archive& operator>>(Archive& archive, ArrayMetadata& array) {
    array.deserialise(archive);
    return archive;
}

}  // namespace ZeltoCore
