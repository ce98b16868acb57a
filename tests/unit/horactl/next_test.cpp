#include "support/capturedlog.h"
#include "tools/horactl/next.h"
#include "unit/horactl/forecasthouse.h"

#include <algorithm>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace tools::horactl::testing {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;

namespace {

constexpr std::int64_t anHour = 3600; // seconds

class Next : public ::testing::Test {
protected:
    Next() {
        set(household, "WlanGlobals", {{"WlanEnable", "1"}});
        household.tables["WlanTimePlans"] = {row("WlanTimePlans", 2,
                                                 {{"TimePlanName", "Lunch"},
                                                  {"Activate", "0"},
                                                  {"TimePlanStatus", "1"},
                                                  {"StartMon", "12:00:10"},
                                                  {"StopMon", "12:30"}})};
    }

    std::string asText(std::size_t most = 100) const {
        return nextCommand(questionOf(household), most, anHour);
    }
    std::string asJson(std::size_t most = 100) const {
        Question question = questionOf(household);
        question.json = true;
        return nextCommand(question, most, anHour);
    }

    Household household = quietHousehold();
    fakes::LocalZone zone{"UTC"};
};

TEST_F(Next, ForAPersonIsOneLineWhereAStatusAndTheWlanChangeTogether) {
    const std::string byDefault = "no plan speaks; the first row, WlanTimePlans.2 Lunch, deactivates";
    const std::string byPlan = "WlanTimePlans.2 Lunch";
    const std::string blanks(byDefault.size() - byPlan.size(), ' ');
    EXPECT_EQ(asText(), "now Mon 2026-03-02 12:00:00 UTC   WLAN on: " + byDefault + "\n" +
                            "Mon 2026-03-02 12:00:10 UTC  WLAN off  " + byPlan + blanks + "  in 10 s\n" +
                            "Mon 2026-03-02 12:30:02 UTC  WLAN on   " + byDefault + "  in 30 min\n");
}

TEST_F(Next, ForAProgramShowsEach) {
    EXPECT_EQ(asJson(),
              R"({"time":"2026-03-02T12:00:10+0000","what":"status","to":"0","rows":["WlanTimePlans.2"]})"
              "\n"
              R"({"time":"2026-03-02T12:00:10+0000","what":"wlan","to":"0","rows":["WlanTimePlans.2"]})"
              "\n"
              R"({"time":"2026-03-02T12:30:02+0000","what":"status","to":"1","rows":["WlanTimePlans.2"]})"
              "\n"
              R"({"time":"2026-03-02T12:30:02+0000","what":"wlan","to":"1","rows":["WlanTimePlans.2"]})"
              "\n");
}

TEST_F(Next, AStatusThatLeavesTheWlanAsItIsHasItsOwnLine) {
    set(household, "WlanGlobals", {{"WlanEnable", "1"}, {"AlwaysEnable", "1"}});
    EXPECT_THAT(asText(), HasSubstr("12:00:10 UTC  not active  WlanTimePlans.2 Lunch  in 10 s\n"));
}

TEST_F(Next, APlanOfSomethingElseHasItsOwnLineBesideTheWlans) {
    household.tables["TimePlans"] = {
        row("TimePlans", 1, {{"TimePlanName", "Lamp"}, {"StartMon", "12:00:10"}, {"StopMon", "18:00"}})};
    EXPECT_THAT(asText(), HasSubstr("active    TimePlans.1 Lamp"));
}

TEST_F(Next, ShowsNoMoreThanWanted) {
    const auto linesOf = [](const std::string& text) { return std::count(text.begin(), text.end(), '\n'); };
    EXPECT_EQ(linesOf(asText(1)), 2); // the present and one
    EXPECT_EQ(linesOf(asText(2)), 3);
    EXPECT_EQ(linesOf(asJson(1)), 1);
    EXPECT_EQ(linesOf(asJson(3)), 3);
}

TEST_F(Next, SaysThatNothingHappens) {
    household.tables["WlanTimePlans"].clear();
    EXPECT_EQ(asText(), "now Mon 2026-03-02 12:00:00 UTC   WLAN off: there is no WLAN plan\n"
                        "nothing happens within 1 h\n");
}

// A program is told of it, since it is written.
TEST_F(Next, WhatHoradPutsRightAtItsStartIsThePresent) {
    set(household, "WlanGlobals", {{"WlanEnable", "0"}});
    EXPECT_EQ(asText().find("now Mon 2026-03-02 12:00:00 UTC   WLAN on"), 0U);
    EXPECT_EQ(asText().find("12:00:00 UTC  WLAN"), std::string::npos);
    EXPECT_EQ(asJson().find(R"({"time":"2026-03-02T12:00:00+0000","what":"wlan","to":"1")"), 0U);
}

TEST_F(Next, TellsOfTheClock) {
    zone.set("Europe/Berlin");
    Question question = questionOf(quietHousehold());
    question.present = 1774746000 - anHour / 2; // of Sun 2026-03-29 02:00 CET
    EXPECT_THAT(
        nextCommand(question, 10, anHour),
        HasSubstr("Sun 2026-03-29 03:00:00 CEST  clock  the clock changes, from 01:59:59 CET to 03:00:00 "
                  "CEST  in 30 min\n"));
    question.json = true;
    EXPECT_EQ(nextCommand(question, 10, anHour),
              R"({"time":"2026-03-29T03:00:00+0200","what":"clock","to":"+0200","rows":[]})"
              "\n");
}

TEST_F(Next, TellsOfServicesAndReboots) {
    household.tables["WlanTimePlans"].clear();
    set(household, "AutoReboot", {{"Enable", "1"}, {"Time", "12:01"}});
    add(household, "TimeFrame",
        {{"ServicetableId", "1"},
         {"TimeFrameStart", std::to_string(noon + 19)},
         {"TimeFrameEnd", std::to_string(noon + hour)}});
    add(household, "FileTransfer", {});
    EXPECT_THAT(asText(), ContainsRegex("12:00:20 UTC  service  FileTransfer.1 starts +in 20 s\n"));
    EXPECT_THAT(asText(), HasSubstr("reboot   AutoReboot at 12:01, exact to a minute"));
}

TEST_F(Next, ShowsTheLogToWhoeverIsVerbose) {
    Question question = questionOf(household);
    question.verbose = true;
    const fakes::CapturedOutput errors(STDERR_FILENO);
    (void)nextCommand(question, 1, anHour);
    EXPECT_THAT(errors.text(),
                HasSubstr("Mon 2026-03-02 12:00:02 UTC  debug timefrmhdl: First process: synchronise\n"));
}

} // namespace

} // namespace tools::horactl::testing
