#include "tools/IkCommand.h"

#include <memory>

#include "core/archive/Archive.h"
#include "core/metadata/MapMetadata.h"
#include "core/pose/Pose.h"
#include "core/skeleton/SkeletonArchive.h"
#include "tools/LegIk.h"

namespace ZeltoTool {

using namespace ZeltoCore;

namespace {

bool skeletonFromMap(Archive& archive, const std::string& key, Skeleton& skeleton,
                     std::string& why) {
    MapMetadata map;
    if (!map.deserialise(archive) || archive.failed()) {
        why = "the data is not a map this build can read";
        return false;
    }
    if (!map.hasKey(key)) {
        why = "the map has no key '" + key + "'";
        return false;
    }
    const std::shared_ptr<Metadata> value = map.getEntry(key);
    if (!value || value->typeStr() != "SkeletonMetadata") {
        why = "key '" + key + "' holds " + (value ? "a " + value->typeStr() : "no value") +
              ", not a SkeletonMetadata";
        return false;
    }
    // A SkeletonMetadata value is written as its type id and the skeleton's own archive form.
    Archive form(value->memSize(), 0);
    if (!value->serialise(form)) {
        why = "key '" + key + "' does not write";
        return false;
    }
    form.reset();
    form.skip(4);
    form >> skeleton;
    if (form.failed()) why = "the skeleton under key '" + key + "' does not read";
    return !form.failed();
}

bool loadSkeleton(const IkOptions& options, Skeleton& skeleton, std::string& why) {
    Archive archive;
    if (!archive.readFromFile(options.file)) {
        why = options.file + " is not a readable archive file";
        return false;
    }
    if (!options.key.empty()) {
        if (skeletonFromMap(archive, options.key, skeleton, why)) return true;
        why = options.file + ": " + why;
        return false;
    }
    const bool map = archive.peekTypeId() == MapMetadata::staticTypeId();
    archive >> skeleton;
    if (!archive.failed() && archive.remaining() == 0) return true;
    why = options.file + " does not hold a skeleton" +
          (map ? " (its data looks like a map: name the entry with --key)" : "");
    return false;
}

}  // namespace

int ikCommand(const IkOptions& options, std::ostream& out, std::ostream& err) {
    if (options.target.size() != 3 || !(options.pole.empty() || options.pole.size() == 3)) {
        err << "zelto: --target and --pole take three numbers, x,y,z\n";
        return 2;
    }
    Skeleton skeleton;
    std::string why;
    if (!loadSkeleton(options, skeleton, why)) {
        err << "zelto: " << why << "\n";
        return 1;
    }
    const Imath::V3d target(options.target[0], options.target[1], options.target[2]);
    const bool hasPole = !options.pole.empty();
    const Imath::V3d pole =
        hasPole ? Imath::V3d(options.pole[0], options.pole[1], options.pole[2]) : Imath::V3d(0);

    Pose pose(&skeleton, true);
    const Pose bind = pose;
    LegSolve leg;
    if (!solveLeg(pose, skeleton, options.foot, target, hasPole ? &pole : nullptr, options.stretch,
                  leg, why)) {
        err << "zelto: " << why << "\n";
        return 1;
    }
    out << options.file << ": " << skeleton.numJoints() << " joints, " << skeleton.numFeet()
        << " feet\n"
        << "foot " << options.foot << " from the bind pose, "
        << (hasPole ? "pole vector " + formatPoint(pole) : "no pole vector (the bind pose's bend)")
        << ", stretch " << options.stretch << " (joint poses in parent space)\n";
    printLeg(out, skeleton, bind, pose, leg);
    return 0;
}

}  // namespace ZeltoTool
