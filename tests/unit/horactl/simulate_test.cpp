#include "support/capturedlog.h"
#include "tools/horactl/simulate.h"
#include "unit/horactl/forecasthouse.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace tools::horactl::testing {

using ::testing::HasSubstr;
using ::testing::Not;

namespace {

class Simulate : public ::testing::Test {
protected:
    Simulate() { addDaily(household, "WlanTimePlans", 1, 1, "12:00:10", "12:30"); }

    std::string print(bool json, bool verbose, std::int64_t seconds,
                      const Circumstances& circumstances = {}) {
        Question question = questionOf(household);
        question.json = json;
        question.verbose = verbose;
        question.present = 0; // the simulation has a time of its own
        const fakes::CapturedOutput output(STDOUT_FILENO);
        simulateCommand(question, noon, seconds, circumstances);
        return output.text();
    }

    Household household = quietHousehold();
    fakes::LocalZone zone{"Europe/Berlin"}; // where noon is 13:00
};

TEST_F(Simulate, PrintsEachCellAsAnObjectOnALine) {
    zone.set("UTC");
    EXPECT_EQ(
        print(true, false, 20),
        R"({"time":"2026-03-02T12:00:10+0000","table":"WlanTimePlans","row":1,"column":"TimePlanStatus","old":"0","new":"1"})"
        "\n"
        R"({"time":"2026-03-02T12:00:10+0000","table":"WlanGlobals","row":null,"column":"WlanEnable","old":"0","new":"1"})"
        "\n");
}

TEST_F(Simulate, PrintsLinesForAPerson) {
    zone.set("UTC");
    set(household, "AutoReboot", {{"Enable", "1"}, {"Time", "12:01"}});
    const std::string text = print(false, false, 120);
    EXPECT_EQ(text.find("Mon 2026-03-02 12:00:10 UTC  WlanTimePlans.1 TimePlanStatus: 0 -> 1\n"
                        "Mon 2026-03-02 12:00:10 UTC  WlanGlobals WlanEnable: 0 -> 1\n"),
              0U);
    EXPECT_THAT(text, HasSubstr("AutoReboot LastReboot: \"\" -> 2026-03-02T12:01:"));
}

TEST_F(Simulate, TimesAreThoseOfTheZone) {
    addDaily(household, "TimePlans", 1, 1, "13:00:10", "18:00");
    EXPECT_THAT(print(true, false, 20),
                HasSubstr(R"({"time":"2026-03-02T13:00:10+0100","table":"TimePlans")"));
}

TEST_F(Simulate, PrintsOnlyWhatHoradWrites) {
    add(household, "TimeFrame",
        {{"ServicetableId", "7"},
         {"TimeFrameStart", std::to_string(noon)},
         {"TimeFrameEnd", std::to_string(noon + hour)}});
    household.tables["FileTransfer"] = {row("FileTransfer", 7, {})};
    Circumstances circumstances;
    circumstances.service = {Service::Outcome::Succeeds, 5};
    const std::string text = print(true, false, 30, circumstances);
    EXPECT_THAT(text, HasSubstr(R"("table":"FileTransfer","row":7,"column":"Status","old":"0","new":"1")"));
    EXPECT_THAT(text, HasSubstr(R"("table":"TimeFrame","row":1,"column":"RunCounter","old":"0","new":"1")"));
    EXPECT_THAT(text, Not(HasSubstr(R"("new":"5")")));
    EXPECT_THAT(text, Not(HasSubstr("Result")));
}

TEST_F(Simulate, ShowsTheLogToWhoeverIsVerbose) {
    zone.set("UTC");
    const std::string line =
        R"({"time":"2026-03-02T12:00:02+0000","level":"debug","module":"timefrmhdl","log":"First process: synchronise"})"
        "\n";
    EXPECT_THAT(print(true, true, 20), HasSubstr(line));
    EXPECT_THAT(print(true, false, 20), Not(HasSubstr(R"("log")")));
    EXPECT_THAT(print(false, true, 20),
                HasSubstr("Mon 2026-03-02 12:00:02 UTC  debug timefrmhdl: First process: synchronise\n"));
}

TEST_F(Simulate, TextsFromTheTablesMakeNoLinesOfTheirOwn) {
    household.tables["Bad\nTable"] = {row("TimePlans", 1, {{"StartMon", "12:00:10"}, {"StopMon", "18:00"}})};
    household.planTables.emplace_back("Bad\nTable");
    zone.set("UTC");
    for (const bool json : {false, true}) {
        const std::string text = print(json, false, 20);
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3) << text;
    }
}

TEST_F(Simulate, LongOnesAreAllPrinted) {
    const std::string table(2000, 'T');
    household.planTables = {table};
    for (int id = 1; id <= 50; ++id)
        household.tables[table].push_back(
            row("TimePlans", id, {{"StartMon", "08:00"}, {"StopMon", "18:00"}}));
    zone.set("UTC");
    const std::string text = print(true, false, 10);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 50);
    EXPECT_GT(text.size(), std::size_t{64} * 1024);
}

} // namespace

} // namespace tools::horactl::testing
