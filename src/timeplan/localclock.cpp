#include "timeplan/localclock.h"

namespace orv::horad {

std::optional<LocalMoment> LocalClock::at(std::time_t seconds) {
    if (!isInConvertedMinute(seconds))
        convert(seconds);
    if (!converted_)
        return std::nullopt;
    return converted_->laterInItsMinute(static_cast<int>(seconds - convertedAt_));
}

void LocalClock::convert(std::time_t seconds) {
    converted_ = LocalMoment::at(seconds);
    convertedAt_ = seconds;
    zoneOffset_ = timezone;
    zoneName_ = tzname[0];
}

bool LocalClock::isInConvertedMinute(std::time_t seconds) const {
    constexpr int minute = 60; // seconds
    return converted_ && zoneOffset_ == timezone && zoneName_ == tzname[0] && seconds >= convertedAt_ &&
           seconds - convertedAt_ < minute - converted_->time().second();
}

} // namespace orv::horad
