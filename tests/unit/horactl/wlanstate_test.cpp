#include "tools/horactl/loglines.h"
#include "tools/horactl/wlanstate.h"
#include "unit/horactl/forecasthouse.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace tools::horactl::testing {

namespace {

struct WlanCase {
    bool always;
    std::vector<std::string> plans; // "activate status" of each
    bool wanted;
    const char* decides;
    const char* explanation;
};

TEST(WlanState, IsWhatTheLastPlanSaysThatSpeaks) {
    const WlanCase cases[] = {
        {false, {}, false, "default", "there is no WLAN plan"},
        {false, {"1 1"}, true, "WlanTimePlans.1", "WlanTimePlans.1 Plan 1"},
        {false, {"0 0"}, false, "WlanTimePlans.1", "WlanTimePlans.1 Plan 1"},
        {false,
         {"1 0"},
         false,
         "default",
         "no plan speaks; the first row, WlanTimePlans.1 Plan 1, activates"},
        {false,
         {"0 1"},
         true,
         "default",
         "no plan speaks; the first row, WlanTimePlans.1 Plan 1, deactivates"},
        {false,
         {"0 1", "1 0"},
         true,
         "default",
         "no plan speaks; the first row, WlanTimePlans.1 Plan 1, deactivates"},
        {false,
         {"1 0", "0 1"},
         false,
         "default",
         "no plan speaks; the first row, WlanTimePlans.1 Plan 1, activates"},
        {false, {"1 1", "0 0"}, false, "WlanTimePlans.2", "WlanTimePlans.2 Plan 2"},
        {false, {"0 0", "1 1"}, true, "WlanTimePlans.2", "WlanTimePlans.2 Plan 2"},
        {false, {"0 0", "1 1", "0 1"}, true, "WlanTimePlans.2", "WlanTimePlans.2 Plan 2"},
        {true, {}, false, "AlwaysEnable", "AlwaysEnable is set: no plan switches the WLAN"},
        {true, {"0 0"}, false, "AlwaysEnable", "AlwaysEnable is set: no plan switches the WLAN"},
        {true, {"1 1"}, true, "AlwaysEnable", "AlwaysEnable is set: no plan switches the WLAN"},
    };
    for (const WlanCase& one : cases)
        for (const bool on : {false, true}) {
            orv::simulation::Tables tables;
            tables.edit("WlanGlobals",
                        {row("WlanGlobals", 0,
                             {{"WlanEnable", on ? "1" : "0"}, {"AlwaysEnable", one.always ? "1" : "0"}})});
            orv::simulation::Tables::Rows plans;
            for (const std::string& plan : one.plans) {
                const auto id = static_cast<int>(plans.size()) + 1;
                plans.push_back(row("WlanTimePlans", id,
                                    {{"TimePlanName", "Plan " + std::to_string(id)},
                                     {"Activate", plan.substr(0, 1)},
                                     {"TimePlanStatus", plan.substr(2)}}));
            }
            tables.edit("WlanTimePlans", plans);
            const WlanState state = wlanStateOf(tables);
            EXPECT_EQ(state.on, on);
            EXPECT_EQ(state.wanted, one.wanted) << one.explanation;
            EXPECT_EQ(state.decides(), one.decides);
            EXPECT_EQ(state.explanation(), one.explanation);
        }
}

TEST(WlanState, IsOffWithoutTables) {
    const WlanState state = wlanStateOf(orv::simulation::Tables());
    EXPECT_FALSE(state.on);
    EXPECT_EQ(state.decides(), "default");
    EXPECT_EQ(state.explanation(), "there is no WLAN plan");
}

TEST(PlanName, IsTheRowWithItsNamePrintable) {
    EXPECT_EQ(rowName("TimePlans", 12), "TimePlans.12");
    EXPECT_EQ(planName("TimePlans", row("TimePlans", 12, {})), "TimePlans.12");
    EXPECT_EQ(planName("TimePlans", row("TimePlans", 12, {{"TimePlanName", "Night"}})), "TimePlans.12 Night");
    EXPECT_EQ(
        planName("Time\nPlans", row("TimePlans", 1, {{"TimePlanName", "\x1b[2J"}})).find_first_of("\n\x1b"),
        std::string::npos);
}

TEST(LogLine, CarriesItsTimeLevelAndModule) {
    using orv::horad::LogLevel;
    const fakes::LocalZone zone("UTC");
    const std::pair<LogLevel, const char*> cases[] = {{LogLevel::Error, "error"},
                                                      {LogLevel::Warning, "warning"},
                                                      {LogLevel::Info, "info"},
                                                      {LogLevel::Debug, "debug"}};
    for (const auto& [level, name] : cases) {
        EXPECT_STREQ(nameOf(level), name);
        EXPECT_EQ(logLine(noon, level, "timeplan", "Plan on"),
                  std::string("Mon 2026-03-02 12:00:00 UTC  ") + name + " timeplan: Plan on");
    }
    EXPECT_EQ(logLine(noon, LogLevel::Info, "m", "a\x1b[2J\nb").find_first_of("\n\x1b"), std::string::npos);
}

} // namespace

} // namespace tools::horactl::testing
