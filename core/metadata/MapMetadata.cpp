#include "core/metadata/MapMetadata.h"

#include <algorithm>
#include <numeric>
#include <string_view>

#include "core/metadata/internal/ContainerIO.h"

namespace ZeltoCore {

using internal::ValueRow;

namespace {

bool strictlyAscending(const std::vector<std::string_view>& keys) {
    for (size_t i = 1; i < keys.size(); ++i) {
        if (!(keys[i - 1] < keys[i])) return false;
    }
    return true;
}

// True when `entries` holds exactly `keys` (as many of each); slots[i] then points at the value
// of keys[i]. Keys compare as views.
bool matchHeld(MapMetadata::Entries& entries, const std::vector<std::string_view>& keys,
               bool sorted, std::vector<std::shared_ptr<Metadata>*>& slots) {
    const size_t count = keys.size();
    std::vector<size_t> order;
    if (!sorted) {
        order.resize(count);
        std::iota(order.begin(), order.end(), size_t(0));
        std::sort(order.begin(), order.end(),
                  [&keys](size_t a, size_t b) { return keys[a] < keys[b]; });
    }
    auto it = entries.begin();
    for (size_t j = 0; j < count; ++j, ++it) {
        const size_t i = sorted ? j : order[j];
        if (std::string_view(it->first) != keys[i]) return false;
        slots[i] = &it->second;
    }
    return true;
}

}  // namespace

Metadata* MapMetadata::creator() {
    return new MapMetadata();
}

MapMetadata::MapMetadata(const MapMetadata& other) : Metadata(other) {
    for (const auto& [key, value] : other.m_entries) {
        if (value) m_entries.emplace_hint(m_entries.end(), key, value->clone());
    }
}

MapMetadata& MapMetadata::operator=(const MapMetadata& other) {
    copy(const_cast<MapMetadata*>(&other));
    return *this;
}

MapMetadata::~MapMetadata() = default;

void MapMetadata::copy(Metadata* other) {
    if (!other || other == this || other->typeId() != staticTypeId()) return;
    const Entries& source = static_cast<const MapMetadata*>(other)->m_entries;
    // One merge walk over both sorted key sequences.
    auto it = m_entries.begin();
    for (const auto& [key, value] : source) {
        while (it != m_entries.end() && it->first < key)
            it = m_entries.erase(it);
        const bool present = it != m_entries.end() && it->first == key;
        if (!value) {
            if (present) ++it;
            continue;
        }
        if (!present) {
            m_entries.emplace_hint(it, key, value->clone());
            continue;
        }
        if (it->second && it->second->typeId() == value->typeId()) {
            it->second->copy(value.get());
        } else {
            it->second = value->clone();
        }
        ++it;
    }
    m_entries.erase(it, m_entries.end());
}

std::shared_ptr<Metadata> MapMetadata::clone() const {
    return std::make_shared<MapMetadata>(*this);
}

size_t MapMetadata::memSize() const {
    size_t total = internal::kMapHeaderBytes;
    for (const auto& [key, value] : m_entries) {
        if (value) total += internal::kMapRowBytes + key.size() + value->memSize();
    }
    return total;
}

void MapMetadata::hash(MurmurHash3& hasher) const {
    hasher.append(static_cast<uint64_t>(m_entries.size()));
    for (const auto& [key, value] : m_entries) {
        if (!value) continue;
        hasher.append(key);
        value->hash(hasher);
    }
}

bool MapMetadata::serialise(Archive& archive) const {
    if (!(archive.flags & Archive::kCompressedContainers)) return serialisePlain(archive);
    // Parallel writing stays in effect for the compressed form.
    internal::ScopedFlags flags(archive, archive.flags & Archive::kParallel);
    return serialiseCompressed(archive);
}

bool MapMetadata::deserialise(Archive& archive) {
    if (!(archive.flags & Archive::kCompressedContainers)) return deserialisePlain(archive);
    internal::ScopedFlags flags(archive, 0);
    return deserialiseCompressed(archive);
}

bool MapMetadata::serialisePlain(Archive& archive) const {
    internal::TableItems table(true, m_entries.size());
    for (const auto& [key, value] : m_entries) {
        if (value) table.add(&key, value.get(), value->memSize());
    }
    return internal::writePlainLayout(archive, staticTypeId(), table);
}

bool MapMetadata::deserialisePlain(Archive& archive) {
    if (archive.size == 0) return false;
    const uint64_t start = archive.position;
    uint32_t id = 0;
    if (!archive.read(&id, sizeof(id)) || id != staticTypeId()) {
        archive.position = start;
        return false;
    }

    // The whole table first: nothing in the map changes until it has been read intact. Keys
    // stay views into the buffer until they are needed as map keys.
    std::vector<std::string_view> keys;
    std::vector<ValueRow> rows;
    if (!internal::readMapTable(archive, keys, rows)) {
        archive.position = start;
        return false;
    }
    const uint64_t count = rows.size();
    const uint64_t areaStart = archive.position;

    // Every row reads straight into its entry's slot. Held values are reused when the map holds
    // exactly the stored keys (compared as views, nothing allocated per entry).
    // A map's keys ascend, so stored keys that match them in order need no other check.
    std::vector<std::shared_ptr<Metadata>*> slots(count);
    const bool sameSize = count == m_entries.size();
    bool inPlace = sameSize && matchHeld(m_entries, keys, true, slots);
    const bool sorted = inPlace || strictlyAscending(keys);
    if (!inPlace && !sorted && sameSize) inPlace = matchHeld(m_entries, keys, false, slots);
    // Keys out of order (or repeated) go through a list first: repeats share an entry, and the
    // last row of a key wins as it always has.
    std::vector<std::shared_ptr<Metadata>> loose;
    if (!inPlace) {
        m_entries.clear();
        if (!sorted) loose.resize(count);
        for (size_t i = 0; i < count; ++i) {
            slots[i] = sorted ? &m_entries.emplace_hint(m_entries.end(), keys[i], nullptr)->second
                              : &loose[i];
        }
    }
    const bool parallel = (archive.flags & Archive::kParallel) != 0;
    const bool intact = internal::readRowValues(archive, areaStart, rows, slots, inPlace, parallel);
    for (size_t i = 0; i < loose.size(); ++i)
        m_entries[std::string(keys[i])] = std::move(loose[i]);

    archive.position = internal::areaEnd(archive, areaStart, rows);
    if (!intact) archive.setFailed();
    return intact;
}

void MapMetadata::addEntry(const std::string& key, const std::shared_ptr<Metadata>& value,
                           bool deepCopy) {
    if (!value) return;
    if (!deepCopy) {
        m_entries[key] = value;
        return;
    }
    std::shared_ptr<Metadata>& slot = m_entries[key];
    if (slot && slot->typeId() == value->typeId()) {
        slot->copy(value.get());
    } else {
        slot = value->clone();
    }
}

void MapMetadata::addEntry(const std::string& key, const std::shared_ptr<const Metadata>& value) {
    if (value) m_entries[key] = value->clone();
}

void MapMetadata::addEntry(const std::string& key, Metadata* value) {
    if (value) m_entries[key] = value->clone();
}

void MapMetadata::insertEntry(const std::string& key, std::shared_ptr<Metadata> value) {
    if (value) m_entries[key] = std::move(value);
}

void MapMetadata::addEmptyEntry(const std::string& key) {
    m_entries[key].reset();
}

std::shared_ptr<Metadata> MapMetadata::getEntry(const std::string& key) {
    auto it = m_entries.find(key);
    return it == m_entries.end() ? nullptr : it->second;
}

std::shared_ptr<const Metadata> MapMetadata::getEntry(const std::string& key) const {
    auto it = m_entries.find(key);
    return it == m_entries.end() ? nullptr : it->second;
}

bool MapMetadata::hasKey(const std::string& key) const {
    return m_entries.count(key) != 0;
}

void MapMetadata::eraseEntry(const std::string& key) {
    m_entries.erase(key);
}

std::vector<std::string> MapMetadata::getKeys() const {
    std::vector<std::string> keys;
    keys.reserve(m_entries.size());
    for (const auto& entry : m_entries)
        keys.push_back(entry.first);
    return keys;
}

Archive& operator<<(Archive& archive, const MapMetadata& map) {
    map.serialise(archive);
    return archive;
}

Archive& operator>>(Archive& archive, MapMetadata& map) {
    map.deserialise(archive);
    return archive;
}

}  // namespace ZeltoCore
