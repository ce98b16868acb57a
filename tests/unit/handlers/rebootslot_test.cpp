// The slot of the settings alone: when it begins and ends, and on which days.

#include "handlers/rebootslot.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using orv::horad::enterRebootSlot;
using orv::horad::everyDay;
using orv::horad::rebootSlotOf;
using orv::horad::Slot;
using orv::horad::TimePlan;
using orv::horad::TimePlanTime;

constexpr std::time_t secondsADay = 86400;
constexpr std::time_t monday = 1704067200; // 2024-01-01 00:00:00 UTC, the tests' time zone
constexpr std::time_t begin = 3 * 3600 + 1800;

TEST(RebootSlot, IsTheMinuteFromItsTimeOnAndMayRunPastMidnight) {
    const struct {
        const char* time;
        Slot slot;
    } cases[] = {
        {"10:00:00", {TimePlanTime(10, 0, 0), TimePlanTime(10, 0, 59)}},
        {"10:00", {TimePlanTime(10, 0, 0), TimePlanTime(10, 0, 59)}},
        {"10:00:01", {TimePlanTime(10, 0, 1), TimePlanTime(10, 1, 0)}},
        {"10:59:30", {TimePlanTime(10, 59, 30), TimePlanTime(11, 0, 29)}},
        {"23:59:30", {TimePlanTime(23, 59, 30), TimePlanTime(0, 0, 29)}},
    };
    for (const auto& given : cases)
        EXPECT_EQ(rebootSlotOf(given.time), given.slot) << given.time;
}

// The days of the week, from Monday on, that have the slot of 03:30.
std::vector<int> daysOf(const TimePlan& plan) {
    std::vector<int> days;
    for (int day = 0; day < 7; ++day) {
        const auto slot = static_cast<long>(monday + day * secondsADay + begin);
        if (plan.isInTimeslot(slot))
            days.push_back(day);
        EXPECT_EQ(plan.isInTimeslot(slot + 59), plan.isInTimeslot(slot)) << day;
        EXPECT_FALSE(plan.isInTimeslot(slot - 1)) << day;
        EXPECT_FALSE(plan.isInTimeslot(slot + 60)) << day;
    }
    return days;
}

TEST(RebootSlot, IsOnItsWeekdayOrOnAllAndWhateverIsBehindSundayIsSunday) {
    const struct {
        std::uint8_t weekDay;
        std::vector<int> days;
    } cases[] = {
        {everyDay, {0, 1, 2, 3, 4, 5, 6}}, {1, {0}}, {6, {5}}, {7, {6}}, {8, {6}}, {255, {6}},
    };
    for (const auto& given : cases) {
        TimePlan plan(0, "AutoReboot", false);
        enterRebootSlot(plan, "03:30:00", given.weekDay);
        EXPECT_EQ(daysOf(plan), given.days) << unsigned{given.weekDay};
    }
}

TEST(RebootSlot, AnotherWeekdayKeepsTheSlotThatItHas) {
    TimePlan plan(0, "AutoReboot", false);
    enterRebootSlot(plan, "03:30:00", 1);
    enterRebootSlot(plan, "03:30:00", 2);
    EXPECT_EQ(daysOf(plan), (std::vector<int>{0, 1}));
    enterRebootSlot(plan, "04:30:00", 1);
    EXPECT_EQ(daysOf(plan), (std::vector<int>{1}));
}

} // namespace
