#include "store/server/transactionqueue.h"

#include <algorithm>

namespace store {

std::optional<ClientId> TransactionQueue::admit(Clock::time_point now) {
    if (owner_ || waiting_.empty())
        return std::nullopt;
    owner_ = waiting_.front().client;
    waiting_.pop_front();
    heldUntil_ = now + heldAtMost_;
    return owner_;
}

std::optional<ClientId> TransactionQueue::takeTimedOut(Clock::time_point now) {
    const auto found = std::find_if(waiting_.begin(), waiting_.end(),
                                    [now](const Waiting& waiting) { return waiting.until <= now; });
    if (found == waiting_.end())
        return std::nullopt;
    const ClientId client = found->client;
    waiting_.erase(found);
    return client;
}

std::optional<ClientId> TransactionQueue::takeExpired(Clock::time_point now) {
    if (!owner_ || now < heldUntil_)
        return std::nullopt;
    const std::optional<ClientId> client = owner_;
    owner_.reset();
    return client;
}

void TransactionQueue::leave(ClientId client) {
    if (owner_ == client)
        owner_.reset();
    waiting_.erase(std::remove_if(waiting_.begin(), waiting_.end(),
                                  [client](const Waiting& waiting) { return waiting.client == client; }),
                   waiting_.end());
}

Clock::time_point TransactionQueue::nextDeadline() const {
    Clock::time_point next = owner_ ? heldUntil_ : Clock::time_point::max();
    for (const Waiting& waiting : waiting_)
        next = std::min(next, waiting.until);
    return next;
}

} // namespace store
