#pragma once

#include "timeplan/timeplan.h"
#include "timeplan/weekslots.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace orv::horad {

// Values of "WeekDay" of "AutoReboot". The days are 1 to 7, Monday to Sunday.
inline constexpr std::uint8_t everyDay = 0;

// The day, counted from Monday, which is 0. Whatever is behind Sunday counts as Sunday. Not for everyDay.
[[nodiscard]] std::size_t rebootDayOf(std::uint8_t weekDay);

// The slot that begins at that time of day, and is long enough for one pass to fall into it.
[[nodiscard]] Slot rebootSlotOf(const std::string& time);

// Enters the slot of the settings in the plan, for its weekday or for every day. Other weekdays keep the
// slots that they have. A moment lies in the slot if the plan says so: TimePlan::isInTimeslot().
void enterRebootSlot(TimePlan& plan, const std::string& time, std::uint8_t weekDay);

} // namespace orv::horad
