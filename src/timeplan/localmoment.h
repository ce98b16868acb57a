#pragma once

#include "timeplan/timeplantime.h"

#include <ctime>
#include <optional>

namespace orv::horad {

// A moment in local time, as far as a weekly plan needs it: the weekday and the time of day. Plans that are
// asked about the same moment share one conversion.
class LocalMoment {
public:
    // Nothing where the C library can't convert it.
    static std::optional<LocalMoment> at(std::time_t seconds);

    int weekDay() const { return weekDay_; } // 0 is Sunday, as in the C library
    const TimePlanTime& time() const { return time_; }
    // The moment that many seconds later, which has to be within the same minute.
    LocalMoment laterInItsMinute(int seconds) const {
        return LocalMoment(weekDay_,
                           TimePlanTime::verbatim(time_.hour(), time_.minute(), time_.second() + seconds));
    }

private:
    LocalMoment(int weekDay, const TimePlanTime& time) : weekDay_(weekDay), time_(time) {}

    int weekDay_;
    TimePlanTime time_;
};

} // namespace orv::horad
