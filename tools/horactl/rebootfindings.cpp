#include "handlers/dbm.h"
#include "handlers/onecell.h"
#include "handlers/reboothandler.h"
#include "simulation/machine.h"
#include "simulation/schema.h"
#include "tools/horactl/findings.h"
#include "tools/horactl/forecast.h"
#include "tools/horactl/linefiles.h"
#include "tools/horactl/localtime.h"
#include "tools/horactl/loglines.h"

#include <algorithm>
#include <optional>
#include <set>
#include <utility>

namespace tools::horactl {

namespace dbm = orv::horad::dbm;
using orv::horad::LocalMoment;
using orv::horad::oneCell;
using orv::horad::RebootHandler;
using orv::simulation::Machine;
using orv::simulation::with;
using velta::ValueList;

namespace {

constexpr int days = 22;                        // three slots of a weekly reboot
constexpr unsigned longUp = 100 * secondsOfDay; // seconds

// The moments at which horad reboots with these settings, in days without a change of the clock. The router
// was up for long, its line is idle, and its last reboot long ago.
std::vector<std::time_t> rebootsWith(const ValueList& settings, std::time_t from) {
    constexpr Machine::Microseconds pause = 50 * Machine::second; // between two passes
    orv::simulation::Tables tables;
    tables.edit(dbm::AutoReboot, {with(settings, oneCell(dbm::AutoReboot_LastReboot, ""))});
    tables.edit(dbm::Reboot, {orv::simulation::findShape(dbm::Reboot)->newRow()});
    Machine machine(std::int64_t{from} * Machine::second);
    machine.setUptime(longUp);
    const LineFiles line;
    const SilentLog silence;
    std::vector<std::time_t> moments;
    bool rebooting = false;
    tables.onCommit([&](const orv::simulation::Tables::Changes&) {
        moments.push_back(machine.time());
        rebooting = true;
    });
    std::optional<RebootHandler> handler;
    while (machine.passed() < days * secondsOfDay * Machine::second) {
        if (!handler)
            (void)handler.emplace(machine).configChanged(tables, {});
        machine.passUntil(machine.passed() + pause);
        handler->checkReboot(tables);
        if (!std::exchange(rebooting, false))
            continue;
        handler.reset();
        machine.passUntil(machine.passed() + Forecast::rebootDuration * Machine::second);
        machine.restart();
        tables.edit(dbm::Reboot, {orv::simulation::findShape(dbm::Reboot)->newRow()});
    }
    return moments;
}

// "every day", "on Sundays"
std::string daysOf(const std::vector<std::time_t>& moments) {
    std::set<int> weekDays;
    for (const std::time_t time : moments)
        if (const std::optional<LocalMoment> moment = LocalMoment::at(time))
            weekDays.insert(moment->weekDay());
    if (weekDays.empty())
        return "never";
    if (weekDays.size() > 1)
        return "every day";
    return std::string("on ") + nameOfDay(static_cast<std::size_t>(*weekDays.begin()) + 6) + 's';
}

class RebootFindings {
public:
    RebootFindings(const ValueList& settings, std::time_t now, Findings& findings)
        : settings_(settings), from_(quietMidnight(now, days)), findings_(findings) {}

    void find() {
        const std::optional<Finding> noTime = findNoTime(dbm::AutoReboot, settings_, dbm::AutoReboot_Time);
        if (noTime)
            findings_.push_back(*noTime);
        if (numberOf(settings_, dbm::AutoReboot_Enable) == 0)
            return;
        if (valueOf(settings_, dbm::AutoReboot_Time).empty()) {
            add(dbm::AutoReboot_Time, "the reboot is enabled, but has no time: it never comes",
                "a time of day, or Enable=0");
            return;
        }
        // A minimum of nothing holds no reboot back.
        const ValueList noMinimum = oneCell(dbm::AutoReboot_MinimumRuntime, velta::Value::Integer, 0);
        const std::vector<std::time_t> unhindered = rebootsWith(with(settings_, noMinimum), from_);
        findInDay(unhindered);
        if (!noTime)
            findInMinimum(unhindered.size());
    }

private:
    void findInDay(const std::vector<std::time_t>& unhindered) {
        const int weekDay = numberOf(settings_, dbm::AutoReboot_WeekDay);
        if (weekDay < 0 || weekDay > 7)
            add(dbm::AutoReboot_WeekDay, "there is no such day; horad reboots " + daysOf(unhindered),
                "0 for every day, 1 to 7 for Monday to Sunday");
    }

    void findInMinimum(std::size_t unhindered) {
        const int minimum = numberOf(settings_, dbm::AutoReboot_MinimumRuntime);
        constexpr const char* usual = "5400, as in a new store";
        if (minimum == 0) {
            add(dbm::AutoReboot_MinimumRuntime,
                "nothing keeps the router from rebooting again right after a start, as often as the clock "
                "shows "
                "the time of the reboot",
                usual);
            return;
        }
        const std::size_t allowed = rebootsWith(settings_, from_).size();
        if (allowed >= unhindered)
            return;
        const std::string seconds = std::to_string(static_cast<std::uint32_t>(minimum));
        add(dbm::AutoReboot_MinimumRuntime,
            "the router has to be up for " + seconds +
                " s before it reboots, longer than from one slot to the next: of " +
                std::to_string(unhindered) + " reboots " + std::to_string(unhindered - allowed) +
                " are left out",
            usual);
    }

    void add(const char* column, const std::string& meaning, const std::string& meant) {
        findings_.push_back({dbm::AutoReboot, column, valueOf(settings_, column), meaning, meant});
    }

    const ValueList& settings_;
    std::time_t from_;
    Findings& findings_;
};

} // namespace

void findInReboot(Inquiry& inquiry, Findings& findings) {
    for (const ValueList& settings : inquiry.tables.rows(dbm::AutoReboot))
        RebootFindings(settings, inquiry.input.now, findings).find();
}

} // namespace tools::horactl
