#pragma once

#include "tools/cfgctl/commands.h"

namespace tools::cfgctl {

// A member of a cluster is the file member.db in a folder, and a server of the database that runs on it and
// is asked at the socket member.ctl beside it. These speak with nobody else: neither with a store nor with
// other members. They throw WrongUse for an address of another form, and Refused where it can't be done.

// Make the file of a first or a further member.
std::string createCommand(const Arguments& arguments);
std::string joinCommand(const Arguments& arguments);
// What a running member says of its cluster.
std::string statusCommand(const Arguments& arguments);
// Has the cluster go on without this member, and waits until it does.
std::string leaveCommand(const Arguments& arguments);

} // namespace tools::cfgctl
