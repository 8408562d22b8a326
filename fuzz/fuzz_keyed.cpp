// Keyed readers of maps and arrays, from memory and from archive files. The first byte picks map
// or array, compressed or plain, memory or file; requested keys are short names that the seeds
// use and one key cut from the input itself.
#include "fuzz/FuzzCommon.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    zelto_fuzz::init();
    if (size < 2) return 0;
    const uint8_t mode = data[0];
    const bool isMap = (mode & 1) == 0;
    const uint64_t flags = mode & ZeltoCore::Archive::kCompressedContainers;
    const bool fromFile = (mode & 4) != 0;
    const bool merge = (mode & 8) != 0;
    const uint8_t* body = data + 1;
    const size_t bodySize = size - 1;

    std::vector<std::string> keys = {"a", "b", "name", "values"};
    keys.emplace_back(reinterpret_cast<const char*>(body), std::min<size_t>(bodySize, 4));
    const std::vector<size_t> indices = {0, 2, 1, 2, size_t(1) << 40};

    std::string path;
    if (fromFile) {
        ZeltoCore::Archive file(bodySize, 0);
        if (bodySize) std::memcpy(file.data, body, bodySize);
        file.flags = flags;
        path = zelto_fuzz::scratchPath("keyed");
        if (!file.writeToFile(path)) return 0;
    }
    ZeltoCore::Archive in;
    zelto_fuzz::viewOf(in, body, bodySize, ZeltoCore::Archive::kCurrentVersion, flags);
    std::unique_ptr<ZeltoCore::Metadata> result;
    bool ok = false;
    if (isMap) {
        auto map = std::make_unique<ZeltoCore::MapMetadata>();
        map->addEntry("kept", std::make_shared<ZeltoCore::MetadataImpl<int>>(7), false);
        ok = fromFile ? map->deserialiseKeys(path, keys, merge, (mode & 16) != 0)
                      : map->deserialiseKeys(in, keys, merge);
        result = std::move(map);
    } else {
        auto array = std::make_unique<ZeltoCore::ArrayMetadata>();
        ok = fromFile ? array->deserialiseKeys(path, indices, merge)
                      : array->deserialiseKeys(in, indices, merge);
        result = std::move(array);
    }
    if (fromFile) std::remove(path.c_str());
    if (ok) zelto_fuzz::checkWriteBack(*result, 0);
    return 0;
}
