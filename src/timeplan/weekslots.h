#pragma once

#include "timeplan/timeplantime.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace orv::horad {

// From a start to a stop, both inclusive. Both 00:00:00 means that there is none.
struct Slot {
    TimePlanTime start = TimePlanTime(0, 0, 0);
    TimePlanTime stop = TimePlanTime(0, 0, 0);

    bool isSet() const { return start.isSet() || stop.isSet(); }
    bool runsPastMidnight() const { return stop <= start; }
    bool operator==(const Slot& other) const { return start == other.start && stop == other.stop; }
};

// A slot for each day of the week. The plans stay in memory all the time, so a time that a clock can show
// takes three bytes here. A week with any other time, which a text can contain, is kept at full width.
class WeekSlots {
public:
    static constexpr std::size_t days = 7;

    // The user of the class decides which weekday is day 0.
    Slot day(std::size_t day) const {
        if (full_)
            return (*full_)[day];
        return Slot{unpack(clock_[day].start), unpack(clock_[day].stop)};
    }
    void setDay(std::size_t day, const Slot& slot);

    bool operator==(const WeekSlots& other) const;

private:
    struct ClockTime {
        std::uint8_t hour = 0;
        std::uint8_t minute = 0;
        std::uint8_t second = 0;
    };
    struct ClockSlot {
        ClockTime start;
        ClockTime stop;
    };
    using FullWeek = std::array<Slot, days>;

    static bool fits(const TimePlanTime& time);
    static ClockTime pack(const TimePlanTime& time);
    static TimePlanTime unpack(const ClockTime& time) {
        return TimePlanTime::verbatim(time.hour, time.minute, time.second);
    }

    std::array<ClockSlot, days> clock_{};
    std::shared_ptr<const FullWeek> full_; // used instead of clock_ if it is set
};

} // namespace orv::horad
