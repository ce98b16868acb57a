#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace tools::cfgctl {

// How a program ended, and what it said.
struct ChildEnd {
    std::optional<int> exitStatus; // none where a signal ended it
    bool late = false;             // it was killed because its time was over
    std::string output;
    std::string errors;
};

struct Owner {
    uid_t user;
    gid_t group;
};

struct ChildRules {
    std::chrono::milliseconds time{10000}; // it is killed then
    std::optional<Owner> owner;            // who it runs as, where that is somebody else; only root may
    std::string package;                   // of the distribution, which has the program
};

// Runs a program to its end, without a shell. It is looked for beside this program, in PATH and in
// /usr/sbin, and finds an empty standard input. Throws Refused where it isn't there, can't be started, or
// prints more than a few MiB.
ChildEnd runChild(const std::vector<std::string>& command, const ChildRules& rules);

// The last line of what a program said that failed: the one that says why.
std::string complaintOf(const ChildEnd& end);

} // namespace tools::cfgctl
