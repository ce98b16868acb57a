#pragma once

#include "tools/horactl/forecast.h"
#include "tools/horactl/household.h"

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>

namespace tools::horactl {

// How far a command looks ahead that says what comes next: a week of plans, and a day. In seconds.
constexpr std::int64_t lookAhead = std::int64_t{8} * 24 * 3600;

// What every command is asked about.
struct Question {
    Household household;
    unsigned repeatDelay = 0; // seconds; 0 for horad's default
    std::time_t present = 0;
    // Whether this is the real present of this machine's own tables: its uptime and its line count then.
    // Otherwise the line is idle and the machine long up.
    bool real = false;
    bool json = false;
    bool verbose = false;
    std::optional<std::size_t> width; // of the terminal, in characters; nothing where there is none
};

// What the machine's probes say now.
struct Line {
    bool call = false;
    bool stream = false;
    std::string problem; // what keeps it from being known; empty where nothing does
};

// Idle where the question is not of the real present.
Line lineOf(const Question& question);
// The uptime that counts, in seconds.
std::int64_t uptimeOf(const Question& question);

// How long what runs on the line now is taken to go on.
enum class LineRuns {
    OverSoon, // a minute: who asks what comes next can't wait for it
    GoesOn,   // as long as anybody asks: who asks why nothing happens is told of it
};
Circumstances circumstancesOf(const Question& question, const Line& line, LineRuns runs);

} // namespace tools::horactl
