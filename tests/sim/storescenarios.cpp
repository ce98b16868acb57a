#include "sim/scenario.h"

// Plans and windows, on a store that is there and on one that is not.
namespace sim {

namespace {

using velta::protocol::EResultCode;
namespace code = velta::protocol::code;

void fridayNight(Household& household) {
    Row plan = newRow("WlanTimePlans", 1);
    setSlot(plan, "Fri", "23:00", "5:00");
    household.insert("WlanTimePlans", plan);
    const auto expectAt = [&household](const std::string& time, int expected) {
        runUntil(household, time);
        expectNumber(household, "WlanTimePlans", 1, "TimePlanStatus", expected);
        expectNumber(household, "WlanGlobals", 0, "WlanEnable", expected);
    };
    expectAt("2026-03-06 22:59:58", 0);
    expectAt("2026-03-06 23:00:06", 1);
    expectAt("2026-03-07 04:59:58", 1);
    expectAt("2026-03-07 05:00:08", 0);
    expectAt("2026-03-08 02:00:00", 0);
}

// Mode 3 waits for an idle line, and its window ends meanwhile.
void windowEndsDuringACall(Household& household) {
    insertFrame(household, 1, "2026-03-02 13:00:00", "2026-03-02 14:00:00", 3, -1);
    insertFailingService(household, 1);
    household.run(30 * minute);
    household.setCall(true);
    runUntil(household, "2026-03-02 14:00:02");
    household.setCall(false);
    household.run(1 * day);
    expectNumber(household, "TimeFrame", 1, "RunCounter", 0);
    expectNumber(household, "FileTransfer", 1, "Status", 0);
}

// The run was decided on inside the window: it goes through when the store can be written to again.
void windowEndsDuringABusyStore(Household& household) {
    insertFrame(household, 1, "2026-03-02 13:00:00", "2026-03-02 14:00:00", 1, -1);
    household.insert("FileTransfer", newRow("FileTransfer", 1));
    household.run(30 * minute);
    const int fault = household.beginFault([&household](Tables::Operation operation, const std::string&) {
        if (operation != Tables::Operation::Start)
            return EResultCode();
        household.machine().sleep(500'000);
        return EResultCode(code::busy);
    });
    household.machine().after(2 * hour, [&household, fault] { household.endFault(fault); });
    runUntil(household, "2026-03-02 14:20:00");
    settle(household);
    expectNumber(household, "TimeFrame", 1, "RunCounter", 1);
    expectNumber(household, "FileTransfer", 1, "Status", 1);
    household.run(1 * day);
    expectNumber(household, "TimeFrame", 1, "RunCounter", 1);
}

void rowsGoneAfterARestore(Household& household) {
    household.insert("WlanTimePlans", dailyPlan("WlanTimePlans", 1, "8:00", "18:00"));
    const Rows wlan = household.tables().rows("WlanTimePlans");
    household.insert("WlanTimePlans", dailyPlan("WlanTimePlans", 2, "8:00", "20:00"));
    insertFrame(household, 1, "2026-03-02 19:30:00", "2026-03-02 20:30:00", 1, -1);
    insertFailingService(household, 1);
    runUntil(household, "2026-03-02 19:00:00");
    expectNumber(household, "WlanGlobals", 0, "WlanEnable", 1);
    household.setReachable(false);
    household.loseConnection();
    household.edit("WlanTimePlans", [&wlan](Rows& rows) { rows = wlan; });
    household.remove("TimeFrame", 1);
    household.run(1 * minute);
    household.setReachable(true);
    settle(household);
    expectNumber(household, "WlanGlobals", 0, "WlanEnable", 0);
    runUntil(household, "2026-03-02 21:00:00");
    expectNumber(household, "FileTransfer", 1, "Status", 0);
}

// The start of the loop's pause is where a lost notice hurts: nobody tells of what changed then.
void noticeThatIsLost(Household& household) {
    household.insert("WlanTimePlans", dailyPlan("WlanTimePlans", 1, "8:00", "18:00"));
    household.run(30 * minute);
    expectNumber(household, "WlanGlobals", 0, "WlanEnable", 1);
    household.change("WlanTimePlans", 1, "Activate", 0);
    household.loseConnection();
    settle(household);
    expectNumber(household, "WlanTimePlans", 1, "TimePlanStatus", 0);
    expectNumber(household, "WlanGlobals", 0, "WlanEnable", 0);
}

// Two minutes are enough: a loop that drives itself takes a thousand times as many.
void expectCalm(Household& household) {
    constexpr long passes = 2 * 60 / 2;
    constexpr long woken = 60; // before the loop keeps its rhythm
    const std::uint64_t before = household.passes();
    household.run(2 * minute);
    expectAtMost("passes in two minutes", static_cast<long>(household.passes() - before), passes + woken);
}

// A row is written under the first three characters of its Id: the second one writes to the first, which
// wants the opposite.
void rowsThatWriteToEachOther(Household& household) {
    household.insert("TimePlans", dailyPlan("TimePlans", 123, "0:00", "24:00", false));
    household.insert("TimePlans", dailyPlan("TimePlans", 1234, "0:00", "24:00"));
    expectCalm(household);
}

// It falls due at every pass of its last interval, which is all that there is of it, and each run is a
// commit.
void shortWindowWithoutAService(Household& household) {
    insertFrame(household, 1, "2026-03-02 12:00:10", "2026-03-02 12:02:10", 1, -1);
    expectCalm(household);
}

} // namespace

std::vector<Scenario> storeScenarios() {
    constexpr const char* berlin = "Europe/Berlin";
    constexpr const char* noon = "2026-03-02 12:00:00";
    return {
        {"friday-night", berlin, "2026-03-06 12:00:00", fridayNight},
        {"window-ends-during-a-call", berlin, noon, windowEndsDuringACall},
        {"window-ends-during-a-busy-store", berlin, noon, windowEndsDuringABusyStore},
        {"rows-gone-after-a-restore", berlin, noon, rowsGoneAfterARestore},
        {"notice-that-is-lost", berlin, noon, noticeThatIsLost},
        {"rows-that-write-to-each-other", berlin, noon, rowsThatWriteToEachOther},
        {"short-window-without-a-service", berlin, noon, shortWindowWithoutAService},
    };
}

} // namespace sim
