#include "sim/oracleplans.h"

#include <algorithm>
#include <cstdio>

namespace sim {

using velta::ValueList;

namespace {

constexpr const char* fromSunday[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr const char* wlanPlans = "WlanTimePlans";
constexpr const char* wlanGlobals = "WlanGlobals";

// The key under which a row's status is written: what fits into three characters (C1).
std::string keyOf(int id) {
    char key[4];
    (void)std::snprintf(key, sizeof key, "%d", id);
    return key;
}

bool isWrittenByItself(int id) {
    return keyOf(id) == std::to_string(id);
}

// A slot begins with its first second and ends behind its last one. Everything else happens at full minutes.
std::uint64_t turnsIn(const WeekPlan& week, const WallTime& now) {
    constexpr int secondsOfMinute = 60;
    std::uint64_t turns = 1;
    const auto add = [&](const TimeOfDay& time, int second) {
        if (time[0] == now.time[0] && time[1] == now.time[1] && second >= 0 && second < secondsOfMinute)
            turns |= std::uint64_t{1} << second;
    };
    for (const DaySlot& slot : week) {
        add(slot.start, slot.start[2]);
        add(slot.stop, slot.stop[2] + 1);
    }
    return turns;
}

} // namespace

PlanWatch::PlanWatch(Watch& watch) : watch_(watch) {
    for (const std::string& name : watch.view.planTables)
        if (std::none_of(tables_.begin(), tables_.end(),
                         [&](const PlanTable& table) { return table.name == name; }))
            tables_.push_back(PlanTable{name, {}, {}, true, {}, {}});
}

std::size_t PlanWatch::rows() const {
    std::size_t count = 0;
    for (const PlanTable& table : tables_)
        count += table.rows.size();
    return count;
}

void PlanWatch::passed() {
    wantedBefore_ = wanted_;
    const bool changed = look();
    const bool turned = ask();
    endDoubt();
    if (refusedUpdates_ != watch_.view.refusedUpdates)
        doubt();
    refusedUpdates_ = watch_.view.refusedUpdates;
    if (!watch_.isExact()) {
        judged_ = false;
        return;
    }
    if (judged_ && !changed && !turned && wantedBefore_ == wanted_)
        return;
    fight_ = false;
    for (PlanTable& table : tables_)
        judge(table);
    judgeWlan();
    judged_ = wantedBefore_ == wanted_; // if not, the WLAN may still follow
}

// True where a table has changed.
bool PlanWatch::look() {
    const orv::simulation::Tables& store = watch_.view.tables;
    if (looked_ && version_ == store.version())
        return false;
    looked_ = true;
    version_ = store.version();
    for (PlanTable& table : tables_)
        if (table.version != store.version(table.name))
            read(table);
    wanted_ = wantedWlan();
    return true;
}

void PlanWatch::read(PlanTable& table) {
    table.version = watch_.view.tables.version(table.name);
    if (!table.doubted.empty() && !table.doubtEnds)
        table.doubtEnds = watch_.passes() + 1;
    table.rows.clear();
    table.plain = true;
    const WallTime now = watch_.wall();
    for (const ValueList& values : watch_.view.tables.rows(table.name)) {
        PlanRow row;
        row.id = orv::simulation::idOf(values);
        row.activate = values.getValue("Activate").getInteger() != 0;
        row.status = values.getValue("TimePlanStatus").getInteger() != 0;
        for (std::size_t day = 0; day < row.week.size(); ++day)
            row.week[day] = {timeOfDay(values.getValue(std::string("Start") + fromSunday[day]).getText()),
                             timeOfDay(values.getValue(std::string("Stop") + fromSunday[day]).getText())};
        row.inside = isInside(row.week, now);
        row.turns = turnsIn(row.week, now);
        table.plain = table.plain && isWrittenByItself(row.id) &&
                      (table.rows.empty() || table.rows.back().id != row.id);
        table.rows.push_back(row);
    }
}

// True where some plan says something else than it did when it was asked last.
bool PlanWatch::ask() {
    const WallTime now = watch_.wall();
    const std::time_t minute = watch_.clock() - now.time[2];
    const bool isSameMinute = minute == minute_;
    const std::uint64_t notBefore = isSameMinute ? ~std::uint64_t{0} << second_ << 1 : ~std::uint64_t{0};
    const std::uint64_t passed = notBefore & ~(~std::uint64_t{0} << now.time[2] << 1);
    if (isSameMinute && now.time[2] == second_)
        return false;
    const bool isBack = isSameMinute && now.time[2] < second_;
    minute_ = minute;
    second_ = now.time[2];
    bool turned = false;
    for (PlanTable& table : tables_)
        for (PlanRow& row : table.rows) {
            if (!isSameMinute)
                row.turns = turnsIn(row.week, now);
            if (!isSameMinute || isBack || (row.turns & passed) != 0)
                turned = askAgain(row, now) || turned;
        }
    return turned;
}

bool PlanWatch::askAgain(PlanRow& row, const WallTime& now) {
    const bool inside = isInside(row.week, now);
    if (inside == row.inside)
        return false;
    row.inside = inside;
    ++edges_;
    return true;
}

// An update that the store refused counts as done until the table is read again (C2): the rows that are
// wrong now are left alone until then, or they are right. A zone that was set in this minute counts for horad
// already, perhaps.
void PlanWatch::doubt() {
    const WallTime now = wallTime(watch_.clock());
    for (PlanTable& table : tables_)
        for (const PlanRow& row : table.rows)
            if (row.status != row.wanted() || row.status != (isInside(row.week, now) == row.activate)) {
                table.doubted.insert(row.id);
                table.doubtEnds.reset();
            }
}

// What changes a table in an iteration is read with the next one at the latest.
void PlanWatch::endDoubt() {
    for (PlanTable& table : tables_)
        if (table.doubtEnds && watch_.passes() >= *table.doubtEnds) {
            table.doubted.clear();
            table.doubtEnds.reset();
        }
}

void PlanWatch::judge(PlanTable& table) {
    if (!table.plain)
        return judgeStrangeIds(table);
    for (const PlanRow& row : table.rows) {
        if (row.status == row.wanted())
            table.doubted.erase(row.id);
        else if (table.doubted.count(row.id) == 0)
            watch_.violated(expectation(table, row));
    }
}

// A row is written under the first three characters of its Id (C1): a row of a longer Id is never written,
// and one of three digits may be written by a longer one too; where the two want different things, its status
// is whatever came last. Of two rows of the same Id the second makes the plan, and the first is written to
// until the second has what is wanted.
void PlanWatch::judgeStrangeIds(PlanTable& table) {
    for (std::size_t i = 0; i < table.rows.size(); ++i) {
        const PlanRow& row = table.rows[i];
        const std::string key = std::to_string(row.id);
        std::size_t last = i;
        bool isFirst = true;
        bool isFought = false;
        for (std::size_t j = 0; j < table.rows.size(); ++j) {
            const PlanRow& other = table.rows[j];
            if (other.id == row.id) {
                isFirst = isFirst && j >= i;
                last = std::max(last, j);
            } else if (keyOf(other.id) == key && other.wanted() != row.wanted()) {
                isFought = true;
            }
        }
        fight_ = fight_ || isFought;
        const PlanRow& decider = table.rows[last];
        const bool isWritten = isFirst && isWrittenByItself(row.id) && !isFought &&
                               (last == i || decider.status != decider.wanted());
        if (isWritten && table.doubted.count(row.id) == 0 && row.status != decider.wanted())
            watch_.violated(expectation(table, decider));
    }
}

std::string PlanWatch::expectation(const PlanTable& table, const PlanRow& row) const {
    return table.name + " " + std::to_string(row.id) + ": TimePlanStatus " + (row.wanted() ? "1" : "0") +
           " was expected, as the plan has Activate " + (row.activate ? "1" : "0") + " and it is " +
           (row.inside ? "inside" : "outside") + " its slots; it is " + (row.status ? "1" : "0");
}

// The first row makes the default: on where it does not activate. Without a row the WLAN goes off (C3).
// Nothing is said where the plans can't be read.
std::optional<bool> PlanWatch::wantedWlan() const {
    const orv::simulation::Tables& store = watch_.view.tables;
    if (!store.has(wlanPlans) || store.rows(wlanGlobals).empty() ||
        store.number(wlanGlobals, "AlwaysEnable") != 0)
        return std::nullopt;
    const orv::simulation::Tables::Rows& rows = store.rows(wlanPlans);
    bool wanted = !rows.empty() && rows.front().getValue("Activate").getInteger() == 0;
    for (const ValueList& row : rows) {
        const int activate = row.getValue("Activate").getInteger();
        const int status = row.getValue("TimePlanStatus").getInteger();
        if ((activate == 1 && status == 1) || (activate == 0 && status == 0))
            wanted = activate == 1;
    }
    return wanted;
}

// The WLAN follows the rows with the next iteration: horad hears of what it wrote itself only then.
void PlanWatch::judgeWlan() {
    if (!wanted_ || !wantedBefore_)
        return;
    const bool enabled = watch_.view.tables.number(wlanGlobals, "WlanEnable") != 0;
    if (enabled == *wanted_ || enabled == *wantedBefore_)
        return;
    watch_.violated(std::string("WlanGlobals: WlanEnable ") + (*wanted_ ? "1" : "0") +
                    " was expected, as the rows of WlanTimePlans say; it is " + (enabled ? "1" : "0"));
}

} // namespace sim
