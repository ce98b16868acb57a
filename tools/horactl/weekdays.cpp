#include "tools/horactl/weekdays.h"

#include "tools/horactl/localtime.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace tools::horactl {

namespace {

// The first moment of a date, even where the zone left its midnight out.
std::optional<std::time_t> beginOf(LocalTime date) {
    date.hour = date.minute = date.second = 0;
    const std::vector<std::time_t> midnights = momentsOf(date);
    if (!midnights.empty())
        return midnights.front();
    const std::optional<Gap> gap = gapAround(date);
    return gap ? std::optional(gap->after) : std::nullopt;
}

} // namespace

std::vector<Span> daysFrom(std::time_t moment, unsigned count) {
    std::vector<Span> days;
    std::optional<LocalTime> date = localTimeOf(moment);
    std::time_t begin = date ? beginOf(*date).value_or(moment) : moment;
    while (days.size() < count) {
        if (date)
            date = nextDay(*date);
        // Past what the calendar can tell, a day is as long as most are.
        const std::time_t end = (date ? beginOf(*date) : std::nullopt).value_or(begin + secondsOfDay);
        if (end > begin)
            days.push_back({begin, end});
        begin = end;
    }
    return days;
}

std::optional<Span> clipped(const Span& span, const Span& to) {
    const Span part = {std::max(span.begin, to.begin), std::min(span.end, to.end)};
    return part.begin < part.end ? std::optional(part) : std::nullopt;
}

Span longestBetween(const Span& span, std::vector<std::time_t> moments) {
    std::sort(moments.begin(), moments.end());
    moments.push_back(span.end);
    Span longest = {span.begin, span.begin};
    std::time_t begin = span.begin;
    for (const std::time_t moment : moments) {
        if (moment < begin || moment > span.end)
            continue;
        if (moment - begin > longest.end - longest.begin)
            longest = {begin, moment};
        begin = moment;
    }
    return longest;
}

std::vector<HourMark> hourMarks(const Span& day, int step) {
    constexpr std::time_t stride = 15 * secondsOfMinute; // divides every change of an offset
    std::vector<HourMark> marks;
    for (std::time_t moment = day.begin; moment < day.end; moment += stride) {
        const std::optional<LocalTime> shown = localTimeOf(moment);
        const bool full = shown && shown->minute == 0 && shown->hour % step == 0;
        if (full || moment == day.begin)
            marks.push_back({moment, shown ? shown->hour : 0});
    }
    marks.push_back({day.end, 24});
    return marks;
}

long offsetOf(std::time_t moment) {
    std::tm local{};
    return localtime_r(&moment, &local) != nullptr ? local.tm_gmtoff : 0;
}

bool hasClockChange(const Span& day) {
    constexpr std::time_t stride = 3600; // a change lasts longer than that
    for (std::time_t moment = day.begin; moment < day.end; moment += stride)
        if (offsetOf(moment) != offsetOf(day.begin))
            return true;
    return offsetOf(day.end - 1) != offsetOf(day.begin);
}

std::string dateText(const Span& day) {
    return formatted(day.begin, "%a %e %b");
}

std::string dateTextWithYear(const Span& day) {
    return formatted(day.begin, "%a %e %b %Y");
}

std::string clockText(const Span& day, std::time_t moment, bool exact) {
    if (moment >= day.end)
        return exact ? "24:00:00" : "24:00";
    const std::string text = formatted(moment, exact ? "%H:%M:%S" : "%H:%M");
    return hasClockChange(day) ? text + formatted(moment, " %Z") : text;
}

std::string clockSpanText(const Span& day, const Span& span, const char* dash) {
    const bool exact = span.end - span.begin < secondsOfMinute;
    return clockText(day, span.begin, exact) + dash + clockText(day, span.end, exact);
}

} // namespace tools::horactl
