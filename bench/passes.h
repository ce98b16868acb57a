#pragma once

#include "bench/samples.h"

#include <cstdlib>
#include <cstring>

namespace bench {

// Passes over a number of items. `Items` is made of that number and has pass().
template <typename Items>
void timePasses(unsigned count, const char* who, const std::string& items, const std::string& figure) {
    constexpr std::size_t fewestSamples = 101;
    constexpr std::chrono::milliseconds shortestTime(300);
    constexpr unsigned itemsASample = 20000;

    Items all(count);
    Samples samples;
    const unsigned passes = std::max(1U, itemsASample / count);
    const Clock::time_point end = Clock::now() + shortestTime;
    while (samples.size() < fewestSamples || Clock::now() < end) {
        const Clock::time_point begin = Clock::now();
        for (unsigned i = 0; i < passes; ++i)
            all.pass();
        samples.add(nanoseconds(Clock::now() - begin) / passes / count);
    }
    samples.print(figure + " of " + std::to_string(count) + " " + items + "s", who, "ns/" + items);
}

template <typename Items>
void makePasses(unsigned count, unsigned passes) {
    Items all(count);
    for (unsigned i = 0; i < passes; ++i)
        all.pass();
}

// COUNT               times the passes of both
// COUNT PASSES WHO    makes that many passes of "horad" or "floor", for a count of instructions
template <typename Horad, typename Floor>
int runPasses(int argc, char* argv[], const std::string& item, const std::string& figure) {
    const int given = argc == 2 || argc == 4 ? std::atoi(argv[1]) : 0;
    if (given < 1) {
        std::fprintf(stderr, "Usage: %s COUNT [PASSES horad|floor]\n", argv[0]);
        return EXIT_FAILURE;
    }
    const auto count = static_cast<unsigned>(given);
    if (argc == 2) {
        timePasses<Horad>(count, "horad", item, figure);
        timePasses<Floor>(count, "floor", item, figure);
    } else if (std::strcmp(argv[3], "horad") == 0) {
        makePasses<Horad>(count, static_cast<unsigned>(std::atoi(argv[2])));
    } else {
        makePasses<Floor>(count, static_cast<unsigned>(std::atoi(argv[2])));
    }
    return EXIT_SUCCESS;
}

} // namespace bench
