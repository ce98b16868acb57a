#include "timeplan/timeframe.h"
#include "unit/horad/recordedlog.h"

#include <chrono>
#include <climits>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using orv::horad::Timeframe;
using orv::horad::TimePlanEntry;
using orv::horad::TimePlanFlex;
using orv::horad::TimePlanTime;
using std::chrono::seconds;
using testing::ElementsAre;

constexpr std::uint32_t start = 1704067200; // 2024-01-01 00:00:00 UTC
constexpr std::uint32_t twoHoursLater = start + 7200;
constexpr std::uint32_t lastSecond = 0xFFFFFFFF; // in 2106
constexpr int hour = 3600;

static_assert(std::is_same_v<Timeframe::TimePoint::rep, std::int64_t> ||
              sizeof(Timeframe::TimePoint::rep) == sizeof(std::int64_t));
static_assert(std::is_same_v<Timeframe::TimePoint::period, std::micro>);
static_assert(std::is_same_v<Timeframe::TimePoint::clock, std::chrono::system_clock>);

Timeframe::TimePoint at(std::uint32_t sinceEpoch) {
    return Timeframe::TimePoint(seconds(sinceEpoch));
}

Timeframe frameOf(std::uint32_t from, std::uint32_t to, int interval) {
    return {"FileTransfer", 7, from, to, 1, "", -1, interval, 0, std::make_shared<TimePlanFlex>()};
}

TEST(Timeframe, KeepsWhatItIsGiven) {
    const auto plan = std::make_shared<TimePlanFlex>();

    const Timeframe frame("FileTransfer", 7, start, twoHoursLater, 3, "New firmware", 5, 180, 2, plan);

    EXPECT_EQ(frame.name(), "FileTransfer");
    EXPECT_EQ(frame.id(), 7);
    EXPECT_EQ(frame.start(), at(start));
    EXPECT_EQ(frame.end(), at(twoHoursLater));
    EXPECT_EQ(frame.executionTime(), at(start));
    EXPECT_EQ(frame.mode(), 3);
    EXPECT_EQ(frame.text(), "New firmware");
    EXPECT_EQ(frame.maxRuns(), 5);
    EXPECT_EQ(frame.interval(), 180);
    EXPECT_EQ(frame.runCounter(), 2);
    EXPECT_EQ(frame.timePlan(), plan);
    EXPECT_FALSE(frame.isDue());
}

TEST(Timeframe, TakesNoNumberForSpecial) {
    const Timeframe frame("", INT_MIN, 0, 0, INT_MIN, "", INT_MAX, INT_MIN, INT_MIN, nullptr);

    EXPECT_EQ(frame.name(), "");
    EXPECT_EQ(frame.id(), INT_MIN);
    EXPECT_EQ(frame.start(), at(0));
    EXPECT_EQ(frame.end(), at(0));
    EXPECT_EQ(frame.mode(), INT_MIN);
    EXPECT_EQ(frame.maxRuns(), INT_MAX);
    EXPECT_EQ(frame.interval(), INT_MIN);
    EXPECT_EQ(frame.runCounter(), INT_MIN);
    EXPECT_EQ(frame.timePlan(), nullptr);
}

TEST(Timeframe, TimesAreCountedInMicroseconds) {
    const Timeframe frame = frameOf(1, lastSecond, hour);
    EXPECT_EQ(frame.start().time_since_epoch().count(), 1000000);
    EXPECT_EQ(frame.executionTime().time_since_epoch().count(), 1000000);
    EXPECT_EQ(frame.end().time_since_epoch().count(), 4294967295000000);
}

struct LimitCase {
    int given;
    int kept;
};

const LimitCase limitCases[] = {
    {INT_MIN, -1}, {-1000, -1}, {-2, -1}, {-1, -1}, {0, 0}, {1, 1}, {3, 3}, {INT_MAX, INT_MAX},
};

TEST(Timeframe, ANegativeLimitIsNone) {
    for (const LimitCase& limit : limitCases)
        EXPECT_EQ(Timeframe("", 1, 0, 0, 1, "", limit.given, 1, 0, nullptr).maxRuns(), limit.kept)
            << limit.given;
}

TEST(Timeframe, TheRunCounterIsSet) {
    Timeframe frame = frameOf(start, twoHoursLater, hour);
    for (const int runs : {1, 3, 0, -1, INT_MAX, INT_MIN}) {
        frame.setRunCounter(runs);
        EXPECT_EQ(frame.runCounter(), runs);
    }
}

TEST(Timeframe, EachRegistersItsLogModuleAndThenTurnsItUp) {
    recordedlog::calls().clear();

    frameOf(start, twoHoursLater, hour);

    EXPECT_THAT(recordedlog::calls(), ElementsAre("registerModul timefrm", "changeTracelevel timefrm 1023"));

    frameOf(start, twoHoursLater, hour);

    EXPECT_THAT(recordedlog::calls(), ElementsAre("registerModul timefrm", "changeTracelevel timefrm 1023",
                                                  "registerModul timefrm", "changeTracelevel timefrm 1023"));
}

TEST(Timeframe, TheExecutionTimeMovesByTheIntervalAndStaysInTheSpan) {
    Timeframe frame = frameOf(start, twoHoursLater, hour);

    EXPECT_FALSE(frame.updateExecutionTime());
    EXPECT_EQ(frame.executionTime(), at(start + 3600));

    EXPECT_FALSE(frame.updateExecutionTime()); // the end itself belongs to the span
    EXPECT_EQ(frame.executionTime(), at(twoHoursLater));

    for (int again = 0; again < 3; ++again) {
        EXPECT_TRUE(frame.updateExecutionTime());
        EXPECT_EQ(frame.executionTime(), at(twoHoursLater));
    }
    EXPECT_EQ(frame.start(), at(start));
    EXPECT_EQ(frame.end(), at(twoHoursLater));
    EXPECT_FALSE(frame.isDue());
}

struct MoveCase {
    std::uint32_t from;
    std::uint32_t to;
    int interval;
    bool over;
    std::int64_t executionTime; // seconds
};

constexpr std::int64_t longestInterval = INT_MAX;

const MoveCase moveCases[] = {
    // both sides of the end
    {start, start + 59, 60, true, start},
    {start, start + 60, 60, false, std::int64_t{start} + 60},
    {start, start + 61, 60, false, std::int64_t{start} + 60},
    {start, start, 1, true, start},
    {start, start - 1, 1, true, start},
    // no interval, and one that goes back
    {start, start, 0, false, start},
    {start, start - 1, 0, true, start},
    {start, twoHoursLater, -60, false, std::int64_t{start} - 60},
    {0, 0, -1, false, -1},
    // what 31 bits can't hold
    {0, lastSecond, INT_MAX, false, longestInterval},
    {0, INT_MAX, INT_MAX, false, longestInterval},
    {0, INT_MAX - 1, INT_MAX, true, 0},
    {3000000000, 3000003600, hour, false, 3000003600},
    {3000000000, 3000003599, hour, true, 3000000000},
    {start, lastSecond, INT_MAX, false, start + longestInterval},
    {3000000000, lastSecond, INT_MAX, true, 3000000000},
    {lastSecond - 3600, lastSecond, hour, false, lastSecond},
    {lastSecond, lastSecond, 1, true, lastSecond},
    {lastSecond, lastSecond, INT_MIN, false, lastSecond - longestInterval - 1},
};

TEST(Timeframe, TheExecutionTimeNeverPassesTheEnd) {
    for (const MoveCase& given : moveCases) {
        SCOPED_TRACE(&given - moveCases);
        Timeframe frame = frameOf(given.from, given.to, given.interval);
        EXPECT_EQ(frame.updateExecutionTime(), given.over);
        EXPECT_EQ(frame.executionTime(), Timeframe::TimePoint(seconds(given.executionTime)));
    }
}

TEST(Timeframe, ManyIntervalsAddUpPast2038) {
    Timeframe frame = frameOf(0, lastSecond, INT_MAX);
    EXPECT_FALSE(frame.updateExecutionTime());
    EXPECT_FALSE(frame.updateExecutionTime());
    EXPECT_EQ(frame.executionTime(), Timeframe::TimePoint(seconds(4294967294)));
    EXPECT_TRUE(frame.updateExecutionTime());
}

TEST(Timeframe, GivesACopyOfItsHoldOnThePlan) {
    auto plan = std::make_shared<TimePlanFlex>();
    const Timeframe frame("", 1, 0, 0, 1, "", -1, 1, 0, std::move(plan));

    const std::shared_ptr<TimePlanFlex> first = frame.timePlan();
    const std::shared_ptr<TimePlanFlex> second = frame.timePlan();

    EXPECT_EQ(first, second);
    EXPECT_EQ(first.use_count(), 3);
}

TEST(Timeframe, TakesAPlanOverAndLetsTheOldOneGo) {
    const auto old = std::make_shared<TimePlanFlex>();
    auto next = std::make_shared<TimePlanFlex>();
    const std::weak_ptr<TimePlanFlex> watched = next;
    Timeframe frame("", 1, 0, 0, 1, "", -1, 1, 0, old);

    frame.setTimePlan(std::move(next));

    EXPECT_EQ(frame.timePlan(), watched.lock());
    EXPECT_EQ(watched.use_count(), 1); // moved, not copied
    EXPECT_EQ(old.use_count(), 1);

    frame.setTimePlan(nullptr);

    EXPECT_TRUE(watched.expired());
    EXPECT_EQ(frame.timePlan(), nullptr);
}

TEST(Timeframe, ThePlanEndsWithTheLastFrameThatHoldsIt) {
    std::weak_ptr<TimePlanFlex> watched;
    {
        const Timeframe frame = frameOf(start, twoHoursLater, hour);
        watched = frame.timePlan();
        EXPECT_FALSE(watched.expired());
    }
    EXPECT_TRUE(watched.expired());
}

TEST(Timeframe, TwoFramesMaySharePlans) {
    const auto plan = std::make_shared<TimePlanFlex>();
    const Timeframe one("", 1, 0, 0, 1, "", -1, 1, 0, plan);
    const Timeframe other("", 2, 0, 0, 1, "", -1, 1, 0, plan);
    const TimePlanEntry never(TimePlanTime(0, 0, 0), TimePlanTime(0, 0, 0), 8, true);

    one.timePlan()->add(never);

    EXPECT_FALSE(other.timePlan()->isActive(0L));
}

TEST(Timeframe, TwoFramesShareNothingElse) {
    Timeframe one = frameOf(start, twoHoursLater, hour);
    const Timeframe other = frameOf(start, twoHoursLater, hour);
    const TimePlanEntry never(TimePlanTime(0, 0, 0), TimePlanTime(0, 0, 0), 8, true);

    EXPECT_FALSE(one.updateExecutionTime());
    one.setRunCounter(3);
    one.timePlan()->add(never);
    one.setTimePlan(std::make_shared<TimePlanFlex>());

    EXPECT_EQ(other.executionTime(), at(start));
    EXPECT_EQ(other.runCounter(), 0);
    EXPECT_EQ(other.timePlan()->size(), 0U);
    EXPECT_NE(other.timePlan(), one.timePlan());
}

Timeframe reference() {
    return {"FileTransfer", 7, start, twoHoursLater, 3, "text", 5, hour, 0, std::make_shared<TimePlanFlex>()};
}

TEST(Timeframe, DiffersBySpanModeTextAndLimit) {
    const Timeframe others[] = {
        {"FileTransfer", 7, start - 1, twoHoursLater, 3, "text", 5, hour, 0, nullptr},
        {"FileTransfer", 7, start + 1, twoHoursLater, 3, "text", 5, hour, 0, nullptr},
        {"FileTransfer", 7, start, twoHoursLater - 1, 3, "text", 5, hour, 0, nullptr},
        {"FileTransfer", 7, start, twoHoursLater + 1, 3, "text", 5, hour, 0, nullptr},
        {"FileTransfer", 7, start, twoHoursLater, 2, "text", 5, hour, 0, nullptr},
        {"FileTransfer", 7, start, twoHoursLater, 3, "text ", 5, hour, 0, nullptr},
        {"FileTransfer", 7, start, twoHoursLater, 3, "", 5, hour, 0, nullptr},
        {"FileTransfer", 7, start, twoHoursLater, 3, "text", 4, hour, 0, nullptr},
        {"FileTransfer", 7, start, twoHoursLater, 3, "text", -1, hour, 0, nullptr},
    };
    for (const Timeframe& other : others) {
        SCOPED_TRACE(&other - others);
        EXPECT_TRUE(reference() != other);
        EXPECT_TRUE(other != reference());
    }
}

TEST(Timeframe, DoesNotDifferByServiceIntervalCounterAndPlan) {
    auto plan = std::make_shared<TimePlanFlex>();
    plan->add(TimePlanEntry(TimePlanTime(8, 0, 0), TimePlanTime(10, 0, 0), 1, true));
    const Timeframe other("Other", 8, start, twoHoursLater, 3, "text", 5, 60, 9, plan);

    EXPECT_FALSE(reference() != reference());
    EXPECT_FALSE(reference() != other);
    EXPECT_FALSE(other != reference());
}

TEST(Timeframe, DoesNotDifferByItsExecutionTime) {
    Timeframe moved = reference();
    ASSERT_FALSE(moved.updateExecutionTime());
    EXPECT_FALSE(reference() != moved);
}

TEST(Timeframe, LimitsBelowZeroDoNotDiffer) {
    const Timeframe one("", 1, 0, 0, 1, "", -1, 1, 0, nullptr);
    const Timeframe other("", 1, 0, 0, 1, "", -5, 1, 0, nullptr);
    EXPECT_FALSE(one != other);
}

} // namespace
