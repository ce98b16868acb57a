#pragma once

#include "timeplan/localmoment.h"
#include "timeplan/timeplantime.h"

#include <cstdint>

namespace orv::horad {

// A window of time on one day of the week, or on every day, in local time. Both its ends belong to it. It
// ends with its day: one whose stop lies before its start holds nothing.
class TimePlanEntry {
public:
    // weekDay: 1 is Monday, 7 Sunday, 0 every day; any other never comes.
    TimePlanEntry(const TimePlanTime& start, const TimePlanTime& stop, int weekDay, bool enabled)
        : start_(start), stop_(stop), weekDay_(weekDay), enabled_(enabled) {}

    void setEnable(bool enabled) { enabled_ = enabled; }
    bool isEnabled() const { return enabled_; }

    // `seconds` since the epoch. False where the C library can't convert it.
    bool isInTimeWindow(long seconds) const;
    bool isInTimeWindow(const LocalMoment& moment) const;
    // A disabled entry restricts nothing: it is always active.
    bool isActive(long seconds) const { return !enabled_ || isInTimeWindow(seconds); }
    bool isActive(const LocalMoment& moment) const { return !enabled_ || isInTimeWindow(moment); }

    // Whether the windows are the same. `enabled` does not count: an entry stays the same one when it is
    // switched.
    bool operator==(const TimePlanEntry& other) const;

private:
    TimePlanTime start_;
    TimePlanTime stop_;
    std::int32_t weekDay_;
    bool enabled_;
};

} // namespace orv::horad
