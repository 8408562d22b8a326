// Writes seed inputs for every fuzz program with the library's own writers:
//   zelto_make_seeds OUTDIR   ->   OUTDIR/<program>/<seed files>
// Each program's input begins with its mode byte (see the program), then the bytes it reads.
#include <Imath/ImathVec.h>

#include <filesystem>
#include <fstream>

#include "core/ZeltoCore.h"
#include "tools/DemoSkeleton.h"

namespace fs = std::filesystem;
using namespace ZeltoCore;

namespace {

std::vector<uint8_t> bytesOf(const Archive& a) {
    return {a.data, a.data + a.size};
}

std::vector<uint8_t> serialised(const Metadata& value, uint64_t flags) {
    Archive a(flags & Archive::kCompressedContainers ? 0 : value.memSize(), flags);
    value.serialise(a);
    return bytesOf(a);
}

void save(const fs::path& dir, const std::string& name, uint8_t mode,
          const std::vector<uint8_t>& body) {
    fs::create_directories(dir);
    std::ofstream out(dir / name, std::ios::binary);
    out.put(static_cast<char>(mode));
    out.write(reinterpret_cast<const char*>(body.data()), std::streamsize(body.size()));
}

void saveRaw(const fs::path& dir, const std::string& name, const std::vector<uint8_t>& body) {
    fs::create_directories(dir);
    std::ofstream out(dir / name, std::ios::binary);
    out.write(reinterpret_cast<const char*>(body.data()), std::streamsize(body.size()));
}

MapMetadata sampleMap() {
    MapMetadata map;
    map.addEntry("a", std::make_shared<MetadataImpl<int>>(42), false);
    map.addEntry("b", std::make_shared<MetadataImpl<std::string>>("left foot"), false);
    map.addEntry("name", std::make_shared<MetadataImpl<Imath::V3d>>(Imath::V3d(1, 2, 3)), false);
    map.addEntry("values",
                 std::make_shared<TypedArrayMetadata<double>>(std::vector<double>{1, 2, 3, 4}),
                 false);
    auto inner = std::make_shared<MapMetadata>();
    inner->addEntry("x", std::make_shared<MetadataImpl<float>>(0.5f), false);
    map.addEntry("inner", inner, false);
    return map;
}

ArrayMetadata sampleArray() {
    ArrayMetadata array;
    array.push_back(std::make_shared<MetadataImpl<double>>(2.5));
    array.push_back(std::make_shared<MetadataImpl<std::string>>("hip"));
    array.push_back(std::make_shared<MapMetadata>(sampleMap()));
    return array;
}

Pose samplePose() {
    Pose pose;
    pose.setNumberJoints(3);
    pose.jointPose(1).translation = Imath::V3d(0, 1, 0);
    pose.jointPose(2).rotation = Imath::Quatd(0.7071, 0.7071, 0, 0);
    MetadataImpl<double> weight(0.25);
    pose.addPoseMetadata("weight", &weight);
    pose.addJointMetadata(1, "skipIk", std::make_shared<MetadataImpl<bool>>(true));
    pose.resetActiveJoints();
    return pose;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    initZeltoCore();
    const fs::path root = argv[1];
    const uint8_t current = Archive::kCurrentVersion - 1;  // version byte: 1 + b % 5

    // Every registered type with its default value.
    auto& factory = MetadataFactory::instance();
    for (const std::string& name : factory.getRegisteredMetadata()) {
        std::shared_ptr<Metadata> value = factory.createMetadata(name);
        if (value) save(root / "fuzz_values", name, current, serialised(*value, 0));
    }
    save(root / "fuzz_values", "map", current, serialised(sampleMap(), 0));

    const MapMetadata map = sampleMap();
    const ArrayMetadata array = sampleArray();
    for (uint8_t flags : {0, 2, 4, 6}) {
        const uint8_t mode = flags | uint8_t(current << 3);
        save(root / "fuzz_containers", "map" + std::to_string(flags), mode, serialised(map, flags));
        save(root / "fuzz_containers", "array" + std::to_string(flags), mode | 1,
             serialised(array, flags));
    }
    for (uint8_t mode : {0, 1, 2, 3, 4, 5, 6, 7, 12, 20, 22}) {
        const uint64_t flags = mode & Archive::kCompressedContainers;
        save(root / "fuzz_keyed", "keyed" + std::to_string(mode), mode,
             (mode & 1) ? serialised(array, flags) : serialised(map, flags));
    }

    Pose pose = samplePose();
    Archive poseArchive(pose.memSize(), 0);
    poseArchive << pose;
    save(root / "fuzz_pose", "pose", current, bytesOf(poseArchive));

    // Whole archive files, plain and compressed, and their base64 text.
    for (uint64_t fileFlags : {0, 1}) {
        Archive a(map.memSize(), fileFlags);
        map.serialise(a);
        const fs::path path = root / ("file" + std::to_string(fileFlags) + ".zelto");
        a.writeToFile(path.string());
        std::ifstream in(path, std::ios::binary);
        saveRaw(root / "fuzz_files", path.filename().string(),
                {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()});
        fs::remove(path);
        const std::string text = a.encodeBase64(fileFlags != 0);
        saveRaw(root / "fuzz_files", "base64_" + std::to_string(fileFlags),
                {text.begin(), text.end()});
    }

    const Skeleton character = ZeltoTool::buildCharacter();
    Archive skeletonArchive(character.memSize(), 0);
    skeletonArchive << character;
    saveRaw(root / "fuzz_skeleton", "character", bytesOf(skeletonArchive));

    // Solver inputs in the order fuzz_ik takes them: one per solver on a chain of the character.
    struct Chain {
        uint8_t solver, a, c;
        std::vector<uint8_t> mids;
    };
    for (const Chain& chain :
         {Chain{0, 2, 4, {}}, Chain{1, 6, 8, {}}, Chain{2, 10, 15, {11, 12, 13, 14}},
          Chain{3, 10, 15, {11, 12, 13, 14}}, Chain{4, 10, 15, {12, 13}}, Chain{5, 2, 5, {3, 4}},
          Chain{0x80, 2, 4, {}}}) {
        std::vector<uint8_t> in = {chain.solver, 0, 0};
        auto put = [&in](const auto& v) {
            const auto* p = reinterpret_cast<const uint8_t*>(&v);
            in.insert(in.end(), p, p + sizeof(v));
        };
        for (double v : {10.0, 30.0, 20.0, 0.0, 0.0, 1.0})
            put(v);       // target, pole
        in.push_back(1);  // with the pole
        in.insert(in.end(), {chain.a, uint8_t(chain.a + 1), chain.c});
        for (double v : {0.5, 0.0, 1e-3})
            put(v);  // stretch, soft, tolerance
        in.insert(in.end(), {20, 2, uint8_t(chain.mids.size())});
        in.insert(in.end(), chain.mids.begin(), chain.mids.end());
        in.insert(in.end(), {1, chain.c});
        saveRaw(root / "fuzz_ik", "solver" + std::to_string(chain.solver), in);
    }

    // Primitive programs: an opcode byte, then the value it reads.
    Archive prim(64, 0);
    const uint8_t opInt = 1, opDouble = 3;
    const int32_t i = -7;
    const double d = 0.125;
    prim.write(&opInt, 1);
    prim.write(&i, 4);
    prim.write(&opDouble, 1);
    prim.write(&d, 8);
    prim.size = prim.position;
    saveRaw(root / "fuzz_archive", "ints", bytesOf(prim));
    return 0;
}
