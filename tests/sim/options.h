#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace sim {

struct Options {
    int seeds = 10;
    std::optional<std::uint64_t> seed; // that one alone
    std::vector<std::string> zones;    // each seed in each; where there are none, each seed in one of all
    int days = 7;
    std::string scenario; // its name, or "all"; without one the seeds are run
    int jobs = 1;         // runs at the same time
    bool help = false;    // the usage was printed, and that is all
};

// Says on standard error what is wrong, with the usage; nothing then.
std::optional<Options> parseOptions(int argc, char* argv[]);

} // namespace sim
