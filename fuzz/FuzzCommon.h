// Shared pieces of the fuzz programs: one-time start-up, quiet logging, a scratch file per
// process, and the write-back check every target runs on what it managed to read.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "core/ZeltoCore.h"

namespace zelto_fuzz {

// Fails the run the way libFuzzer reports a crash, with a message saying which rule broke.
#define ZELTO_FUZZ_CHECK(cond)                                                             \
    do {                                                                                   \
        if (!(cond)) {                                                                     \
            std::fprintf(stderr, "check failed: %s (%s:%d)\n", #cond, __FILE__, __LINE__); \
            std::abort();                                                                  \
        }                                                                                  \
    } while (0)

inline void init() {
    static const bool done = [] {
        ZeltoCore::initZeltoCore();
        // Warnings about damaged input are expected by the thousand; keep the output readable.
        ZeltoUtils::Logger::setHandler([](ZeltoUtils::Logger::Level, const std::string&) {});
        return true;
    }();
    (void)done;
}

// A file path private to this process (fuzzers may run in parallel jobs).
inline std::string scratchPath(const char* tag) {
    const char* dir = std::getenv("TMPDIR");
    return std::string(dir ? dir : "/tmp") + "/zelto_fuzz_" + tag + "_" +
           std::to_string(::getpid());
}

inline bool writeFile(const std::string& path, const uint8_t* data, size_t size) {
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    const bool ok = std::fwrite(data, 1, size, f) == size;
    return std::fclose(f) == 0 && ok;
}

// A view archive over the fuzzer's bytes (never freed by the archive).
inline void viewOf(ZeltoCore::Archive& a, const uint8_t* data, size_t size, uint64_t version,
                   uint64_t flags) {
    a.data = const_cast<unsigned char*>(data);
    a.size = size;
    a.position = 0;
    a.version = version;
    a.flags = flags;
    a.ownsData = false;
}

// Writes a value that was read successfully, checks that it takes exactly memSize() bytes, and
// that the written form is stable: reading it back and writing again gives the same bytes.
// Write-backs use the current version: writers produce the current layout.
inline void checkWriteBack(const ZeltoCore::Metadata& value, uint64_t flags) {
    auto write = [&](const ZeltoCore::Metadata& v, ZeltoCore::Archive& out) {
        const size_t n = v.memSize();
        if (flags & ZeltoCore::Archive::kCompressedContainers) {
            out.flags = flags;  // compressed containers size their archive themselves
        } else {
            out.resize(n);
            out.flags = flags;
        }
        ZELTO_FUZZ_CHECK(v.serialise(out));
        ZELTO_FUZZ_CHECK(!out.failed());
        if (!(flags & ZeltoCore::Archive::kCompressedContainers))
            ZELTO_FUZZ_CHECK(out.position == n);
    };
    ZeltoCore::Archive first;
    write(value, first);
    std::shared_ptr<ZeltoCore::Metadata> again = value.clone();
    first.reset();
    ZELTO_FUZZ_CHECK(again->deserialise(first));
    ZeltoCore::Archive second;
    write(*again, second);
    ZELTO_FUZZ_CHECK(second.size == first.size);
    ZELTO_FUZZ_CHECK(std::memcmp(first.data, second.data, first.size) == 0);
}

}  // namespace zelto_fuzz
