#include "tools/horactl/week.h"

#include "handlers/dbm.h"
#include "handlers/onecell.h"
#include "tools/horactl/events.h"
#include "tools/horactl/localtime.h"
#include "tools/horactl/weekdays.h"
#include "tools/horactl/weekframes.h"
#include "tools/horactl/wlanstate.h"
#include "tools/text.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <map>
#include <set>
#include <utility>

namespace tools::horactl {

namespace dbm = orv::horad::dbm;
using orv::simulation::idOf;
using orv::simulation::Tables;
using velta::ValueList;

namespace {

constexpr unsigned daysOfWeek = 7;
constexpr std::size_t longestName = 60;
constexpr std::size_t longestReason = 160;
constexpr std::size_t namedOverlaps = 8;
constexpr std::time_t leastOverlap = 60; // seconds

int integerOf(const ValueList& row, const char* column) {
    return row.getValue(column).getInteger();
}

std::string shownName(const ValueList& row) {
    return cut(printable(row.getValue(dbm::TimePlan_Name).getText()), longestName);
}

std::vector<WeekPicture::Plan> plansOf(const Household& household) {
    std::vector<WeekPicture::Plan> plans;
    for (const std::string& table : household.planTables)
        for (const ValueList& row : household.rows(table))
            plans.push_back(
                {table, idOf(row), shownName(row), integerOf(row, dbm::TimePlan_Activate) != 0, {}});
    return plans;
}

// Takes a life of horad down: what the tables hold after each of its commits.
class Recorder {
public:
    explicit Recorder(WeekPicture& picture) : picture_(picture) {
        for (std::size_t i = 0; i < picture.plans.size(); ++i)
            places_.emplace(std::pair(picture.plans[i].table, picture.plans[i].id), i);
    }

    // Lets a horad live through that time. What it puts right in its first moments was so from the begin on.
    void record(Forecast& forecast, const Span& span, bool withEvents) {
        withEvents_ = withEvents;
        settling_ = true;
        forecast.onCommit([&](std::time_t time, const Forecast::Changes& changes) {
            if (time >= span.end)
                return;
            takeEvents(time, changes);
            if (!settling_)
                takeStates(time, forecast.tables());
        });
        forecast.settle();
        settling_ = false;
        takeStates(span.begin, forecast.tables());
        forecast.runUntil(span.end);
        forecast.onCommit({});
        closeAt(span.end);
    }

private:
    void takeStates(std::time_t time, const Tables& tables) {
        takeWlan(time, tables);
        for (const auto& [key, place] : places_)
            slots_[place] = false;
        std::set<std::string> tablesOfPlans;
        for (const WeekPicture::Plan& plan : picture_.plans)
            tablesOfPlans.insert(plan.table);
        for (const std::string& table : tablesOfPlans)
            for (const ValueList& row : tables.rows(table))
                takePlan(table, row);
        for (const auto& [place, open] : slots_)
            setOpen(picture_.plans[place].open, time, open, openNow_[place]);
    }

    // A plan's status is 1 inside its slots where it activates, and outside them where it does not.
    void takePlan(const std::string& table, const ValueList& row) {
        const auto place = places_.find({table, idOf(row)});
        if (place == places_.end())
            return;
        const bool active = integerOf(row, dbm::TimePlan_Status) != 0;
        slots_[place->second] = active == picture_.plans[place->second].activating;
    }

    // Its last span is open as long as `isOpen`; it ends where it begins then.
    static void setOpen(std::vector<Span>& spans, std::time_t time, bool open, bool& isOpen) {
        if (open && !isOpen) {
            const bool goesOn = !spans.empty() && spans.back().end == time;
            if (!goesOn)
                spans.push_back({time, time});
        } else if (!open && isOpen) {
            spans.back().end = time;
            if (spans.back().begin == time)
                spans.pop_back();
        }
        isOpen = open;
    }

    void takeWlan(std::time_t time, const Tables& tables) {
        const WlanState state = wlanStateOf(tables);
        const std::string label = state.by == WlanState::By::Plan ? shownName(*state.row) : "";
        std::vector<WeekPicture::Wlan>& pieces = picture_.wlan;
        if (!pieces.empty() && pieces.back().span.begin == time)
            pieces.pop_back(); // it was passed through only
        if (!pieces.empty() && pieces.back().on == state.on && pieces.back().by == state.decides())
            return;
        if (!pieces.empty())
            pieces.back().span.end = time;
        pieces.push_back(
            {{time, time}, state.on, state.decides(), label, cut(state.explanation(), longestReason)});
    }

    void takeEvents(std::time_t time, const Forecast::Changes& changes) {
        if (!withEvents_)
            return;
        for (const Tables::Change& change : changes) {
            if (change.table == dbm::Reboot && change.after.getInteger() == 1)
                picture_.reboots.push_back(time);
            if (change.table == dbm::TimeFrame && change.column == dbm::TimeFrame_RunCounter)
                takeStart(change.id, time);
        }
    }

    void takeStart(int frameId, std::time_t time) {
        for (WeekPicture::Frame& frame : picture_.frames)
            if (frame.id == frameId)
                frame.starts.push_back(time);
    }

    void closeAt(std::time_t end) {
        picture_.wlan.back().span.end = end;
        for (const auto& [place, open] : openNow_)
            if (open)
                picture_.plans[place].open.back().end = end;
        openNow_.clear();
    }

    WeekPicture& picture_;
    std::map<std::pair<std::string, int>, std::size_t> places_; // of the plans, by table and Id
    std::map<std::size_t, bool> slots_;                         // whether each plan's slot is open
    std::map<std::size_t, bool> openNow_;                       // the same, as it is taken down
    bool withEvents_ = false;
    bool settling_ = false;
};

// The same house without anything that starts or reboots.
Household withoutEvents(Household household) {
    household.tables[dbm::TimeFrame].clear();
    const ValueList off = orv::horad::oneCell(dbm::AutoReboot_Enable, velta::Value::Integer, 0);
    for (ValueList& row : household.tables[dbm::AutoReboot])
        row = orv::simulation::with(row, off);
    return household;
}

std::string briefChange(std::time_t at) {
    const std::int64_t by = offsetOf(at) - offsetOf(at - 1);
    return "clock " + spanText(std::abs(by)) + (by < 0 ? " back" : " forward");
}

// A slot's begin or end.
struct Edge {
    std::time_t at;
    std::size_t plan;
    bool opens;
};

std::vector<Edge> edgesOf(const std::vector<WeekPicture::Plan>& plans, const std::string& table) {
    std::vector<Edge> edges;
    for (std::size_t i = 0; i < plans.size(); ++i)
        if (plans[i].table == table)
            for (const Span& slot : plans[i].open) {
                edges.push_back({slot.begin, i, true});
                edges.push_back({slot.end, i, false});
            }
    std::sort(edges.begin(), edges.end(),
              [](const Edge& one, const Edge& other) { return one.at < other.at; });
    return edges;
}

void addOverlaps(WeekPicture& picture, const std::string& table) {
    const std::vector<Edge> edges = edgesOf(picture.plans, table);
    std::set<std::size_t> open;
    std::time_t since = 0;
    for (const Edge& edge : edges) {
        if (open.size() > 1 && edge.at - since >= leastOverlap) {
            const auto last =
                std::next(open.begin(), static_cast<std::ptrdiff_t>(std::min(open.size(), namedOverlaps)));
            picture.overlaps.push_back({{since, edge.at}, table, open.size(), {open.begin(), last}});
        }
        if (edge.opens)
            open.insert(edge.plan);
        else
            open.erase(edge.plan);
        since = edge.at;
    }
}

} // namespace

WeekPicture pictureOf(const Household& household, unsigned repeatDelay, std::time_t from, std::time_t now,
                      const Circumstances& circumstances) {
    WeekPicture picture;
    picture.days = daysFrom(from, daysOfWeek);
    picture.plans = plansOf(household);
    picture.frames = framesOf(household, picture.span());
    const Span week = picture.span();
    Recorder recorder(picture);
    if (now >= week.begin && now < week.end)
        picture.present = now;
    const std::time_t known = picture.present.value_or(week.begin);
    if (week.begin < known) {
        Forecast past(withoutEvents(household), {week.begin, repeatDelay, false});
        recorder.record(past, {week.begin, known}, false);
    }
    Forecast future(household, {known, repeatDelay, false}, circumstances);
    recorder.record(future, {known, week.end}, true);
    for (const std::string& table : household.planTables)
        addOverlaps(picture, table);
    for (const Event& change : clockChanges(week.begin, week.end - 1))
        picture.clockChanges.push_back({change.time, change.why, briefChange(change.time)});
    return picture;
}

} // namespace tools::horactl
