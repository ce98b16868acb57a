#include "tools/horactl/whyreboot.h"

#include "handlers/dbm.h"
#include "handlers/rebootdecision.h"
#include "handlers/rebootslot.h"
#include "timeplan/isotime.h"
#include "timeplan/localmoment.h"
#include "timeplan/timeplan.h"
#include "tools/horactl/localtime.h"
#include "tools/horactl/settled.h"
#include "tools/text.h"

#include <algorithm>
#include <cstdint>

namespace tools::horactl {

namespace dbm = orv::horad::dbm;
using orv::horad::RebootObstacle;
using velta::ValueList;

namespace {

// The settings, as horad reads them.
struct Settings {
    explicit Settings(const ValueList& row)
        : enabled(row.getValue(dbm::AutoReboot_Enable).getInteger() != 0),
          time(row.getValue(dbm::AutoReboot_Time).getText()),
          weekDay(static_cast<std::uint8_t>(row.getValue(dbm::AutoReboot_WeekDay).getInteger())),
          minimum(static_cast<std::uint32_t>(row.getValue(dbm::AutoReboot_MinimumRuntime).getInteger())) {
        const std::string last = row.getValue(dbm::AutoReboot_LastReboot).getText();
        if (!last.empty())
            lastReboot = orv::horad::momentOf(last);
    }

    bool isInSlot(std::time_t moment) const {
        orv::horad::TimePlan plan(0, dbm::AutoReboot, false);
        orv::horad::enterRebootSlot(plan, time, weekDay);
        const std::optional<orv::horad::LocalMoment> local = orv::horad::LocalMoment::at(moment);
        return local && plan.isInTimeslot(*local);
    }

    bool enabled;
    std::string time;
    std::uint8_t weekDay;
    std::uint32_t minimum;
    std::optional<std::time_t> lastReboot;
};

std::string dayText(std::uint8_t weekDay) {
    constexpr const char* days[] = {"Mondays", "Tuesdays",  "Wednesdays", "Thursdays",
                                    "Fridays", "Saturdays", "Sundays"};
    return weekDay == orv::horad::everyDay ? "every day" : days[orv::horad::rebootDayOf(weekDay)];
}

std::vector<Condition> conditionsOf(const Question& question, const Settings& settings, const Line& line) {
    const auto uptime = static_cast<unsigned>(uptimeOf(question));
    const bool upLongEnough = orv::horad::obstacleOfReboot(uptime, question.present, std::nullopt,
                                                           settings.minimum) == RebootObstacle::None;
    const bool lastLongAgo = orv::horad::obstacleOfReboot(UINT32_MAX, question.present, settings.lastReboot,
                                                          settings.minimum) == RebootObstacle::None;
    const std::string minimum = spanText(settings.minimum);
    const std::string last = settings.lastReboot ? timeForPerson(*settings.lastReboot) : "never";
    return {
        {"auto reboot is on", settings.enabled, settings.enabled ? "1" : "0", "1"},
        {"a time is set", !settings.time.empty(), printable(settings.time), ""},
        {"in the slot", settings.isInSlot(question.present), timeForPerson(question.present),
         dayText(settings.weekDay) + " at " + printable(settings.time) + ", a minute long"},
        {"no call", !line.call, line.call ? "a call runs" : "idle", line.problem},
        {"up for long enough", upLongEnough, spanText(uptime), "at least " + minimum},
        {"last reboot long enough ago", lastLongAgo, last, "more than " + minimum + " ago"},
    };
}

} // namespace

Explanation explainReboot(const Question& question) {
    const ValueList* const row = question.household.row(dbm::AutoReboot);
    const Settings settings(row != nullptr ? *row : ValueList());
    Explanation why;
    why.subject = "reboot";
    const Line line = lineOf(question);
    why.conditions = conditionsOf(question, settings, line);
    const auto stops = std::find_if(why.conditions.begin(), why.conditions.end(),
                                    [](const Condition& condition) { return !condition.met; });
    why.acts = stops == why.conditions.end();
    why.decides = (why.acts ? why.conditions.back() : *stops).name;
    why.summary = why.acts ? "The router would reboot now, within a minute"
                           : "No reboot now: \"" + why.decides + "\" is not met";
    if (settings.enabled && !settings.time.empty() && !line.call) // else time alone changes nothing
        why.next = Settled(question, line).next([](const Event& event) {
            return event.what == Event::What::Reboot;
        });
    why.notes = {
        "a reboot is exact to a minute only: horad looks at it every 50 seconds, and nobody knows when "
        "the running one does",
        "a horad that runs already may wait for the end of a call, or keep the slot of another weekday "
        "that was set before"};
    return why;
}

} // namespace tools::horactl
