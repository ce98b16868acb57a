#include "support/scriptedclock.h"
#include "timeplan/timeplan.h"

#include <ctime>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using orv::horad::LocalMoment;
using orv::horad::TimePlan;
using orv::horad::TimePlanTime;

enum Day { Mon, Tue, Wed, Thu, Fri, Sat, Sun };

constexpr long secondsADay = 86400;
constexpr long monday = 1704067200; // 2024-01-01 00:00:00 UTC
// The rules of Central Europe, written out: no zone files needed.
constexpr const char* centralEurope = "CET-1CEST,M3.5.0,M10.5.0/3";

long secondsOf(const std::string& time) {
    const TimePlanTime parsed(time);
    return parsed.hour() * 3600L + parsed.minute() * 60L + parsed.second();
}

// In the first week of 2024; hours from 24 on are on the days that follow.
long at(int day, const std::string& time) {
    return monday + day * secondsADay + secondsOf(time);
}

long utc(int year, int month, int day, const std::string& time) {
    std::tm moment{};
    moment.tm_year = year - 1900;
    moment.tm_mon = month - 1;
    moment.tm_mday = day;
    return static_cast<long>(timegm(&moment)) + secondsOf(time);
}

struct Slot {
    int day;
    const char* start;
    const char* stop;
};

TimePlan planOf(const std::vector<Slot>& slots) {
    using SetDay = void (TimePlan::*)(const TimePlanTime&, const TimePlanTime&);
    constexpr SetDay setters[] = {&TimePlan::setMon, &TimePlan::setTue, &TimePlan::setWed, &TimePlan::setThu,
                                  &TimePlan::setFri, &TimePlan::setSat, &TimePlan::setSun};
    TimePlan plan(1, "Kids", false);
    for (const Slot& slot : slots)
        (plan.*setters[slot.day])(TimePlanTime(slot.start), TimePlanTime(slot.stop));
    return plan;
}

class TimeSlot : public testing::Test {
protected:
    fakes::LocalZone zone_{"UTC"};
};

struct Shape {
    const char* start;
    const char* stop;
    const char* first; // the first second inside, counted from the slot's day
    const char* last;
};

const Shape shapes[] = {
    {"08:00:00", "17:00:00", "08:00:00", "17:00:00"},
    {"08:30:15", "08:30:16", "08:30:15", "08:30:16"},
    {"00:00:00", "10:00:00", "00:00:00", "10:00:00"},
    {"00:00:00", "23:59:59", "00:00:00", "23:59:59"},
    {"00:00:01", "23:59:58", "00:00:01", "23:59:58"},
    {"08:00:00", "24:00:00", "08:00:00", "23:59:59"},
    // past midnight
    {"22:00:00", "06:00:00", "22:00:00", "30:00:00"},
    {"22:15:30", "06:45:10", "22:15:30", "30:45:10"},
    {"12:00:01", "12:00:00", "12:00:01", "36:00:00"},
    {"23:59:59", "00:00:01", "23:59:59", "24:00:01"},
    // a start without a stop
    {"20:00:00", "00:00:00", "20:00:00", "24:00:00"},
    {"00:00:01", "00:00:00", "00:00:01", "24:00:00"},
    // a start equal to its stop
    {"09:00:00", "09:00:00", "09:00:00", "33:00:00"},
    {"23:59:59", "23:59:59", "23:59:59", "47:59:59"},
    // a stop that no second of the next day can be before
    {"08:00:00", "-1:00:00", "08:00:00", "23:59:59"},
};

TEST_F(TimeSlot, HoldsFromItsFirstToItsLastSecondOnEveryDay) {
    for (const Shape& shape : shapes)
        for (int day = Mon; day <= Sun; ++day) {
            SCOPED_TRACE(std::string(shape.start) + " - " + shape.stop + " on day " + std::to_string(day));
            const TimePlan plan = planOf({{day, shape.start, shape.stop}});
            const long first = at(day, shape.first);
            const long last = at(day, shape.last);
            EXPECT_FALSE(plan.isInTimeslot(first - 1));
            EXPECT_TRUE(plan.isInTimeslot(first));
            EXPECT_TRUE(plan.isInTimeslot(last));
            EXPECT_FALSE(plan.isInTimeslot(last + 1));
        }
}

struct Case {
    std::vector<Slot> slots;
    int day;
    const char* time;
    bool inside;
};

const Case cases[] = {
    // a slot that does not run past midnight says nothing of the next day
    {{{Mon, "08:00:00", "17:00:00"}}, Tue, "09:00:00", false},
    {{{Mon, "00:00:00", "23:59:59"}}, Tue, "00:00:00", false},
    // past midnight, with the next day empty
    {{{Fri, "22:00:00", "06:00:00"}}, Fri, "05:00:00", false},
    {{{Fri, "22:00:00", "06:00:00"}}, Fri, "23:00:00", true},
    {{{Fri, "22:00:00", "06:00:00"}}, Sat, "05:59:59", true},
    {{{Fri, "22:00:00", "06:00:00"}}, Sat, "06:00:00", true},
    {{{Fri, "22:00:00", "06:00:00"}}, Sat, "06:00:01", false},
    {{{Fri, "22:00:00", "06:00:00"}}, Sat, "23:00:00", false},
    {{{Fri, "22:00:00", "06:00:00"}}, Sun, "05:00:00", false},
    // over the ends of the week
    {{{Sat, "22:00:00", "02:00:00"}}, Sun, "01:00:00", true},
    {{{Sun, "20:00:00", "04:00:00"}}, Mon, "03:00:00", true},
    {{{Sun, "20:00:00", "04:00:00"}}, Mon, "04:00:01", false},
    {{{Wed, "20:00:00", "00:00:00"}}, Wed, "23:59:59", true},
    {{{Wed, "20:00:00", "00:00:00"}}, Thu, "00:00:00", true},
    {{{Wed, "20:00:00", "00:00:00"}}, Thu, "00:00:01", false},
    // past midnight, with a slot of its own on the next day
    {{{Fri, "22:00:00", "06:00:00"}, {Sat, "05:00:00", "10:00:00"}}, Sat, "04:59:59", true},
    {{{Fri, "22:00:00", "06:00:00"}, {Sat, "05:00:00", "10:00:00"}}, Sat, "06:00:01", true},
    {{{Fri, "22:00:00", "06:00:00"}, {Sat, "05:00:00", "10:00:00"}}, Sat, "10:00:01", false},
    {{{Fri, "22:00:00", "06:00:00"}, {Sat, "08:00:00", "10:00:00"}}, Sat, "05:00:00", true},
    {{{Fri, "22:00:00", "06:00:00"}, {Sat, "08:00:00", "10:00:00"}}, Sat, "07:00:00", false},
    {{{Fri, "22:00:00", "12:00:00"}, {Sat, "08:00:00", "10:00:00"}}, Sat, "11:00:00", true},
    // two that run past midnight, one behind the other
    {{{Fri, "22:00:00", "06:00:00"}, {Sat, "23:00:00", "02:00:00"}}, Sat, "03:00:00", true},
    {{{Fri, "22:00:00", "06:00:00"}, {Sat, "23:00:00", "02:00:00"}}, Sat, "06:00:01", false},
    {{{Fri, "22:00:00", "06:00:00"}, {Sat, "23:00:00", "02:00:00"}}, Sat, "22:59:59", false},
    {{{Fri, "22:00:00", "06:00:00"}, {Sat, "23:00:00", "02:00:00"}}, Sun, "02:00:00", true},
    {{{Fri, "22:00:00", "06:00:00"}, {Sat, "23:00:00", "02:00:00"}}, Sun, "02:00:01", false},
    // times that no day has
    {{{Mon, "25:00:00", "26:00:00"}}, Mon, "23:59:59", false},
    {{{Mon, "25:00:00", "26:00:00"}}, Tue, "01:30:00", false},
    {{{Mon, "-2:00:00", "-1:00:00"}}, Mon, "00:00:00", false},
};

TEST_F(TimeSlot, SlotsOfNeighbouringDaysMeet) {
    for (const Case& given : cases)
        EXPECT_EQ(planOf(given.slots).isInTimeslot(at(given.day, given.time)), given.inside)
            << given.slots[0].start << " - " << given.slots[0].stop << ", asked for " << given.time
            << " on day " << given.day;
}

TEST_F(TimeSlot, APlanWithoutSlotsIsNeverActive) {
    const TimePlan plan = planOf({});
    for (int day = Mon; day <= Sun; ++day)
        for (const char* time : {"00:00:00", "00:00:01", "12:00:00", "23:59:59"})
            EXPECT_FALSE(plan.isInTimeslot(at(day, time))) << time << " on day " << day;
}

TEST_F(TimeSlot, AClearedPlanIsNeverActive) {
    TimePlan plan = planOf({{Mon, "09:00:00", "09:00:00"}});
    plan.clear();
    EXPECT_FALSE(plan.isInTimeslot(at(Mon, "12:00:00")));
    EXPECT_FALSE(plan.isInTimeslot(at(Tue, "00:00:00")));
}

TEST_F(TimeSlot, ASharedMomentGivesTheSameAnswersAsTheSeconds) {
    const TimePlan plan = planOf({{Mon, "08:00:00", "17:15:00"},
                                  {Tue, "22:00:00", "06:00:00"},
                                  {Wed, "20:00:00", "00:00:00"},
                                  {Sat, "09:00:00", "09:00:00"},
                                  {Sun, "20:00:00", "04:00:00"}});
    for (long quarter = monday; quarter < monday + 7 * secondsADay; quarter += 900)
        for (long seconds = quarter - 1; seconds <= quarter + 1; ++seconds) {
            const auto moment = LocalMoment::at(seconds);
            ASSERT_TRUE(moment);
            ASSERT_EQ(plan.isInTimeslot(*moment), plan.isInTimeslot(seconds)) << seconds;
        }
}

TEST_F(TimeSlot, AMomentTellsWeekdayAndTimeOfDay) {
    const auto moment = LocalMoment::at(at(Sun, "07:05:09"));
    ASSERT_TRUE(moment);
    EXPECT_EQ(moment->weekDay(), 0);
    EXPECT_EQ(moment->time(), TimePlanTime(7, 5, 9));
}

TEST_F(TimeSlot, AMomentBefore1970Counts) {
    EXPECT_TRUE(planOf({{Wed, "23:59:59", "23:59:59"}}).isInTimeslot(-1)); // 1969-12-31 was a Wednesday
}

TEST_F(TimeSlot, AMomentThatCantBeConvertedIsInNoSlot) {
    std::vector<Slot> wholeWeek;
    for (int day = Mon; day <= Sun; ++day)
        wholeWeek.push_back({day, "00:00:00", "23:59:59"});
    const TimePlan plan = planOf(wholeWeek);
    for (const std::time_t seconds :
         {std::numeric_limits<std::time_t>::max(), std::numeric_limits<std::time_t>::min()}) {
        EXPECT_FALSE(LocalMoment::at(seconds));
        if (sizeof(long) == sizeof(std::time_t)) { // else every long can be converted
            EXPECT_FALSE(plan.isInTimeslot(static_cast<long>(seconds)));
        }
    }
}

struct ZoneCase {
    const char* zone;
    Slot slot;
    long seconds;
    bool inside;
};

const ZoneCase zoneCases[] = {
    // a weekday begins at local midnight
    {"UTC", {Mon, "00:00:00", "01:00:00"}, utc(2024, 1, 7, "23:30:00"), false},
    {centralEurope, {Mon, "00:00:00", "01:00:00"}, utc(2024, 1, 7, "23:30:00"), true},
    {"EST5", {Sun, "20:00:00", "23:59:59"}, utc(2024, 1, 8, "04:59:59"), true},
    {"EST5", {Sun, "20:00:00", "23:59:59"}, utc(2024, 1, 8, "05:00:00"), false},
    {"XXX-14", {Mon, "12:00:00", "13:00:00"}, utc(2024, 1, 7, "22:30:00"), true},
    {"IST-5:30", {Mon, "05:30:00", "05:30:00"}, utc(2024, 1, 1, "00:00:00"), true},
    {"IST-5:30", {Mon, "05:30:00", "05:30:01"}, utc(2023, 12, 31, "23:59:59"), false},
    // the same wall clock in winter and in summer
    {centralEurope, {Mon, "08:00:00", "17:00:00"}, utc(2024, 1, 1, "07:00:00"), true},
    {centralEurope, {Mon, "08:00:00", "17:00:00"}, utc(2024, 1, 1, "06:59:59"), false},
    {centralEurope, {Mon, "08:00:00", "17:00:00"}, utc(2024, 7, 1, "06:00:00"), true},
    {centralEurope, {Mon, "08:00:00", "17:00:00"}, utc(2024, 7, 1, "05:59:59"), false},
    // summer time begins: after 01:59:59 comes 03:00:00
    {centralEurope, {Sun, "02:00:00", "03:00:00"}, utc(2024, 3, 31, "00:59:59"), false},
    {centralEurope, {Sun, "02:00:00", "03:00:00"}, utc(2024, 3, 31, "01:00:00"), true},
    {centralEurope, {Sun, "02:00:00", "03:00:00"}, utc(2024, 3, 31, "01:00:01"), false},
    {centralEurope, {Sat, "22:00:00", "02:30:00"}, utc(2024, 3, 31, "00:59:59"), true},
    {centralEurope, {Sat, "22:00:00", "02:30:00"}, utc(2024, 3, 31, "01:00:00"), false},
    // it ends: 02:30:00 comes twice
    {centralEurope, {Sun, "02:00:00", "02:59:59"}, utc(2024, 10, 27, "00:30:00"), true},
    {centralEurope, {Sun, "02:00:00", "02:59:59"}, utc(2024, 10, 27, "01:30:00"), true},
    {centralEurope, {Sun, "02:00:00", "02:59:59"}, utc(2024, 10, 27, "02:00:00"), false},
    {centralEurope, {Sat, "22:00:00", "02:15:00"}, utc(2024, 10, 27, "00:15:00"), true},
    {centralEurope, {Sat, "22:00:00", "02:15:00"}, utc(2024, 10, 27, "00:59:59"), false},
    {centralEurope, {Sat, "22:00:00", "02:15:00"}, utc(2024, 10, 27, "01:15:00"), true},
};

TEST_F(TimeSlot, IsInLocalTime) {
    for (const ZoneCase& given : zoneCases) {
        zone_.set(given.zone);
        EXPECT_EQ(planOf({given.slot}).isInTimeslot(given.seconds), given.inside)
            << given.zone << ", " << given.slot.start << " - " << given.slot.stop << ", asked for "
            << given.seconds;
    }
}

} // namespace
