#pragma once

#include "cfg/iconfigclient.h"
#include "cfg/iconfighandler.h"
#include "cfg/pace.h"
#include "cfg/watchedclient.h"
#include "log.h"
#include "velta/namelist.h"

#include <cstddef>
#include <functional>
#include <list>
#include <string>
#include <vector>

namespace orv::cfg {

// Who follows which tables, and which handlers are due to be told of a change. It knows no socket and no
// clock. The owner of the connection says what changed, and calls deliver() in each iteration of the loop.
//
// A delivery calls configChanged() for each changed table on each handler that follows it, and when these are
// through, process() once on each handler that was told.
//
// A configChanged() or process() in which an operation of the store failed is called again in later
// deliveries until it goes through. After a reading of everything, only the tables that failed are read
// again. A handler whose reading failed does not act until the reading goes through: its cached state may be
// stale.
//
// A pass of the loop is no such call. If a commit in it failed, the tables that the transaction wrote are due
// for reading again, so that memory and store agree and the next pass acts again.
class Deliveries {
public:
    // The store is not owned and outlives this object. mergeChanges: several changes of a table before a
    // delivery make one configChanged(). logModule: whose module the lines are logged in.
    explicit Deliveries(common::IConfigClient& store, bool mergeChanges = true,
                        const std::string& logModule = "deliveries");
    ~Deliveries() = default;
    Deliveries(const Deliveries&) = delete;
    Deliveries& operator=(const Deliveries&) = delete;

    // Not owned: the handler stays alive while deliver() is called.
    void add(IConfigHandler* handler);
    // Asks each handler for its tables. Returns each name once: what to subscribe to.
    velta::NameList tables();
    // The connection was made, or made again: each handler is due a reading of everything, which includes
    // what was due before.
    void everythingChanged();
    // A notice that the table changed.
    void changed(const std::string& table);
    // Calls configChanged() and process() as they are due. What becomes due during the call waits for the
    // next one.
    void deliver();
    // Runs a pass with client(). Only the commits within it are watched: a write that was refused counts as
    // done, and so does a commit outside of any pass.
    void pass(const std::function<void(common::IConfigClient&)>& run);
    // Whether a part of a reading of everything has not gone through yet: the handlers' cached state may be
    // from before the connection was lost. A table or row that is not there is not waited for.
    bool readingOfEverythingIsDue() const;

    // Whether the loop may wake for a notice; see Pace. Otherwise it ends its wait only with the time, and
    // looks for notices then.
    bool mayWake() const { return pace_.mayWake(); }

    // The store as handlers and passes see it.
    common::IConfigClient& client() { return client_; }

private:
    struct Follower {
        IConfigHandler* handler;
        std::list<std::string> tables;
        bool readingFailed = false;
        bool actionDue = false;
    };

    // configChanged() of a follower that is due. Followers count from 0 in the order in which they were
    // added.
    struct Reading {
        std::size_t follower;
        std::string table;
        unsigned failures = 0;
        unsigned rest = 0;      // deliveries to let pass before the next try
        bool isAwaited = false; // of a reading of everything, see readingOfEverythingIsDue()
    };

    bool follows(std::size_t follower, const std::string& table) const;
    void makeDue(const std::string& table);
    void addReading(std::size_t follower, const std::string& table);
    Reading* findReading(std::size_t follower, const std::string& table);
    void read(Reading& reading);
    void readAgain(Reading reading, const FailureProbe& probe);
    void tryLater(const Reading& reading);
    void act(Follower& follower);

    horad::Log log_;
    WatchedClient client_;
    bool mergeChanges_;
    std::vector<Follower> followers_;
    std::vector<Reading> readings_; // due with the next delivery, in order
    Pace pace_;
    bool noticed_ = false; // since the last delivery
};

} // namespace orv::cfg
