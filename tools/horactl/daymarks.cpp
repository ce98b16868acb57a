#include "tools/horactl/daymarks.h"

#include "tools/horactl/weekdays.h"
#include "tools/horactl/weektext.h"

#include <algorithm>

namespace tools::horactl {

std::vector<DayMark> marksOf(const WeekPicture& picture, const Span& day) {
    std::vector<DayMark> marks;
    for (const WeekPicture::ClockChange& change : picture.clockChanges)
        if (contains(day, change.at))
            marks.push_back({change.at, change.brief, "clock", "dim"});
    for (const std::time_t reboot : picture.reboots)
        if (contains(day, reboot))
            marks.push_back({reboot, rebootText(day, reboot), "reboot", "rebootName"});
    if (picture.present && contains(day, *picture.present))
        marks.push_back({*picture.present, "now, " + clockText(day, *picture.present), "now", "nowName"});
    return marks;
}

MarkRows::Place MarkRows::placeFor(double x, double textWidth) {
    constexpr double half = 6; // of the mark, with what is free around it
    const double length = textWidth + 2 * half;
    const bool behind = x + length < right_;
    const Taken taken = behind ? Taken{x - half, x + length} : Taken{x - length, x + half};
    const auto row = std::find_if(rows_.begin(), rows_.end(), [&](const std::vector<Taken>& others) {
        return std::none_of(others.begin(), others.end(), [&](const Taken& other) {
            return taken.from < other.to && other.from < taken.to;
        });
    });
    const auto place = static_cast<std::size_t>(row - rows_.begin());
    if (row == rows_.end())
        rows_.emplace_back();
    rows_[place].push_back(taken);
    return {place, behind};
}

} // namespace tools::horactl
