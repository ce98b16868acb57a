#pragma once

#include <chrono>
#include <cstdint>
#include <list>
#include <map>
#include <optional>

namespace store {

using ClientId = std::uint64_t;
using Clock = std::chrono::steady_clock;

// Whose turn the one transaction is. Whoever held it least recently is next, so a client that asks in short
// slices gets in beside others that ask without end: one whose wait ran out keeps its place for a while, and
// the free transaction waits for it a moment, once a turn.
//
// Knows times only as they are given.
class TransactionQueue {
public:
    struct Limits {
        Clock::duration held = std::chrono::seconds(60);
        // For the owner to send nothing while somebody waits.
        Clock::duration silent = std::chrono::seconds(10);
        // For a place to be kept after its wait ran out.
        Clock::duration kept = std::chrono::seconds(5);
        // For the free transaction to wait for one who keeps its place.
        Clock::duration reserved = std::chrono::milliseconds(2500);
        // A shorter hold leaves the client its rank, a few times in a row.
        Clock::duration shortHold = std::chrono::milliseconds(100);
        unsigned shortHolds = 4;
    };
    // A client that waits for the answer to its Begin.
    struct Turn {
        ClientId client;
        std::uint32_t sequence; // of the Begin
    };

    explicit TransactionQueue(const Limits& limits) : limits_(limits) {}

    // A client is here, is gone. A client that comes anew ranks behind all that wait already.
    void join(ClientId client, Clock::time_point now);
    void forget(ClientId client, Clock::time_point now);

    bool owns(ClientId client) const { return owner_ == client; }
    // Waits, up to that moment; from the place that was kept, if one was.
    void ask(ClientId client, std::uint32_t sequence, Clock::time_point until, Clock::time_point now);
    // Waits no more and keeps no place.
    void withdraw(ClientId client);
    // The next becomes the owner, if there is no owner and the next is here.
    std::optional<Turn> admit(Clock::time_point now);
    // The client becomes the owner, if there is no owner and the client is the next.
    bool admitIfNext(ClientId client, Clock::time_point now);
    // Somebody whose wait ran out. It keeps its place for a while.
    std::optional<Turn> takeTimedOut(Clock::time_point now);

    // The owner sent a request.
    void heard(Clock::time_point now) { heardAt_ = now; }
    // The transaction is over.
    void release(Clock::time_point now);
    // The owner, if it held the transaction for too long or was silent for too long while others wait; it is
    // not the owner any more.
    std::optional<ClientId> takeExpired(Clock::time_point now);
    // Whether the client's transaction expired and it was not told yet. Once.
    bool takeExpiry(ClientId client);

    // When one of the take...() or admit() has something next, at most.
    Clock::time_point nextDeadline() const;

private:
    struct Known {
        Clock::time_point ranksFrom; // when it held the transaction last, short holds left out
        Clock::time_point heldLast;
        unsigned shortHolds = 0; // since ranksFrom
        bool expired = false;    // and not told
    };
    struct Place {
        Turn turn;
        Clock::time_point until; // when its wait, or its place, ends
        bool here = true;        // false: its wait ran out
        std::optional<Clock::time_point> reservedUntil;
    };
    using Places = std::list<Place>; // in order of arrival

    static Clock::time_point endOf(const Place& place);
    Places::iterator placeOf(ClientId client);
    Places::iterator next();
    void own(Places::iterator place, Clock::time_point now);
    bool ranksBefore(const Place& a, const Place& b) const;
    void drop(Places::iterator place);
    void dropEndedPlaces(Clock::time_point now);
    void countHold(Clock::time_point now);
    Clock::time_point expiry() const;

    const Limits limits_;
    std::map<ClientId, Known> known_;
    Places places_;
    Clock::time_point waitedForSince_; // while there are places
    std::optional<ClientId> owner_;
    Clock::time_point heldSince_;
    Clock::time_point heardAt_;
};

} // namespace store
