#include "handlers/rebootslot.h"

#include <algorithm>

namespace orv::horad {

namespace {

// The slot's last second. The day stays: a slot that begins in the last minute of a day runs past midnight.
// C22: sic
TimePlanTime endOfSlot(const TimePlanTime& start) {
    constexpr std::int64_t length = 59; // seconds
    std::int64_t second = start.second() + length;
    std::int64_t minute = start.minute();
    std::int64_t hour = start.hour();
    if (second >= 60) {
        minute += second / 60;
        second %= 60;
    }
    if (minute >= 60) {
        hour += minute / 60;
        minute %= 60;
    }
    if (hour >= 24)
        hour %= 24;
    return TimePlanTime(static_cast<int>(hour), static_cast<int>(minute), static_cast<int>(second));
}

} // namespace

// C21: sic
std::size_t rebootDayOf(std::uint8_t weekDay) {
    return std::min<std::size_t>(weekDay, WeekSlots::days) - 1;
}

Slot rebootSlotOf(const std::string& time) {
    const TimePlanTime start(time);
    return {start, endOfSlot(start)};
}

// Only switching off takes away what other weekdays have. C20: sic
void enterRebootSlot(TimePlan& plan, const std::string& time, std::uint8_t weekDay) {
    const Slot slot = rebootSlotOf(time);
    if (weekDay != everyDay) {
        plan.setDay(rebootDayOf(weekDay), slot.start, slot.stop);
        return;
    }
    for (std::size_t day = 0; day < WeekSlots::days; ++day)
        plan.setDay(day, slot.start, slot.stop);
}

} // namespace orv::horad
