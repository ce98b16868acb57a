#include "sim/oraclecalendar.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <optional>

namespace sim {

namespace {

constexpr const char* isoFormat = "%FT%T%z";

std::tm brokenDown(std::time_t moment) {
    std::tm local{};
    tzset(); // localtime_r() does not look whether the zone was changed
    localtime_r(&moment, &local);
    return local;
}

// The number at the beginning of a text, as atoi() reads it, which has no answer for a number that is too
// large.
int leadingNumber(const std::string& text) {
    return static_cast<int>(std::clamp<long long>(std::strtoll(text.c_str(), nullptr, 10), INT_MIN, INT_MAX));
}

std::string formatted(std::time_t moment, const char* format) {
    char text[64] = {};
    const std::tm local = brokenDown(moment);
    (void)std::strftime(text, sizeof text, format, &local);
    return text;
}

bool isBefore(const TimeOfDay& one, const TimeOfDay& other) {
    for (std::size_t part = 0; part < one.size(); ++part)
        if (one[part] != other[part])
            return one[part] < other[part];
    return false;
}

bool showsSameTime(const std::tm& one, const std::tm& other) {
    return one.tm_year == other.tm_year && one.tm_mon == other.tm_mon && one.tm_mday == other.tm_mday &&
           one.tm_hour == other.tm_hour && one.tm_min == other.tm_min && one.tm_sec == other.tm_sec;
}

} // namespace

TimeOfDay timeOfDay(const std::string& text) {
    TimeOfDay result{};
    std::size_t begin = 0;
    for (int& part : result) {
        part = leadingNumber(text.substr(begin, text.find(':', begin) - begin));
        const std::size_t colon = text.find(':', begin);
        if (colon == std::string::npos)
            break;
        begin = colon + 1;
    }
    return result;
}

WallTime wallTime(std::time_t moment) {
    const std::tm local = brokenDown(moment);
    return {local.tm_wday, {local.tm_hour, local.tm_min, local.tm_sec}};
}

WallTime WallClock::at(std::time_t moment) {
    if (!known_ || moment < minuteBegins_ || moment - minuteBegins_ >= 60) {
        minute_ = wallTime(moment);
        minuteBegins_ = moment - minute_.time[2];
        known_ = true;
    }
    WallTime result = minute_;
    result.time[2] = static_cast<int>(moment - minuteBegins_);
    return result;
}

// Each of the seven days is asked for itself. A moment and both ends of a slot are days since the slot's day,
// hours, minutes and seconds, compared in this order: whatever is out of range stands behind what is in it.
bool isInside(const DaySlot& slot, int slotsWeekDay, const WallTime& moment) {
    const int daysLater = (moment.weekDay - slotsWeekDay + 7) % 7;
    if (daysLater > 1 || !slot.isSet())
        return false;
    const int daysLong = isBefore(slot.start, slot.stop) ? 0 : 1; // C5: equal ends are a whole day
    const bool hasBegun = daysLater > 0 || !isBefore(moment.time, slot.start);
    const bool isOver = daysLater > daysLong || (daysLater == daysLong && isBefore(slot.stop, moment.time));
    return hasBegun && !isOver;
}

bool isInside(const WeekPlan& plan, const WallTime& moment) {
    for (int day = 0; day < 7; ++day)
        if (isInside(plan[static_cast<std::size_t>(day)], day, moment))
            return true;
    return false;
}

bool isActive(const std::vector<UserWindow>& plan, const WallTime& moment) {
    bool restricted = false;
    for (const UserWindow& window : plan) {
        if (!window.enabled)
            continue;
        restricted = true;
        const bool today =
            window.weekDay == 0 || window.weekDay == (moment.weekDay == 0 ? 7 : moment.weekDay);
        if (today && !isBefore(moment.time, window.start) && !isBefore(window.stop, moment.time))
            return true;
    }
    return !restricted;
}

std::string isoText(std::time_t moment) {
    return formatted(moment, isoFormat);
}

std::string shown(std::time_t moment) {
    return formatted(moment, "%a %FT%T%z");
}

// No zone was ever more than 16 hours off, nor off by less than a quarter of an hour, in our days.
std::vector<std::time_t> momentsOf(const std::string& text) {
    constexpr std::time_t furthest = 16 * 3600;
    constexpr std::time_t step = 15 * 60;
    std::tm written{};
    if (strptime(text.c_str(), isoFormat, &written) == nullptr)
        return {0};
    std::tm copy = written;
    const std::time_t utc = timegm(&copy);
    std::vector<std::time_t> found;
    for (std::time_t offset = -furthest; offset <= furthest; offset += step) {
        const std::tm local = brokenDown(utc - offset);
        if (!showsSameTime(local, written))
            continue;
        if (local.tm_gmtoff == written.tm_gmtoff)
            return {utc - offset};
        found.push_back(utc - offset);
    }
    return found;
}

} // namespace sim
