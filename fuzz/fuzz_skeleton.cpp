// Skeleton streams: a skeleton that reads is written into exactly memSize() bytes, and its
// written form reads back to a skeleton that writes the same bytes and hashes the same.
#include "fuzz/FuzzCommon.h"

namespace {

std::vector<uint8_t> write(const ZeltoCore::Skeleton& s) {
    ZeltoCore::Archive out(s.memSize(), 0);
    out << s;
    ZELTO_FUZZ_CHECK(!out.failed());
    ZELTO_FUZZ_CHECK(out.position == s.memSize());
    return {out.data, out.data + out.size};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    zelto_fuzz::init();
    ZeltoCore::Archive in;
    zelto_fuzz::viewOf(in, data, size, ZeltoCore::Archive::kCurrentVersion, 0);
    ZeltoCore::Skeleton skeleton;
    in >> skeleton;
    if (in.failed()) return 0;
    const std::vector<uint8_t> first = write(skeleton);
    ZeltoCore::Archive again;
    zelto_fuzz::viewOf(again, first.data(), first.size(), ZeltoCore::Archive::kCurrentVersion, 0);
    ZeltoCore::Skeleton back;
    again >> back;
    ZELTO_FUZZ_CHECK(!again.failed());
    ZELTO_FUZZ_CHECK(write(back) == first);
    // Hashes are stable from the first written form on (a stream without pelvises reads back
    // with joint 0 registered as one, which the hash sees).
    ZeltoCore::Archive third;
    zelto_fuzz::viewOf(third, first.data(), first.size(), ZeltoCore::Archive::kCurrentVersion, 0);
    ZeltoCore::Skeleton backAgain;
    third >> backAgain;
    ZeltoCore::MurmurHash3 a, b;
    back.hash(a);
    backAgain.hash(b);
    ZELTO_FUZZ_CHECK(a.h1 == b.h1 && a.h2 == b.h2);
    std::ostringstream text;
    text << skeleton;
    return 0;
}
