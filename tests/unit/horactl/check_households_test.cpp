#include "support/capturedlog.h"
#include "tools/loadsource.h"
#include "unit/horactl/checkedhousehold.h"

#include <gmock/gmock.h>
#include <unistd.h>

namespace tools::horactl::testing {

using ::testing::IsEmpty;

namespace {

class CheckHouseholds : public CheckTest {
protected:
    void addOn(const std::string& table, int id, int activate, const std::vector<std::string>& weekDays,
               const std::string& start, const std::string& stop) {
        Cells cells = {{"Activate", activate}};
        for (const std::string& weekDay : weekDays) {
            cells.emplace_back("Start" + weekDay, start);
            cells.emplace_back("Stop" + weekDay, stop);
        }
        add(table, id, cells);
    }
};

const std::vector<std::string> workDays = {"Mon", "Tue", "Wed", "Thu", "Fri"};
const std::vector<std::string> weekend = {"Sat", "Sun"};

class SaneHousehold : public CheckHouseholds {};

TEST_F(SaneHousehold, NewStore) {
    EXPECT_THAT(places(), IsEmpty());
}

TEST_F(SaneHousehold, TablesThatAreNotThere) {
    household.tables.clear();
    EXPECT_THAT(places(), IsEmpty());
}

TEST_F(SaneHousehold, NoWlanAtNight) {
    addDaily("WlanTimePlans", 1, 0, "23:00", "06:00");
    EXPECT_THAT(places(), IsEmpty()) << findingsAsText(findings());
}

TEST_F(SaneHousehold, WlanInWorkingHours) {
    addOn("WlanTimePlans", 1, 1, workDays, "07:30", "18:00");
    EXPECT_THAT(places(), IsEmpty()) << findingsAsText(findings());
}

TEST_F(SaneHousehold, ShorterNightsAtTheWeekend) {
    addOn("WlanTimePlans", 1, 0, {"Sun", "Mon", "Tue", "Wed", "Thu"}, "22:00", "06:00");
    addOn("WlanTimePlans", 2, 0, {"Fri", "Sat"}, "00:30", "08:00");
    EXPECT_THAT(places(), IsEmpty()) << findingsAsText(findings());
}

TEST_F(SaneHousehold, GuestsMayStayUpLate) {
    addDaily("WlanTimePlans", 1, 0, "22:00", "06:00");
    addOn("WlanTimePlans", 2, 1, {"Fri", "Sat"}, "20:00", "01:00");
    EXPECT_THAT(places(), IsEmpty()) << findingsAsText(findings());
}

TEST_F(SaneHousehold, WlanThatIsAlwaysOnWithPlansOfEarlierDays) {
    set("WlanGlobals", {{"WlanEnable", 1}, {"AlwaysEnable", 1}});
    addDaily("WlanTimePlans", 1, 1, "", "");
    addDaily("WlanTimePlans", 2, 0, "00:00", "24:00");
    EXPECT_THAT(places(), IsEmpty()) << findingsAsText(findings());
}

TEST_F(SaneHousehold, TenPlansOfAFamily) {
    for (int id = 1; id <= 5; ++id) {
        addOn("TimePlans", id, id % 2, workDays, std::to_string(13 + id) + ":00", "20:30");
        addOn("TimePlans", 5 + id, 1, weekend, std::to_string(5 + id) + ":15:00", "23:59:59");
    }
    EXPECT_THAT(places(), IsEmpty()) << findingsAsText(findings());
}

TEST_F(SaneHousehold, HeatingThroughTheNightInOtherZones) {
    for (const char* const zone :
         {"America/New_York", "Australia/Lord_Howe", "Pacific/Chatham", "Africa/Casablanca", "Asia/Beirut",
          "Asia/Kolkata", "America/Havana", "Antarctica/Troll", "UTC", "Europe/Dublin"}) {
        inZone(zone);
        household.tables["TimePlans"].clear();
        addDaily("TimePlans", 1, 1, "21:00", "07:00");
        addDaily("TimePlans", 2, 0, "04:30", "21:30");
        EXPECT_THAT(places(), IsEmpty()) << zone << '\n' << findingsAsText(findings());
    }
}

TEST_F(SaneHousehold, UpdateThatWaitsForTheNight) {
    add("FileTransfer", 1, {});
    add("FirmwareUpdateTimePlan", 1, {{"Enable", 1}, {"StartTimeHour", 3}, {"EndTimeHour", 5}});
    add("TimeFrame", 1,
        {{"WindowMode", 3},
         {"ServicetableId", 1},
         {"TimeFrameStart", static_cast<int>(present)},
         {"TimeFrameEnd", static_cast<int>(present + 7 * day)},
         {"MaxRetries", 10}});
    EXPECT_THAT(places(), IsEmpty()) << findingsAsText(findings());
}

TEST_F(SaneHousehold, UpdateThatIsDone) {
    add("FileTransfer", 1, {{"Status", 5}, {"Result", 0}});
    add("TimeFrame", 1,
        {{"ServicetableId", 1},
         {"TimeFrameStart", static_cast<int>(present - 7 * day)},
         {"TimeFrameEnd", static_cast<int>(present - day)},
         {"MaxRetries", 3},
         {"RunCounter", 1}});
    EXPECT_THAT(places(), IsEmpty()) << findingsAsText(findings());
}

TEST_F(SaneHousehold, TwoServicesAtTheSameTime) {
    for (int id = 1; id <= 2; ++id) {
        add("FileTransfer", id, {});
        add("TimeFrame", id,
            {{"ServicetableId", id},
             {"TimeFrameStart", static_cast<int>(present)},
             {"TimeFrameEnd", static_cast<int>(present + day)},
             {"MaxRetries", -1}});
    }
    EXPECT_THAT(places(), IsEmpty()) << findingsAsText(findings());
}

TEST_F(SaneHousehold, RebootOnSundaysBeforeTheFamilyWakes) {
    set("AutoReboot", {{"Enable", 1}, {"WeekDay", 7}, {"Time", "04:00"}});
    addDaily("WlanTimePlans", 1, 0, "23:00", "06:00");
    EXPECT_THAT(places(), IsEmpty()) << findingsAsText(findings());
}

TEST_F(SaneHousehold, OneThatIsShippedAsASample) {
    LoadSource source(SAMPLE_HOUSEHOLD);
    household = readDump(source, {});
    ASSERT_FALSE(household.rows("WlanTimePlans").empty());
    for (const char* const zone : {"Europe/Berlin", "America/New_York", "Australia/Lord_Howe"}) {
        inZone(zone);
        EXPECT_THAT(places(), IsEmpty()) << zone << '\n' << findingsAsText(findings());
    }
}

TEST_F(CheckHouseholds, TellTheirFindingsInTheOrderOfTheTables) {
    add("TimePlans", 1, {{"StartMon", "8"}, {"StopMon", "9:00"}});
    add("TimeFrame", 1, {{"WindowMode", 7}});
    set("AutoReboot", {{"Enable", 1}});
    add("WlanTimePlans", 1, {});
    EXPECT_THAT(places(), ::testing::ElementsAre("TimePlans.1 StartMon", "WlanTimePlans.1 Activate",
                                                 "TimeFrame.1 WindowMode", "AutoReboot Time"));
}

TEST_F(CheckHouseholds, AreSearchedWithoutLinesOfHoradsLog) {
    addDaily("WlanTimePlans", 1, 0, "02:15", "02:45");
    add("TimeFrame", 1, {{"WindowMode", 7}});
    set("AutoReboot", {{"Enable", 1}, {"Time", "0330"}});
    const fakes::CapturedOutput errors(STDERR_FILENO);
    EXPECT_FALSE(findings().empty());
    EXPECT_EQ(errors.text().substr(0, 200), "");
}

const Finding sample = {"TimePlans.1", "StartMon", "8\x1b[2J", "it is \"8\"", "8:00"};

TEST(FindingsAsText, AreThreeLinesEachAndHarmless) {
    EXPECT_EQ(findingsAsText({sample}), "TimePlans.1 StartMon: 8\\x1b[2J\n"
                                        "    horad:  it is \"8\"\n"
                                        "    meant?  8:00\n");
}

TEST(FindingsAsText, SayThatThereAreNone) {
    EXPECT_EQ(findingsAsText({}), "Nothing looks as if it were meant otherwise.\n");
}

TEST(FindingsAsJson, AreAnObjectALine) {
    EXPECT_EQ(
        findingsAsJson({sample, sample}),
        "{\"row\":\"TimePlans.1\",\"column\":\"StartMon\",\"value\":\"8\\u001b[2J\",\"meaning\":\"it is "
        "\\\"8\\\"\",\"meant\":\"8:00\"}\n"
        "{\"row\":\"TimePlans.1\",\"column\":\"StartMon\",\"value\":\"8\\u001b[2J\",\"meaning\":\"it is "
        "\\\"8\\\"\",\"meant\":\"8:00\"}\n");
    EXPECT_EQ(findingsAsJson({}), "");
}

} // namespace

} // namespace tools::horactl::testing
