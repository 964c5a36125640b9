// Runs a target over the files of its corpus, where there is no fuzzer to link with: what was found once stays found.
//
//   fuzz_TARGET FILE-OR-FOLDER...
#include "fuzz.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

void addFiles(const std::filesystem::path& path, std::vector<std::filesystem::path>& files)
{
    if (!std::filesystem::is_directory(path)) {
        files.push_back(path);
        return;
    }
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) {
        if (entry.is_regular_file()) {
            files.push_back(entry.path());
        }
    }
}

} // namespace

int main(int count, char** arguments)
{
    std::vector<std::filesystem::path> files;
    for (int index = 1; index < count; ++index) {
        addFiles(arguments[index], files);
    }
    std::sort(files.begin(), files.end());
    if (files.empty()) {
        std::fprintf(stderr, "replay: nothing to replay\n");
        return 2;
    }
    for (const auto& file : files) {
        // Before the run: where it ends the process, this is the input that did.
        std::printf("%s\n", file.c_str());
        std::fflush(stdout);
        std::ifstream stream(file, std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
        if (!stream) {
            std::fprintf(stderr, "replay: can't read %s\n", file.c_str());
            return 2;
        }
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("%zu inputs\n", files.size());
    return 0;
}
