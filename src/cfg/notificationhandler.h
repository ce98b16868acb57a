#pragma once

#include "cfg/configclient.h"
#include "cfg/connection.h"
#include "cfg/deliveries.h"
#include "cfg/iconfighandler.h"
#include "log.h"
#include "velta/net/eventdispatcher.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>

namespace orv::cfg {

// Keeps a connection to the configuration store and lets Deliveries tell the registered handlers what
// changed. Each time it has connected, it delivers the empty table name to all handlers.
//
// After a reconnect no transaction starts until the handlers have read everything again. The exception is a
// caller that has kept trying for a second: it must be in a loop of its own, and would wait for ever for a
// delivery.
class NotificationHandler {
public:
    // Does not connect yet. The dispatcher outlives this object.
    // reconnect: a lost connection is brought back. answerTimeout: seconds to wait for an answer.
    // After a timed-out answer, startTransaction() does not reconnect for answerTimeout.
    // transactionWait: milliseconds that a start of a transaction waits its turn. mergeChanges: several
    // changes of a table before a delivery make one configChanged(). leaveOutOwn: the client's own commits
    // are not notified.
    NotificationHandler(const std::string& socketPath, velta::net::EventDispatcher& dispatcher,
                        const std::string& clientName, bool reconnect, unsigned answerTimeout,
                        unsigned transactionWait, bool mergeChanges, bool leaveOutOwn);
    ~NotificationHandler();
    NotificationHandler(const NotificationHandler&) = delete;
    NotificationHandler& operator=(const NotificationHandler&) = delete;

    // The descriptor, which is not owned, is readable from the request to stop on: from then on the
    // dispatcher waits for nothing, no operation waits for the store and no transaction starts. Only one that
    // is open may still be committed or aborted, within two seconds; the store aborts it otherwise.
    void stopOn(int descriptor);
    // Not owned: the handler stays alive while process() is called. To be called before initialize().
    void registerConfigHandler(IConfigHandler* handler);
    // One attempt to connect, to subscribe to the handlers' tables, and to let the handlers read everything.
    // A missing store is not logged, and a store that can't be used is logged once: the caller tries again
    // until initialized().
    void initialize();
    bool initialized() const { return initialized_; }
    bool connected() const { return connection_.isOpen(); }
    // Delivers what the dispatcher has received, and connects again where the connection was lost, every 100
    // ms at most. The dispatcher does not wake for notices while the client's own commits drive the loop.
    void process();

    // Runs a pass of the loop; see Deliveries.
    void pass(const std::function<void(common::IConfigClient&)>& run) { deliveries_.pass(run); }
    // Valid as long as this object.
    common::IConfigClient& getConfigClient() { return deliveries_.client(); }

private:
    using Clock = std::chrono::steady_clock;
    using EResultCode = velta::protocol::EResultCode;

    EResultCode connect();
    EResultCode connectAgain();
    EResultCode beforeTransaction();
    bool isMute() const;
    bool areRowsOutdated() const;
    EResultCode subscribe();
    void collectNotices();
    void watch(bool watched);

    velta::net::EventDispatcher& dispatcher_;
    horad::Log log_;
    Connection connection_;
    ConfigClient client_;
    Deliveries deliveries_;
    std::chrono::seconds answerTimeout_;
    bool reconnect_;
    bool leaveOutOwn_;
    int stopDescriptor_ = -1;
    bool initialized_ = false;
    bool isWatched_ = false;                            // by the dispatcher
    std::optional<Clock::time_point> lastAttempt_;      // of connecting again
    std::optional<Clock::time_point> timedOutAt_;       // until one succeeds
    std::optional<Clock::time_point> connectedAgainAt_; // when the last one succeeded
};

} // namespace orv::cfg
