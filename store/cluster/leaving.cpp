#include "store/cluster/leaving.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace store {

namespace {

using Clock = Cluster::Clock;
using Result = Sharing::Result;

unsigned millisecondsUntil(Clock::time_point next) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(next - Clock::now()).count() + 1;
    return static_cast<unsigned>(std::max<std::chrono::milliseconds::rep>(left, 0));
}

// Until the cluster has answered, or the time is over.
void removeDevice(velta::net::EventDispatcher& dispatcher, Cluster& cluster, Clock::time_point end,
                  std::optional<Result>& removed) {
    bool isAsked = false;
    for (Clock::time_point now = Clock::now(); !removed && now < end; now = Clock::now()) {
        if (cluster.hasUpdates())
            (void)cluster.apply();
        cluster.settle(now);
        if (!isAsked && cluster.isReady()) {
            isAsked = true;
            cluster.leave([&removed](const Result& result) { removed = result; });
        }
        if (!removed)
            dispatcher.handleEvents(millisecondsUntil(std::min(end, cluster.nextDeadline())));
    }
}

} // namespace

std::string leaveCluster(velta::net::EventDispatcher& dispatcher, Database& database,
                         std::vector<Remote> remotes, Cluster::Times times,
                         std::chrono::milliseconds patience) {
    std::optional<Result> removed; // the cluster tells it
    Cluster cluster(dispatcher, database, std::move(remotes), std::move(times));
    const bool hasFollowed = cluster.hasFollowed();
    if (hasFollowed)
        removeDevice(dispatcher, cluster, Clock::now() + patience, removed);
    if (hasFollowed && !(removed && removed->ok()))
        return "the cluster can't be reached";
    bool didFollow = false;
    if (const Result result = database.sharedRows().forget(didFollow); !result.ok())
        return result.strerror();
    return hasFollowed ? "" : "this device follows none";
}

} // namespace store
