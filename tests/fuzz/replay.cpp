/// Stands for libFuzzer in other builds: feeds the files of a folder to a fuzz target.
#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz/fuzz.h"

int main(int argc, char** argv) {
    int cases = 0;
    for (const auto& entry : std::filesystem::directory_iterator(argc > 1 ? argv[1] : ".")) {
        std::printf("%s\n", entry.path().c_str());
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(file), {}};
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        ++cases;
    }
    return cases > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
