#include "unit/horactl/forecasthouse.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// How horad lives in a forecast: its rhythm, its clock, and how long it goes on.
namespace tools::horactl::testing {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::Ge;
using ::testing::IsEmpty;
using ::testing::Le;

namespace {

class ForecastTest : public ::testing::Test {
protected:
    Household household = quietHousehold();

private:
    fakes::LocalZone zone_{"UTC"};
};

TEST_F(ForecastTest, TheFirstReadingIsAtTheStart) {
    set(household, "WlanGlobals", {{"WlanEnable", "1"}}); // and no plan wants it
    EXPECT_THAT(writesOf(household, 10), ElementsAre("+0 WlanGlobals WlanEnable 1 -> 0"));
}

TEST_F(ForecastTest, TheFirstPassIsTwoSecondsLater) {
    addDaily(household, "TimePlans", 1, 1, "08:00", "18:00");
    EXPECT_THAT(writesOf(household, 10), ElementsAre("+2 TimePlans.1 TimePlanStatus 0 -> 1"));
}

TEST_F(ForecastTest, AnIterationTakesTwoSeconds) {
    Forecast forecast(household, {noon});
    forecast.runUntil(noon + 20);
    EXPECT_EQ(forecast.iterations(), 10U);
    EXPECT_EQ(forecast.now(), noon + 20);
}

TEST_F(ForecastTest, AnIterationWaitsForNothingWhileANoticeIsPending) {
    addDaily(household, "WlanTimePlans", 1, 1, "12:00:10", "18:00");
    Lines writes;
    Forecast forecast(household, {noon});
    record(forecast, writes);
    forecast.runUntil(noon + 20);
    EXPECT_THAT(writes, ElementsAre("+10 WlanTimePlans.1 TimePlanStatus 0 -> 1",
                                    "+10 WlanGlobals WlanEnable 0 -> 1"));
    EXPECT_EQ(forecast.iterations(), 12U); // one for each of the two notices
}

TEST_F(ForecastTest, NobodyWakesForATableThatHoradDoesNotFollow) {
    set(household, "wexd", {{"Enable", "0"}});
    Lines writes;
    Forecast forecast(household, {noon});
    record(forecast, writes);
    forecast.runUntil(noon + 20);
    EXPECT_THAT(writes, ElementsAre("+2 wexd Enable 0 -> 1"));
    EXPECT_EQ(forecast.iterations(), 10U);
}

// Both rows are written under the same three characters.
TEST_F(ForecastTest, RowsThatFightAreHeldBackByThePace) {
    addDaily(household, "TimePlans", 123, 1, "01:00", "02:00");
    addDaily(household, "TimePlans", 1234, 1, "08:00", "18:00");
    Forecast forecast(household, {noon});
    forecast.runUntil(noon + 20);
    EXPECT_THAT(forecast.iterations(), AllOf(Ge(50U), Le(62U)));
}

TEST_F(ForecastTest, GoesOnWhereItStopped) {
    addDaily(household, "TimePlans", 1, 1, "12:00:10", "12:00:20");
    Lines writes;
    Forecast forecast(household, {noon});
    record(forecast, writes);
    forecast.runUntil(noon + 8);
    EXPECT_THAT(writes, IsEmpty());
    forecast.runUntil(noon + 10);
    EXPECT_THAT(writes, ElementsAre("+10 TimePlans.1 TimePlanStatus 0 -> 1"));
    forecast.runUntil(noon + 10);
    EXPECT_EQ(forecast.now(), noon + 10);
    forecast.runUntil(noon + 30, [&] { return writes.size() < 2; });
    EXPECT_EQ(writes.back(), "+22 TimePlans.1 TimePlanStatus 1 -> 0"); // the last second belongs to the slot
    EXPECT_EQ(forecast.now(), noon + 22);
}

TEST_F(ForecastTest, TheTablesHoldACommitThatIsTold) {
    addDaily(household, "TimePlans", 1, 1, "08:00", "18:00");
    Forecast forecast(household, {noon});
    int status = 0;
    forecast.onCommit([&](std::time_t, const Forecast::Changes&) {
        status = forecast.tables().number("TimePlans", "TimePlanStatus", 1);
    });
    forecast.runUntil(noon + 2);
    EXPECT_EQ(status, 1);
}

TEST_F(ForecastTest, FollowsTheHouseholdsTablesOfPlansOnly) {
    addDaily(household, "TimePlans", 1, 1, "08:00", "18:00");
    household.planTables = {"WlanTimePlans"};
    EXPECT_THAT(writesOf(household, 10), IsEmpty());
}

TEST_F(ForecastTest, SettlesOnceHoradHasNothingMoreToWrite) {
    addDaily(household, "WlanTimePlans", 1, 1, "08:00", "18:00");
    Forecast forecast(household, {noon});
    forecast.settle();
    EXPECT_EQ(forecast.tables().number("WlanTimePlans", "TimePlanStatus", 1), 1);
    EXPECT_EQ(forecast.tables().number("WlanGlobals", "WlanEnable"), 1);
    EXPECT_LE(forecast.now(), noon + 6);
}

TEST_F(ForecastTest, SettlesBehindTheFirstStartOfAService) {
    add(household, "TimeFrame",
        {{"ServicetableId", "1"},
         {"TimeFrameStart", std::to_string(noon - hour)},
         {"TimeFrameEnd", std::to_string(noon + hour)},
         {"MaxRetries", "-1"}});
    add(household, "FileTransfer", {});
    Forecast forecast(household, {noon});
    forecast.settle();
    EXPECT_EQ(forecast.tables().number("FileTransfer", "Status", 1), 1);
}

TEST_F(ForecastTest, SettlesWithinAMinuteWhateverHoradDoes) {
    addDaily(household, "TimePlans", 123, 1, "01:00", "02:00");
    addDaily(household, "TimePlans", 1234, 1, "08:00", "18:00");
    Forecast forecast(household, {noon});
    forecast.settle();
    EXPECT_EQ(forecast.now(), noon + minute);
}

TEST_F(ForecastTest, TheClockIsSetWhenTheCircumstancesSay) {
    addDaily(household, "TimePlans", 1, 1, "13:00", "18:00");
    Circumstances circumstances;
    circumstances.clockSteps = {{noon + 10, hour}, {noon + 20, -hour}, {noon - 10, 5 * hour}};
    // The moments are those of a clock that was never set: one in front of the start has been.
    EXPECT_THAT(writesOf(household, 30, circumstances), ElementsAre("+3610 TimePlans.1 TimePlanStatus 0 -> 1",
                                                                    "+20 TimePlans.1 TimePlanStatus 1 -> 0"));
}

TEST_F(ForecastTest, LivesAsLongAsAClockWouldSayThatWasNeverSet) {
    Circumstances circumstances;
    circumstances.clockSteps = {{noon + 10, 24 * hour}};
    Forecast forecast(household, {noon}, circumstances);
    forecast.runUntil(noon + 20);
    EXPECT_EQ(forecast.iterations(), 10U);
    EXPECT_EQ(forecast.now(), noon + 24 * hour + 20);
}

} // namespace

} // namespace tools::horactl::testing
