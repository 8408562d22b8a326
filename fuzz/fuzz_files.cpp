// Archive files as they lie on disk, and the base64 text form. A file that reads is written again
// and must read back to the same data section.
#include "fuzz/FuzzCommon.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    zelto_fuzz::init();
    const std::string path = zelto_fuzz::scratchPath("file");
    if (zelto_fuzz::writeFile(path, data, size)) {
        ZeltoCore::Archive a;
        if (a.readFromFile(path)) {
            ZELTO_FUZZ_CHECK(a.writeToFile(path));
            ZeltoCore::Archive b;
            ZELTO_FUZZ_CHECK(b.readFromFile(path));
            ZELTO_FUZZ_CHECK(a.size == b.size);
            ZELTO_FUZZ_CHECK(a.size == 0 || std::memcmp(a.data, b.data, a.size) == 0);
        }
        std::remove(path.c_str());
    }
    ZeltoCore::Archive t;
    // A compressed text may hold an empty payload; the empty archive encodes to "", which is
    // refused, so only non-empty results round-trip.
    if (t.decodeBase64(std::string(reinterpret_cast<const char*>(data), size)) && t.size > 0) {
        ZeltoCore::Archive u;
        ZELTO_FUZZ_CHECK(u.decodeBase64(t.encodeBase64(size % 2 == 0)));
        ZELTO_FUZZ_CHECK(u.size == t.size);
        ZELTO_FUZZ_CHECK(t.size == 0 || std::memcmp(t.data, u.data, t.size) == 0);
    }
    return 0;
}
