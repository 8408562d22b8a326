#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "core/ZeltoCore.h"
#include "tools/Demo.h"

namespace ZeltoTool {

using namespace ZeltoCore;

namespace {

MurmurHash3 hashOf(const Metadata& m) {
    MurmurHash3 h;
    m.hash(h);
    return h;
}

}  // namespace

bool demoAllTypes(std::ostream& out) {
    MetadataFactory& factory = MetadataFactory::instance();
    std::vector<std::pair<unsigned, std::string>> types;
    for (const std::string& name : factory.getRegisteredMetadata()) {
        std::shared_ptr<Metadata> probe = factory.createMetadata(name);
        types.emplace_back(probe ? probe->typeId() : 0u, name);
    }
    std::sort(types.begin(), types.end());

    size_t equal = 0;
    size_t bytes = 0;
    for (const auto& [id, name] : types) {
        std::shared_ptr<Metadata> value = factory.createMetadata(name);
        if (!value) {
            out << "  " << name << ": cannot be created\n";
            continue;
        }
        Archive archive(value->memSize(), 0);
        const bool written = value->serialise(archive) && archive.position == archive.size;
        archive.reset();
        std::shared_ptr<Metadata> back = readMetadata(archive);
        if (written && back && back->typeStr() == name && archive.position == archive.size &&
            hashOf(*back) == hashOf(*value)) {
            ++equal;
            bytes += archive.size;
        } else {
            out << "  " << name << " (" << id << "): came back DIFFERENT\n";
        }
    }
    const bool ok = equal == types.size();
    out << "created " << types.size() << " registered types by name, wrote " << bytes
        << " bytes and read them back by type id: " << (ok ? "all equal by hash" : "some DIFFERENT")
        << "\n";
    return ok;
}

}  // namespace ZeltoTool
