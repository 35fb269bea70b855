#include "Fuzzer.hpp"

#include <cstdio>
#include <cstdlib>

namespace fuzz {

void require(bool promise, const char* what) {
    if (promise) return;
    std::fprintf(stderr, "Broken promise: %s\n", what);
    std::abort();
}

} // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzOne({data, size});
    return 0;
}

#ifdef VELTO_FUZZ_REPLAY
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

/// Without the fuzzing engine: runs every file of the given folders once.
int main(int count, char** arguments) {
    std::size_t files = 0;
    for (int index = 1; index < count; ++index)
        for (const auto& entry : std::filesystem::directory_iterator(arguments[index])) {
            std::ifstream in(entry.path(), std::ios::binary);
            const std::vector<char> content(std::istreambuf_iterator<char>(in), {});
            const std::vector<std::uint8_t> input(content.begin(), content.end());
            std::printf("%s\n", entry.path().filename().c_str());
            std::fflush(stdout);
            fuzzOne(input);
            ++files;
        }
    std::printf("%zu seeds\n", files);
    return files == 0 ? 1 : 0;
}
#endif
