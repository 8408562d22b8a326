// An outside program using the installed package: start-up, an archive round trip, a hash.
#include <cstdio>
#include <string>

#include "core/ZeltoCore.h"

int main() {
    ZeltoCore::initZeltoCore();
    const std::string text = "consumer";
    ZeltoCore::Archive archive(8 + text.size(), 0);
    archive << text;
    archive.reset();
    std::string back;
    archive >> back;
    ZeltoCore::MurmurHash3 h;
    h.append(back);
    const bool ok = back == text && !archive.failed() && h != ZeltoCore::MurmurHash3();
    std::printf("consumer: %s\n", ok ? "ok" : "FAILED");
    return ok ? 0 : 1;
}
