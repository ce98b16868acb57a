#include "timeplan/timeplan.h"

#include <functional>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace {

using orv::horad::TimePlan;
using orv::horad::TimePlanTime;

using SetDay = void (TimePlan::*)(const TimePlanTime&, const TimePlanTime&);

struct Day {
    const char* name;
    SetDay set;
};

const Day days[] = {
    {"Mon", &TimePlan::setMon}, {"Tue", &TimePlan::setTue}, {"Wed", &TimePlan::setWed},
    {"Thu", &TimePlan::setThu}, {"Fri", &TimePlan::setFri}, {"Sat", &TimePlan::setSat},
    {"Sun", &TimePlan::setSun},
};

const TimePlanTime unset(0, 0, 0);

TimePlan filledPlan() {
    TimePlan plan(7, "Kids", true);
    int hour = 1;
    for (const Day& day : days) {
        (plan.*day.set)(TimePlanTime(hour, 5, 0), TimePlanTime(hour + 1, 0, 59));
        ++hour;
    }
    return plan;
}

std::string printed(const TimePlan& plan) {
    std::ostringstream text;
    text << plan;
    return text.str();
}

TEST(TimePlan, StartsMarkedPopulatedAndWithoutSlots) {
    const TimePlan plan(-3, "Kids", true);

    EXPECT_EQ(plan.id(), -3);
    EXPECT_EQ(plan.name(), "Kids");
    EXPECT_TRUE(plan.status());
    EXPECT_TRUE(plan.marked());
    EXPECT_TRUE(plan.populated());
    EXPECT_EQ(printed(plan), "Id: -3\nName: Kids\nStatus: 1\n"
                             "Mon: 0:0:0 - 0:0:0\nTue: 0:0:0 - 0:0:0\nWed: 0:0:0 - 0:0:0\n"
                             "Thu: 0:0:0 - 0:0:0\nFri: 0:0:0 - 0:0:0\nSat: 0:0:0 - 0:0:0\n"
                             "Sun: 0:0:0 - 0:0:0\n");
}

TEST(TimePlan, PrintsALineForEachPart) {
    EXPECT_EQ(printed(filledPlan()), "Id: 7\nName: Kids\nStatus: 1\n"
                                     "Mon: 1:5:0 - 2:0:59\nTue: 2:5:0 - 3:0:59\nWed: 3:5:0 - 4:0:59\n"
                                     "Thu: 4:5:0 - 5:0:59\nFri: 5:5:0 - 6:0:59\nSat: 6:5:0 - 7:0:59\n"
                                     "Sun: 7:5:0 - 8:0:59\n");
}

TEST(TimePlan, PrintsAStatusThatIsOffAsZero) {
    EXPECT_EQ(printed(TimePlan(1, "", false)).substr(0, 24), "Id: 1\nName: \nStatus: 0\nM");
}

TEST(TimePlan, PrintingReturnsItsStream) {
    std::ostringstream stream;
    EXPECT_EQ(&(stream << TimePlan(1, "Kids", false)), &stream);
}

TEST(TimePlan, SettingADayChangesItsLineAlone) {
    for (const Day& day : days) {
        TimePlan plan(1, "Kids", false);
        std::string expected = printed(plan);
        const std::string name = std::string(day.name) + ": ";
        expected.replace(expected.find(name), name.size() + 13, name + "8:0:0 - 17:30:0");

        (plan.*day.set)(TimePlanTime(8, 0, 0), TimePlanTime(17, 30, 0));

        EXPECT_EQ(printed(plan), expected);
        EXPECT_TRUE(plan.marked());
    }
}

TEST(TimePlan, ClearTakesTheSlotsAndThePopulatedFlagOnly) {
    TimePlan plan = filledPlan();
    plan.setMarked(false);

    plan.clear();

    TimePlan expected(7, "Kids", true);
    expected.setMarked(false);
    EXPECT_EQ(printed(plan), printed(expected));
    EXPECT_EQ(plan, expected);
    EXPECT_FALSE(plan.populated());
}

TEST(TimePlan, ACopyIsEqual) {
    const TimePlan plan = filledPlan();
    const TimePlan copy = plan;
    EXPECT_TRUE(plan == copy);
    EXPECT_FALSE(plan != copy);
}

TEST(TimePlan, PopulatedTakesNoPartInEquality) {
    TimePlan plan = filledPlan();
    plan.setPopulated(false);
    EXPECT_TRUE(plan == filledPlan());
    EXPECT_FALSE(plan != filledPlan());
}

struct Difference {
    const char* what;
    std::function<void(TimePlan&)> make;
};

const Difference differences[] = {
    {"id", [](TimePlan& plan) { plan = TimePlan(2, "Kids", false); }},
    {"name", [](TimePlan& plan) { plan = TimePlan(1, "Kits", false); }},
    {"length of the name", [](TimePlan& plan) { plan = TimePlan(1, "Kidss", false); }},
    {"zero byte in the name", [](TimePlan& plan) { plan = TimePlan(1, std::string("Kids\0", 5), false); }},
    {"case of the name", [](TimePlan& plan) { plan = TimePlan(1, "kids", false); }},
    {"status", [](TimePlan& plan) { plan.setStatus(true); }},
    {"mark", [](TimePlan& plan) { plan.setMarked(false); }},
};

TEST(TimePlan, DifferingInOneFieldIsDifferent) {
    const TimePlan plan(1, "Kids", false);
    for (const Difference& difference : differences) {
        TimePlan other = plan;
        difference.make(other);
        EXPECT_FALSE(plan == other) << difference.what;
        EXPECT_TRUE(plan != other) << difference.what;
    }
}

TEST(TimePlan, DifferingInOneTimeIsDifferent) {
    const TimePlanTime time(0, 0, 1);
    for (const Day& day : days) {
        TimePlan otherStart(1, "Kids", false);
        (otherStart.*day.set)(time, unset);
        TimePlan otherStop(1, "Kids", false);
        (otherStop.*day.set)(unset, time);

        EXPECT_NE(otherStart, TimePlan(1, "Kids", false)) << day.name;
        EXPECT_NE(otherStop, TimePlan(1, "Kids", false)) << day.name;
        EXPECT_NE(otherStart, otherStop) << day.name;
    }
}

} // namespace
