#include "timeplan/weekslots.h"

namespace orv::horad {

void WeekSlots::setDay(std::size_t day, const Slot& slot) {
    if (!full_ && fits(slot.start) && fits(slot.stop)) {
        clock_[day] = ClockSlot{pack(slot.start), pack(slot.stop)};
        return;
    }
    FullWeek week;
    for (std::size_t i = 0; i < days; ++i)
        week[i] = i == day ? slot : this->day(i);
    full_ = std::make_shared<const FullWeek>(week);
}

bool WeekSlots::operator==(const WeekSlots& other) const {
    for (std::size_t i = 0; i < days; ++i)
        if (!(day(i) == other.day(i)))
            return false;
    return true;
}

bool WeekSlots::fits(const TimePlanTime& time) {
    const auto fitsByte = [](int number) { return number >= 0 && number <= UINT8_MAX; };
    return fitsByte(time.hour()) && fitsByte(time.minute()) && fitsByte(time.second());
}

WeekSlots::ClockTime WeekSlots::pack(const TimePlanTime& time) {
    static_assert(sizeof(ClockSlot) == 6, "a slot takes six bytes");
    return ClockTime{static_cast<std::uint8_t>(time.hour()), static_cast<std::uint8_t>(time.minute()),
                     static_cast<std::uint8_t>(time.second())};
}

} // namespace orv::horad
