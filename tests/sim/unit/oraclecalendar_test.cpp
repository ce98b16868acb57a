#include "sim/oraclecalendar.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace sim;

TEST(OracleCalendar, ATextIsATimeWhateverItSays) {
    const struct {
        const char* text;
        TimeOfDay time;
    } cases[] = {
        {"08:30:15", {8, 30, 15}},
        {"8:30", {8, 30, 0}},
        {"8", {8, 0, 0}},
        {"", {0, 0, 0}},
        {"ab:cd", {0, 0, 0}},
        {" 7:5:9", {7, 5, 9}},
        {"-1:00", {-1, 0, 0}},
        {"25:99:99", {25, 99, 99}},
        {":30", {0, 30, 0}},
        {"1:2:3:4", {1, 2, 3}},
        {"99999999999:1", {2147483647, 1, 0}},
    };
    for (const auto& one : cases)
        EXPECT_EQ(timeOfDay(one.text), one.time) << one.text;
}

TEST(OracleCalendar, ASlotHoldsFromItsFirstToItsLastSecond) {
    constexpr int monday = 1;
    const struct {
        const char* start;
        const char* stop;
        int weekDay;
        TimeOfDay time;
        bool inside;
    } cases[] = {
        {"8:00", "17:00", 1, {7, 59, 59}, false},  {"8:00", "17:00", 1, {8, 0, 0}, true},
        {"8:00", "17:00", 1, {17, 0, 0}, true},    {"8:00", "17:00", 1, {17, 0, 1}, false},
        {"8:00", "17:00", 2, {9, 0, 0}, false},    {"22:00", "6:00", 1, {21, 59, 59}, false},
        {"22:00", "6:00", 1, {5, 0, 0}, false},    {"22:00", "6:00", 2, {6, 0, 0}, true},
        {"22:00", "6:00", 2, {6, 0, 1}, false},    {"22:00", "6:00", 3, {5, 0, 0}, false},
        {"20:00", "", 1, {23, 59, 59}, true},      {"20:00", "", 2, {0, 0, 0}, true},
        {"20:00", "", 2, {0, 0, 1}, false},        {"9:00", "9:00", 1, {9, 0, 0}, true},
        {"9:00", "9:00", 1, {8, 59, 59}, false},   {"9:00", "9:00", 2, {9, 0, 0}, true},
        {"9:00", "9:00", 2, {9, 0, 1}, false},     {"", "", 1, {0, 0, 0}, false},
        {"", "10:00", 1, {0, 0, 0}, true},         {"22:00", "24:00", 1, {23, 59, 59}, true},
        {"22:00", "24:00", 2, {0, 0, 0}, false},   {"24:00", "0:00:59", 1, {23, 59, 59}, false},
        {"24:00", "0:00:59", 2, {0, 0, 59}, true}, {"8:75", "10:00", 1, {8, 59, 59}, false},
        {"8:75", "10:00", 1, {9, 0, 0}, true},
    };
    for (const auto& one : cases) {
        WeekPlan plan{};
        plan[monday] = {timeOfDay(one.start), timeOfDay(one.stop)};
        EXPECT_EQ(isInside(plan, {one.weekDay, one.time}), one.inside)
            << one.start << " - " << one.stop << ", day " << one.weekDay << ", hour " << one.time[0];
    }
}

TEST(OracleCalendar, ASlotOfSaturdayRunsIntoSunday) {
    WeekPlan plan{};
    plan[6] = {{22, 0, 0}, {2, 0, 0}};
    EXPECT_TRUE(isInside(plan, {0, {2, 0, 0}}));
    EXPECT_FALSE(isInside(plan, {0, {2, 0, 1}}));
}

TEST(OracleCalendar, AUsersPlanRestrictsOnlyWhereSomethingIsEnabled) {
    const UserWindow monday = {1, {8, 0, 0}, {10, 0, 59}, true};
    const UserWindow sunday = {7, {8, 0, 0}, {10, 0, 59}, true};
    const UserWindow daily = {0, {8, 0, 0}, {10, 0, 59}, true};
    UserWindow disabled = monday;
    disabled.enabled = false;
    EXPECT_TRUE(isActive({}, {2, {12, 0, 0}}));
    EXPECT_TRUE(isActive({disabled}, {2, {12, 0, 0}}));
    EXPECT_FALSE(isActive({monday}, {1, {7, 59, 59}}));
    EXPECT_TRUE(isActive({monday}, {1, {8, 0, 0}}));
    EXPECT_TRUE(isActive({monday}, {1, {10, 0, 59}}));
    EXPECT_FALSE(isActive({monday}, {1, {10, 1, 0}}));
    EXPECT_FALSE(isActive({monday, disabled}, {2, {9, 0, 0}}));
    EXPECT_TRUE(isActive({monday, sunday}, {0, {9, 0, 0}}));
    EXPECT_FALSE(isActive({sunday}, {6, {9, 0, 0}}));
    EXPECT_TRUE(isActive({daily}, {4, {9, 0, 0}}));
    EXPECT_FALSE(isActive({{1, {22, 0, 0}, {2, 0, 59}, true}}, {1, {23, 0, 0}}));
}

TEST(OracleCalendar, ATextOfAMomentCountsByItsDateAndTime) {
    setenv("TZ", "Europe/Berlin", 1);
    const struct {
        const char* text;
        std::vector<std::time_t> moments;
    } cases[] = {
        {"2026-03-02T12:00:00+0100", {1772449200}},
        {"2026-03-02T12:00:00+0500", {1772449200}}, // somebody moved house
        {"2026-10-25T02:30:00+0200", {1792888200}}, // the first one of that hour, and the second
        {"2026-10-25T02:30:00+0100", {1792891800}},
        {"2026-10-25T02:30:00+0000", {1792891800, 1792888200}},
        {"2026-03-29T02:30:00+0100", {}}, // not that night
        {"never", {0}},
    };
    for (const auto& one : cases) {
        std::vector<std::time_t> expected = one.moments;
        std::vector<std::time_t> moments = momentsOf(one.text);
        std::sort(expected.begin(), expected.end());
        std::sort(moments.begin(), moments.end());
        EXPECT_EQ(moments, expected) << one.text;
    }
}

TEST(OracleCalendar, TheRememberedMinuteIsThatOfItsMoment) {
    setenv("TZ", "Asia/Kathmandu", 1); // three quarters of an hour
    WallClock clock;
    for (const std::time_t moment : {1772449259, 1772449260, 1772449319, 1772449261, 1772449200, 0, 59, 60})
        EXPECT_EQ(clock.at(moment).time, wallTime(moment).time) << moment;
}

} // namespace
