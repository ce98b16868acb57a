#pragma once

#include <cstdint>
#include <list>
#include <string>

namespace orv::horad {

// What the command line says.
struct Options {
    bool daemon = false;
    bool verbose = false;
    std::uint32_t repeatDelay = 0; // seconds; 0 leaves it to the service scheduler
    std::list<std::string> tables; // in order of the options, duplicates kept
};

enum class OptionsResult {
    Run,   // go on
    Help,  // the usage was printed
    Wrong, // something was wrong and said so on standard error
};

// Acts on the options one by one: what stands behind the first --help or wrong one is not looked at.
[[nodiscard]] OptionsResult parseOptions(int argc, char* argv[], Options& options);

} // namespace orv::horad
