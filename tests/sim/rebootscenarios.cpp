#include "sim/journal.h"
#include "sim/scenario.h"

// Reboots: that they come, that they come once, and never into a call.
namespace sim {

namespace {

using velta::protocol::EResultCode;
namespace code = velta::protocol::code;

void clockBackOverTheTrigger(Household& household) {
    rebootDaily(household, "3:30");
    household.onReboot([] { return Boot{40 * second, localTime("2026-03-03 03:29:20"), 10 * minute}; });
    runUntil(household, "2026-03-03 12:00:00");
    expectReboots(household, {"2026-03-03T03:30"});
    household.onReboot(nullptr);
    runUntil(household, "2026-03-04 12:00:00");
    expectReboots(household, {"2026-03-03T03:30", "2026-03-04T03:30"});
}

void lastRebootInTheFuture(Household& household) {
    rebootDaily(household, "3:30");
    household.change("AutoReboot", 0, "LastReboot", std::string("2037-01-01T03:30:00+0100"));
    runUntil(household, "2026-03-04 12:00:00");
    expectReboots(household, {"2026-03-03T03:30", "2026-03-04T03:30"});
}

// Its clock was years ahead when it rebooted, and says so in the stamp.
void rebootInTheFuture(Household& household) {
    rebootDaily(household, "3:30");
    settle(household);
    household.setClock(localTime("2031-03-02 12:00:00") * second);
    household.run(16 * hour);
    expectReboots(household, {"2031-03-03T03:30"});
    runUntil(household, "2026-03-04 12:00:00");
    expectReboots(household, {"2031-03-03T03:30", "2026-03-04T03:30"});
}

void hourThatIsLeftOut(Household& household) {
    rebootDaily(household, "2:30");
    runUntil(household, "2026-03-30 12:00:00");
    expectReboots(household, {"2026-03-28T02:30", "2026-03-30T02:30"});
}

void hourThatRepeats(Household& household) {
    rebootDaily(household, "2:30");
    runUntil(household, "2026-10-26 12:00:00");
    expectReboots(household, {"2026-10-25T02:30", "2026-10-26T02:30"});
}

void hourThatRepeatsForTheImpatient(Household& household) {
    rebootDaily(household, "2:30");
    household.change("AutoReboot", 0, "MinimumRuntime", 600);
    runUntil(household, "2026-10-26 12:00:00");
    expectReboots(household, {"2026-10-25T02:30", "2026-10-25T02:30", "2026-10-26T02:30"});
}

void callThatEndsInTime(Household& household) {
    rebootDaily(household, "3:30");
    runUntil(household, "2026-03-03 03:00:00");
    household.setCall(true);
    runUntil(household, "2026-03-03 04:00:00");
    expectReboots(household, {});
    household.setCall(false);
    household.run(1 * minute);
    expectReboots(household, {"2026-03-03T04:00"});
}

void callThatNeverEnds(Household& household) {
    rebootDaily(household, "3:30");
    runUntil(household, "2026-03-02 23:00:00");
    household.setCall(true);
    runUntil(household, "2026-03-05 12:00:00");
    household.setCall(false); // hours after the wait was over
    runUntil(household, "2026-03-05 23:00:00");
    expectReboots(household, {});
    runUntil(household, "2026-03-06 12:00:00");
    expectReboots(household, {"2026-03-06T03:30"});
}

// Without it, nothing but the uptime keeps the router from rebooting again.
void storeThatLosesEachStamp(Household& household) {
    rebootDaily(household, "3:30");
    household.beginFault([](Tables::Operation operation, const std::string& table) {
        const bool stamp = operation == Tables::Operation::WriteSingleRow && table == "AutoReboot";
        return stamp ? EResultCode(code::storageFailed) : EResultCode();
    });
    runUntil(household, "2026-03-05 12:00:00");
    expectReboots(household, {"2026-03-03T03:30", "2026-03-04T03:30", "2026-03-05T03:30"});
    expectEqual("length of the stamp",
                static_cast<long>(household.tables().text("AutoReboot", "LastReboot").size()), 0);
}

} // namespace

std::vector<Scenario> rebootScenarios() {
    constexpr const char* berlin = "Europe/Berlin";
    constexpr const char* noon = "2026-03-02 12:00:00";
    return {
        {"clock-back-over-the-trigger", berlin, noon, clockBackOverTheTrigger},
        {"last-reboot-in-the-future", berlin, noon, lastRebootInTheFuture},
        {"reboot-in-the-future", berlin, noon, rebootInTheFuture},
        {"hour-that-is-left-out", berlin, "2026-03-27 12:00:00", hourThatIsLeftOut},
        {"hour-that-repeats", berlin, "2026-10-24 12:00:00", hourThatRepeats},
        {"hour-that-repeats-for-the-impatient", berlin, "2026-10-24 12:00:00",
         hourThatRepeatsForTheImpatient},
        {"call-that-ends-in-time", berlin, noon, callThatEndsInTime},
        {"call-that-never-ends", berlin, noon, callThatNeverEnds},
        {"store-that-loses-each-stamp", berlin, noon, storeThatLosesEachStamp},
    };
}

} // namespace sim
