#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace tools {

// Bytes of standard input that are kept: more than a store with several full tables makes a dump of.
inline constexpr std::uint64_t spoolLimit = 4ULL * 1024 * 1024 * 1024;

// The bytes of a file for `load`, which is read more than once. What can't be read twice, a pipe, is kept in
// a file without a name while it is read for the first time.
class LoadSource {
public:
    // "-" is standard input. Throws Refused for what can't be opened.
    explicit LoadSource(const std::string& path, std::uint64_t limit = spoolLimit);
    ~LoadSource();
    LoadSource(const LoadSource&) = delete;
    LoadSource& operator=(const LoadSource&) = delete;

    // The next bytes, 0 at the end. Throws Refused for what can't be read, or is over the limit of what is
    // kept.
    std::size_t read(char* bytes, std::size_t size);
    // From the beginning; all was read.
    void rewind();

private:
    void spool(const char* bytes, std::size_t size);

    int file_ = -1;
    int spool_ = -1; // where it is kept
    bool kept_ = false;
    std::uint64_t begin_ = 0; // of a file that can be read twice
    std::uint64_t limit_;
    std::uint64_t spooled_ = 0;
};

} // namespace tools
