#include "timeplan/weekslots.h"

#include <climits>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

using orv::horad::Slot;
using orv::horad::TimePlanTime;
using orv::horad::WeekSlots;

namespace {

// What a byte holds, what it doesn't, and what a clock never shows.
constexpr int numbers[] = {0, 1, 23, 24, 59, 99, 127, 128, 255, 256, 1000000, INT_MAX, -1, -256, INT_MIN};

Slot slotOfDay(std::size_t day) {
    const int hour = static_cast<int>(day);
    return Slot{TimePlanTime(hour, 1, 2), TimePlanTime(hour + 1, 3, 4)};
}

WeekSlots fullWeek() {
    WeekSlots week;
    for (std::size_t day = 0; day < WeekSlots::days; ++day)
        week.setDay(day, slotOfDay(day));
    return week;
}

std::string text(const Slot& slot) {
    std::ostringstream os;
    slot.start.put(os) << " - ";
    slot.stop.put(os);
    return os.str();
}

void expectOtherDaysUntouched(const WeekSlots& week, std::size_t changed) {
    for (std::size_t day = 0; day < WeekSlots::days; ++day)
        if (day != changed) {
            EXPECT_EQ(text(week.day(day)), text(slotOfDay(day))) << "day " << day;
        }
}

TEST(WeekSlots, StartsWithoutSlots) {
    const WeekSlots week;
    for (std::size_t day = 0; day < WeekSlots::days; ++day)
        EXPECT_FALSE(week.day(day).isSet()) << "day " << day;
}

TEST(WeekSlots, KeepsEveryNumberOfEveryDayExactly) {
    for (std::size_t day = 0; day < WeekSlots::days; ++day)
        for (const int number : numbers)
            for (const TimePlanTime& time :
                 {TimePlanTime::verbatim(number, 5, 6), TimePlanTime::verbatim(7, number, 8),
                  TimePlanTime::verbatim(9, 10, number)}) {
                WeekSlots asStart = fullWeek();
                asStart.setDay(day, Slot{time, TimePlanTime(1, 2, 3)});
                WeekSlots asStop = fullWeek();
                asStop.setDay(day, Slot{TimePlanTime(1, 2, 3), time});

                EXPECT_EQ(text(asStart.day(day)), text(Slot{time, TimePlanTime(1, 2, 3)}));
                EXPECT_EQ(text(asStop.day(day)), text(Slot{TimePlanTime(1, 2, 3), time}));
                expectOtherDaysUntouched(asStart, day);
                expectOtherDaysUntouched(asStop, day);
            }
}

TEST(WeekSlots, AWeekOfClockTimesEqualsOneThatOnceHeldMore) {
    WeekSlots week = fullWeek();
    week.setDay(2, Slot{TimePlanTime::verbatim(300, 0, 0), TimePlanTime(0, 0, 0)});
    EXPECT_FALSE(week == fullWeek());

    week.setDay(2, slotOfDay(2));
    EXPECT_TRUE(week == fullWeek());
    EXPECT_TRUE(fullWeek() == week);
}

TEST(WeekSlots, ACopyGoesItsOwnWay) {
    WeekSlots week = fullWeek();
    week.setDay(3, Slot{TimePlanTime::verbatim(-1, 0, 0), TimePlanTime(0, 0, 0)});
    WeekSlots copy = week;
    copy.setDay(3, slotOfDay(3));

    EXPECT_EQ(week.day(3).start.hour(), -1);
    EXPECT_TRUE(copy == fullWeek());
}

TEST(WeekSlots, TakesLessThanHalfOfItsFourteenTimes) {
    EXPECT_LT(2 * sizeof(WeekSlots), 2 * WeekSlots::days * sizeof(TimePlanTime));
}

} // namespace
