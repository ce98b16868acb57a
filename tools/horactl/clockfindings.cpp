#include "handlers/dbm.h"
#include "handlers/timeplanrow.h"
#include "timeplan/weekslots.h"
#include "tools/horactl/events.h"
#include "tools/horactl/findings.h"
#include "tools/horactl/forecast.h"
#include "tools/horactl/localtime.h"
#include "tools/horactl/slotlife.h"
#include "tools/horactl/wlanstate.h"

#include <algorithm>
#include <cstdlib>

namespace tools::horactl {

namespace dbm = orv::horad::dbm;
using orv::horad::DayColumns;
using orv::horad::TimePlanTime;
using orv::horad::WeekSlots;
using velta::ValueList;

namespace {

constexpr std::int64_t anHour = 3600; // seconds
// On either side of a change. Slots that begin before that and go on behind it are long enough not to suffer.
constexpr std::int64_t around = 6 * anHour;
// horad looks at the clock every two seconds.
constexpr std::int64_t unnoticed = 4; // seconds

// The hours around a change of the zone's offset, and the same hours of another week.
struct Night {
    std::time_t change;
    std::int64_t offsetBefore; // seconds ahead of UTC
    std::int64_t offsetAfter;
    Stretch hours;
    Stretch ordinary;

    // What clocks show in front of the change and behind it, in seconds as if in UTC.
    std::int64_t shownBefore() const { return change + offsetBefore; }
    std::int64_t shownAfter() const { return change + offsetAfter; }
    std::int64_t shownFirst() const { return std::min(shownBefore(), shownAfter()); }
    std::int64_t shownLast() const { return std::max(shownBefore(), shownAfter()); }
    // What clocks would show in these hours at a moment of the ordinary ones.
    std::int64_t shownOf(std::time_t ordinaryMoment) const {
        return hours.begin + offsetBefore + (ordinaryMoment - ordinary.begin);
    }
};

// Nothing where no week is without a change in these hours.
std::optional<Night> nightAround(std::time_t change) {
    constexpr int weeksToLook = 26;
    constexpr std::int64_t aWeek = 7 * secondsOfDay;
    const Stretch hours = {change - around, change + around};
    const std::int64_t before = shownAt(change - 1) - (change - 1);
    const std::int64_t after = shownAt(change) - change;
    for (int week = 1; week <= weeksToLook; ++week) {
        const std::int64_t distance = week * aWeek;
        const std::int64_t shownBegin = hours.begin + before + distance;
        const std::time_t begin = shownBegin - (shownAt(hours.begin + distance) - (hours.begin + distance));
        const Stretch ordinary = {begin, begin + hours.end + after - hours.begin - before};
        if (shownAt(begin) == shownBegin &&
            clockChanges(ordinary.begin - anHour, ordinary.end + anHour).empty())
            return Night{change, before, after, hours, ordinary};
    }
    return std::nullopt;
}

std::string clockTextOf(std::int64_t shown) {
    const auto second = static_cast<int>(shown % secondsOfDay);
    return clockText(TimePlanTime::verbatim(second / 3600, second / 60 % 60, second % 60));
}

std::string dateText(std::int64_t shown) {
    const auto seconds = static_cast<std::time_t>(shown);
    std::tm date{};
    char text[64] = {};
    if (gmtime_r(&seconds, &date) == nullptr || std::strftime(text, sizeof text, "%a %F", &date) == 0)
        return {};
    return text;
}

// The parts of a stretch that lie in others, in order. What follows at once belongs to the same part.
Stretches partsIn(const Stretches& others, const Stretches& wanted) {
    Stretches parts;
    for (const Stretch& stretch : wanted)
        for (const Stretch& other : others) {
            const Stretch common = {std::max(stretch.begin, other.begin), std::min(stretch.end, other.end)};
            if (common.length() <= 0)
                continue;
            if (!parts.empty() && common.begin - parts.back().end < unnoticed)
                parts.back().end = common.end;
            else
                parts.push_back(common);
        }
    parts.erase(std::remove_if(parts.begin(), parts.end(),
                               [](const Stretch& part) { return part.length() < unnoticed; }),
                parts.end());
    return parts;
}

// What the change makes of a slot that lasts that long otherwise; empty where nobody would mind.
std::string verdictOn(const Stretches& parts, std::int64_t usual) {
    std::int64_t length = 0;
    for (const Stretch& part : parts)
        length += part.length();
    const std::string instead = spanText(length + unnoticed) + " instead of " + spanText(usual + unnoticed);
    if (parts.empty())
        return "the slot is dropped";
    if (parts.size() > 1)
        return "the slot is doubled, it comes in " + std::to_string(parts.size()) + " parts with " +
               spanText(parts[1].begin - parts[0].end + unnoticed) + " between them";
    if (length + unnoticed >= 2 * usual)
        return "the slot is doubled, it lasts " + instead;
    if (std::abs(length - usual) * 2 + unnoticed < usual)
        return {}; // whoever sleeps through it expects no more
    return "the slot lasts " + instead;
}

// The column whose time a slot begins or ends at: slots that run past midnight end on the next day.
std::string columnAt(const ValueList& row, std::int64_t shown, bool begins) {
    constexpr std::size_t dayOfEpoch = 3; // a Thursday
    constexpr std::int64_t atMost = 8;    // seconds until horad has seen it
    const std::size_t day = (static_cast<std::size_t>(shown / secondsOfDay) + dayOfEpoch) % WeekSlots::days;
    const auto columnOf = [&](std::size_t ofDay) {
        const DayColumns& columns = orv::horad::dayColumnsOf(ofDay % WeekSlots::days);
        return begins ? columns.start : columns.stop;
    };
    for (const int back : {0, 1}) { // days; 24:00 is the next one's beginning
        const char* const column = columnOf(day + WeekSlots::days - static_cast<std::size_t>(back));
        const TimePlanTime time(valueOf(row, column));
        const std::int64_t after = secondOfDay(time) - shown % secondsOfDay;
        if (time.isSet() && (std::abs(after) <= atMost || std::abs(after - back * secondsOfDay) <= atMost))
            return column;
    }
    const std::size_t before = day + WeekSlots::days - 1;
    return columnOf(valueOf(row, columnOf(day)).empty() ? before : day); // 00:00 does not count as set
}

class ClockFindings {
public:
    ClockFindings(Inquiry& inquiry, Findings& findings) : inquiry_(inquiry), findings_(findings) {}

    void find(const Night& night) {
        const SlotLife ordinary(inquiry_.household, night.ordinary);
        const SlotLife changed(inquiry_.household, night.hours);
        for (const std::string& table : planTablesOf(inquiry_.household))
            for (const ValueList& row : inquiry_.tables.rows(table))
                for (const Stretch& slot : ordinary.slotsOf(table, orv::simulation::idOf(row)))
                    findInSlot(night, table, row, slot, changed);
        findInReboots(night, ordinary.reboots(), changed.reboots());
    }

private:
    void findInSlot(const Night& night, const std::string& table, const ValueList& row, const Stretch& usual,
                    const SlotLife& changed) {
        const std::int64_t begin = night.shownOf(usual.begin);
        const std::int64_t end = night.shownOf(usual.end);
        const Stretches wanted = {
            {std::max(begin - night.offsetBefore, std::int64_t{night.hours.begin}),
             std::min(end - night.offsetBefore, std::int64_t{night.change})},
            {std::max(begin - night.offsetAfter, std::int64_t{night.change}),
             std::min(end - night.offsetAfter, std::int64_t{night.hours.end})},
        };
        const int id = orv::simulation::idOf(row);
        const std::string verdict = verdictOn(partsIn(changed.slotsOf(table, id), wanted), usual.length());
        if (verdict.empty() || usual.length() < unnoticed)
            return;
        const bool startsThere = begin + unnoticed >= night.shownFirst() && begin <= night.shownLast();
        const std::string column = columnAt(row, startsThere ? begin : end, startsThere);
        add(night, rowName(table, id), column, valueOf(row, column.c_str()), begin, verdict);
    }

    void findInReboots(const Night& night, const std::vector<std::time_t>& usual,
                       const std::vector<std::time_t>& changed) {
        if (usual.size() == changed.size())
            return;
        const std::int64_t shown = usual.empty() ? shownAt(changed.front()) : night.shownOf(usual.front());
        const ValueList& row = inquiry_.tables.rows(dbm::AutoReboot).front();
        add(night, dbm::AutoReboot, dbm::AutoReboot_Time, valueOf(row, dbm::AutoReboot_Time), shown,
            changed.size() < usual.size() ? "the reboot is dropped" : "the reboot is doubled");
    }

    void add(const Night& night, const std::string& row, const std::string& column, const std::string& value,
             std::int64_t shown, const std::string& verdict) {
        findings_.push_back({row, column, value,
                             "on " + dateText(shown) + " the clock goes from " +
                                 clockTextOf(night.shownBefore()) + " to " + clockTextOf(night.shownAfter()) +
                                 ": " + verdict,
                             "a time before " + clockTextOf(night.shownFirst()) + " or behind " +
                                 clockTextOf(night.shownLast()) + ", or another day"});
    }

    Inquiry& inquiry_;
    Findings& findings_;
};

bool isWorthALook(const Inquiry& inquiry) {
    const std::vector<std::string> planTables = planTablesOf(inquiry.household);
    return inquiry.tables.number(dbm::AutoReboot, dbm::AutoReboot_Enable) != 0 ||
           std::any_of(planTables.begin(), planTables.end(),
                       [&](const std::string& table) { return !inquiry.tables.rows(table).empty(); });
}

} // namespace

void findInClockChanges(Inquiry& inquiry, Findings& findings) {
    constexpr std::int64_t aYear = 366 * secondsOfDay;
    if (!isWorthALook(inquiry))
        return;
    ClockFindings found(inquiry, findings);
    for (const Event& change : clockChanges(inquiry.input.now, inquiry.input.now + aYear))
        if (const std::optional<Night> night = nightAround(change.time))
            found.find(*night);
}

} // namespace tools::horactl
