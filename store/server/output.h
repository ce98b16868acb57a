#pragma once

#include "velta/protocol/message.h"

#include <deque>
#include <string>
#include <string_view>

namespace store {

// What waits to be sent to a client. It lies in pieces, so what is sent costs no memory any more, however
// much stands behind it.
class Output {
public:
    bool empty() const { return size_ == 0; }
    // In bytes.
    std::size_t size() const { return size_; }

    // All of the reply or, where memory runs out, none of it: throws std::bad_alloc.
    void append(const velta::protocol::Reply& reply);
    // The bytes that go next, none when it is empty.
    std::string_view front() const;
    // So many bytes of the front are sent.
    void drop(std::size_t bytes);

private:
    std::deque<std::string> pieces_; // none is empty
    std::size_t sent_ = 0;           // bytes of the first piece
    std::size_t size_ = 0;
};

} // namespace store
