#include "store/server/transactionqueue.h"

#include "orv/error.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace store {

static_assert(TransactionQueue::Limits().silent < TransactionQueue::Limits().held,
              "a silent owner does not use up the time of one that works");
static_assert(TransactionQueue::Limits().reserved < TransactionQueue::Limits().kept,
              "a place outlasts the time for which the transaction is reserved for it");
static_assert(TransactionQueue::Limits().reserved > std::chrono::seconds(2),
              "a client that asks in every turn of horad's loop finds its reservation");

void TransactionQueue::join(ClientId client, Clock::time_point now) {
    known_[client] = {now, now, 0, false};
}

void TransactionQueue::forget(ClientId client, Clock::time_point now) {
    if (owner_ == client)
        release(now);
    withdraw(client);
    known_.erase(client);
}

void TransactionQueue::ask(ClientId client, std::uint32_t sequence, Clock::time_point until,
                           Clock::time_point now) {
    dropEndedPlaces(now);
    if (places_.empty())
        waitedForSince_ = now;
    const auto kept = placeOf(client);
    if (kept == places_.end()) {
        places_.push_back({{client, sequence}, until, true, std::nullopt});
        return;
    }
    kept->turn.sequence = sequence;
    kept->until = until;
    kept->here = true;
}

void TransactionQueue::withdraw(ClientId client) {
    if (const auto place = placeOf(client); place != places_.end())
        places_.erase(place);
}

std::optional<TransactionQueue::Turn> TransactionQueue::admit(Clock::time_point now) {
    dropEndedPlaces(now);
    if (owner_ || places_.empty())
        return std::nullopt;
    const auto place = next();
    if (!place->here) {
        if (!place->reservedUntil)
            place->reservedUntil = now + limits_.reserved;
        return std::nullopt;
    }
    const Turn turn = place->turn;
    own(place, now);
    return turn;
}

bool TransactionQueue::admitIfNext(ClientId client, Clock::time_point now) {
    dropEndedPlaces(now);
    if (owner_ || places_.empty())
        return false;
    const auto place = next();
    if (!place->here || place->turn.client != client)
        return false;
    own(place, now);
    return true;
}

void TransactionQueue::own(Places::iterator place, Clock::time_point now) {
    ORV_ASSERT(!owner_ && known_.count(place->turn.client) != 0);
    owner_ = place->turn.client;
    heldSince_ = heardAt_ = now;
    places_.erase(place);
}

std::optional<TransactionQueue::Turn> TransactionQueue::takeTimedOut(Clock::time_point now) {
    const auto place = std::find_if(places_.begin(), places_.end(), [now](const Place& waiting) {
        return waiting.here && waiting.until <= now;
    });
    if (place == places_.end())
        return std::nullopt;
    place->here = false;
    place->until = now + limits_.kept;
    return place->turn;
}

void TransactionQueue::updatesWait(bool wait, Clock::time_point now) {
    if (!wait)
        updatesWaitSince_.reset();
    else if (!updatesWaitSince_)
        updatesWaitSince_ = now;
}

void TransactionQueue::release(Clock::time_point now) {
    ORV_ASSERT(owner_);
    countHold(now);
    owner_.reset();
}

std::optional<ClientId> TransactionQueue::takeExpired(Clock::time_point now) {
    dropEndedPlaces(now);
    if (!owner_ || now < expiry())
        return std::nullopt;
    const std::optional<ClientId> client = owner_;
    known_[*client].expired = true;
    release(now);
    return client;
}

bool TransactionQueue::takeExpiry(ClientId client) {
    const auto known = known_.find(client);
    return known != known_.end() && std::exchange(known->second.expired, false);
}

Clock::time_point TransactionQueue::nextDeadline() const {
    Clock::time_point deadline = owner_ ? expiry() : Clock::time_point::max();
    for (const Place& place : places_)
        deadline = std::min(deadline, endOf(place));
    return deadline;
}

// When its wait ends or, if it has ended, when the place does.
Clock::time_point TransactionQueue::endOf(const Place& place) {
    return place.here ? place.until : std::min(place.until, place.reservedUntil.value_or(place.until));
}

TransactionQueue::Places::iterator TransactionQueue::placeOf(ClientId client) {
    return std::find_if(places_.begin(), places_.end(),
                        [client](const Place& place) { return place.turn.client == client; });
}

TransactionQueue::Places::iterator TransactionQueue::next() {
    return std::min_element(places_.begin(), places_.end(),
                            [this](const Place& a, const Place& b) { return ranksBefore(a, b); });
}

// Of two places with equal rank, min_element() picks the one that came first.
bool TransactionQueue::ranksBefore(const Place& a, const Place& b) const {
    const Known& first = known_.at(a.turn.client);
    const Known& second = known_.at(b.turn.client);
    return std::tie(first.ranksFrom, first.heldLast) < std::tie(second.ranksFrom, second.heldLast);
}

// A reserved turn that the client did not use counts as a turn.
void TransactionQueue::drop(Places::iterator place) {
    if (place->reservedUntil) {
        Known& known = known_.at(place->turn.client);
        known.ranksFrom = known.heldLast = endOf(*place);
        known.shortHolds = 0;
    }
    places_.erase(place);
}

void TransactionQueue::dropEndedPlaces(Clock::time_point now) {
    for (auto place = places_.begin(); place != places_.end();) {
        const auto following = std::next(place);
        if (!place->here && endOf(*place) <= now)
            drop(place);
        place = following;
    }
}

void TransactionQueue::countHold(Clock::time_point now) {
    const auto found = known_.find(*owner_);
    if (found == known_.end())
        return;
    Known& known = found->second;
    known.heldLast = now;
    if (now - heldSince_ < limits_.shortHold && ++known.shortHolds < limits_.shortHolds)
        return;
    known.ranksFrom = now;
    known.shortHolds = 0;
}

Clock::time_point TransactionQueue::expiry() const {
    Clock::time_point heldUntil = heldSince_ + limits_.held;
    if (updatesWaitSince_)
        heldUntil = std::min(heldUntil, std::max(heldSince_, *updatesWaitSince_) + limits_.updates);
    if (places_.empty())
        return heldUntil;
    return std::min(heldUntil, std::max(heardAt_, waitedForSince_) + limits_.silent);
}

} // namespace store
