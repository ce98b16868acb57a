#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// A message travels in a frame: its length in bytes as a number of 32 bits, then the message.
namespace velta::protocol {

inline constexpr std::size_t frameLimit = std::size_t{1024} * 1024; // bytes of one message
inline constexpr std::size_t frameHeader = 4;                       // bytes of its length

// Opens a frame at the end of `bytes`; endFrame() with the position that this returns closes it.
std::size_t beginFrame(std::string& bytes);
// Writes the length of all that was appended since. The caller sees to it that it stays within the limit.
void endFrame(std::string& bytes, std::size_t begin);

// Cuts a stream of bytes into messages. It holds at most one frame, and what arrived after it with the same
// read.
class FrameReader {
public:
    enum class Next {
        Message, // a message was taken out
        More,    // the next message is not all here yet
        Broken,  // a length of 0 or over the limit; the stream is of no use any more
    };

    void append(const char* bytes, std::size_t size) { buffer_.append(bytes, size); }
    // The message holds until the next call of append() or next().
    [[nodiscard]] Next next(std::string_view& message);
    // Bytes that were not given out as a message yet.
    std::size_t pending() const { return buffer_.size() - used_; }

private:
    Next more();

    std::string buffer_;
    std::size_t used_ = 0; // bytes at the front that were given out
};

} // namespace velta::protocol
