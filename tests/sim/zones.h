#pragma once

#include <ctime>
#include <string>
#include <vector>

namespace sim {

struct Zone {
    const char* name;
    // A moment that a run in this zone should meet, in seconds since the epoch. 0 where one change of the
    // offset is as good as another.
    std::time_t moment;
};

// Zones that are as different as zones get.
const std::vector<Zone>& zones();

// When a run of so many seconds should begin, from `earliest` on, so that a change of the offset falls into
// it: `before` seconds ahead of the change. The earliest moment itself in a zone without one. The zone is the
// process's.
std::time_t beginningBeforeChange(std::time_t earliest, std::time_t before);

} // namespace sim
