#pragma once

#include "store/cluster/guardedtransactions.h"
#include "store/cluster/jsonaccess.h"
#include "store/storage/schema.h"
#include "store/storage/sharing.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

namespace store {

// Ids of shared tables, which are promised to a client before its row is committed. The lowest one that is
// free is written into the table Reserved, by a transaction of its own. It is deleted together with the
// commit, or when it is given back.
//
// A device that dies keeps its reservations. Whoever comes across one of another device deletes it a minute
// later, if it is still there. A transaction that goes on for longer than that may lose one; its commit is
// refused then.
class Reservations {
public:
    using Clock = GuardedTransactions::Clock;
    using Result = velta::protocol::EResultCode;
    using Transact = GuardedTransactions::Transact;

    static constexpr std::int64_t highestId = 999; // the daemon's Ids have up to three digits

    // All outlive this object. `transact` sends operations to the member that is followed.
    Reservations(const Schema& schema, std::string device, GuardedTransactions& guarded, Transact transact,
                 GuardedTransactions::Now now);

    // settle() begins with it.
    void reserve(std::size_t table, Clock::time_point until, Sharing::Reserved done);
    void giveBack(std::size_t table, std::int64_t id);
    bool holds(std::size_t table, std::int64_t id) const { return held_.count({table, id}) != 0; }
    // It was deleted by a commit.
    void used(std::size_t table, std::int64_t id) { held_.erase({table, id}); }

    // For a commit that inserts a row with that Id: what it waits for, and what frees the Id.
    Json waitForFreedom(std::size_t table, std::int64_t id) const;
    Json removal(std::size_t table, std::int64_t id) const;

    // A commit was refused, maybe for an Id that a dead device has reserved.
    void meetStrangers(std::size_t table);

    // What was sent to the member never gets an answer.
    void disconnected();
    // `ready`: whether transactions can be sent.
    void settle(bool ready);
    Clock::time_point nextDeadline() const;

private:
    enum class Step { Idle, Looking, Writing };
    struct Request {
        std::size_t table;
        Clock::time_point until;
        Sharing::Reserved done;
    };
    struct Stranger { // a reservation of another device
        Json where;
        Clock::time_point seen;
    };

    void look();
    void onLooked(const Json& result);
    std::optional<std::int64_t> lowestFree(const Json& result);
    void noteStranger(const std::string& uuid, const std::string& device);
    void write(std::int64_t id);
    void finish(const Result& result, std::int64_t id);
    Json selectReserved(std::size_t table) const;
    Json whereIs(std::size_t table, std::int64_t id) const;
    const std::string& nameOf(std::size_t table) const { return schema_.tables()[table].name; }

    const Schema& schema_;
    const std::string device_;
    GuardedTransactions& guarded_;
    const Transact transact_;
    const GuardedTransactions::Now now_;
    std::deque<Request> requests_; // the first is being worked on
    Step step_ = Step::Idle;       // of the first
    std::uint64_t attempt_ = 0;    // answers to earlier ones are not heeded
    std::set<std::pair<std::size_t, std::int64_t>> held_;
    std::map<std::string, Stranger> strangers_; // by uuid
};

} // namespace store
