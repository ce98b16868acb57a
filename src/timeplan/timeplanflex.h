#pragma once

#include "timeplan/timeplanentry.h"

#include <cstddef>
#include <list>

namespace orv::horad {

// Windows that a user defined, in the order in which they were added, none of them twice. A plan without an
// enabled window restricts nothing.
class TimePlanFlex {
public:
    using Iterator = std::list<TimePlanEntry>::iterator;

    // If there is an entry with the same window already, it takes over whether the new one is enabled.
    void add(const TimePlanEntry& entry);
    // The entry with the same window, or end().
    Iterator getEntry(TimePlanEntry& entry);
    bool _exist(TimePlanEntry entry) { return getEntry(entry) != end(); }
    std::size_t size() const { return entries_.size(); }
    Iterator end() { return entries_.end(); }

    // `seconds` since the epoch. True inside an enabled window, and where no window is enabled. A moment that
    // the C library can't convert is in no window.
    bool isActive(long seconds) const;
    bool isActive(const LocalMoment& moment) const;

    // Whether every entry of the other is here, switched the same way. One-sided, C9: a plan with
    // more entries equals one that has some of them.
    bool operator==(const TimePlanFlex& other) const;
    bool operator!=(const TimePlanFlex& other) const { return !(*this == other); }

private:
    bool isRestricted() const;

    std::list<TimePlanEntry> entries_;
};

} // namespace orv::horad
