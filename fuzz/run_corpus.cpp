#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

// Feeds the inputs of a corpus to a fuzz target, each once: what a fuzzer once found stays a test
// under every preset. A target that finds a fault ends the process.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int count, char** words) {
    int inputs = 0;
    for (int i = 1; i < count; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(words[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::string bytes{std::istreambuf_iterator<char>(file), {}};
            std::printf("%s\n", entry.path().c_str());
            std::fflush(stdout);  // the last one told is the one that ended us
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                   bytes.size());
            ++inputs;
        }
    }
    if (inputs == 0) std::fprintf(stderr, "no input; name a folder that holds some\n");
    return inputs == 0 ? 1 : 0;
}
