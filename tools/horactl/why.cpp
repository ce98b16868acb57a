#include "tools/horactl/why.h"

#include "handlers/dbm.h"
#include "handlers/timeplanrow.h"
#include "handlers/wlandecision.h"
#include "simulation/schema.h"
#include "timeplan/isotime.h"
#include "timeplan/timeplantime.h"
#include "timeplan/weekslots.h"
#include "tools/cells.h"
#include "tools/errors.h"
#include "tools/horactl/events.h"
#include "tools/horactl/localtime.h"
#include "tools/horactl/settled.h"
#include "tools/horactl/whyframe.h"
#include "tools/horactl/whyreboot.h"
#include "tools/horactl/wlanstate.h"
#include "tools/storetables.h"
#include "tools/table.h"
#include "tools/text.h"

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>

namespace tools::horactl {

namespace dbm = orv::horad::dbm;
using nlohmann::ordered_json;
using orv::horad::Slot;
using orv::horad::TimePlanTime;
using orv::horad::WlanAction;
using orv::horad::WlanVote;
using orv::simulation::idOf;
using velta::ValueList;

namespace {

Condition voteOf(const ValueList& plan) {
    const int activate = plan.getValue(dbm::TimePlan_Activate).getInteger();
    const int status = plan.getValue(dbm::TimePlan_Status).getInteger();
    const WlanVote vote = orv::horad::wlanVoteOf(activate, status);
    return {planName(dbm::WlanTimePlans, plan) + " speaks", vote != WlanVote::Silent,
            vote == WlanVote::On    ? "on"
            : vote == WlanVote::Off ? "off"
                                    : "silent",
            std::string(activate != 0 ? "activating" : "deactivating") + ", " +
                (status != 0 ? "active" : "not active")};
}

const char* onOff(bool on) {
    return on ? "on" : "off";
}

Explanation explainWlan(const Question& question) {
    const auto isWlan = [](const Event& event) { return event.what == Event::What::Wlan; };
    Settled settled(question, lineOf(question));
    const WlanState wlan = wlanStateOf(settled.tables());
    const ValueList* const globals = question.household.row(dbm::WlanGlobals);
    const bool enabled =
        globals != nullptr && globals->getValue(dbm::WlanGlobals_WlanEnable).getInteger() != 0;
    const bool always = wlan.by == WlanState::By::AlwaysEnable;

    Explanation why;
    why.subject = "wlan";
    why.acts = orv::horad::wlanActionOf(always, enabled, wlan.wanted) == WlanAction::Switch;
    why.decides = wlan.decides();
    for (const ValueList& plan : settled.tables().rows(dbm::WlanTimePlans))
        why.conditions.push_back(voteOf(plan));
    why.conditions.push_back({"AlwaysEnable is off", !always, always ? "1" : "0", "0"});
    why.conditions.push_back(
        {"the WLAN is not as wanted", enabled != wlan.wanted, onOff(enabled), onOff(wlan.wanted)});
    const bool hasPlans = !settled.tables().rows(dbm::WlanTimePlans).empty();
    const bool flickers = !why.acts && settled.did(isWlan);
    if (!always && hasPlans)
        why.next = settled.next(isWlan);
    why.summary = std::string("WLAN is ") + (wlan.on ? "ON" : "OFF") + ": " + wlan.explanation();
    if (why.acts)
        why.notes.push_back(std::string("the store says ") + onOff(enabled) +
                            ": a horad that starts now switches it");
    if (flickers)
        why.notes.emplace_back(
            "a plan's status in the store is old: a horad that starts now switches the WLAN "
            "for a moment, until it has put the status right");
    return why;
}

// What the row says for that weekday, counted from Monday, which is 0.
std::string slotOf(const std::string& start, const std::string& stop, std::size_t day) {
    return std::string(orv::simulation::weekDays[day]) + ": " +
           (start.empty() && stop.empty() ? "none" : printable(start + " to " + stop));
}

// What it says for the weekday of that moment, and in front of it what goes on from the day before.
std::string slotsOf(const ValueList& plan, std::time_t moment) {
    constexpr std::size_t week = 7; // days
    const std::optional<LocalTime> local = localTimeOf(moment);
    if (!local)
        return "";
    const std::size_t today = (static_cast<std::size_t>(weekDayOf(*local)) + week - 1) % week;
    const std::size_t yesterday = (today + week - 1) % week;
    std::string text;
    for (const std::size_t day : {yesterday, today}) {
        const std::string start = plan.getValue(orv::horad::dayColumnsOf(day).start).getText();
        const std::string stop = plan.getValue(orv::horad::dayColumnsOf(day).stop).getText();
        const Slot slot{TimePlanTime(start), TimePlanTime(stop)};
        if (day == today || (slot.isSet() && slot.runsPastMidnight()))
            text += (text.empty() ? "" : ", ") + slotOf(start, stop, day);
    }
    return text;
}

Explanation explainPlan(const Question& question, const std::string& table, const ValueList& stored) {
    const int id = idOf(stored);
    const std::string name = rowName(table, id);
    const auto isIts = [&name](const Event& event) {
        return event.what == Event::What::Status && event.rows.front() == name;
    };
    Settled settled(question, lineOf(question));
    const bool active = settled.tables().number(table, dbm::TimePlan_Status, id) != 0;
    const bool activates = stored.getValue(dbm::TimePlan_Activate).getInteger() != 0;
    const bool was = stored.getValue(dbm::TimePlan_Status).getInteger() != 0;

    Explanation why;
    why.subject = name;
    why.acts = settled.did(isIts);
    why.decides = "slot";
    why.conditions = {
        {"inside a slot", active == activates, timeForPerson(question.present),
         slotsOf(stored, question.present)},
        {"Activate", activates, activates ? "1" : "0", "1 is active in the slots, 0 outside of them"},
        {"the status is not as wanted", was != active, was ? "1" : "0", active ? "1" : "0"}};
    why.next = settled.next(isIts);
    why.summary = planName(table, stored) + " is " + (active ? "active" : "not active") + ": " +
                  (active == activates ? "inside" : "outside") + " its slots, and it " +
                  (activates ? "activates" : "deactivates");
    return why;
}

Explanation explainRow(const Question& question, const std::string& subject) {
    const std::size_t dot = subject.rfind('.');
    const std::string table = subject.substr(0, dot);
    int id = 0;
    const char* const end = subject.data() + subject.size();
    const auto [rest, error] = std::from_chars(subject.data() + dot + 1, end, id);
    if (error != std::errc() || rest != end)
        throw WrongUse(inQuotes(subject) + ": what stands behind the dot is not an Id");
    const std::list<std::string>& plans = question.household.planTables;
    const bool isPlan = std::find(plans.begin(), plans.end(), table) != plans.end();
    if (table != dbm::TimeFrame && !isPlan)
        throw WrongUse(inQuotes(subject) + " is neither a time frame nor a plan that horad follows");
    const ValueList* const row = question.household.row(table, id);
    if (row == nullptr)
        throw Refused("there is no row " + subject);
    return isPlan ? explainPlan(question, table, *row) : explainFrame(question, id);
}

ordered_json asJson(const Explanation& why) {
    ordered_json conditions = ordered_json::array();
    for (const Condition& condition : why.conditions)
        conditions.push_back({{"name", condition.name},
                              {"met", condition.met},
                              {"value", condition.value},
                              {"limit", condition.limit}});
    return {{"subject", why.subject},
            {"acts", why.acts},
            {"decides", why.decides},
            {"conditions", std::move(conditions)},
            {"next", why.next ? ordered_json(orv::horad::isoTime(*why.next)) : ordered_json()}};
}

std::string asText(const Explanation& why, const Question& question) {
    std::vector<TextRow> lines;
    for (const Condition& condition : why.conditions)
        lines.push_back(
            {"  " + condition.name, condition.met ? "yes" : "no", condition.value, condition.limit});
    std::string text = why.summary + ".\n" + aligned(lines, question.width);
    if (why.next)
        text += "Next change: " + timeForPerson(*why.next) + " (" +
                distanceText(*why.next - question.present) + ")\n";
    for (const std::string& note : why.notes)
        text += "Note: " + note + ".\n";
    return text;
}

} // namespace

Explanation explain(const Question& question, const std::string& subject) {
    if (subject == "wlan")
        return explainWlan(question);
    if (subject == "reboot")
        return explainReboot(question);
    if (subject.find('.') == std::string::npos)
        throw WrongUse(inQuotes(subject) + " is not wlan, reboot or TABLE.ID");
    return explainRow(question, subject);
}

std::string whyCommand(const Question& question, const std::string& subject) {
    const Explanation why = explain(question, subject);
    return question.json ? serialise(asJson(why)) + "\n" : asText(why, question);
}

} // namespace tools::horactl
