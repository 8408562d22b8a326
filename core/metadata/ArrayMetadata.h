// ArrayMetadata: an ordered list of metadata values of any types.
//
// Every value put in is a clone, so the array never shares an element with the caller that
// supplied it; operator[] hands out the stored object itself. An element can be empty only
// after reading a stored element of an unknown type; empty elements are left out of the
// archive (memSize, count and table alike), are kept empty by copies and count in hash().
// The plain archive layout is a table of (offset, size) rows followed by the elements; with
// archive flag 4 the elements are written and read by parallel tasks with identical bytes.
// With archive flag 2 the array uses its compressed layout: the same table over one compressed
// block per element (size 0 for an empty element, which keeps the indices), always the whole
// archive. Keyed readers load chosen indices, in memory or straight from a file.
//
//   ArrayMetadata list;
//   list.push_back(value); Archive a; list.serialise(a);
//   ArrayMetadata some; some.deserialiseKeys("list.zelto", {4, 0}, false);
#pragma once

#include <memory>
#include <vector>

#include "core/metadata/Metadata.h"
#include "utils/Export.h"

namespace ZeltoCore {

class ZELTO_API ArrayMetadata : public Metadata {
public:
    static constexpr unsigned int staticTypeId() { return 2; }
    static std::string staticTypeStr() { return "ArrayMetadata"; }
    static Metadata* creator();

    ArrayMetadata() = default;
    // Clones of `other`'s elements, in order.
    ArrayMetadata(const ArrayMetadata& other);
    // Releases every held element and takes clones of `other`'s.
    ArrayMetadata& operator=(const ArrayMetadata& other);
    ~ArrayMetadata() override;

    std::string typeStr() const override { return staticTypeStr(); }
    unsigned int typeId() const override { return staticTypeId(); }
    // As operator=, from `other` (an ArrayMetadata); null does nothing.
    void copy(Metadata* other) override;
    std::shared_ptr<Metadata> clone() const override;
    // 12 + per element with a value (16 + its memSize()).
    size_t memSize() const override;
    // The element count (empty elements included), then each element's hash in order.
    void hash(MurmurHash3& hasher) const override;
    // Sizes an empty archive to memSize() first; false when an archive with a buffer has too
    // little room (nothing written then). With flag 2: serialiseCompressed, keeping only flag 4.
    bool serialise(Archive& archive) const override;
    // Replaces every element with new objects read from the archive. The type id is stepped over
    // unchecked (the caller dispatched on it). False (array and cursor unchanged) for a damaged
    // table; false as well, keeping the elements that read, when a row points outside the buffer.
    // Unknown types and damaged elements read as empty elements. Version-1 archives are read
    // element after element. With flag 2 (not for version 1): deserialiseCompressed, run with the
    // flags cleared.
    bool deserialise(Archive& archive) override;

    // Writes the compressed layout as the whole content of `archive` (see MapMetadata).
    bool serialiseCompressed(Archive& archive) const;
    // Reads the compressed layout at the cursor: the array takes the stored length; element i
    // becomes a new value (empty for an unknown type), or stays as it was when its block does
    // not decompress. False, array and cursor unchanged, for a type id other than 2 or a damaged
    // table; false as well, after reading, when a row points outside the buffer.
    bool deserialiseCompressed(Archive& archive);
    // Makes the array exactly the stored elements at `indices`, in that order, repeats kept,
    // indices past the end dropped; plain or (flag 2) compressed, parallel with flag 4. An
    // element whose block does not read stays as it was. The cursor is put back. `merge` has
    // no effect here. False for a damaged table or a version-1 archive (no offsets).
    bool deserialiseKeys(Archive& archive, const std::vector<size_t>& indices, bool merge);
    // The same from an archive file, reading only its header, the table and the wanted blocks,
    // decoded in parallel when the file has flag 4. The wanted elements are appended with
    // `merge`, replace the array's content without. False for a file that is not an archive of
    // an array, a damaged table, no wanted index (the array is still cleared without `merge`),
    // or a row pointing outside the file.
    bool deserialiseKeys(const std::string& path, const std::vector<size_t>& indices, bool merge);
    void toString(std::stringstream&) const override {}

    // Appends a clone of `value` (nothing for an empty value); the caller keeps a raw `value`.
    void push_back(const std::shared_ptr<Metadata>& value);
    void push_back(Metadata* value);
    // Inserts a clone before `index`; at or beyond the end it appends.
    void insert(size_t index, const std::shared_ptr<Metadata>& value);
    void insert(size_t index, Metadata* value);
    // Removes the element at `index`; at or beyond the end nothing happens.
    void erase(size_t index);
    // The stored element; empty at or beyond the end.
    std::shared_ptr<Metadata> operator[](size_t index);
    std::shared_ptr<const Metadata> operator[](size_t index) const;
    size_t size() const { return m_elements.size(); }
    void clear() { m_elements.clear(); }

private:
    bool serialisePlain(Archive& archive) const;
    bool deserialisePlain(Archive& archive);

    std::vector<std::shared_ptr<Metadata>> m_elements;
};

// Call serialise / deserialise and return the archive; the result of the call is dropped.
ZELTO_API Archive& operator<<(Archive& archive, const ArrayMetadata& array);
ZELTO_API Archive& operator>>(Archive& archive, ArrayMetadata& array);

}  // namespace ZeltoCore
