// Pose streams: a pose that reads is written again into exactly memSize() bytes, and the written
// form reads back to a pose that writes the same bytes.
#include "fuzz/FuzzCommon.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    zelto_fuzz::init();
    if (size < 1) return 0;
    const uint64_t version = 1 + data[0] % ZeltoCore::Archive::kCurrentVersion;
    ZeltoCore::Archive in;
    zelto_fuzz::viewOf(in, data + 1, size - 1, version, 0);
    ZeltoCore::Pose pose;
    in >> pose;
    if (in.failed()) return 0;
    auto write = [&](const ZeltoCore::Pose& p, ZeltoCore::Archive& out) {
        out.resize(p.memSize());
        out << p;
        ZELTO_FUZZ_CHECK(!out.failed());
        ZELTO_FUZZ_CHECK(out.position == p.memSize());
    };
    ZeltoCore::Archive first;
    write(pose, first);
    first.reset();
    ZeltoCore::Pose again;
    first >> again;
    ZELTO_FUZZ_CHECK(!first.failed());
    ZeltoCore::Archive second;
    write(again, second);
    ZELTO_FUZZ_CHECK(first.size == second.size);
    ZELTO_FUZZ_CHECK(std::memcmp(first.data, second.data, first.size) == 0);
    return 0;
}
