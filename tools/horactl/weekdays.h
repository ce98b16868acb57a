#pragma once

#include "tools/horactl/forecast.h"

#include <ctime>
#include <optional>
#include <string>
#include <vector>

// Local days, of whatever length, and what is said of their hours.
namespace tools::horactl {

// So many days, from the one in which that moment lies. A date that the zone left out is none.
std::vector<Span> daysFrom(std::time_t moment, unsigned count);

// The part of a span inside another; nothing where that is empty.
std::optional<Span> clipped(const Span& span, const Span& to);

inline bool contains(const Span& span, std::time_t moment) {
    return moment >= span.begin && moment < span.end;
}

// The longest piece of a span that none of these moments cuts.
Span longestBetween(const Span& span, std::vector<std::time_t> moments);

// A full hour of a day.
struct HourMark {
    std::time_t at;
    int hour; // as clocks show it; 24 at the day's end
};

// Each hour of the day that divides by `step`, and both its ends. An hour that comes twice is there twice.
std::vector<HourMark> hourMarks(const Span& day, int step);

// How far local time is ahead of UTC, in seconds.
long offsetOf(std::time_t moment);
// Whether the offset from UTC changes in that day.
bool hasClockChange(const Span& day);

// "Mon 23 Nov".
std::string dateText(const Span& day);
// "Mon 23 Nov 2026".
std::string dateTextWithYear(const Span& day);
// Of a moment in the day: "22:00", with seconds where `exact`, and the zone's name on a day on which the
// clock changes. The day's end is 24:00.
std::string clockText(const Span& day, std::time_t moment, bool exact = false);

constexpr const char* enDash = "\u2013"; // where more than ASCII can be shown
// "22:00-24:00", the dash being whatever is wanted. With seconds where it is shorter than a minute.
std::string clockSpanText(const Span& day, const Span& span, const char* dash);

} // namespace tools::horactl
