#include "core/metadata/MetadataFactory.h"

namespace ZeltoCore {

MetadataFactory::MetadataFactory() = default;
MetadataFactory::~MetadataFactory() = default;

MetadataFactory& MetadataFactory::instance() {
    static MetadataFactory factory;
    return factory;
}

void MetadataFactory::registerMetadata(const std::string& name, unsigned int id, Creator creator) {
    if (m_creators.count(name)) return;
    m_names[id] = name;
    m_creators[name] = creator;
}

void MetadataFactory::deregisterMetadata(const std::string& name) {
    m_creators.erase(name);
}

Metadata* MetadataFactory::createMetadataRawPtr(const std::string& name) {
    auto it = m_creators.find(name);
    return it == m_creators.end() ? nullptr : it->second();
}

Metadata* MetadataFactory::createMetadataRawPtr(unsigned int& id) {
    auto it = m_names.find(id);
    return it == m_names.end() ? nullptr : createMetadataRawPtr(it->second);
}

namespace {

// An empty pointer for an unknown type: shared_ptr's constructor from a null raw pointer would
// still allocate counts that own nothing.
std::shared_ptr<Metadata> owned(Metadata* value) {
    return value ? std::shared_ptr<Metadata>(value) : nullptr;
}

}  // namespace

std::shared_ptr<Metadata> MetadataFactory::createMetadata(const std::string& name) {
    return owned(createMetadataRawPtr(name));
}

std::shared_ptr<Metadata> MetadataFactory::createMetadata(unsigned int id) {
    return owned(createMetadataRawPtr(id));
}

const std::string MetadataFactory::getMetadataName(unsigned int id) {
    auto it = m_names.find(id);
    return it == m_names.end() ? std::string() : it->second;
}

std::vector<std::string> MetadataFactory::getRegisteredMetadata() {
    std::vector<std::string> names;
    names.reserve(m_creators.size());
    for (const auto& entry : m_creators)
        names.push_back(entry.first);
    return names;
}

bool MetadataFactory::isRegistered(const std::string& name) {
    return m_creators.count(name) != 0;
}

std::shared_ptr<Metadata> readMetadata(Archive& archive) {
    if (archive.remaining() < sizeof(uint32_t)) return nullptr;
    std::shared_ptr<Metadata> value =
        MetadataFactory::instance().createMetadata(archive.peekTypeId());
    if (!value) return nullptr;
    const bool wasFailed = archive.failed();
    if (!value->deserialise(archive) || (!wasFailed && archive.failed())) return nullptr;
    return value;
}

}  // namespace ZeltoCore
