#include <algorithm>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "core/ZeltoCore.h"
#include "core/metadata/MetadataImpl.h"
#include "core/metadata/TypedArrayMetadata.h"
#include "tools/Demo.h"
#include "tools/DemoSkeleton.h"
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

    Skeleton skeleton = buildCharacter();
    skeleton.buildIkData();
    Pose pose(&skeleton, true);
    pose.convertToLocalSpace(&skeleton);
    bag.insertEntry("skeleton", value(skeleton));
    bag.insertEntry("pose", value(pose));
    return bag;
}

MurmurHash3 fingerprint(const Metadata& m) {
    MurmurHash3 h;
    m.hash(h);
    return h;
}

// The derived IK data of two skeletons: per foot its pelvis, leg and mid joints, segment count
// and pole vector, and per pelvis its chains.
bool sameIkData(const Skeleton& a, const Skeleton& b) {
    if (a.numFeet() != b.numFeet() || a.numPelvises() != b.numPelvises()) return false;
    for (unsigned short f = 0; f < a.numFeet(); ++f) {
        if (a.footPelvis(f) != b.footPelvis(f) || a.legJoints(f) != b.legJoints(f) ||
            a.midJoints(f) != b.midJoints(f) || a.numLegSegments(f) != b.numLegSegments(f) ||
            a.footHasPoleVector(f) != b.footHasPoleVector(f) ||
            a.footPoleVector(f) != b.footPoleVector(f))
            return false;
    }
    for (unsigned p = 0; p < a.numPelvises(); ++p) {
        if (a.numPelvisChains(p) != b.numPelvisChains(p)) return false;
        for (unsigned c = 0; c < a.numPelvisChains(p); ++c) {
            const PelvisChain* x = a.pelvisChain(p, c);
            const PelvisChain* y = b.pelvisChain(p, c);
            if (x->pelvis != y->pelvis || x->childPelvis != y->childPelvis ||
                x->jointIds != y->jointIds)
                return false;
        }
    }
    return true;
}

// The skeleton read back key by key against the one in the bag: Skeleton::hash and IK data.
bool checkSkeleton(std::ostream& out, const MapMetadata& bag, const MapMetadata& some) {
    const auto* mine = dynamic_cast<const MetadataImpl<Skeleton>*>(some.getEntry("skeleton").get());
    const auto* theirs =
        dynamic_cast<const MetadataImpl<Skeleton>*>(bag.getEntry("skeleton").get());
    bool same = mine && theirs;
    if (same) {
        MurmurHash3 a, b;
        mine->get().hash(a);
        theirs->get().hash(b);
        same = a == b && sameIkData(mine->get(), theirs->get());
    }
    out << "skeleton read back by key: " << (same ? "same hash and IK data" : "DIFFERENT") << "\n";
    return same;
}

// Writes the bag with per-value compression into an archive file and reads three keys back with
// the keyed file reader, which reads only the header, the table and those blocks. The file is
// kept for scripts to read (see the Python example in the README).
bool writeCompressedFile(std::ostream& out, const MapMetadata& bag, const std::string& path) {
    Archive archive;
    archive.flags = Archive::kCompressedContainers | Archive::kParallel;
    archive.text = "property bag";
    bag.serialise(archive);
    const bool written = archive.writeToFile(path);
    out << "wrote " << archive.size << " bytes compressed per value (plain: " << bag.memSize()
        << ") to " << path << ": " << (written ? "ok" : "FAILED") << "\n";

    MapMetadata some;
    const std::vector<std::string> keys{"curve", "character", "skeleton"};
    const bool read = written && some.deserialiseKeys(path, keys, false, true);
    bool equal = read && some.size() == keys.size();
    for (const std::string& key : keys) {
        const auto mine = some.getEntry(key);
        const auto theirs = bag.getEntry(key);
        equal = equal && mine && theirs && fingerprint(*mine) == fingerprint(*theirs);
    }
    out << "read back keys curve, character and skeleton from the file: "
        << (equal ? "same values" : "DIFFERENT") << "\n";
    equal = checkSkeleton(out, bag, some) && equal;
    return equal;
}

}  // namespace

bool demoPropertyBag(std::ostream& out, const std::string& bagPath) {
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
    return writeCompressedFile(out, bag, bagPath) && ok;
}

}  // namespace ZeltoTool
