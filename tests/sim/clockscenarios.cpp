#include "sim/scenario.h"

// Clocks that jump, and zones whose clocks do.
namespace sim {

namespace {

void insertWlanPlan(Household& household, int id, const std::string& start, const std::string& stop) {
    household.insert("WlanTimePlans", dailyPlan("WlanTimePlans", id, start, stop));
}

void expectWlan(const Household& household, int expected) {
    expectNumber(household, "WlanGlobals", 0, "WlanEnable", expected);
}

// Between the clock of the boot and the right one, the first plan begins and ends and the second begins.
void coldBootHoursBehind(Household& household) {
    insertWlanPlan(household, 1, "8:00", "10:00");
    insertWlanPlan(household, 2, "9:00", "18:00");
    runUntil(household, "2026-03-02 10:50:00");
    expectWlan(household, 1);
    Count first(household, "WlanTimePlans", 1, "TimePlanStatus");
    household.cutPower(Boot{1 * minute, localTime("2026-03-02 07:00:00"), 5 * minute});
    household.run(4 * minute);
    expectNumber(household, "WlanTimePlans", 2, "TimePlanStatus", 0);
    expectWlan(household, 0);
    runUntil(household, "2026-03-02 10:56:10");
    expectNumber(household, "WlanTimePlans", 2, "TimePlanStatus", 1);
    expectWlan(household, 1);
    expectEqual("changes of the plan that was skipped", first.changes(), 0);
}

void powerCutInASlotToMidnight(Household& household) {
    insertWlanPlan(household, 1, "4:00", "0:00");
    runUntil(household, "2026-03-02 17:00:00");
    expectWlan(household, 1);
    Count switches(household, "WlanGlobals", 0, "WlanEnable");
    household.cutPower(Boot{10 * minute, {}, 0});
    runUntil(household, "2026-03-02 23:59:58");
    expectWlan(household, 1);
    expectEqual("switches of the WLAN", switches.changes(), 0);
    runUntil(household, "2026-03-03 00:00:08");
    expectWlan(household, 0);
}

void bootFarInTheFuture(Household& household) {
    insertWlanPlan(household, 1, "8:00", "18:00");
    insertFrame(household, 1, "2026-03-02 20:00:00", "2026-03-02 21:00:00", 1, -1);
    insertFailingService(household, 1);
    runUntil(household, "2026-03-02 12:00:00");
    household.cutPower(Boot{1 * minute, localTime("2037-06-01 22:00:00"), 20 * minute});
    household.run(10 * minute);
    expectWlan(household, 0);
    runUntil(household, "2026-03-02 12:21:10");
    expectWlan(household, 1);
    expectNumber(household, "TimeFrame", 1, "RunCounter", 0);
    runUntil(household, "2026-03-02 22:00:00");
    expectNumber(household, "TimeFrame", 1, "RunCounter", 20);
}

// What was run already is not run again when its time comes back.
void clockBackInAWindow(Household& household) {
    insertFrame(household, 1, "2026-03-02 12:00:00", "2026-03-02 14:00:00", 1, -1);
    insertFailingService(household, 1);
    runUntil(household, "2026-03-02 13:01:00");
    expectNumber(household, "TimeFrame", 1, "RunCounter", 21);
    household.setClock(localTime("2026-03-02 12:31:00") * second);
    household.run(31 * minute);
    expectNumber(household, "TimeFrame", 1, "RunCounter", 21);
    household.run(2 * hour);
    expectNumber(household, "TimeFrame", 1, "RunCounter", 40);
}

void zoneChangedWhileRunning(Household& household) {
    insertWlanPlan(household, 1, "8:00", "18:00");
    runUntil(household, "2026-03-02 12:00:00");
    expectWlan(household, 1);
    household.setZone("Asia/Tokyo", false); // 20:00 there
    household.run(70 * second);
    expectWlan(household, 0);
    household.setZone("Europe/Berlin");
    settle(household);
    expectWlan(household, 1);
}

// Its summer time is the standard, and winter is an hour behind it.
void negativeSummerTime(Household& household) {
    insertWlanPlan(household, 1, "0:30", "1:30");
    rebootDaily(household, "4:15");
    Count switches(household, "WlanGlobals", 0, "WlanEnable");
    runUntil(household, "2026-03-29 03:00:00"); // 1:00 to 2:00 was left out
    expectEqual("switches of the WLAN in spring", switches.changes(), 4);
    runUntil(household, "2026-10-25 00:45:00");
    expectWlan(household, 1);
    expectEqual("switches until autumn", switches.changes(), 4 + 2 * 209 + 1);
    household.run(1 * hour); // 1:45, for the first time
    expectWlan(household, 0);
    household.run(30 * minute); // 1:15, for the second time
    expectWlan(household, 1);
    household.run(30 * minute);
    expectWlan(household, 0);
    expectEqual("reboots, one a day", static_cast<long>(household.reboots().size()), 211);
}

void dayThatIsMissing(Household& household) {
    insertWlanPlan(household, 1, "8:00", "18:00");
    rebootDaily(household, "3:30");
    runUntil(household, "2012-01-01 12:00:00");
    expectWlan(household, 1);
    expectReboots(household, {"2011-12-29T03:30", "2011-12-31T03:30", "2012-01-01T03:30"});
}

} // namespace

std::vector<Scenario> clockScenarios() {
    return {
        {"cold-boot-hours-behind", "Europe/Berlin", "2026-03-02 06:00:00", coldBootHoursBehind},
        {"power-cut-in-a-slot-to-midnight", "Europe/Berlin", "2026-03-02 03:00:00",
         powerCutInASlotToMidnight},
        {"boot-far-in-the-future", "Europe/Berlin", "2026-03-02 07:00:00", bootFarInTheFuture},
        {"clock-back-in-a-window", "Europe/Berlin", "2026-03-02 11:50:00", clockBackInAWindow},
        {"zone-changed-while-running", "Europe/Berlin", "2026-03-02 07:00:00", zoneChangedWhileRunning},
        {"negative-summer-time", "Europe/Dublin", "2026-03-27 12:00:00", negativeSummerTime},
        {"day-that-is-missing", "Pacific/Apia", "2011-12-28 12:00:00", dayThatIsMissing},
    };
}

} // namespace sim
