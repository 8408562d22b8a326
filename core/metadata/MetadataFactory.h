// MetadataFactory: the process-wide registry that creates metadata values by type name or id.
//
// The first registration of a name wins; deregistering a name keeps its id->name entry, so the
// name can still be looked up while creation fails. Thread safety: lookups and creation only read
// the maps and may run from any number of threads once registration is over (initZeltoCore()
// returns after it); registering or deregistering while other threads look up is not safe.
//
//   auto& f = MetadataFactory::instance();
//   std::shared_ptr<Metadata> v = f.createMetadata(archive.peekTypeId());
#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "core/metadata/Metadata.h"
#include "utils/Export.h"

namespace ZeltoCore {

class ZELTO_API MetadataFactory {
public:
    using Creator = Metadata* (*)();

    static MetadataFactory& instance();

    void registerMetadata(const std::string& name, unsigned int id, Creator creator);
    void deregisterMetadata(const std::string& name);

    // Null when the type is unknown.
    std::shared_ptr<Metadata> createMetadata(const std::string& name);
    std::shared_ptr<Metadata> createMetadata(unsigned int id);
    // Ownership of the new object passes to the caller; null when unknown.
    Metadata* createMetadataRawPtr(const std::string& name);
    Metadata* createMetadataRawPtr(unsigned int& id);

    // Empty when the id was never registered.
    const std::string getMetadataName(unsigned int id);
    // Every registered name, in the map's own order.
    std::vector<std::string> getRegisteredMetadata();
    bool isRegistered(const std::string& name);

    MetadataFactory(const MetadataFactory&) = delete;
    MetadataFactory& operator=(const MetadataFactory&) = delete;

private:
    MetadataFactory();
    ~MetadataFactory();

    std::unordered_map<std::string, Creator> m_creators;
    std::unordered_map<unsigned int, std::string> m_names;
};

// Reads one value at the archive's cursor: peeks its type id, creates it, deserialises it.
// Null (cursor unmoved) when the id is unknown; null when the value's bytes are damaged.
ZELTO_API std::shared_ptr<Metadata> readMetadata(Archive& archive);

}  // namespace ZeltoCore
