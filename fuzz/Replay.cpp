// Runs a fuzz target on every file of the given folders without libFuzzer, so that seeds and
// findings are ordinary tests with every compiler.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    unsigned files = 0;
    for (int i = 1; i < argc; ++i) {
        if (!fs::is_directory(argv[i])) continue;  // a target without findings has no such folder
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(argv[i])) {
            if (!entry.is_regular_file()) continue;
            std::ifstream file(entry.path(), std::ios::binary);
            const std::vector<char> bytes(std::istreambuf_iterator<char>(file), {});
            // Printed before the run, so that it shows the input of a crash.
            (void)std::printf("%s\n", entry.path().string().c_str());
            (void)std::fflush(stdout);
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                   bytes.size());
            ++files;
        }
    }
    (void)std::printf("%u files\n", files);
    return files != 0 ? 0 : 1;
}
