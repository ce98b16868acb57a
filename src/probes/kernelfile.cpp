#include "probes/kernelfile.h"

#include <algorithm>
#include <limits>

namespace orv {

bool KernelFile::readLine(std::string& line, std::size_t longest) {
    char text[longestLine + 1] = "";
    const auto size = static_cast<std::streamsize>(std::min(longest, longestLine) + 1);
    stream_.getline(text, size);
    line = text;
    const bool cut = stream_.fail() && !stream_.eof() && stream_.gcount() == size - 1;
    if (!cut)
        return !stream_.fail();
    stream_.clear();
    stream_.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    return true;
}

} // namespace orv
