#pragma once

#include "sim/household.h"

#include <cstdint>
#include <optional>
#include <string>

namespace sim {

struct Scenario;

struct Outcome {
    std::uint64_t passes = 0;
    std::uint64_t digest = 0; // of all that happened
    // What went wrong, with all that is needed to see it again.
    std::optional<std::string> failure;
};

// So many days in the house of that seed. The zone is one of the C library's.
Outcome simulate(std::uint64_t seed, const std::string& zone, int days);
// One that somebody wrote down.
Outcome play(const Scenario& scenario);

} // namespace sim
