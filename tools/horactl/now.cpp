#include "tools/horactl/now.h"

#include "handlers/dbm.h"
#include "timeplan/isotime.h"
#include "tools/cells.h"
#include "tools/horactl/events.h"
#include "tools/horactl/frames.h"
#include "tools/horactl/localtime.h"
#include "tools/horactl/loglines.h"
#include "tools/horactl/wlanstate.h"
#include "tools/table.h"
#include "tools/text.h"

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <vector>

namespace tools::horactl {

namespace dbm = orv::horad::dbm;
using nlohmann::ordered_json;
using orv::horad::ServiceState;
using orv::simulation::idOf;
using orv::simulation::Tables;
using velta::ValueList;

namespace {

// When each of the states changes next.
struct Changes {
    std::map<std::string, std::time_t> statuses; // by the row's name
    std::optional<std::time_t> wlan;
    std::optional<std::time_t> reboot;

    void take(const Event& event) {
        switch (event.what) {
        case Event::What::Wlan:
            wlan = wlan.value_or(event.time);
            break;
        case Event::What::Status:
            statuses.emplace(event.rows.front(), event.time);
            break;
        case Event::What::Reboot:
            reboot = reboot.value_or(event.time);
            break;
        case Event::What::Service:
        case Event::What::Clock:
            break;
        }
    }
};

std::string until(std::optional<std::time_t> moment, std::time_t present) {
    return moment ? "until " + timeForPerson(*moment) + " (" + distanceText(*moment - present) + ")" : "";
}

std::string plansText(const Question& question, const Tables& tables, const Changes& changes) {
    std::vector<TextRow> lines;
    for (const std::string& table : question.household.planTables)
        for (const ValueList& plan : tables.rows(table)) {
            const bool active = plan.getValue(dbm::TimePlan_Status).getInteger() != 0;
            const auto change = changes.statuses.find(rowName(table, idOf(plan)));
            const auto moment =
                change != changes.statuses.end() ? std::optional(change->second) : std::nullopt;
            lines.push_back({"  " + planName(table, plan), active ? "active" : "not active",
                             until(moment, question.present)});
        }
    return lines.empty() ? "" : "\nPlans\n" + aligned(lines, question.width);
}

const char* stateText(const Tables& tables, const ValueList& frame) {
    const std::string table = frame.getValue(dbm::TimeFrame_Servicetable).getText();
    const int id = frame.getValue(dbm::TimeFrame_ServicetableId).getInteger();
    return nameOf(stateIn(orv::simulation::findRow(tables.rows(table), id)).value_or(ServiceState::Idle));
}

std::time_t secondsIn(const ValueList& frame, const char* column) {
    return static_cast<std::uint32_t>(frame.getValue(column).getInteger()); // unsigned, up to 2106
}

std::string framesText(const Tables& tables) {
    std::string text;
    for (const ValueList& frame : tables.rows(dbm::TimeFrame)) {
        const std::string service = printable(frame.getValue(dbm::TimeFrame_Servicetable).getText()) + "." +
                                    frame.getValue(dbm::TimeFrame_ServicetableId).getText();
        text += "  " + rowName(dbm::TimeFrame, idOf(frame)) + " for " + service + " (" +
                stateText(tables, frame) + "), from " +
                timeForPerson(secondsIn(frame, dbm::TimeFrame_Start)) + " to " +
                timeForPerson(secondsIn(frame, dbm::TimeFrame_End)) +
                ", runs so far: " + frame.getValue(dbm::TimeFrame_RunCounter).getText() + "\n";
    }
    return text.empty() ? "" : "\nTime frames\n" + text;
}

std::string rebootText(const Question& question, const Tables& tables, const Changes& changes) {
    if (tables.number(dbm::AutoReboot, dbm::AutoReboot_Enable) == 0)
        return "switched off";
    if (!changes.reboot)
        return "none within 8 days";
    return timeForPerson(*changes.reboot) + ", to the minute (" +
           distanceText(*changes.reboot - question.present) + ")";
}

std::string lineText(const Question& question, const Line& line) {
    if (!question.real)
        return "taken as idle";
    std::string text = line.call ? "a call runs" : "no call";
    text += line.stream ? ", an IPTV stream runs" : ", no IPTV stream";
    return line.problem.empty() ? text : text + " (" + line.problem + ")";
}

ordered_json asJson(const Question& question, const Tables& tables) {
    const WlanState wlan = wlanStateOf(tables);
    ordered_json statuses = ordered_json::object();
    for (const std::string& table : question.household.planTables)
        for (const ValueList& plan : tables.rows(table))
            statuses[rowName(table, idOf(plan))] = plan.getValue(dbm::TimePlan_Status).getInteger();
    return {{"time", orv::horad::isoTime(question.present)},
            {"wlan", wlan.on ? 1 : 0},
            {"wlan_by", wlan.decides()},
            {"statuses", std::move(statuses)}};
}

std::string asText(const Question& question, Forecast& forecast, const Line& line) {
    const WlanState wlan = wlanStateOf(forecast.tables());
    const Tables settled = forecast.tables();
    Changes changes;
    {
        const EventReader reader(forecast, [&](const Event& event) { changes.take(event); });
        forecast.runUntil(question.present + lookAhead);
    }
    const std::string change = until(changes.wlan, question.present);
    std::vector<TextRow> lines = {
        {"WLAN",
         (wlan.on ? "on" : "off") + (change.empty() ? change : " " + change) + ": " + wlan.explanation()},
        {"Reboot", rebootText(question, settled, changes)},
        {"Line", lineText(question, line)}};
    return timeForPerson(question.present) + "\n" + aligned(lines) + plansText(question, settled, changes) +
           framesText(settled);
}

} // namespace

std::string nowCommand(const Question& question) {
    const Line line = lineOf(question);
    Forecast forecast(question.household, {question.present, question.repeatDelay, question.verbose},
                      circumstancesOf(question, line, LineRuns::OverSoon));
    if (question.verbose)
        showLog(forecast);
    forecast.settle();
    return question.json ? serialise(asJson(question, forecast.tables())) + "\n"
                         : asText(question, forecast, line);
}

} // namespace tools::horactl
