#pragma once

#include "options.h"

#include <optional>
#include <string>
#include <vector>

namespace tools::horactl {

struct RunningHorad {
    int pid;
    orv::horad::Options options;
};

// Those that the kernel's files under `proc` tell of, by their pids. Left out are those that can't do
// anything (without a table, with a wrong option), and those that see another folder at `storeFolder` than
// this process.
std::vector<RunningHorad> runningHorads(const std::string& proc, const std::string& storeFolder);

// The TZ that it was started with.
struct RunningZone {
    bool isReadable = false; // only its own user and root may look
    std::optional<std::string> zone;
};

RunningZone zoneOf(int pid, const std::string& proc);

// The whole file; nothing where it can't be read.
std::optional<std::string> textOfFile(const std::string& path);

} // namespace tools::horactl
