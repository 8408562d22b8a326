// Maps and arrays in their plain, compressed (flag 2) and parallel (flag 4) forms. The first byte
// picks the container, the flags and the version; the rest is the container's bytes.
#include "fuzz/FuzzCommon.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    zelto_fuzz::init();
    if (size < 1) return 0;
    const uint8_t mode = data[0];
    const bool isMap = (mode & 1) == 0;
    const uint64_t flags =
        mode & (ZeltoCore::Archive::kCompressedContainers | ZeltoCore::Archive::kParallel);
    const uint64_t version = 1 + (mode >> 3) % ZeltoCore::Archive::kCurrentVersion;
    ZeltoCore::Archive in;
    zelto_fuzz::viewOf(in, data + 1, size - 1, version, flags);
    std::unique_ptr<ZeltoCore::Metadata> value;
    if (isMap)
        value = std::make_unique<ZeltoCore::MapMetadata>();
    else
        value = std::make_unique<ZeltoCore::ArrayMetadata>();
    if (!value->deserialise(in)) return 0;
    ZeltoCore::MurmurHash3 h;
    value->hash(h);
    zelto_fuzz::checkWriteBack(*value, flags);
    return 0;
}
