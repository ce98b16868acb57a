// Stands in for the fuzzer: runs each file of a directory once, or the one file that is named.
#include "fuzz/input.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> filesAt(const fs::path& place) {
    if (fs::is_regular_file(place))
        return {place};
    std::vector<fs::path> files;
    if (fs::is_directory(place))
        for (const fs::directory_entry& entry : fs::directory_iterator(place))
            if (entry.is_regular_file())
                files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

std::string contentOf(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

} // namespace

int main(int argumentCount, char** arguments) {
    const std::vector<fs::path> files = argumentCount == 2 ? filesAt(arguments[1]) : std::vector<fs::path>();
    if (files.empty()) {
        std::cerr << "no inputs: one directory with some is expected\n";
        return 1;
    }
    for (const fs::path& path : files) {
        std::cout << path.filename().string() << std::endl; // at once: the last name is that of a crash
        const std::string content = contentOf(path);
        const std::vector<std::uint8_t> input(content.begin(), content.end()); // its end is guarded
        (void)LLVMFuzzerTestOneInput(input.data(), input.size());
    }
    std::cout << files.size() << " inputs\n";
    return 0;
}
