// Stands in for the fuzzing engine: tries every file of the folders once.
// Usage: FUZZER FOLDER...

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

#include "fuzzers/target.h"

namespace {

std::vector<std::uint8_t> contentOf(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

} // namespace

int main(int argc, char** argv)
{
    int tried = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            const std::vector<std::uint8_t> content = contentOf(entry.path());
            std::cerr << entry.path().filename().string() << '\n'; // the last is the one that was not survived
            LLVMFuzzerTestOneInput(content.data(), content.size());
            ++tried;
        }
    }
    std::cerr << tried << " inputs\n";
    return tried > 0 ? 0 : 1;
}
