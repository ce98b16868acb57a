#pragma once

#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace store {

// The command line. Paths are absolute, so that they hold in a daemon as well.
struct Options {
    std::string socket = "/tmp/cfgserver.socket";
    bool socketIsGiven = false; // and not the default
    std::string database;       // empty: in memory
    std::vector<std::string> schemas;
    std::optional<gid_t> group;
    std::vector<std::string> cluster; // remotes; none: nothing is shared
    bool printsClusterSchema = false;
    bool leavesCluster = false; // and ends
    bool daemon = false;
    bool verbose = false;
};

// None if the process is to end at once with `exitStatus`: after --help or after a wrong use.
std::optional<Options> readOptions(int argumentCount, char** arguments, int& exitStatus);

} // namespace store
