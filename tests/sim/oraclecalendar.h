#pragma once

#include <array>
#include <ctime>
#include <string>
#include <vector>

namespace sim {

// The oracle's own notion of local time and of plans. It is slow and simple, and knows nothing of the
// daemon's.

// Hour, minute and second, compared in this order. They may be out of range: whatever a text says counts.
using TimeOfDay = std::array<int, 3>;

// As the store has it: "8:30", "08:30:00". What is no number is 0.
TimeOfDay timeOfDay(const std::string& text);

// What a clock on the wall shows.
struct WallTime {
    int weekDay = 0; // 0 is Sunday
    TimeOfDay time = {};
};

WallTime wallTime(std::time_t moment);

// Remembers the minute that it was asked for last. A zone that is set meanwhile counts from the next one on.
class WallClock {
public:
    WallTime at(std::time_t moment);

private:
    std::time_t minuteBegins_ = 0;
    WallTime minute_; // at its first second
    bool known_ = false;
};

// One day's slot. Start and stop belong to it.
struct DaySlot {
    TimeOfDay start = {};
    TimeOfDay stop = {};

    // 00:00 to 00:00 is no slot (C6).
    bool isSet() const {
        return start[0] != 0 || start[1] != 0 || start[2] != 0 || stop[0] != 0 || stop[1] != 0 ||
               stop[2] != 0;
    }
};

// From Sunday on.
using WeekPlan = std::array<DaySlot, 7>;

bool isInside(const WeekPlan& plan, const WallTime& moment);
bool isInside(const DaySlot& slot, int slotsWeekDay, const WallTime& moment);

// One entry of the user's plan of downloads. Start and stop belong to it, and it never runs past midnight.
struct UserWindow {
    int weekDay = 0; // 0 is every day, 1 Monday, 7 Sunday
    TimeOfDay start = {};
    TimeOfDay stop = {};
    bool enabled = false;
};

// True too where nothing is enabled: there is no restriction then (C10).
bool isActive(const std::vector<UserWindow>& plan, const WallTime& moment);

// "2026-03-29T03:00:02+0200".
std::string isoText(std::time_t moment);
// The same, with the weekday in front, for somebody who reads it.
std::string shown(std::time_t moment);
// The moments that such a text may mean. The date and the time count, in today's zone; the offset only tells
// one of two from the other in an hour that comes twice. 0 where the text is no moment (C23). None where
// the clock never shows that time.
std::vector<std::time_t> momentsOf(const std::string& text);

} // namespace sim
