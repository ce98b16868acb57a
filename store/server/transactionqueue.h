#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>

namespace store {

using ClientId = std::uint64_t;
using Clock = std::chrono::steady_clock;

// Whose turn the one transaction is: the first to ask comes first. It knows times only as they are given.
class TransactionQueue {
public:
    explicit TransactionQueue(Clock::duration heldAtMost) : heldAtMost_(heldAtMost) {}

    std::optional<ClientId> owner() const { return owner_; }
    bool owns(ClientId client) const { return owner_ == client; }
    // Whether one who asks now becomes the owner at once.
    bool isFree() const { return !owner_ && waiting_.empty(); }

    // Stands at the end of the queue, up to that moment. A client stands in it once.
    void wait(ClientId client, Clock::time_point until) { waiting_.push_back({client, until}); }
    // The next in the queue becomes the owner if there is none.
    std::optional<ClientId> admit(Clock::time_point now);
    // Somebody whose time in the queue is up; it is out of the queue.
    std::optional<ClientId> takeTimedOut(Clock::time_point now);
    // The owner, if it held the transaction for too long; it is not the owner any more.
    std::optional<ClientId> takeExpired(Clock::time_point now);
    // The transaction is over, or the client is gone.
    void leave(ClientId client);

    // When one of the two take...() has something next, at most.
    Clock::time_point nextDeadline() const;

private:
    struct Waiting {
        ClientId client;
        Clock::time_point until;
    };

    Clock::duration heldAtMost_;
    std::optional<ClientId> owner_;
    Clock::time_point heldUntil_;
    std::deque<Waiting> waiting_;
};

} // namespace store
