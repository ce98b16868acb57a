#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace store {

// Bytes that come at the end and go at the front, each moved about once however they come and go.
class ByteQueue {
public:
    bool empty() const { return size() == 0; }
    std::size_t size() const { return bytes_.size() - start_; }
    // Valid until the next call that is not const.
    std::string_view view() const { return std::string_view(bytes_).substr(start_); }

    // If memory runs out it appends nothing and throws std::bad_alloc.
    void append(std::string_view bytes) { bytes_.append(bytes); }
    // Drops that many bytes from the front.
    void drop(std::size_t bytes);

private:
    std::string bytes_;
    std::size_t start_ = 0; // what is before it was dropped
};

} // namespace store
