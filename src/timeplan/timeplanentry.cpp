#include "timeplan/timeplanentry.h"

namespace orv::horad {

namespace {

constexpr int everyDay = 0;
constexpr int sunday = 7; // the C library's 0

} // namespace

bool TimePlanEntry::isInTimeWindow(long seconds) const {
    const std::optional<LocalMoment> moment = LocalMoment::at(seconds);
    return moment && isInTimeWindow(*moment);
}

bool TimePlanEntry::isInTimeWindow(const LocalMoment& moment) const {
    const int today = moment.weekDay() == 0 ? sunday : moment.weekDay();
    if (weekDay_ != everyDay && weekDay_ != today)
        return false;
    return start_ <= moment.time() && moment.time() <= stop_;
}

bool TimePlanEntry::operator==(const TimePlanEntry& other) const {
    return weekDay_ == other.weekDay_ && start_ == other.start_ && stop_ == other.stop_;
}

} // namespace orv::horad
