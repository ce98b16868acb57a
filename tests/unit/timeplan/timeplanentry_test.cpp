#include "support/scriptedclock.h"
#include "timeplan/timeplanentry.h"

#include <climits>
#include <ctime>
#include <limits>
#include <string>

#include <gtest/gtest.h>

namespace {

using orv::horad::LocalMoment;
using orv::horad::TimePlanEntry;
using orv::horad::TimePlanTime;

constexpr int everyDay = 0;
enum Day { Mon = 1, Tue, Wed, Thu, Fri, Sat, Sun };

constexpr long secondsADay = 86400;
constexpr long monday = 1704067200; // 2024-01-01 00:00:00 UTC
// The rules of Central Europe, written out: no zone files needed.
constexpr const char* centralEurope = "CET-1CEST,M3.5.0,M10.5.0/3";

// In the first week of 2024.
long at(int day, int hour, int minute, int second) {
    return monday + (day - Mon) * secondsADay + hour * 3600L + minute * 60L + second;
}

TimePlanEntry entryOf(int weekDay, const TimePlanTime& start, const TimePlanTime& stop) {
    return {start, stop, weekDay, true};
}

TimePlanEntry morningOf(int weekDay, bool enabled = true) {
    return {TimePlanTime(8, 0, 0), TimePlanTime(10, 0, 0), weekDay, enabled};
}

TimePlanEntry wholeDayOf(int weekDay) {
    return entryOf(weekDay, TimePlanTime(0, 0, 0), TimePlanTime(24, 0, 0));
}

class Entry : public testing::Test {
protected:
    fakes::LocalZone zone_{"UTC"};
};

struct Window {
    TimePlanTime start;
    TimePlanTime stop;
    long first; // the first second inside, counted from midnight
    long last;
};

const Window windows[] = {
    {{8, 0, 0}, {10, 0, 0}, 28800, 36000},
    {{8, 30, 15}, {8, 30, 16}, 30615, 30616},
    {{0, 0, 0}, {0, 0, 0}, 0, 0}, // no "not set" here
    {{12, 0, 0}, {12, 0, 0}, 43200, 43200},
    {{0, 0, 1}, {23, 59, 58}, 1, 86398},
    {{23, 59, 59}, {23, 59, 59}, 86399, 86399},
    // an end hour of 24, and ends that no day has
    {{22, 0, 0}, {24, 0, 0}, 79200, 86399},
    {{22, 0, 0}, {24, 30, 0}, 79200, 86399},
    {{22, 0, 0}, {25, 0, 0}, 79200, 86399},
    {{22, 0, 0}, {22, 99, 0}, 79200, 82799},
    {{-1, 0, 0}, {1, 0, 0}, 0, 3600},
};

TEST_F(Entry, HoldsItsWindowFromItsFirstToItsLastSecond) {
    for (const Window& window : windows) {
        const TimePlanEntry entry = entryOf(Wed, window.start, window.stop);
        const long midnight = at(Wed, 0, 0, 0);
        EXPECT_FALSE(entry.isInTimeWindow(midnight + window.first - 1)) << window.first;
        EXPECT_TRUE(entry.isInTimeWindow(midnight + window.first)) << window.first;
        EXPECT_TRUE(entry.isInTimeWindow(midnight + window.last)) << window.last;
        EXPECT_FALSE(entry.isInTimeWindow(midnight + window.last + 1)) << window.last;
    }
}

TEST_F(Entry, AWindowWhoseStopIsBeforeItsStartHoldsNothing) {
    const TimePlanEntry backward[] = {
        entryOf(everyDay, TimePlanTime(22, 0, 0), TimePlanTime(2, 0, 0)),
        entryOf(everyDay, TimePlanTime(0, 0, 1), TimePlanTime(0, 0, 0)),
        entryOf(everyDay, TimePlanTime(12, 0, 0), TimePlanTime(11, 59, 59)),
        entryOf(everyDay, TimePlanTime(24, 0, 0), TimePlanTime(0, 0, 0)),
    };
    for (const TimePlanEntry& entry : backward)
        for (long seconds = monday; seconds < monday + 2 * secondsADay; ++seconds)
            ASSERT_FALSE(entry.isInTimeWindow(seconds)) << seconds;
}

struct DayCase {
    int weekDay;
    bool holds[7]; // from Monday on
};

const DayCase dayCases[] = {
    {everyDay, {true, true, true, true, true, true, true}},
    {Mon, {true, false, false, false, false, false, false}},
    {Tue, {false, true, false, false, false, false, false}},
    {Wed, {false, false, true, false, false, false, false}},
    {Thu, {false, false, false, true, false, false, false}},
    {Fri, {false, false, false, false, true, false, false}},
    {Sat, {false, false, false, false, false, true, false}},
    {Sun, {false, false, false, false, false, false, true}},
    // days that never come
    {8, {}},
    {-1, {}},
    {-7, {}},
    {INT_MAX, {}},
    {INT_MIN, {}},
};

TEST_F(Entry, HoldsOnItsWeekDayOnly) {
    for (const DayCase& given : dayCases)
        for (int day = Mon; day <= Sun; ++day) {
            SCOPED_TRACE(std::to_string(given.weekDay) + " on day " + std::to_string(day));
            const TimePlanEntry entry = wholeDayOf(given.weekDay);
            EXPECT_EQ(entry.isInTimeWindow(at(day, 0, 0, 0)), given.holds[day - Mon]);
            EXPECT_EQ(entry.isInTimeWindow(at(day, 23, 59, 59)), given.holds[day - Mon]);
        }
}

TEST_F(Entry, TheWeekDayIsThatOfLocalTime) {
    const long lateOnSundayInLondon = at(Mon, 0, 0, 0) - 1800;
    EXPECT_TRUE(wholeDayOf(Sun).isInTimeWindow(lateOnSundayInLondon));

    zone_.set(centralEurope);

    EXPECT_FALSE(wholeDayOf(Sun).isInTimeWindow(lateOnSundayInLondon));
    EXPECT_TRUE(wholeDayOf(Mon).isInTimeWindow(lateOnSundayInLondon));
}

TEST_F(Entry, TheWindowIsInLocalTimeSummerAndWinter) {
    zone_.set(centralEurope);
    const long july = 1719792000; // Monday 2024-07-01 00:00:00 UTC
    EXPECT_FALSE(morningOf(Mon).isInTimeWindow(at(Mon, 6, 59, 59)));
    EXPECT_TRUE(morningOf(Mon).isInTimeWindow(at(Mon, 7, 0, 0)));
    EXPECT_TRUE(morningOf(Mon).isInTimeWindow(at(Mon, 9, 0, 0)));
    EXPECT_FALSE(morningOf(Mon).isInTimeWindow(at(Mon, 9, 0, 1)));
    EXPECT_FALSE(morningOf(Mon).isInTimeWindow(july + 6 * 3600 - 1));
    EXPECT_TRUE(morningOf(Mon).isInTimeWindow(july + 6 * 3600));
    EXPECT_TRUE(morningOf(Mon).isInTimeWindow(july + 8 * 3600));
    EXPECT_FALSE(morningOf(Mon).isInTimeWindow(july + 8 * 3600 + 1));
}

TEST_F(Entry, AnHourThatTheClockSkipsNeverComes) {
    zone_.set(centralEurope);
    const TimePlanEntry skipped = entryOf(Sun, TimePlanTime(2, 0, 0), TimePlanTime(2, 59, 59));
    const long change = 1711846800; // 2024-03-31 01:00:00 UTC
    for (long seconds = change - 3600; seconds <= change + 3600; ++seconds)
        ASSERT_FALSE(skipped.isInTimeWindow(seconds)) << seconds;
}

TEST_F(Entry, ADisabledOneRestrictsNothing) {
    EXPECT_TRUE(morningOf(Mon, false).isActive(at(Mon, 9, 0, 0)));
    EXPECT_TRUE(morningOf(Mon, false).isActive(at(Tue, 23, 0, 0)));
    EXPECT_TRUE(morningOf(8, false).isActive(at(Tue, 23, 0, 0)));
}

TEST_F(Entry, AnEnabledOneIsActiveInItsWindow) {
    EXPECT_FALSE(morningOf(Mon).isActive(at(Mon, 7, 59, 59)));
    EXPECT_TRUE(morningOf(Mon).isActive(at(Mon, 8, 0, 0)));
    EXPECT_TRUE(morningOf(Mon).isActive(at(Mon, 10, 0, 0)));
    EXPECT_FALSE(morningOf(Mon).isActive(at(Mon, 10, 0, 1)));
    EXPECT_FALSE(morningOf(Mon).isActive(at(Tue, 9, 0, 0)));
}

TEST_F(Entry, TheWindowDoesNotCareForTheSwitch) {
    EXPECT_TRUE(morningOf(Mon, false).isInTimeWindow(at(Mon, 9, 0, 0)));
    EXPECT_FALSE(morningOf(Mon, false).isInTimeWindow(at(Tue, 9, 0, 0)));
}

TEST_F(Entry, IsSwitched) {
    TimePlanEntry entry = morningOf(Mon, false);
    EXPECT_FALSE(entry.isEnabled());

    entry.setEnable(true);

    EXPECT_TRUE(entry.isEnabled());
    EXPECT_FALSE(entry.isActive(at(Tue, 9, 0, 0)));

    entry.setEnable(false);

    EXPECT_FALSE(entry.isEnabled());
    EXPECT_TRUE(entry.isActive(at(Tue, 9, 0, 0)));
}

TEST_F(Entry, IsTheSameWithTheSameWindowHoweverItIsSwitched) {
    EXPECT_TRUE(morningOf(Mon) == morningOf(Mon));
    EXPECT_TRUE(morningOf(Mon, true) == morningOf(Mon, false));
    EXPECT_TRUE(wholeDayOf(Mon) == entryOf(Mon, TimePlanTime(0, 0, 0), TimePlanTime(23, 59, 59)));
}

TEST_F(Entry, IsAnotherWithAnotherDayOrWindow) {
    const TimePlanEntry others[] = {
        morningOf(Tue),
        morningOf(everyDay),
        entryOf(Mon, TimePlanTime(9, 0, 0), TimePlanTime(10, 0, 0)),
        entryOf(Mon, TimePlanTime(8, 1, 0), TimePlanTime(10, 0, 0)),
        entryOf(Mon, TimePlanTime(8, 0, 1), TimePlanTime(10, 0, 0)),
        entryOf(Mon, TimePlanTime(8, 0, 0), TimePlanTime(11, 0, 0)),
        entryOf(Mon, TimePlanTime(8, 0, 0), TimePlanTime(10, 1, 0)),
        entryOf(Mon, TimePlanTime(8, 0, 0), TimePlanTime(10, 0, 1)),
    };
    for (const TimePlanEntry& other : others) {
        EXPECT_FALSE(morningOf(Mon) == other);
        EXPECT_FALSE(other == morningOf(Mon));
    }
    EXPECT_FALSE(wholeDayOf(Sun) == wholeDayOf(everyDay)); // 7 is not 0, whatever the C library counts
}

TEST_F(Entry, ACopyIsSwitchedAlone) {
    const TimePlanEntry original = morningOf(Mon);
    TimePlanEntry copy = original;

    copy.setEnable(false);

    EXPECT_TRUE(original.isEnabled());
    EXPECT_TRUE(copy == original);
}

TEST_F(Entry, AMomentPast2038IsOneAsAnyOther) {
    const TimePlanEntry atTwenty = entryOf(Sat, TimePlanTime(5, 20, 0), TimePlanTime(5, 20, 0));
    const auto moment = LocalMoment::at(std::time_t{3000000000}); // Saturday 2065-01-24 05:20:00 UTC
    ASSERT_TRUE(moment);
    EXPECT_TRUE(atTwenty.isInTimeWindow(*moment));
    EXPECT_TRUE(atTwenty.isActive(*moment));
    const auto later = LocalMoment::at(std::time_t{3000000001});
    ASSERT_TRUE(later);
    EXPECT_FALSE(atTwenty.isInTimeWindow(*later));
    EXPECT_FALSE(atTwenty.isActive(*later));
}

TEST_F(Entry, ASharedMomentGivesTheSameAnswersAsTheSeconds) {
    for (const bool enabled : {false, true})
        for (const int weekDay : {everyDay, int{Mon}, int{Sun}, 8})
            for (long seconds = monday - 1; seconds < monday + 7 * secondsADay; seconds += 900) {
                const TimePlanEntry entry = morningOf(weekDay, enabled);
                const auto moment = LocalMoment::at(seconds);
                ASSERT_TRUE(moment);
                ASSERT_EQ(entry.isInTimeWindow(*moment), entry.isInTimeWindow(seconds)) << seconds;
                ASSERT_EQ(entry.isActive(*moment), entry.isActive(seconds)) << seconds;
            }
}

TEST_F(Entry, AMomentThatCantBeConvertedIsInNoWindow) {
    if (sizeof(long) < sizeof(std::time_t))
        return; // every long can be converted
    for (const long seconds : {std::numeric_limits<long>::max(), std::numeric_limits<long>::min()}) {
        TimePlanEntry entry = wholeDayOf(everyDay);
        EXPECT_FALSE(entry.isInTimeWindow(seconds));
        EXPECT_FALSE(entry.isActive(seconds));
        entry.setEnable(false);
        EXPECT_TRUE(entry.isActive(seconds));
    }
}

} // namespace
