#pragma once

#include "sim/oraclecalendar.h"
#include "sim/oraclewatch.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace sim {

// What horad may know of the user's plan of downloads. It reads it with the tables of frames and services,
// and not when it changes.
class UserPlanWatch {
public:
    explicit UserPlanWatch(const Watch& watch) : watch_(watch) {}

    // Looks whether it has changed. `isRead`: horad has reason to read it in this iteration or the next one.
    void look(bool isRead);
    // At the end of an iteration.
    void settle();
    void rebooted();

    // Whether one of the plans that it may know is active then, and whether all of them are.
    bool mayAllow(const WallTime& now) const;
    bool doesAllow(const WallTime& now) const;

private:
    using Plan = std::vector<UserWindow>;

    const Watch& watch_;
    std::optional<std::uint64_t> version_;
    // One of these counts. None where there are too many to tell.
    std::vector<Plan> plans_;
    std::optional<Plan> read_; // if it stays until the iteration after
    std::uint64_t readAt_ = 0; // iterations that were over then
};

} // namespace sim
