// Feeds every file of the given directories to one target, as an ordinary test does.
#include "target.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace {
void replay(const std::filesystem::path &file)
{
    std::ifstream stream(file, std::ios::binary);
    const std::vector<char> content{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    // An allocation of exactly the input's size: the sanitizers see every byte read beyond it.
    const std::vector<std::uint8_t> input(content.begin(), content.end());
    std::printf("%s: %zu bytes\n", file.filename().c_str(), input.size());
    std::fflush(stdout);
    LLVMFuzzerTestOneInput(input.data(), input.size());
}
} // namespace

int main(int argc, char **argv)
{
    std::vector<std::filesystem::path> files;
    for (int i = 1; i < argc; ++i) {
        for (const auto &entry : std::filesystem::directory_iterator(argv[i])) {
            if (entry.is_regular_file())
                files.push_back(entry.path());
        }
    }
    if (files.empty()) {
        std::fprintf(stderr, "no corpus\n");
        return 1; // an empty corpus tests nothing
    }
    std::sort(files.begin(), files.end());
    for (const auto &file : files)
        replay(file);
    std::printf("%zu inputs replayed\n", files.size());
    return 0;
}
