#pragma once

#include "store/cluster/cluster.h"
#include "store/cluster/remote.h"
#include "store/storage/database.h"
#include "velta/net/eventdispatcher.h"

#include <chrono>
#include <string>
#include <vector>

namespace store {

// Takes this device out of the cluster that its database follows, and waits for it. The database gets what
// the cluster holds once more, forgets it, and keeps the tables as they are. Returns an empty text, or why it
// has not left; then it may be tried again.
std::string leaveCluster(velta::net::EventDispatcher& dispatcher, Database& database,
                         std::vector<Remote> remotes, Cluster::Times times,
                         std::chrono::milliseconds patience);

} // namespace store
