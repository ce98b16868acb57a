#pragma once

#include <cstdint>
#include <ostream>
#include <string>

namespace orv::horad {

// A time of day, without date or time zone. No range is enforced: even 25:99:99 is kept as it is. 00:00:00
// also means "not set".
class TimePlanTime {
public:
    // Reads hours, minutes and seconds joined by ':', each as atoi does; what is missing is 0. Every text
    // gives a value.
    TimePlanTime(const std::string& text);
    // An hour of 24 means the end of the day and becomes 23:59:59, the last second that the inclusive
    // comparisons of the plans cover. A text keeps its 24.
    TimePlanTime(int hour, int minute, int second) : hour_(hour), minute_(minute), second_(second) {
        if (hour == 24) {
            hour_ = 23;
            minute_ = 59;
            second_ = 59;
        }
    }
    // The three numbers as they are, an hour of 24 too.
    static TimePlanTime verbatim(int hour, int minute, int second) {
        TimePlanTime time(0, 0, 0);
        time.hour_ = hour;
        time.minute_ = minute;
        time.second_ = second;
        return time;
    }

    int hour() const { return hour_; }
    int minute() const { return minute_; }
    int second() const { return second_; }

    bool isSet() const { return hour_ != 0 || minute_ != 0 || second_ != 0; }

    // Writes 9:5:0 for five past nine: no padding.
    std::ostream& put(std::ostream& os) const;

    bool operator==(const TimePlanTime& other) const {
        return hour_ == other.hour_ && minute_ == other.minute_ && second_ == other.second_;
    }
    bool operator!=(const TimePlanTime& other) const { return !(*this == other); }
    bool operator<(const TimePlanTime& other) const {
        if (hour_ != other.hour_)
            return hour_ < other.hour_;
        return minute_ != other.minute_ ? minute_ < other.minute_ : second_ < other.second_;
    }
    bool operator>(const TimePlanTime& other) const { return other < *this; }
    bool operator<=(const TimePlanTime& other) const { return !(other < *this); }
    bool operator>=(const TimePlanTime& other) const { return !(*this < other); }

private:
    std::int32_t hour_ = 0;
    std::int32_t minute_ = 0;
    std::int32_t second_ = 0;
};

} // namespace orv::horad
