#pragma once

#include "tools/horactl/household.h"

#include <cstdint>
#include <ctime>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace tools::horactl {

// Seconds since the epoch, the end not included.
struct Stretch {
    std::int64_t begin;
    std::int64_t end;

    std::int64_t length() const { return end - begin; }
};
using Stretches = std::vector<Stretch>;

// What horad makes of a household's plans and its reboot within some hours: it is let live through them, in
// which the line is idle. Frames are left out.
class SlotLife {
public:
    SlotLife(const Household& household, const Stretch& hours);

    // When horad took the row's slot for current, in order. None for a row whose status is written elsewhere,
    // because its Id is too long.
    const Stretches& slotsOf(const std::string& table, int id) const;
    const std::vector<std::time_t>& reboots() const { return reboots_; }

private:
    using Row = std::pair<std::string, int>;

    std::map<Row, Stretches> slots_;
    std::vector<std::time_t> reboots_;
};

} // namespace tools::horactl
