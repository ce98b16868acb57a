#include "tools/horactl/localtime.h"

#include "tools/text.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <string_view>
#include <tuple>

#include <unistd.h>

namespace tools::horactl {

namespace {

// No zone is further from UTC than a day and an hour, which is what TZ can hold.
constexpr std::int64_t farthestOffset = 26 * secondsOfHour;
// No zone keeps an offset for less.
constexpr std::int64_t betweenOffsets = 15 * secondsOfMinute;

std::optional<std::tm> converted(std::time_t moment) {
    std::tm local{};
    return localtime_r(&moment, &local) != nullptr ? std::optional(local) : std::nullopt;
}

bool isLeapYear(int year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int daysOfMonth(int year, int month) {
    constexpr std::array<int, 12> days = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && isLeapYear(year) ? 29 : days.at(static_cast<std::size_t>(month - 1));
}

// From 1970-01-01 on. The year is taken to begin in March, so that a leap day is its last.
std::int64_t daysSinceEpoch(const LocalTime& date) {
    constexpr std::int64_t daysUpToEpoch = 719468; // from 0000-03-01
    const std::int64_t year = date.month > 2 ? date.year : date.year - 1;
    const std::int64_t month = (date.month + 9) % 12; // 0 is March
    const std::int64_t dayOfYear = (153 * month + 2) / 5 + date.day - 1;
    return year * 365 + year / 4 - year / 100 + year / 400 + dayOfYear - daysUpToEpoch;
}

// What clocks show at a moment, as a number. It differs from the moment by the offset, and in a zone that
// counts leap seconds by those too.
std::optional<std::int64_t> shownSeconds(std::time_t moment) {
    const std::optional<LocalTime> shown = localTimeOf(moment);
    return shown ? std::optional(secondsAsInUtc(*shown)) : std::nullopt;
}

auto fieldsOf(const LocalTime& time) {
    return std::tie(time.year, time.month, time.day, time.hour, time.minute, time.second);
}

std::string nameOfMachinesZone() {
    std::array<char, PATH_MAX> bytes;
    const ssize_t size = readlink("/etc/localtime", bytes.data(), bytes.size());
    const std::string_view target(bytes.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
    constexpr std::string_view folder = "/zoneinfo/";
    const std::size_t found = target.find(folder);
    if (found == std::string_view::npos)
        return "this machine's time zone";
    return printable(target.substr(found + folder.size()));
}

} // namespace

std::string timeForPerson(std::time_t moment) {
    return formatted(moment, "%a %F %T %Z");
}

std::string timeOfDay(std::time_t moment) {
    return formatted(moment, "%T %Z");
}

std::string offsetText(std::time_t moment) {
    return formatted(moment, "%z");
}

std::string formatted(std::time_t moment, const char* format) {
    const std::optional<std::tm> local = converted(moment);
    std::array<char, 128> bytes;
    const std::size_t size = local ? std::strftime(bytes.data(), bytes.size(), format, &*local) : 0;
    if (size == 0)
        return '@' + std::to_string(moment);
    return printable({bytes.data(), size}); // the zone's abbreviation may come from any file
}

std::string spanText(std::int64_t seconds) {
    struct Unit {
        std::int64_t seconds;
        const char* name;
        std::int64_t next; // the smaller unit that is named beside it, 0 for none
        const char* nextName;
    };
    constexpr Unit units[] = {
        {secondsOfDay, " d", secondsOfHour, " h"},
        {secondsOfHour, " h", secondsOfMinute, " min"},
        {secondsOfMinute, " min", 0, ""},
    };
    for (const Unit& unit : units) {
        if (seconds < unit.seconds)
            continue;
        const std::string text = std::to_string(seconds / unit.seconds) + unit.name;
        const std::int64_t rest = unit.next != 0 ? seconds % unit.seconds / unit.next : 0;
        return rest != 0 ? text + ' ' + std::to_string(rest) + unit.nextName : text;
    }
    return std::to_string(seconds) + " s";
}

std::string distanceText(std::int64_t seconds) {
    if (seconds == 0)
        return "now";
    if (seconds > 0)
        return "in " + spanText(seconds);
    return spanText(-std::max(seconds, -INT64_MAX)) + " ago";
}

std::string zoneName() {
    const char* const set = std::getenv("TZ");
    std::string_view zone = set != nullptr ? set : ":/etc/localtime";
    if (!zone.empty() && zone.front() == ':')
        zone.remove_prefix(1);
    if (zone.empty())
        return "UTC";
    return zone == "/etc/localtime" ? nameOfMachinesZone() : printable(zone);
}

bool isDate(int year, int month, int day) {
    return year >= 1 && year <= 9999 && month >= 1 && month <= 12 && day >= 1 &&
           day <= daysOfMonth(year, month);
}

int weekDayOf(const LocalTime& date) {
    constexpr std::int64_t weekDayOfEpoch = 4;
    const std::int64_t weekDay = (daysSinceEpoch(date) + weekDayOfEpoch) % 7;
    return static_cast<int>(weekDay < 0 ? weekDay + 7 : weekDay);
}

std::int64_t secondsAsInUtc(const LocalTime& time) {
    return daysSinceEpoch(time) * secondsOfDay + time.hour * secondsOfHour + time.minute * secondsOfMinute +
           time.second;
}

LocalTime nextDay(LocalTime date) {
    if (++date.day <= daysOfMonth(date.year, date.month))
        return date;
    date.day = 1;
    if (++date.month <= 12)
        return date;
    date.month = 1;
    ++date.year;
    return date;
}

std::optional<LocalTime> localTimeOf(std::time_t moment) {
    constexpr int firstYear = 1900;
    const std::optional<std::tm> local = converted(moment);
    if (!local || local->tm_year > INT_MAX - firstYear)
        return std::nullopt;
    return LocalTime{local->tm_year + firstYear,
                     local->tm_mon + 1,
                     local->tm_mday,
                     local->tm_hour,
                     local->tm_min,
                     local->tm_sec};
}

// The C library's mktime() answers for times that are not there, too, and takes either one of two. Each
// offset that the zone has around them is tried instead.
std::vector<std::time_t> momentsOf(const LocalTime& time) {
    std::vector<std::time_t> moments;
    if (!isDate(time.year, time.month, time.day))
        return moments;
    const std::int64_t wanted = secondsAsInUtc(time);
    std::optional<std::int64_t> tried;
    for (std::int64_t near = wanted - farthestOffset; near <= wanted + farthestOffset;
         near += betweenOffsets) {
        const std::optional<std::int64_t> shown = shownSeconds(near);
        if (!shown || tried == *shown - near)
            continue;
        tried = *shown - near;
        const std::time_t moment = wanted - *tried;
        const std::optional<LocalTime> found = localTimeOf(moment);
        if (found && fieldsOf(*found) == fieldsOf(time))
            moments.push_back(moment);
    }
    std::sort(moments.begin(), moments.end());
    moments.erase(std::unique(moments.begin(), moments.end()), moments.end());
    return moments;
}

std::optional<Gap> gapAround(const LocalTime& time) {
    if (!isDate(time.year, time.month, time.day))
        return std::nullopt;
    const std::int64_t wanted = secondsAsInUtc(time);
    Gap gap = {wanted - farthestOffset, wanted + farthestOffset};
    while (gap.after - gap.before > 1) {
        const std::time_t middle = gap.before + (gap.after - gap.before) / 2;
        const std::optional<std::int64_t> shown = shownSeconds(middle);
        if (!shown)
            return std::nullopt;
        (*shown < wanted ? gap.before : gap.after) = middle;
    }
    return gap;
}

} // namespace tools::horactl
