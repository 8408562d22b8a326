#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "core/ZeltoCore.h"
#include "core/metadata/MetadataImpl.h"
#include "core/metadata/TypedArrayMetadata.h"
#include "tools/Demo.h"
#include "tools/Inspect.h"

namespace ZeltoTool {

using namespace ZeltoCore;

namespace {

template <class T>
std::shared_ptr<Metadata> value(const T& v) {
    return std::make_shared<MetadataImpl<T>>(v);
}

template <class T>
std::shared_ptr<Metadata> array(const std::vector<T>& v) {
    return std::make_shared<TypedArrayMetadata<T>>(v);
}

std::shared_ptr<Metadata> jointProperties(const std::string& name, double weight,
                                          const Imath::V3d& offset) {
    auto joint = std::make_shared<MapMetadata>();
    joint->insertEntry("name", value(name));
    joint->insertEntry("weight", value(weight));
    joint->insertEntry("offset", value(offset));
    return joint;
}

MapMetadata propertyBag() {
    MapMetadata character;
    character.insertEntry("name", value(std::string("hero")));
    character.insertEntry("height", value(1.82));
    character.insertEntry("tags", array(std::vector<std::string>{"biped", "hero"}));

    ArrayMetadata joints;
    joints.push_back(jointProperties("hip", 1.0, Imath::V3d(0, 95, 0)));
    joints.push_back(jointProperties("knee", 0.5, Imath::V3d(0, -45, 2)));
    joints.push_back(value(Imath::Quatd(1, 0, 0, 0)));

    MapMetadata bag;
    bag.addEntry("character", std::make_shared<MapMetadata>(character), false);
    bag.addEntry("joints", std::make_shared<ArrayMetadata>(joints), false);
    bag.insertEntry("curve", array(std::vector<double>{0.0, 0.25, 1.0}));
    bag.insertEntry("lods", array(std::vector<int>{3, 2, 1}));
    bag.insertEntry("visible", value(true));
    return bag;
}

MurmurHash3 fingerprint(const Metadata& m) {
    MurmurHash3 h;
    m.hash(h);
    return h;
}

// Writes the bag with per-value compression into an archive file and reads two keys back with
// the keyed file reader, which reads only the header, the table and those two blocks.
bool writeCompressedFile(std::ostream& out, const MapMetadata& bag) {
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::path dir =
        fs::temp_directory_path(error) / ("zelto_demo_" + std::to_string(getpid()));
    fs::create_directories(dir, error);
    const std::string path = (dir / "bag.zelto").string();

    Archive archive;
    archive.flags = Archive::kCompressedContainers | Archive::kParallel;
    archive.text = "property bag";
    bag.serialise(archive);
    const bool written = archive.writeToFile(path);
    out << "wrote " << archive.size << " bytes compressed per value (plain: " << bag.memSize()
        << ") to " << path << ": " << (written ? "ok" : "FAILED") << "\n";

    MapMetadata some;
    const std::vector<std::string> keys{"curve", "character"};
    const bool read = written && some.deserialiseKeys(path, keys, false, true);
    bool equal = read && some.size() == keys.size();
    for (const std::string& key : keys) {
        const auto mine = some.getEntry(key);
        const auto theirs = bag.getEntry(key);
        equal = equal && mine && theirs && fingerprint(*mine) == fingerprint(*theirs);
    }
    out << "read back keys curve and character from the file: "
        << (equal ? "same values" : "DIFFERENT") << "\n";
    if (read) printMetadataTree(out, some, "keyed", 0);
    fs::remove_all(dir, error);
    return equal;
}

}  // namespace

bool demoPropertyBag(std::ostream& out) {
    const MapMetadata bag = propertyBag();
    printMetadataTree(out, bag, "bag", 0);

    Archive sequential;
    bag.serialise(sequential);
    Archive parallel;
    parallel.flags = 4;
    bag.serialise(parallel);
    const bool sameBytes =
        sequential.size == bag.memSize() && parallel.size == sequential.size &&
        std::equal(sequential.data, sequential.data + sequential.size, parallel.data);
    out << "wrote " << sequential.size
        << " bytes sequentially and in parallel: " << (sameBytes ? "identical" : "DIFFERENT")
        << "\n";

    bool ok = sameBytes;
    for (Archive* archive : {&sequential, &parallel}) {
        archive->reset();
        MapMetadata back;
        const bool read = back.deserialise(*archive) && archive->position == archive->size;
        Archive again;
        back.serialise(again);
        const bool equal = read && fingerprint(back) == fingerprint(bag) &&
                           again.size == sequential.size &&
                           std::equal(again.data, again.data + again.size, sequential.data);
        out << "read back " << (archive->flags & 4 ? "in parallel" : "sequentially") << ": "
            << (equal ? "same hash, writes the same bytes" : "DIFFERENT") << "\n";
        ok = ok && equal;
    }
    out << "fingerprint: " << fingerprint(bag) << "\n";
    return writeCompressedFile(out, bag) && ok;
}

}  // namespace ZeltoTool
