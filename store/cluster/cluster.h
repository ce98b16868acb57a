#pragma once

#include "store/cluster/clusternews.h"
#include "store/cluster/follower.h"
#include "store/cluster/guardedtransactions.h"
#include "store/cluster/reservations.h"
#include "store/cluster/sharedoperations.h"
#include "store/storage/database.h"
#include "store/storage/sharedrows.h"
#include "store/storage/sharing.h"
#include "velta/net/eventdispatcher.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace store {

// Shares tables with other devices through a cluster of OVSDB servers.
//
// What the members hold is applied here, each of their transactions in a commit of its own. A change that is
// made here goes to the cluster first; it is kept once the cluster holds it and it was applied here as well.
class Cluster : public Sharing {
public:
    struct Times {
        Clock::duration commit = std::chrono::seconds(5);
        // What the cluster has accepted waits here for the end of an open transaction.
        Clock::duration applying = std::chrono::seconds(15);
        Clock::duration seeding = std::chrono::seconds(10);
        Clock::duration applyAgain = std::chrono::seconds(1); // after the storage has failed
        Follower::Pace pace;
    };

    // Dispatcher and database outlive it. Throws StorageError if the database can't remember the cluster.
    Cluster(velta::net::EventDispatcher& dispatcher, Database& database, std::vector<Remote> remotes,
            Times times);

    Result commit(SharedChange change, Committed done) override;
    Result reserve(std::size_t table, Reserved done) override;
    void giveBack(std::size_t table, std::uint32_t id) override;
    bool hasUpdates() const override;
    velta::NameList apply() override;
    void settle(Clock::time_point now) override;
    Clock::time_point nextDeadline() const override;

    // Whether the database has ever taken over what a cluster holds.
    bool hasFollowed() const { return !memory_.position.cluster.empty(); }
    bool isReady() const { return follower_.isReady(); }
    // Takes this device out of the cluster: its reservations and its row among Devices go. With isReady().
    // The database still remembers the cluster then.
    void leave(Committed done);

private:
    // A commit that the cluster has accepted; its rows have to be applied here.
    struct Accepted {
        std::int64_t token;
        Clock::time_point until;
        Committed done;
    };
    struct Batch {
        SharedUpdates updates;
        UnheldRows unheld;                // those of which a column refuses a cell
        std::optional<std::int64_t> done; // Devices.Done as it is with these rows
        bool isFirst = false;             // of a connection
        std::size_t weight = 0;           // bytes of memory, about
    };

    std::string onNews(Follower::News news);
    std::string onFirstNews(Follower::News& news, const ClusterNews& read);
    std::string onSeeded(const ClusterNews::Seed& seed);
    void onReady(bool ready);
    std::string seed();
    void noteDevice(const ClusterNews& read);
    std::string addBatch(const Follower::News& news, ClusterNews&& read);
    bool applyFirst(velta::NameList& changed);
    bool mayUseStorage() const;
    void recall();
    void onStorageFailed(const Result& result);
    void becomePartial();
    void noteUnheld(const Batch& batch, const std::vector<SharedRows::Refusal>& refused);
    void nameUnheld(SharedChange& change) const;
    void readAll(const std::string& reason);
    void noteConflict(const Result& result);
    void noteSeed(const Json& result, const Json& error);
    void forgetBatches();
    void tellRefused(const std::vector<std::string>& lines);
    void onCommitted(const GuardedTransactions::Report& report, const SharedOperations& operations,
                     const SharedChange& change, const Committed& done);
    void meetStrangers(const SharedChange& change);
    void finishAccepted(std::int64_t applied);
    void expireAccepted(Clock::time_point now);
    void addReservations(const SharedChange& change, SharedOperations& operations) const;
    GuardedTransactions::Transact transact();
    Clock::time_point now() const { return times_.pace.now(); }

    Database& database_;
    const Times times_;
    SharedRows::Memory memory_;
    std::uint64_t timesOpened_; // of the database, when the memory was read
    GuardedTransactions guarded_;
    Follower follower_;
    Reservations reservations_;

    std::deque<Batch> batches_; // told by the member and not yet applied
    std::size_t batched_ = 0;   // the weights of these
    std::optional<Clock::time_point> applyAgainAt_;
    bool isStorageFailing_ = false; // and the log said so
    // The identity of the cluster, once it is known to hold rows. None: it has to be filled first.
    std::string cluster_;
    bool adopts_ = false;     // the first rows in it are this device's own
    bool isBackedUp_ = false; // as it was before the cluster
    std::optional<Clock::time_point> seedingUntil_;
    bool isPartial_ = false;                     // rows were refused since everything was read
    std::set<std::string> refused_;              // what was logged of them; a bounded number
    UnheldRows unheld_;                          // a bounded number
    unsigned conflicts_ = 0;                     // since the last update that was applied
    bool wantsAll_ = false;                      // everything is to be read again
    std::optional<Clock::time_point> readAllAt_; // when conflicts made it so last
    std::string seedRefusal_;
    std::int64_t token_ = 0; // as the member told last
    std::int64_t done_ = 0;
    std::deque<Accepted> accepted_;
    std::int64_t appliedDone_ = 0;
    std::optional<std::int64_t> late_; // the last of those whose client was told "outcome unknown"
};

} // namespace store
