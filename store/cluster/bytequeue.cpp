#include "store/cluster/bytequeue.h"

#include "orv/error.h"

namespace store {

namespace {

constexpr std::size_t kept = 64 * 1024; // bytes of memory that an empty queue keeps, at most

} // namespace

void ByteQueue::drop(std::size_t bytes) {
    ORV_ASSERT(bytes <= size());
    start_ += bytes;
    if (empty() && bytes_.capacity() > kept) {
        bytes_ = std::string();
        start_ = 0;
    } else if (start_ >= size()) { // so no more bytes are moved than were dropped
        bytes_.erase(0, start_);
        start_ = 0;
    }
}

} // namespace store
