#pragma once

#include "velta/protocol/message.h"

#include <deque>
#include <string>
#include <string_view>

namespace store {

// Bytes that wait to be sent to a client. They are kept in pieces, so that the memory of sent bytes is freed
// even while much more waits behind them.
class Output {
public:
    bool empty() const { return size_ == 0; }
    // In bytes.
    std::size_t size() const { return size_; }

    // Appends the whole reply. If memory runs out it appends nothing and throws std::bad_alloc.
    void append(const velta::protocol::Reply& reply);
    // The bytes to send next; none if nothing waits.
    std::string_view front() const;
    // Drops that many bytes, which were sent, from the front.
    void drop(std::size_t bytes);

private:
    std::deque<std::string> pieces_; // none is empty
    std::size_t sent_ = 0;           // bytes of the first piece
    std::size_t size_ = 0;
};

} // namespace store
