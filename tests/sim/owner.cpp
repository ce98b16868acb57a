#include "sim/happenings.h"

#include <algorithm>
#include <string>

// The owner's weekly plans and settings: what a person enters, odd texts included, as far as the store takes
// them.
namespace sim {

using orv::simulation::idOf;

namespace {

constexpr const char* planTables[] = {"WlanTimePlans", "TimePlans"};
constexpr int mostPlans = 8; // of one table
constexpr int largestId = 999;

std::string twoDigits(int number) {
    return (number < 10 ? "0" : "") + std::to_string(number);
}

std::string timeText(Random& random, int hour) {
    const int minute = random.chance(60) ? 30 * random.number(0, 1) : random.number(0, 59);
    const std::string text = (random.chance(50) ? std::to_string(hour) : twoDigits(hour)) + ":";
    if (random.chance(60))
        return text + twoDigits(minute);
    return text + twoDigits(minute) + ":" + twoDigits(random.chance(50) ? 0 : random.number(0, 59));
}

std::string anyTime(Random& random) {
    static const std::string special[] = {"",         "0:00",     "00:00:00", "24:00",
                                          "24:00:00", "23:59:59", "00:00:01"};
    return random.chance(15) ? random.among(special) : timeText(random, random.number(0, 23));
}

void setAnySlot(Row& plan, Random& random, const std::string& weekDay) {
    switch (random.below(6)) {
    case 0: // by day
        return setSlot(plan, weekDay, timeText(random, random.number(5, 11)),
                       timeText(random, random.number(12, 23)));
    case 1: // past midnight
        return setSlot(plan, weekDay, timeText(random, random.number(18, 23)),
                       timeText(random, random.number(0, 8)));
    case 2: // to the end of the day
        return setSlot(plan, weekDay, timeText(random, random.number(0, 23)),
                       random.chance(50) ? "24:00" : "");
    case 3: // none
        return setSlot(plan, weekDay, "", random.chance(50) ? "" : "00:00");
    case 4: { // start and stop are equal
        const std::string time = anyTime(random);
        return setSlot(plan, weekDay, time, time);
    }
    default:
        return setSlot(plan, weekDay, anyTime(random), anyTime(random));
    }
}

void setWeek(Row& plan, Random& random) {
    const bool daily = random.chance(40);
    setAnySlot(plan, random, "Mon");
    for (const char* const weekDay : weekDays)
        if (daily)
            setSlot(plan, weekDay, plan.getValue("StartMon").getText(), plan.getValue("StopMon").getText());
        else
            setAnySlot(plan, random, weekDay);
}

int freeId(const Household& household, const std::string& table, Random& random) {
    const Rows& rows = household.tables().rows(table);
    for (;;) {
        const int id = random.number(1, largestId);
        if (std::none_of(rows.begin(), rows.end(), [id](const Row& row) { return idOf(row) == id; }))
            return id;
    }
}

void addPlan(Household& household, Random& random, const std::string& table) {
    if (household.tables().rows(table).size() >= mostPlans)
        return;
    Row plan = newRow(table, freeId(household, table, random));
    set(plan, "TimePlanName", "plan " + std::to_string(idOf(plan)));
    set(plan, "TimePlanStatus", random.number(0, 1));
    set(plan, "Activate", random.chance(75) ? 1 : 0);
    setWeek(plan, random);
    household.insert(table, plan);
}

void changePlan(Household& household, Random& random, const std::string& table) {
    const Row* const plan = anyRow(household, table, random);
    if (plan == nullptr)
        return;
    const int id = idOf(*plan);
    Row changed = *plan;
    switch (random.below(6)) {
    case 0:
        return household.remove(table, id);
    case 1:
        set(changed, "Activate", 1 - plan->getValue("Activate").getInteger());
        break;
    case 2:
        set(changed, "TimePlanStatus", 1 - plan->getValue("TimePlanStatus").getInteger());
        break;
    case 3:
        setWeek(changed, random);
        break;
    default:
        setAnySlot(changed, random, random.among(weekDays));
    }
    household.edit(table, [changed](Rows& rows) {
        for (Row& row : rows)
            if (idOf(row) == idOf(changed))
                row = changed;
    });
}

void editPlans(Household& household, Random& random) {
    const std::string table = random.among(planTables);
    if (random.chance(30))
        addPlan(household, random, table);
    else
        changePlan(household, random, table);
}

void editWlan(Household& household, Random& random) {
    const std::string column = random.chance(70) ? "WlanEnable" : "AlwaysEnable";
    household.change("WlanGlobals", 0, column, 1 - household.tables().number("WlanGlobals", column));
}

void editAutoReboot(Household& household, Random& random) {
    static const int runtimes[] = {0, 59, 60, 600, 3600, 5400, 5400, 5400, 86400, 604800};
    static const std::string stamps[] = {"", "never", "2099-01-01T00:00:00+0000", "2020-02-29T12:00:00+0100"};
    switch (random.below(6)) {
    case 0:
        return household.change("AutoReboot", 0, "Enable", random.chance(80) ? 1 : 0);
    case 1:
        return household.change("AutoReboot", 0, "WeekDay", random.chance(60) ? 0 : random.number(1, 7));
    case 2:
        return household.change("AutoReboot", 0, "Time", anyTime(random));
    case 3:
        return household.change("AutoReboot", 0, "MinimumRuntime", random.among(runtimes));
    case 4: // off, and on another weekday some time later
        household.change("AutoReboot", 0, "Enable", 0);
        return household.machine().after(random.between(1 * minute, 1 * hour),
                                         [&household, weekDay = random.number(1, 7)] {
                                             household.change("AutoReboot", 0, "WeekDay", weekDay);
                                             household.change("AutoReboot", 0, "Enable", 1);
                                         });
    default:
        if (random.chance(20))
            household.change("AutoReboot", 0, "LastReboot", random.among(stamps));
    }
}

} // namespace

void keepPlans(Household& household, const std::shared_ptr<Random>& random) {
    constexpr int plansAtFirst = 5; // of each table
    for (const char* const table : planTables)
        for (int plan = 0; plan < plansAtFirst; ++plan)
            addPlan(household, *random, table);
    recur(household, random, 10 * minute, 24 * hour, editPlans);
}

void keepWlan(Household& household, const std::shared_ptr<Random>& random) {
    recur(household, random, 1 * hour, 3 * day, editWlan);
}

void keepAutoReboot(Household& household, const std::shared_ptr<Random>& random) {
    household.change("AutoReboot", 0, "Enable", 1);
    household.change("AutoReboot", 0, "Time", timeText(*random, random->number(0, 23)));
    recur(household, random, 1 * hour, 4 * day, editAutoReboot);
}

} // namespace sim
