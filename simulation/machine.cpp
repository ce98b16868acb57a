#include "simulation/machine.h"

#include <algorithm>
#include <utility>

namespace orv::simulation {

void Machine::passUntil(Microseconds moment) {
    while (passed_ < moment)
        passUntilNextEvent(moment);
}

// An event may wait itself: the time is then later than the moment.
void Machine::passUntilNextEvent(Microseconds moment) {
    const auto next = timetable_.begin();
    if (next == timetable_.end() || next->first > moment) {
        passed_ = std::max(passed_, moment);
        return;
    }
    passed_ = std::max(passed_, next->first);
    const Event event = std::move(next->second);
    timetable_.erase(next);
    event();
}

} // namespace orv::simulation
