#pragma once

#include <cstddef>
#include <fstream>
#include <string>

namespace orv {

// A text file of the kernel, read line by line from its front.
class KernelFile {
public:
    static constexpr std::size_t longestLine = 255; // bytes

    explicit KernelFile(const std::string& path) : stream_(path) {}

    // False where the file is absent or may not be read.
    bool isOpen() const { return stream_.is_open(); }
    // The next line, without its end. What follows its first `longest` bytes, or a zero byte, is skipped.
    // False at the end of the file.
    bool readLine(std::string& line, std::size_t longest = longestLine);

private:
    std::ifstream stream_;
};

} // namespace orv
