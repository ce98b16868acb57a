#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <streambuf>

namespace tools {

// A text on its way into the parser, which takes a NUL byte for the end and keeps a value of any length: both
// are refused here.
class LoadText : public std::streambuf {
public:
    // The next bytes, 0 at the end.
    using Read = std::function<std::size_t(char* bytes, std::size_t size)>;

    explicit LoadText(Read read) : read_(std::move(read)) {}

    // The parser has taken a value: what comes is another one.
    void valueTaken() { bytesOfValue_ = 0; }

protected:
    // Throws Refused with the place.
    int_type underflow() override;

private:
    void refuseNul(std::size_t size);
    void countLines(std::size_t size);

    Read read_;
    std::array<char, 64 * 1024> bytes_;
    std::size_t bytesOfValue_ = 0;
    std::uint64_t line_ = 1;
    std::uint64_t column_ = 0; // bytes of the line before these
};

} // namespace tools
