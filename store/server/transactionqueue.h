#pragma once

#include <chrono>
#include <cstdint>
#include <list>
#include <map>
#include <optional>

namespace store {

using ClientId = std::uint64_t;
constexpr ClientId nobody = 0;
using Clock = std::chrono::steady_clock;

// Decides which client gets the one transaction next: the waiting client that held it least recently. A
// client whose wait timed out keeps its place for a while, and the free transaction is reserved for it for a
// moment, once for each place. So a client that asks with short time-outs gets its turn beside others that
// ask all the time.
//
// It has no clock: callers pass the time.
class TransactionQueue {
public:
    struct Limits {
        Clock::duration held = std::chrono::seconds(60);
        // How long the owner may send nothing while others wait.
        Clock::duration silent = std::chrono::seconds(10);
        // How long a place is kept after its wait timed out.
        Clock::duration kept = std::chrono::seconds(5);
        // How long the free transaction is reserved for a client that keeps its place but does not wait now.
        Clock::duration reserved = std::chrono::milliseconds(2500);
        // How long the owner may hold it while updates wait that can't be applied meanwhile.
        Clock::duration updates = std::chrono::seconds(10);
        // A client that holds the transaction for less than shortHold keeps its rank, fewer than shortHolds
        // times in a row.
        Clock::duration shortHold = std::chrono::milliseconds(100);
        unsigned shortHolds = 4;
    };
    // A client that waits for the answer to its Begin.
    struct Turn {
        ClientId client;
        std::uint32_t sequence; // of the Begin
    };

    explicit TransactionQueue(const Limits& limits) : limits_(limits) {}

    // A client connected, or is gone. A new client ranks behind all that wait already.
    void join(ClientId client, Clock::time_point now);
    void forget(ClientId client, Clock::time_point now);

    bool isFree() const { return !owner_; }
    // Whether updates wait for the end of the transaction.
    void updatesWait(bool wait, Clock::time_point now);
    bool owns(ClientId client) const { return owner_ == client; }
    // The client waits until `until`, at the place that it kept if it has one.
    void ask(ClientId client, std::uint32_t sequence, Clock::time_point until, Clock::time_point now);
    // The client stops waiting and gives up its place.
    void withdraw(ClientId client);
    // If there is no owner and the next client is waiting, it becomes the owner.
    std::optional<Turn> admit(Clock::time_point now);
    // The same, but only if the next client is this one.
    bool admitIfNext(ClientId client, Clock::time_point now);
    // A client whose wait timed out, if there is one. It keeps its place for a while.
    std::optional<Turn> takeTimedOut(Clock::time_point now);

    // The owner sent a request.
    void heard(Clock::time_point now) { heardAt_ = now; }
    // The transaction is over.
    void release(Clock::time_point now);
    // Returns the owner if it held the transaction for too long, or was silent for too long while others
    // wait, or if updates had to wait for too long. It no longer is the owner then.
    std::optional<ClientId> takeExpired(Clock::time_point now);
    // True once after the client's transaction expired: the client is to be told.
    bool takeExpiry(ClientId client);

    // No later than this, takeTimedOut(), takeExpired() or admit() has something to do.
    Clock::time_point nextDeadline() const;

private:
    struct Known {
        Clock::time_point ranksFrom; // when it last held the transaction, short holds left out
        Clock::time_point heldLast;
        unsigned shortHolds = 0; // since ranksFrom
        bool expired = false;    // and the client was not told yet
    };
    struct Place {
        Turn turn;
        Clock::time_point until; // when its wait ends, or then its place
        bool here = true;        // whether it waits; false: its wait timed out
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
    Clock::time_point waitedForSince_; // of use only while there are places
    std::optional<ClientId> owner_;
    Clock::time_point heldSince_;
    Clock::time_point heardAt_;
    std::optional<Clock::time_point> updatesWaitSince_;
};

} // namespace store
