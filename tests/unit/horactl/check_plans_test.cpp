#include "unit/horactl/checkedhousehold.h"

#include <gmock/gmock.h>

namespace tools::horactl::testing {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

class CheckPlans : public CheckTest {
protected:
    CheckPlans() { inZone("UTC"); } // in which no clock changes
};

TEST_F(CheckPlans, TimesThatAreNone) {
    const std::pair<const char*, const char*> cases[] = {
        {"22.30", "22:30"}, {"2230", "22:30"},     {"830", "08:30"},       {"8", "08:00"},
        {"8:5", "08:05"},   {"7 Uhr 30", "07:30"}, {"083000", "08:30:00"},
    };
    for (const auto& [text, meant] : cases) {
        household.tables["TimePlans"].clear();
        add("TimePlans", 1, {{"StartMon", text}, {"StopMon", "23:00"}});
        const Finding finding = only();
        EXPECT_EQ(finding.row, "TimePlans.1");
        EXPECT_EQ(finding.column, "StartMon");
        EXPECT_EQ(finding.value, text);
        EXPECT_EQ(finding.meant, meant) << text;
    }
}

TEST_F(CheckPlans, TimesThatNoClockShowsAreToldAsTheyAreRead) {
    add("TimePlans", 1, {{"StartMon", "8:00"}, {"StopMon", "25:99"}});
    const Finding finding = only();
    EXPECT_EQ(finding.column, "StopMon");
    EXPECT_THAT(finding.meaning, HasSubstr("25:99:00, which no clock shows"));
    EXPECT_THAT(finding.meant, HasSubstr("from 00:00:00 to 24:00:00"));
}

TEST_F(CheckPlans, HugeNumbersAreNoTimesEither) {
    add("WlanTimePlans", 1, {{"StartMon", "2147483647:2147483647:2147483647"}, {"StopMon", "-2147483648:0"}});
    EXPECT_THAT(places(), ElementsAre("WlanTimePlans.1 StartMon", "WlanTimePlans.1 StopMon"));
}

TEST_F(CheckPlans, SlotsOfUnderFourSeconds) {
    for (const auto& [start, stop] : {std::pair("08:00:00", "08:00:03"),
                                      {"00:00:00", "00:00:01"},
                                      {"23:59:59", "00:00:02"},
                                      {"23:59:58", ""}}) {
        household.tables["TimePlans"].clear();
        add("TimePlans", 1, {{"StartMon", start}, {"StopMon", stop}});
        EXPECT_THAT(places(), ElementsAre("TimePlans.1 StopMon")) << start;
    }
}

TEST_F(CheckPlans, SlotsOfFourSecondsAreLongEnough) {
    add("TimePlans", 1, {{"StartMon", "08:00:00"}, {"StopMon", "08:00:04"}});
    add("TimePlans", 2, {{"StartMon", "23:59:58"}, {"StopMon", "00:00:02"}});
    EXPECT_THAT(places(), IsEmpty());
}

TEST_F(CheckPlans, SlotsOf24HoursBecauseStopEqualsStart) {
    add("TimePlans", 7, {{"StartSun", "08:00"}, {"StopSun", "08:00:00"}});
    const Finding finding = only();
    EXPECT_EQ(finding.row, "TimePlans.7");
    EXPECT_EQ(finding.column, "StopSun");
    EXPECT_EQ(finding.value, "08:00:00");
    EXPECT_THAT(finding.meaning, HasSubstr("24 hours, from Sunday 08:00:00 to Monday 08:00:00"));
}

TEST_F(CheckPlans, WholeDaysNoSlotsAndOpenEndsAreMeantAsTheyStand) {
    addDaily("TimePlans", 1, 1, "00:00", "24:00");
    addDaily("TimePlans", 2, 1, "00:00:00", "00:00:00");
    addDaily("TimePlans", 3, 1, "20:00", "");
    addDaily("TimePlans", 4, 1, "", "06:00");
    EXPECT_THAT(places(), IsEmpty());
}

TEST_F(CheckPlans, IdsOfMoreThanThreeDigits) {
    add("TimePlans", 999, {});
    EXPECT_THAT(places(), IsEmpty());
    add("TimePlans", 1000, {});
    const Finding finding = only();
    EXPECT_EQ(finding.row, "TimePlans.1000");
    EXPECT_EQ(finding.column, "Id");
    EXPECT_EQ(finding.value, "1000");
    EXPECT_THAT(finding.meaning, HasSubstr("TimePlans.100, which is not there"));
}

TEST_F(CheckPlans, TwoIdsThatShareTheirFirstThreeDigits) {
    add("TimePlans", 123, {});
    add("TimePlans", 1234, {});
    add("WlanTimePlans", 124, {{"StartMon", "8:00"}, {"StopMon", "9:00"}});
    EXPECT_THAT(places(), ElementsAre("TimePlans.1234 Id", "TimePlans.1234 Id"));
    EXPECT_THAT(findings().back().meaning, HasSubstr("those of TimePlans.123"));
}

TEST_F(CheckPlans, TablesThatAreFollowedTwiceAreLookedAtOnce) {
    household.planTables = {"TimePlans", "TimePlans"};
    add("TimePlans", 1, {{"StartMon", "8"}, {"StopMon", "9:00"}});
    EXPECT_THAT(places(), ElementsAre("TimePlans.1 StartMon"));
}

class CheckWlan : public CheckTest {
protected:
    CheckWlan() { inZone("UTC"); } // in which no clock changes
};

TEST_F(CheckWlan, LaterPlanThatSpeaksAllTheTime) {
    addDaily("WlanTimePlans", 1, 0, "22:00", "06:00");
    addDaily("WlanTimePlans", 2, 1, "08:00", "10:00");
    EXPECT_THAT(places(), IsEmpty());
    addDaily("WlanTimePlans", 3, 1, "00:00", "24:00");
    EXPECT_THAT(places(), ElementsAre("WlanTimePlans.1 Id", "WlanTimePlans.2 Id"));
    EXPECT_THAT(findings().front().meaning, HasSubstr("WlanTimePlans.3 comes later and speaks all the time"));
}

TEST_F(CheckWlan, DeactivatingPlanThatSpeaksAllTheTimeToo) {
    addDaily("WlanTimePlans", 1, 1, "08:00", "10:00");
    addDaily("WlanTimePlans", 2, 0, "00:00:00", "23:59:59");
    EXPECT_THAT(places(), ElementsAre("WlanTimePlans.1 Id"));
}

TEST_F(CheckWlan, AlmostAllTheTimeIsNotAllTheTime) {
    addDaily("WlanTimePlans", 1, 1, "08:00", "10:00");
    addDaily("WlanTimePlans", 2, 0, "00:00:00", "09:00:00");
    EXPECT_THAT(places(), IsEmpty());
}

TEST_F(CheckWlan, OneSecondOfSilenceIsEnoughForAnEarlierPlan) {
    addDaily("WlanTimePlans", 1, 1, "07:00", "10:00");
    addDaily("WlanTimePlans", 2, 0, "08:00:00", "07:59:58");
    EXPECT_THAT(places(), IsEmpty());
}

TEST_F(CheckWlan, PlanThatLaterOnesContradictWheneverItSpeaks) {
    addDaily("WlanTimePlans", 1, 1, "08:00", "10:00");
    addDaily("WlanTimePlans", 2, 0, "07:00", "09:00");
    addDaily("WlanTimePlans", 3, 0, "09:00", "12:00");
    const Finding finding = only();
    EXPECT_EQ(finding.row, "WlanTimePlans.1");
    EXPECT_THAT(finding.meaning, HasSubstr("later plans say the opposite"));
}

TEST_F(CheckWlan, PlansThatAgreeMayOverlap) {
    addDaily("WlanTimePlans", 1, 1, "08:00", "10:00");
    addDaily("WlanTimePlans", 2, 1, "07:00", "12:00");
    EXPECT_THAT(places(), IsEmpty());
}

TEST_F(CheckWlan, DefaultOfARowWithoutSlots) {
    add("WlanTimePlans", 1, {{"TimePlanName", "Guests"}});
    const Finding finding = only();
    EXPECT_EQ(finding.row, "WlanTimePlans.1");
    EXPECT_EQ(finding.column, "Activate");
    EXPECT_EQ(finding.value, "1");
    EXPECT_THAT(finding.meaning, HasSubstr("WLAN off whenever no plan speaks"));
}

TEST_F(CheckWlan, LaterRowsMayHaveNoSlots) {
    addDaily("WlanTimePlans", 1, 1, "08:00", "10:00");
    add("WlanTimePlans", 2, {});
    EXPECT_THAT(places(), IsEmpty());
}

TEST_F(CheckWlan, NothingCountsWhereItIsAlwaysEnabled) {
    set("WlanGlobals", {{"AlwaysEnable", 1}});
    add("WlanTimePlans", 1, {});
    EXPECT_THAT(places(), IsEmpty());
}

TEST_F(CheckWlan, TableThatNobodyFollows) {
    household.planTables = {"TimePlans"};
    addDaily("WlanTimePlans", 1, 1, "08:00", "10:00");
    EXPECT_THAT(places(), ElementsAre("WlanTimePlans.1 TimePlanStatus"));
}

} // namespace

} // namespace tools::horactl::testing
