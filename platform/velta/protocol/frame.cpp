#include "velta/protocol/frame.h"

#include "velta/protocol/wire.h"

namespace velta::protocol {

namespace {

constexpr std::size_t idleCapacity = 64 * 1024; // bytes that an empty buffer may hold on to

} // namespace

std::size_t beginFrame(std::string& bytes) {
    const std::size_t begin = bytes.size();
    bytes.append(frameHeader, '\0');
    return begin;
}

void endFrame(std::string& bytes, std::size_t begin) {
    const std::size_t size = bytes.size() - begin - frameHeader;
    std::string header;
    Writer(header).number32(static_cast<std::uint32_t>(size));
    bytes.replace(begin, frameHeader, header);
}

FrameReader::Next FrameReader::next(std::string_view& message) {
    if (pending() < frameHeader)
        return more();
    const std::string_view frame = std::string_view(buffer_).substr(used_);
    const std::size_t size = Reader(frame).number32();
    if (size == 0 || size > frameLimit)
        return Next::Broken;
    if (frame.size() < frameHeader + size)
        return more();
    message = frame.substr(frameHeader, size);
    used_ += frameHeader + size;
    return Next::Message;
}

// Messages that were given out are dropped only here, once a read: moving the remaining bytes after each
// message would take quadratic time for many small messages.
FrameReader::Next FrameReader::more() {
    buffer_.erase(0, used_);
    used_ = 0;
    if (buffer_.empty() && buffer_.capacity() > idleCapacity)
        std::string().swap(buffer_); // assigning an empty text would keep the memory
    return Next::More;
}

} // namespace velta::protocol
