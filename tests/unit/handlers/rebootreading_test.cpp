// What the settings become.

#include "unit/handlers/rebootfixture.h"

#include <climits>
#include <cstdint>
#include <list>

#include <gmock/gmock.h>

namespace {

using orv::horad::RebootHandler;
using testing::ElementsAre;
using testing::IsEmpty;
namespace code = velta::protocol::code;

using Lines = std::vector<std::string>;

// The handler's private members, for what no pass shows.
template <typename Field, auto Member>
struct Reach {
    friend typename Field::Type& reach(RebootHandler& handler, Field) { return handler.*Member; }
};
struct Time {
    using Type = std::string;
    friend Type& reach(RebootHandler&, Time);
};
struct WeekDay {
    using Type = std::uint8_t;
    friend Type& reach(RebootHandler&, WeekDay);
};
struct LastReboot {
    using Type = std::string;
    friend Type& reach(RebootHandler&, LastReboot);
};
struct MinimumRuntime {
    using Type = std::uint32_t;
    friend Type& reach(RebootHandler&, MinimumRuntime);
};
template struct Reach<Time, &RebootHandler::time_>;
template struct Reach<WeekDay, &RebootHandler::weekDay_>;
template struct Reach<LastReboot, &RebootHandler::lastReboot_>;
template struct Reach<MinimumRuntime, &RebootHandler::minimumRuntime_>;

// The settings that a handler holds, in one line.
std::string heldBy(RebootHandler& handler) {
    return reach(handler, Time()) + ", day " + std::to_string(reach(handler, WeekDay())) + ", last " +
           reach(handler, LastReboot()) + ", minimum " + std::to_string(reach(handler, MinimumRuntime()));
}

std::string enabledLine(const std::string& time, const std::string& day) {
    return "info horad: Auto reboot enabled: true, time: '" + time + "', day: '" + day + "'";
}

constexpr const char* disabled = "debug horad: Auto reboot disabled";
constexpr const char* noTime = "error horad: Auto reboot time is empty, cannot set time plan.";
constexpr const char* skipped = "debug horad: Auto reboot is disabled, skipping process.";

class RebootReading : public RebootFixture {
protected:
    // The days, from Monday on, that have the slot at 03:30: "Mo Tu".
    std::string daysOf(RebootHandler& handler) {
        std::string days;
        const char* const names[] = {"Mo", "Tu", "We", "Th", "Fr", "Sa", "Su"};
        for (std::time_t day = 0; day < 7; ++day)
            if (isDueAt(handler, insideSlot + day * secondsADay))
                days += (days.empty() ? "" : " ") + std::string(names[day]);
        return days;
    }

    bool isEnabled(RebootHandler& handler) {
        return passAt(handler, outsideSlot) != Lines{"debug horad: process", skipped};
    }
};

TEST_F(RebootReading, WatchesItsSettingsAndNotTheCommand) {
    std::list<std::string> tables = {"before"};
    handler_.getTables(tables);
    EXPECT_THAT(tables, ElementsAre("before", "AutoReboot"));
}

TEST_F(RebootReading, BeforeItAutoRebootIsOff) {
    EXPECT_EQ(pass(handler_), (Lines{"debug horad: process", skipped}));
    EXPECT_THAT(store_.journal(), IsEmpty());
    EXPECT_EQ(heldBy(handler_), ", day 1, last , minimum 5400");
}

TEST_F(RebootReading, ReadsTheWholeRowOnceAndLogsIt) {
    for (const char* table : {"", "AutoReboot"}) {
        RebootHandler handler;
        EXPECT_TRUE(read(handler, table)) << table;
        EXPECT_THAT(store_.journal(), ElementsAre("select AutoReboot 0")); // and no column in particular
        EXPECT_THAT(log_.lines(), ElementsAre(enabledLine("03:30:00", "every day")));
        EXPECT_EQ(daysOf(handler), "Mo Tu We Th Fr Sa Su");
    }
}

TEST_F(RebootReading, AChangeOfAnyOtherTableReadsNothing) {
    for (const char* table :
         {"Reboot", "autoreboot", "AutoReboot ", "AutoReboot2", "AutoReboo", "TimeFrame"}) {
        EXPECT_TRUE(read(handler_, table)) << table;
        EXPECT_THAT(store_.journal(), IsEmpty()) << table;
        EXPECT_THAT(log_.lines(), IsEmpty()) << table;
        EXPECT_FALSE(isEnabled(handler_)) << table;
    }
}

TEST_F(RebootReading, ProcessDoesNothing) {
    ASSERT_TRUE(read(handler_));
    forget();
    handler_.process(store_);
    EXPECT_THAT(store_.journal(), IsEmpty());
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(RebootReading, TakesEverySetting) {
    ASSERT_TRUE(read(handler_, RebootSettings()
                                   .weekDay(3)
                                   .time("04:05:06")
                                   .lastReboot("2024-01-01T00:00:00+0000")
                                   .minimumRuntime(77)));
    EXPECT_EQ(heldBy(handler_), "04:05:06, day 3, last 2024-01-01T00:00:00+0000, minimum 77");

    ASSERT_TRUE(read(handler_, RebootSettings().weekDay(5).time("06:00:00").minimumRuntime(78)));
    EXPECT_EQ(heldBy(handler_), "06:00:00, day 5, last , minimum 78");
}

TEST_F(RebootReading, MissingCellsAreZeroAndEmpty) {
    store_.table("AutoReboot") = {fakes::row({{"Enable", 1}, {"Time", "03:30:00"}})};
    EXPECT_TRUE(read(handler_));
    EXPECT_EQ(heldBy(handler_), "03:30:00, day 0, last , minimum 0");

    store_.table("AutoReboot") = {fakes::row({{"Time", "03:30:00"}})};
    EXPECT_TRUE(read(handler_));
    EXPECT_FALSE(isEnabled(handler_));
}

struct EnableCase {
    int enable;
    bool on;
};

const EnableCase enableCases[] = {
    {0, false}, {1, true}, {2, true}, {-1, true}, {256, true}, {INT_MIN, true},
};

TEST_F(RebootReading, AnyEnableButZeroIsOn) {
    for (const EnableCase& given : enableCases) {
        SCOPED_TRACE(given.enable);
        RebootHandler handler;
        EXPECT_TRUE(read(handler, RebootSettings().enable(given.enable)));
        EXPECT_THAT(log_.lines(), ElementsAre(given.on ? enabledLine("03:30:00", "every day") : disabled));
        EXPECT_EQ(isEnabled(handler), given.on);
    }
}

struct WeekDayCase {
    int weekDay;
    const char* label;
    const char* days;
};

constexpr const char* wholeWeek = "Mo Tu We Th Fr Sa Su";

const WeekDayCase weekDayCases[] = {
    {0, "every day", wholeWeek},
    {1, "Mo", "Mo"},
    {2, "Tu", "Tu"},
    {3, "We", "We"},
    {4, "Th", "Th"},
    {5, "Fr", "Fr"},
    {6, "Sa", "Sa"},
    {7, "Su", "Su"},
    {8, "Su", "Su"},
    {9, "Su", "Su"},
    {255, "Su", "Su"},
    // the low eight bits count
    {256, "every day", wholeWeek},
    {257, "Mo", "Mo"},
    {263, "Su", "Su"},
    {-1, "Su", "Su"},
    {-256, "every day", wholeWeek},
    {INT_MAX, "Su", "Su"},
    {INT_MIN, "every day", wholeWeek},
};

TEST_F(RebootReading, TheWeekDaySaysWhichDaysHaveTheSlot) {
    for (const WeekDayCase& given : weekDayCases) {
        SCOPED_TRACE(given.weekDay);
        RebootHandler handler;
        EXPECT_TRUE(read(handler, RebootSettings().weekDay(given.weekDay)));
        EXPECT_THAT(log_.lines(), ElementsAre(enabledLine("03:30:00", given.label)));
        EXPECT_EQ(daysOf(handler), given.days);
    }
}

TEST_F(RebootReading, ASlotOfAnotherWeekdayStaysUntilAutoRebootIsSwitchedOff) {
    struct Step {
        RebootSettings settings;
        const char* days;
    };
    const Step steps[] = {
        {RebootSettings().weekDay(1), "Mo"},
        {RebootSettings().weekDay(2), "Mo Tu"},
        {RebootSettings().weekDay(2), "Mo Tu"},
        {RebootSettings().weekDay(7), "Mo Tu Su"},
        {RebootSettings().weekDay(1).time("12:00:00"), "Tu Su"}, // Monday's own is replaced
        {RebootSettings().enable(0).weekDay(1), ""},
        {RebootSettings().weekDay(4), "Th"}, // from empty
        {RebootSettings().weekDay(0), wholeWeek},
        {RebootSettings().weekDay(5), wholeWeek},
        {RebootSettings().weekDay(0).time("12:00:00"), ""},
    };
    int number = 0;
    for (const Step& step : steps) {
        SCOPED_TRACE(++number);
        EXPECT_TRUE(read(handler_, step.settings));
        EXPECT_EQ(daysOf(handler_), step.days);
    }
}

TEST_F(RebootReading, SwitchingOffTakesTheSlotsAndLeavesTheOtherSettings) {
    ASSERT_TRUE(read(handler_, RebootSettings().weekDay(3).lastReboot("monday").minimumRuntime(77)));
    const std::string before = heldBy(handler_);

    EXPECT_TRUE(read(handler_, RebootSettings().enable(0).weekDay(4).time("12:00:00").minimumRuntime(78)));

    EXPECT_THAT(log_.lines(), ElementsAre(disabled));
    EXPECT_EQ(heldBy(handler_), before);
    EXPECT_FALSE(isEnabled(handler_));
    EXPECT_FALSE(read(handler_, RebootSettings().time(""))); // on again, and it enters no slot
    EXPECT_EQ(daysOf(handler_), "");
}

TEST_F(RebootReading, SwitchedOffAndOnWithTheSameTimeItHasItsSlotAgain) {
    for (const int enable : {1, 0, 1}) {
        EXPECT_TRUE(read(handler_, RebootSettings().enable(enable).weekDay(3)));
        EXPECT_EQ(daysOf(handler_), enable != 0 ? "We" : "");
    }
}

TEST_F(RebootReading, AnEmptyTimeLeavesTheSlotsAndAutoRebootOn) {
    ASSERT_TRUE(read(handler_, RebootSettings().weekDay(3)));

    EXPECT_FALSE(read(handler_, RebootSettings().time("").weekDay(4).lastReboot("now").minimumRuntime(77)));

    EXPECT_THAT(log_.lines(), ElementsAre(enabledLine("", "Th"), noTime));
    EXPECT_TRUE(isEnabled(handler_));
    EXPECT_EQ(daysOf(handler_), "We");
    EXPECT_EQ(heldBy(handler_), ", day 4, last now, minimum 77");
}

TEST_F(RebootReading, AnEmptyTimeSwitchesOnWhatNeverBecomesDue) {
    EXPECT_FALSE(read(handler_, RebootSettings().time("")));
    EXPECT_THAT(log_.lines(), ElementsAre(enabledLine("", "every day"), noTime));
    EXPECT_TRUE(isEnabled(handler_));
    EXPECT_EQ(daysOf(handler_), "");
}

struct FailureCase {
    int code;
    const char* text;
};

const FailureCase failureCases[] = {
    {code::timedOut, "the configuration store did not answer in time"},
    {code::unknownTable, "unknown table"},
    {code::noSuchRow, "no such row"},
};

TEST_F(RebootReading, ARowThatCantBeReadIsLoggedAndChangesNothing) {
    for (const FailureCase& given : failureCases)
        for (const int enable : {0, 1})
            for (const int enableNow : {0, 1}) {
                SCOPED_TRACE(testing::Message() << given.text << ", " << enable << " -> " << enableNow);
                RebootHandler handler;
                ASSERT_TRUE(read(handler, RebootSettings().weekDay(3).lastReboot("a").minimumRuntime(77)));
                ASSERT_TRUE(read(
                    handler, RebootSettings().weekDay(3).lastReboot("a").minimumRuntime(77).enable(enable)));
                store_.failNth(Operation::SelectRow, 1, given.code);

                EXPECT_FALSE(read(handler, RebootSettings().enable(enableNow).weekDay(4).time("12:00:00")));

                EXPECT_THAT(
                    log_.lines(),
                    ElementsAre(std::string("error horad: Failed to read AutoReboot table: ") + given.text));
                EXPECT_EQ(heldBy(handler), "03:30:00, day 3, last a, minimum 77");
                EXPECT_EQ(isEnabled(handler), enable != 0);
                EXPECT_EQ(daysOf(handler), enable != 0 ? "We" : "");
            }
}

TEST_F(RebootReading, ATableWithoutARowCantBeRead) {
    store_.table("AutoReboot").clear();
    EXPECT_FALSE(read(handler_));
    EXPECT_THAT(log_.lines(), ElementsAre("error horad: Failed to read AutoReboot table: no such row"));
    EXPECT_FALSE(isEnabled(handler_));
}

std::time_t at(int hour, int minute, int second) {
    return static_cast<std::time_t>(hour) * 3600 + minute * 60 + second;
}

// Counted from the beginning of the slot's day.
struct SlotCase {
    const char* time;
    std::time_t first;
    std::time_t last;
};

const SlotCase slotCases[] = {
    {"10:00:00", at(10, 0, 0), at(10, 0, 59)},
    {"10:00", at(10, 0, 0), at(10, 0, 59)},
    {"10", at(10, 0, 0), at(10, 0, 59)},
    {" 7:5:9", at(7, 5, 9), at(7, 6, 8)},
    {"10:00:01", at(10, 0, 1), at(10, 1, 0)},
    {"10:58:59", at(10, 58, 59), at(10, 59, 58)},
    {"10:59:00", at(10, 59, 0), at(10, 59, 59)},
    {"10:59:01", at(10, 59, 1), at(11, 0, 0)},
    {"10:59:30", at(10, 59, 30), at(11, 0, 29)},
    {"10:59:59", at(10, 59, 59), at(11, 0, 58)},
    {"00:00:00", at(0, 0, 0), at(0, 0, 59)},
    {"00:00:30", at(0, 0, 30), at(0, 1, 29)},
    {"22:59:30", at(22, 59, 30), at(23, 0, 29)},
    // over midnight
    {"23:59:00", at(23, 59, 0), at(23, 59, 59)},
    {"23:59:01", at(23, 59, 1), at(24, 0, 0)},
    {"23:59:30", at(23, 59, 30), at(24, 0, 29)},
    {"23:59:59", at(23, 59, 59), at(24, 0, 58)},
    // no time of day any more
    {"24:00:00", at(24, 0, 0), at(24, 0, 59)},
    {"10:75:00", at(11, 0, 0), at(11, 15, 59)},
    {"10:00:75", at(10, 1, 0), at(10, 2, 14)},
};

TEST_F(RebootReading, TheSlotIsAMinuteLongOnItsDay) {
    for (const SlotCase& given : slotCases)
        for (const int weekDay : {1, 6, 7}) {
            SCOPED_TRACE(std::string(given.time) + " on day " + std::to_string(weekDay));
            RebootHandler handler;
            EXPECT_TRUE(read(handler, RebootSettings().weekDay(weekDay).time(given.time)));
            const std::time_t day = monday + (weekDay - 1) * secondsADay;
            EXPECT_FALSE(isDueAt(handler, day + given.first - 1));
            EXPECT_TRUE(isDueAt(handler, day + given.first));
            EXPECT_TRUE(isDueAt(handler, day + given.last));
            EXPECT_FALSE(isDueAt(handler, day + given.last + 1));
            EXPECT_FALSE(isDueAt(handler, day + given.first - secondsADay));
            EXPECT_FALSE(isDueAt(handler, day + given.last + secondsADay));
        }
}

TEST_F(RebootReading, AnyPassEveryFiftyNineSecondsMeetsTheSlot) {
    ASSERT_TRUE(read(handler_));
    for (std::time_t offset = 0; offset < 59; ++offset) {
        int met = 0;
        for (std::time_t now = slotBegin - 118 + offset; now < slotBegin + 118; now += 59)
            met += isDueAt(handler_, now) ? 1 : 0;
        EXPECT_GE(met, 1) << offset;
        EXPECT_LE(met, 2) << offset;
    }
}

// 330 o'clock comes on no day, and 18:00:59, which is left of its end, lies before it: the slot of the day
// before.
TEST_F(RebootReading, AnHourThatNoDayHasMakesASlotFromMidnightOn) {
    ASSERT_TRUE(read(handler_, RebootSettings().time("0330")));
    constexpr std::time_t endOfSlot = 18 * 3600 + 59;
    EXPECT_TRUE(isDueAt(handler_, monday));
    EXPECT_TRUE(isDueAt(handler_, monday + endOfSlot));
    EXPECT_FALSE(isDueAt(handler_, monday + endOfSlot + 1));
    EXPECT_FALSE(isDueAt(handler_, monday + secondsADay - 1));
}

const char* const absurdTimes[] = {
    "25:99:99",
    "99999999999:99999999999:99999999999",
    "2147483647:2147483647:2147483647",
    "2147483647:2147483647:2147483588",
    "23:59:2147483647",
    "23:2147483647:59",
    "2147483647:59:59",
    "-2147483648:-2147483648:-2147483648",
    "-1:-1:-1",
    "-1:00:00",
    "00:00:-59",
    "half past three",
    "a:b:c",
    ":::::",
    " ",
    "%s%n",
};

TEST_F(RebootReading, AnAbsurdTimeIsTakenAsItIs) {
    for (const char* time : absurdTimes) {
        SCOPED_TRACE(time);
        RebootHandler handler;
        EXPECT_TRUE(read(handler, RebootSettings().time(time)));
        EXPECT_THAT(log_.lines(), ElementsAre(enabledLine(time, "every day")));
        for (std::time_t now = monday - 1; now < monday + 2 * secondsADay; now += 6 * 3600 + 7)
            if (!isDueAt(handler, now)) {
                EXPECT_EQ(log_.lines(), refused(now));
            }
    }
}

TEST_F(RebootReading, ATimeOfLettersIsMidnight) {
    ASSERT_TRUE(read(handler_, RebootSettings().time("half past three")));
    EXPECT_FALSE(isDueAt(handler_, monday - 1));
    EXPECT_TRUE(isDueAt(handler_, monday));
    EXPECT_TRUE(isDueAt(handler_, monday + 59));
    EXPECT_FALSE(isDueAt(handler_, monday + 60));
}

} // namespace
