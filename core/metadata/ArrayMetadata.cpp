#include "core/metadata/ArrayMetadata.h"

#include "core/metadata/internal/ContainerIO.h"

namespace ZeltoCore {

using internal::ValueRow;

namespace {

// Version-1 tables: one number per element, no offsets.
constexpr uint64_t kVersion1RowBytes = 8;

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
    size_t total = internal::kArrayHeaderBytes;
    for (const auto& element : m_elements) {
        if (element) total += internal::kArrayRowBytes + element->memSize();
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
    internal::TableItems table(false, m_elements.size());
    for (const auto& element : m_elements) {
        if (element) table.add(nullptr, element.get(), element->memSize());
    }
    return internal::writePlainLayout(archive, staticTypeId(), table);
}

bool ArrayMetadata::deserialisePlain(Archive& archive) {
    // The type id is stepped over unchecked: the caller dispatched on it.
    const uint64_t start = archive.position;
    std::vector<ValueRow> rows;
    uint64_t count = 0;
    bool ok = archive.skip(sizeof(uint32_t));
    if (ok && archive.version == 1) {
        // Version-1 tables hold no offsets: the elements can only be found one after another.
        ok = archive.readCount(count, kVersion1RowBytes) && archive.skip(kVersion1RowBytes * count);
    } else if (ok) {
        ok = internal::readArrayTable(archive, rows);
        count = rows.size();
    }
    if (!ok) {
        archive.position = start;
        return false;
    }
    const uint64_t areaStart = archive.position;

    std::vector<std::shared_ptr<Metadata>> results(count);
    bool intact = true;
    if (archive.version == 1) {
        for (auto& result : results) {
            result = internal::readNextValue(archive);
            // Without offsets nothing after an unreadable element can be found.
            if (!result) {
                intact = false;
                break;
            }
        }
    } else {
        const bool parallel = (archive.flags & Archive::kParallel) != 0;
        intact = internal::readRowValues(archive, areaStart, rows, results, false, parallel);
        archive.position = internal::areaEnd(archive, areaStart, rows);
    }
    m_elements.swap(results);
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
