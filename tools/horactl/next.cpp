#include "tools/horactl/next.h"

#include "timeplan/isotime.h"
#include "tools/cells.h"
#include "tools/horactl/events.h"
#include "tools/horactl/localtime.h"
#include "tools/horactl/loglines.h"
#include "tools/horactl/wlanstate.h"
#include "tools/table.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string_view>
#include <vector>

namespace tools::horactl {

using nlohmann::ordered_json;

namespace {

constexpr std::string_view wlanPlans = "WlanTimePlans.";

ordered_json asJson(const Event& event) {
    return {{"time", orv::horad::isoTime(event.time)},
            {"what", nameOf(event.what)},
            {"to", event.to},
            {"rows", event.rows}};
}

std::string whatText(const Event& event) {
    const bool on = event.to == "1";
    switch (event.what) {
    case Event::What::Wlan:
        return on ? "WLAN on" : "WLAN off";
    case Event::What::Status:
        return on ? "active" : "not active";
    case Event::What::Service:
        return "service";
    case Event::What::Reboot:
        return "reboot";
    case Event::What::Clock:
        return "clock";
    }
    return {};
}

// Whether the status is told by the line of the WLAN that it switches at the same time.
bool isToldByWlan(const Event& status, const std::vector<Event>& events) {
    return status.what == Event::What::Status &&
           std::any_of(events.begin(), events.end(), [&](const Event& event) {
               return event.what == Event::What::Wlan && event.time == status.time &&
                      status.rows.front().compare(0, wlanPlans.size(), wlanPlans) == 0;
           });
}

std::string asText(const std::vector<Event>& events, const Question& question, std::size_t most) {
    std::vector<TextRow> lines;
    for (const Event& event : events)
        if (lines.size() < most && !isToldByWlan(event, events))
            lines.push_back({timeForPerson(event.time), whatText(event), event.why,
                             distanceText(event.time - question.present)});
    return aligned(lines);
}

std::string presentText(const Question& question, const Forecast& forecast) {
    const WlanState wlan = wlanStateOf(forecast.tables());
    return "now " + timeForPerson(question.present) + "   WLAN " + (wlan.on ? "on" : "off") + ": " +
           wlan.explanation() + "\n";
}

} // namespace

std::string nextCommand(const Question& question, std::size_t most, std::int64_t within) {
    const std::time_t end = question.present + within;
    Forecast forecast(question.household, {question.present, question.repeatDelay, question.verbose},
                      circumstancesOf(question, lineOf(question), LineRuns::OverSoon));
    if (question.verbose)
        showLog(forecast);
    if (question.json) {
        std::string lines;
        for (const Event& event : nextEvents(forecast, question.present, end, most))
            lines += serialise(asJson(event)) + "\n";
        return lines;
    }
    forecast.settle(); // what horad puts right at its start is what a person calls the present
    const std::string present = presentText(question, forecast);
    const std::size_t read = 2 * most + 1; // a line may tell two
    const std::vector<Event> events = nextEvents(forecast, question.present, end, read);
    return present + (events.empty() ? "nothing happens within " + spanText(within) + "\n"
                                     : asText(events, question, most));
}

} // namespace tools::horactl
