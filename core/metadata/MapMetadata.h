// MapMetadata: the property bag, an ordered map from byte-string keys to shared metadata values.
//
// Keys sort byte-wise; an entry may hold no value (addEmptyEntry, or a stored value that could
// not be read). getEntry hands out the stored object itself. Whether a value put in is shared
// or cloned depends on the call: insertEntry and addEntry(key, value, false) share, the other
// forms clone. Assignment and copy() synchronise: held objects of the matching type are copied
// into in place, so pointers obtained earlier stay valid. The plain archive layout is a table
// of (key, size, offset) rows followed by the values; with archive flag 4 the values are
// written and read by parallel tasks, each in its own byte range, with identical bytes.
// Entries without a value are left out of the plain archive (memSize, count and table alike) but
// are counted by hash(). With archive flag 2 the map uses its compressed layout instead: the same
// table over one compressed block per value (size 0 for an entry without value), always the whole
// archive. Keyed readers load chosen keys from either layout, in memory or straight from a file.
//
//   MapMetadata bag;
//   bag.insertEntry("weight", value); Archive a; bag.serialise(a);
//   MapMetadata some; some.deserialiseKeys("rig.zelto", {"weight"}, false, false);
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/metadata/Metadata.h"
#include "utils/Export.h"

namespace ZeltoCore {

class ZELTO_API MapMetadata : public Metadata {
public:
    using Entries = std::map<std::string, std::shared_ptr<Metadata>>;
    using iterator = Entries::iterator;
    using const_iterator = Entries::const_iterator;

    static constexpr unsigned int staticTypeId() { return 1; }
    static std::string staticTypeStr() { return "MapMetadata"; }
    static Metadata* creator();

    MapMetadata() = default;
    // Clones every entry that has a value; entries without one are not copied.
    MapMetadata(const MapMetadata& other);
    // Synchronising copy, see copy().
    MapMetadata& operator=(const MapMetadata& other);
    ~MapMetadata() override;

    std::string typeStr() const override { return staticTypeStr(); }
    unsigned int typeId() const override { return staticTypeId(); }
    // Makes this map equal to `other` (a MapMetadata): held values of the source value's type
    // take its content in place, others are replaced by clones, keys absent from `other` go.
    // Source entries without a value leave this map's entry for that key as it is.
    void copy(Metadata* other) override;
    std::shared_ptr<Metadata> clone() const override;
    // Bytes of the plain layout: 20 + per entry with a value (24 + key length + its memSize()).
    size_t memSize() const override;
    // The entry count (entries without value included), then key and value of each entry
    // that has a value.
    void hash(MurmurHash3& hasher) const override;
    // Sizes an empty archive to memSize() first; false when an archive with a buffer has too
    // little room (nothing written then). With flag 2: serialiseCompressed, keeping only flag 4.
    bool serialise(Archive& archive) const override;
    // False (map and cursor unchanged) for an empty archive, a type id other than 1 or a damaged
    // table. A value that cannot be read (unknown type, damaged bytes) leaves its entry empty;
    // the call also returns false when a row points outside the buffer, keeping the entries
    // that read. When the map holds exactly the stored keys, the held values read in place.
    // With flag 2: deserialiseCompressed, run with the flags cleared.
    bool deserialise(Archive& archive) override;

    // Writes the compressed layout as the whole content of `archive`: resized to exactly its
    // length, written from position 0, cursor left at the end. Flag 4 compresses and places the
    // blocks in parallel, with the same bytes. False only when a value's memSize() is wrong.
    bool serialiseCompressed(Archive& archive) const;
    // Reads the compressed layout at the cursor. The map then holds exactly the stored keys, each
    // with a new value; an entry whose block does not decompress (or has size 0) or whose type
    // is unknown has no value. False, map and cursor unchanged, for a type id other than 1 or a
    // damaged table; false as well, after reading, when a row points outside the buffer.
    // Cursor left at the end of the archive.
    bool deserialiseCompressed(Archive& archive);
    // Loads only `keys` (absent ones ignored, repeats read once) from a map stored at the cursor,
    // plain or, with flag 2, compressed; flag 4 reads them in parallel. Without `merge` the map is
    // cleared first, with it the other entries stay. A requested entry ends with the new value,
    // or none when its block does not read. Failure results as deserialiseCompressed.
    bool deserialiseKeys(Archive& archive, const std::vector<std::string>& keys, bool merge);
    // The same from an archive file, reading only its header, the table and the requested
    // blocks (the whole data when the file is compressed as a whole). Without `merge` the map is
    // cleared, unless it holds exactly `keys`: the held values then read in place. A block that
    // does not decompress leaves its entry as it was. `parallel` decodes the blocks, read
    // first, in parallel tasks. False for a file that is not an archive of a map, a damaged
    // table, or (after reading the rest) a row pointing outside the file.
    bool deserialiseKeys(const std::string& path, const std::vector<std::string>& keys, bool merge,
                         bool parallel);
    void toString(std::stringstream&) const override {}

    // Shares `value` when !deepCopy; otherwise copies it into a held object of the same type
    // or stores a clone. Empty `value`: nothing happens.
    void addEntry(const std::string& key, const std::shared_ptr<Metadata>& value, bool deepCopy);
    // Stores a clone of `value`.
    void addEntry(const std::string& key, const std::shared_ptr<const Metadata>& value);
    // Stores a clone of `*value`; the caller keeps ownership of `value`.
    void addEntry(const std::string& key, Metadata* value);
    // Stores `value` itself (shared with the caller). Empty `value`: nothing happens.
    void insertEntry(const std::string& key, std::shared_ptr<Metadata> value);
    // Creates or empties the entry for `key`.
    void addEmptyEntry(const std::string& key);
    // The stored pointer; empty when the key is absent or the entry has no value.
    std::shared_ptr<Metadata> getEntry(const std::string& key);
    std::shared_ptr<const Metadata> getEntry(const std::string& key) const;
    bool hasKey(const std::string& key) const;
    void eraseEntry(const std::string& key);
    // All keys in ascending order, entries without value included.
    std::vector<std::string> getKeys() const;
    unsigned int size() const { return static_cast<unsigned int>(m_entries.size()); }
    void clear() { m_entries.clear(); }

    Entries& data() { return m_entries; }
    const Entries& data() const { return m_entries; }
    iterator begin() { return m_entries.begin(); }
    iterator end() { return m_entries.end(); }
    const_iterator begin() const { return m_entries.begin(); }
    const_iterator end() const { return m_entries.end(); }
    const_iterator cbegin() const { return m_entries.cbegin(); }
    const_iterator cend() const { return m_entries.cend(); }

private:
    bool serialisePlain(Archive& archive) const;
    bool deserialisePlain(Archive& archive);
    // The plain read through lists of keys and rows, for parallel reads and tables out of key
    // order; the cursor stands after the type id of a table already checked.
    bool deserialiseRows(Archive& archive);

    Entries m_entries;
};

// Call serialise / deserialise and return the archive; the result of the call is dropped.
ZELTO_API Archive& operator<<(Archive& archive, const MapMetadata& map);
ZELTO_API Archive& operator>>(Archive& archive, MapMetadata& map);

}  // namespace ZeltoCore
