// Runs a fuzz program's entry point over files, outside libFuzzer: the test suite replays every
// input that ever crashed a program (fuzz/regressions/<program>/) on each build.
//   fuzz_values_replay DIR_OR_FILE ...
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        std::vector<fs::path> files;
        if (fs::is_directory(argv[i])) {
            for (const auto& e : fs::directory_iterator(argv[i]))
                files.push_back(e.path());
        } else if (fs::exists(argv[i])) {
            files.emplace_back(argv[i]);
        }
        for (const fs::path& f : files) {
            std::ifstream in(f, std::ios::binary);
            const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
            ++count;
        }
    }
    std::printf("replayed %d inputs\n", count);
    return 0;
}
