#pragma once

#include "cfg/configclient.h"
#include "cfg/connection.h"
#include "cfg/iconfighandler.h"
#include "log.h"
#include "velta/net/eventdispatcher.h"

#include <chrono>
#include <list>
#include <optional>
#include <string>
#include <vector>

namespace orv::cfg {

// Follows the configuration store and tells the registered handlers what changed.
//
// A delivery calls configChanged() for each changed table on each handler that follows it, and when these are
// through, process() once on each handler that was told. Connecting, and every connecting again, is a
// delivery of the empty table name to all handlers.
//
// A configChanged() or process() in which an operation of the store failed is called again in later
// deliveries until it goes through. A handler whose reading failed acts only when it went through: what it
// has in mind is not what the store holds. For the same reason no transaction starts on a connection that
// came back until the handlers have read everything again, unless its caller goes on trying for a second:
// then it stands in a loop of its own, and the delivery that it waits for would never come.
class NotificationHandler {
public:
    // Does not connect yet. The dispatcher outlives this object.
    // reconnect: a lost connection is brought back. answerTimeout: seconds to wait for an answer.
    // No start of a transaction brings a connection back for so long after one did not come.
    // transactionWait: milliseconds that a start of a transaction waits its turn. mergeChanges: several
    // changes of a table before a delivery make one configChanged(). leaveOutOwn: the client's own commits
    // are not notified.
    NotificationHandler(const std::string& socketPath, velta::net::EventDispatcher& dispatcher,
                        const std::string& clientName, bool reconnect, unsigned answerTimeout,
                        unsigned transactionWait, bool mergeChanges, bool leaveOutOwn);
    ~NotificationHandler();
    NotificationHandler(const NotificationHandler&) = delete;
    NotificationHandler& operator=(const NotificationHandler&) = delete;

    // Not owned: the handler stays alive while process() is called. To be called before initialize().
    void registerConfigHandler(IConfigHandler* handler);
    // One attempt to connect, to subscribe to the handlers' tables, and to let the handlers read everything.
    // A store that is not there is not logged, and one that is of no use once: the caller tries again until
    // initialized().
    void initialize();
    bool initialized() const { return initialized_; }
    bool connected() const { return connection_.isOpen(); }
    // Delivers what the dispatcher has received, and connects again where the connection was lost, every 100
    // ms at most.
    void process();

    // Holds as long as this object.
    ConfigClient& getConfigClient() { return client_; }

private:
    using Clock = std::chrono::steady_clock;
    using EResultCode = velta::protocol::EResultCode;

    struct Follower {
        IConfigHandler* handler;
        std::list<std::string> tables;
        bool readingFailed = false;
        bool actionDue = false;
    };

    // configChanged() of a follower that is due. Followers count from 0 in the order of registration.
    struct Reading {
        std::size_t follower;
        std::string table;
        unsigned failures = 0;
        unsigned rest = 0; // deliveries to let pass before the next try
    };

    EResultCode connect();
    EResultCode connectAgain();
    EResultCode beforeTransaction();
    bool isMute() const;
    bool areRowsOutdated() const;
    EResultCode subscribe();
    void collectNotices();
    void addReading(std::size_t follower, const std::string& table);
    Reading* findReading(std::size_t follower, const std::string& table);
    void deliver();
    void read(Reading& reading);
    void tryLater(const Reading& reading);
    void act(Follower& follower);

    velta::net::EventDispatcher& dispatcher_;
    horad::Log log_;
    Connection connection_;
    ConfigClient client_;
    std::chrono::seconds answerTimeout_;
    bool reconnect_;
    bool mergeChanges_;
    bool leaveOutOwn_;
    bool initialized_ = false;
    std::vector<Follower> followers_;
    std::vector<Reading> readings_;                     // due with the next delivery, in order
    std::optional<Clock::time_point> lastAttempt_;      // of connecting again
    std::optional<Clock::time_point> timedOutAt_;       // until one succeeds
    std::optional<Clock::time_point> connectedAgainAt_; // when the last one succeeded
};

} // namespace orv::cfg
