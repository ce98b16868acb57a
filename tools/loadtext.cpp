#include "tools/loadtext.h"

#include "tools/errors.h"

#include <algorithm>
#include <string>

namespace tools {

namespace {

// No value that a store takes is near this, however it is written.
constexpr std::size_t valueLimit = std::size_t{2} * 1024 * 1024; // bytes

} // namespace

LoadText::int_type LoadText::underflow() {
    const std::size_t size = read_(bytes_.data(), bytes_.size());
    if (size == 0)
        return traits_type::eof();
    refuseNul(size);
    countLines(size);
    bytesOfValue_ += size;
    if (bytesOfValue_ > valueLimit)
        throw Refused("line " + std::to_string(line_) + ": a value of more than " +
                      std::to_string(valueLimit) + " bytes");
    setg(bytes_.data(), bytes_.data(), bytes_.data() + size);
    return traits_type::to_int_type(bytes_[0]);
}

void LoadText::refuseNul(std::size_t size) {
    const char* const begin = bytes_.data();
    const char* const end = begin + size;
    const char* const nul = std::find(begin, end, '\0');
    if (nul == end)
        return;
    countLines(static_cast<std::size_t>(nul - begin));
    throw Refused("line " + std::to_string(line_) + ", column " + std::to_string(column_ + 1) +
                  ": a NUL byte");
}

void LoadText::countLines(std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) {
        const bool newLine = bytes_[i] == '\n';
        line_ += newLine ? 1 : 0;
        column_ = newLine ? 0 : column_ + 1;
    }
}

} // namespace tools
