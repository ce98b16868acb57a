#include "unit/horactl/checkedhousehold.h"

#include <gmock/gmock.h>

namespace tools::horactl::testing {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

class CheckReboot : public CheckTest {
protected:
    CheckReboot() { inZone("UTC"); } // in which no clock changes
};

TEST_F(CheckReboot, OrdinaryOnesAreFine) {
    set("AutoReboot", {{"Enable", 1}, {"Time", "03:30"}});
    EXPECT_THAT(places(), IsEmpty());
    set("AutoReboot", {{"Enable", 1}, {"Time", "23:59:30"}, {"WeekDay", 7}, {"MinimumRuntime", 86400}});
    EXPECT_THAT(places(), IsEmpty());
    set("AutoReboot", {{"Enable", 1}, {"Time", "03:30"}, {"LastReboot", "2026-11-21T03:30:12+0100"}});
    EXPECT_THAT(places(), IsEmpty());
}

TEST_F(CheckReboot, OnesThatAreOffMayBeAnything) {
    set("AutoReboot", {{"Enable", 0}, {"WeekDay", 9}, {"MinimumRuntime", 0}});
    EXPECT_THAT(places(), IsEmpty());
}

TEST_F(CheckReboot, DayOutOfRange) {
    const std::pair<int, const char*> cases[] = {{8, "on Sundays"}, {256, "every day"}, {258, "on Tuesdays"}};
    for (const auto& [weekDay, meaning] : cases) {
        set("AutoReboot", {{"Enable", 1}, {"Time", "03:30"}, {"WeekDay", weekDay}});
        const Finding finding = only();
        EXPECT_EQ(finding.column, "WeekDay");
        EXPECT_THAT(finding.meaning, HasSubstr(meaning));
    }
}

TEST_F(CheckReboot, MinimumOfNothing) {
    set("AutoReboot", {{"Enable", 1}, {"Time", "03:30"}, {"MinimumRuntime", 0}});
    EXPECT_EQ(only().column, "MinimumRuntime");
}

TEST_F(CheckReboot, MinimumLongerThanTheDistanceOfTheSlots) {
    const std::pair<int, int> cases[] = {{0, 90000}, {1, 700000}, {0, -1}};
    for (const auto& [weekDay, minimum] : cases) {
        set("AutoReboot",
            {{"Enable", 1}, {"Time", "03:30"}, {"WeekDay", weekDay}, {"MinimumRuntime", minimum}});
        const Finding finding = only();
        EXPECT_EQ(finding.column, "MinimumRuntime");
        EXPECT_EQ(finding.value, std::to_string(minimum));
        EXPECT_THAT(finding.meaning, HasSubstr("longer than from one slot to the next"));
    }
}

TEST_F(CheckReboot, WeeklyOneMayAskForDays) {
    set("AutoReboot", {{"Enable", 1}, {"Time", "03:30"}, {"WeekDay", 1}, {"MinimumRuntime", 500000}});
    EXPECT_THAT(places(), IsEmpty());
}

TEST_F(CheckReboot, NoTimeOrNone) {
    set("AutoReboot", {{"Enable", 1}, {"Time", ""}});
    EXPECT_THAT(only().meaning, HasSubstr("has no time"));
    set("AutoReboot", {{"Enable", 1}, {"Time", "0330"}});
    EXPECT_EQ(only().meant, "03:30");
}

} // namespace

} // namespace tools::horactl::testing
