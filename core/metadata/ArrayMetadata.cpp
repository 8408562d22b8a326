#include "core/metadata/ArrayMetadata.h"

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
    return serialisePlain(archive);
}

bool ArrayMetadata::deserialise(Archive& archive) {
    return deserialisePlain(archive);
}

bool ArrayMetadata::serialisePlain(Archive& archive) const {
    std::vector<const Metadata*> values;
    values.reserve(m_elements.size());
    for (const auto& element : m_elements) {
        if (element) values.push_back(element.get());
    }
    std::vector<ValueRow> rows;
    const uint64_t areaSize = internal::layoutRows(values, rows);
    const uint64_t total = kHeaderBytes + kRowBytes * values.size() + areaSize;

    if (archive.size == 0) archive.resize(total);
    if (archive.remaining() < total) {
        archive.setFailed();
        return false;
    }
    unsigned char* out = archive.data + archive.position;
    out = put<uint32_t>(out, staticTypeId());
    out = put<uint64_t>(out, values.size());
    for (const ValueRow& row : rows) {
        out = put<uint64_t>(out, row.offset);
        out = put<uint64_t>(out, row.size);
    }
    const uint64_t areaStart = static_cast<uint64_t>(out - archive.data);
    const bool parallel = (archive.flags & internal::kParallelFlag) != 0;
    const bool ok = internal::writeValues(archive, areaStart, values, rows, parallel);
    archive.position = areaStart + areaSize;
    if (!ok) archive.setFailed();
    return ok;
}

bool ArrayMetadata::deserialisePlain(Archive& archive) {
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
        const bool parallel = (archive.flags & internal::kParallelFlag) != 0;
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
