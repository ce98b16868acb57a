#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

// What a person's local time is. The zone is the process's, as tzset() last found it. A moment in JSON is
// orv::horad::isoTime().
namespace tools::horactl {

constexpr std::int64_t secondsOfMinute = 60;
constexpr std::int64_t secondsOfHour = 3600;
constexpr std::int64_t secondsOfDay = 86400;

// A date and a time of day as calendars and clocks show them: months and days count from 1.
struct LocalTime {
    int year;
    int month;
    int day;
    int hour = 0;
    int minute = 0;
    int second = 0;
};

// For a person: "Sun 2026-11-22 00:30:00 CET". The seconds since the epoch, as "@5", where the C library
// can't convert the moment.
std::string timeForPerson(std::time_t moment);
// The time of day alone, with the zone's abbreviation: "03:00:00 CEST".
std::string timeOfDay(std::time_t moment);
// How far local time is ahead of UTC then: "+0200".
std::string offsetText(std::time_t moment);

// The moment as strftime() shows it, 127 bytes at most.
std::string formatted(std::time_t moment, const char* format);

// How long so many seconds are: "3 d 4 h", "2 h 15 min", "59 min", "12 s". Smaller units are cut off.
std::string spanText(std::int64_t seconds);
// How far away a moment is that comes in so many seconds: "in 2 h 15 min", "now", "3 d 4 h ago".
std::string distanceText(std::int64_t seconds);

// The zone's name for a person: "Europe/Berlin", or whatever TZ holds; where it leads to this machine's zone,
// that one's name, as far as it can be found out.
std::string zoneName();

// Whether the calendar has that date, in the years 1 to 9999.
bool isDate(int year, int month, int day);
// 0 is Sunday. Of a date that the calendar has.
int weekDayOf(const LocalTime& date);
// The seconds since the epoch at which clocks show that in UTC.
std::int64_t secondsAsInUtc(const LocalTime& time);
// The same time on the next date.
LocalTime nextDay(LocalTime date);
// Nothing where the C library can't convert the moment.
std::optional<LocalTime> localTimeOf(std::time_t moment);

// The moments at which clocks show that time, in order: none where the zone leaves it out (or the calendar
// has no such date), two where it comes twice.
std::vector<std::time_t> momentsOf(const LocalTime& time);

// Where clocks leave something out: the last second in front of it and the first one behind it.
struct Gap {
    std::time_t before;
    std::time_t after;
};

// What lies on both sides of a time that momentsOf() does not find. Nothing where the C library can't say.
std::optional<Gap> gapAround(const LocalTime& time);

} // namespace tools::horactl
