#include "store/server/output.h"

#include "orv/error.h"

namespace store {

namespace {

constexpr std::size_t pieceSize = 16 * 1024; // bytes from which on a new piece begins

} // namespace

void Output::append(const velta::protocol::Reply& reply) {
    if (pieces_.empty() || pieces_.back().size() >= pieceSize)
        pieces_.emplace_back();
    std::string& piece = pieces_.back();
    const std::size_t before = piece.size();
    try {
        velta::protocol::encode(reply, piece);
    } catch (...) {
        piece.resize(before); // half a message would spoil all that follow
        if (piece.empty())
            pieces_.pop_back();
        throw;
    }
    size_ += piece.size() - before;
}

std::string_view Output::front() const {
    return pieces_.empty() ? std::string_view() : std::string_view(pieces_.front()).substr(sent_);
}

void Output::drop(std::size_t bytes) {
    ORV_ASSERT(!pieces_.empty() && bytes <= front().size());
    sent_ += bytes;
    size_ -= bytes;
    if (sent_ < pieces_.front().size())
        return;
    pieces_.pop_front();
    sent_ = 0;
}

} // namespace store
