#pragma once

#include "store/cluster/clusterschema.h"
#include "store/cluster/jsonaccess.h"
#include "store/cluster/remote.h"
#include "store/cluster/rpcconnection.h"
#include "store/storage/sharing.h"
#include "velta/net/eventdispatcher.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace store {

// Keeps a connection to one of the members, and tells what the shared tables hold there.
//
// A member that can't be reached, holds an older state than is known here, or has lost the others, is
// left for the next one. After all of them were tried there is a pause, which doubles up to half a minute and
// is not the same for all devices: they don't all come back in the same moment. Where a member was followed,
// the pause is no longer than a tenth of that time, and after a minute it is short again. A member that has
// lost the others is not left if it is the only one that is known: it tells when it has found them again.
class Follower {
public:
    using Clock = RpcConnection::Clock;

    // What a member holds, or what has changed there.
    struct News {
        Json tables;           // by table and uuid, as in RFC 7047's <table-updates2>
        bool isFirst = false;  // of this connection; what came before and was not used comes again
        bool complete = false; // all that there is; else what has changed
        std::string transaction;
        std::uint64_t index = 0; // of the cluster's log; 0 where the member does not tell
    };
    // Each returns an empty text, or why this member is not to be followed.
    struct Events {
        // Where to go on from.
        std::function<SharedPosition()> position;
        std::function<std::string(News news)> news;
        // Whether transactions can be sent now. Told when it changes.
        std::function<void(bool ready)> ready;
    };
    struct Pace {
        Clock::duration first = std::chrono::milliseconds(250);
        Clock::duration longest = std::chrono::seconds(30);
        Clock::duration answer = std::chrono::seconds(10); // how long a member may take to tell what it holds
        // From 0 to 1.
        std::function<double()> random;
        std::function<Clock::time_point()> now = [] { return Clock::now(); };
    };

    // `monitored` says what of which table is told, as in RFC 7047's <monitor-requests>. The dispatcher and
    // the schema outlive this object.
    Follower(velta::net::EventDispatcher& dispatcher, std::vector<Remote> remotes, const Schema& schema,
             Json monitored, Events events, Pace pace);

    // Whether transactions can be sent: the member is followed and knows a majority, and what it told at
    // first is in force here.
    bool isReady() const { return told_; }
    // What the member told at first is in force here.
    void caughtUp();
    bool isFollowing() const { return step_ == Step::Following; }
    // With isFollowing(). The answer never comes if the connection is lost.
    void transact(Json operations, RpcConnection::Answer answer);
    // Leaves this member, and follows the next one.
    void leave(const std::string& reason);

    void settle();
    Clock::time_point nextDeadline() const;

private:
    enum class Step { Pausing, Connecting, AskingSchema, AskingServer, AskingTables, Following };

    void tryNext();
    void onOpened();
    void onSchema(const Json& result, const Json& error);
    void onServer(const Json& result, const Json& error);
    void onTables(const Json& result, const Json& error);
    void onNotified(const std::string& method, const Json& params);
    void onServerChanged(const Json& tables);
    void onTablesChanged(const Json& params);
    void takeServerRow(const Json& cells);
    std::string complaintOfServer() const;
    void tell(News news);
    void fail(const std::string& reason);
    void complain(const std::string& reason);
    void sayFollows();
    bool mayLog();
    void shortenPauses(Clock::duration followed);
    Clock::duration pauseNow() const;
    Clock::duration wholePause() const;
    void showReady();
    RpcConnection::Answer then(void (Follower::*handler)(const Json&, const Json&));
    const std::string& remote() const { return remotes_[at_].text; }

    const std::vector<Remote> remotes_;
    const Schema& schema_;
    const Json monitored_;
    const Events events_;
    const Pace pace_;
    RpcConnection connection_;

    Step step_ = Step::Pausing;
    std::size_t at_;                         // the remote
    std::size_t tried_ = 0;                  // remotes since the last pause
    unsigned pauses_ = 0;                    // both since a member was followed for long
    Clock::time_point until_;                // the end of the pause, or of the wait for an answer
    std::optional<Clock::time_point> since_; // when the member began to be followed
    bool isBehind_ = true;                   // what the member told at first is not in force here yet
    bool told_ = false;
    // What was logged since a member was followed, or that one is. A bounded number.
    std::set<std::string> complaints_;
    bool saidFollows_ = false;
    // Lines of the present minutes: a member that comes and goes must not fill the log.
    Clock::time_point linesUntil_;
    unsigned lines_ = 0;

    // What the member says of itself.
    struct Server {
        bool connected = false;
        std::uint64_t index = 0; // 0: it is no member but a relay, or alone
    } server_;
};

} // namespace store
