#include "support/scriptedclock.h"
#include "timeplan/timeframe.h"

#include <chrono>
#include <climits>
#include <cstdint>
#include <memory>
#include <string>

#include <gtest/gtest.h>

namespace {

using orv::horad::Timeframe;
using orv::horad::TimePlanFlex;
using std::chrono::microseconds;
using std::chrono::seconds;

constexpr int noLimit = -1;
constexpr int hour = 3600;
constexpr microseconds tick(1);
constexpr std::uint32_t lastSecond = 0xFFFFFFFF; // in 2106
// In 1970, in our time, and where 31 bits are too few.
constexpr std::uint32_t starts[] = {0, 1704067200, 0x7FFFFFFF, 0x80000000, 3000000000, lastSecond - 7200};

struct Runs {
    int limit;
    int counter;
};

Timeframe frameOf(std::uint32_t from, std::uint32_t to, int interval, Runs runs = {noLimit, 0}) {
    return {"FileTransfer", 7, from, to, 1, "", runs.limit, interval, runs.counter, nullptr};
}

Timeframe::TimePoint at(std::int64_t sinceEpoch) {
    return Timeframe::TimePoint(seconds(sinceEpoch));
}

class DueCheck : public testing::Test {
protected:
    // Whether a frame falls due at that moment. One that does not has to be as it was.
    bool fallsDue(Timeframe& frame, microseconds now) {
        const Timeframe::TimePoint before = frame.executionTime();
        frame.clearDue();
        clock_.set(now);
        frame.checkExecution();
        if (!frame.isDue()) {
            EXPECT_EQ(frame.executionTime(), before) << now.count();
        }
        return frame.isDue();
    }

    bool isOpen(const Timeframe& frame, microseconds now) {
        clock_.set(now);
        return frame.isOpen();
    }

    fakes::ScriptedClock clock_{0};
};

TEST_F(DueCheck, TheFirstRunIsDueOneMicrosecondAfterTheStart) {
    for (const std::uint32_t start : starts) {
        Timeframe frame = frameOf(start, start + 7200, hour);
        const microseconds from = seconds(start);
        EXPECT_FALSE(fallsDue(frame, from - seconds(1))) << start;
        EXPECT_FALSE(fallsDue(frame, from - tick)) << start;
        EXPECT_FALSE(fallsDue(frame, from)) << start;
        EXPECT_TRUE(fallsDue(frame, from + tick)) << start;
        EXPECT_EQ(frame.executionTime(), at(std::int64_t{start} + hour));
    }
}

TEST_F(DueCheck, TheNextRunIsDueOneMicrosecondAfterItsTime) {
    for (const std::uint32_t start : starts) {
        Timeframe frame = frameOf(start, start + 7200, hour);
        const microseconds next = seconds(start) + seconds(hour);
        ASSERT_TRUE(fallsDue(frame, seconds(start) + tick)) << start;
        EXPECT_FALSE(fallsDue(frame, seconds(start) + 2 * tick)) << start;
        EXPECT_FALSE(fallsDue(frame, next - tick)) << start;
        EXPECT_FALSE(fallsDue(frame, next)) << start;
        EXPECT_TRUE(fallsDue(frame, next + tick)) << start;
        EXPECT_EQ(frame.executionTime(), at(std::int64_t{start} + 2 * hour));
    }
}

TEST_F(DueCheck, NothingIsDueAfterTheEnd) {
    for (const std::uint32_t start : starts) {
        const std::uint32_t end = start + 7200;
        const microseconds to = seconds(end);
        Timeframe before = frameOf(start, end, hour);
        EXPECT_TRUE(fallsDue(before, to - tick)) << start;
        Timeframe atEnd = frameOf(start, end, hour);
        EXPECT_TRUE(fallsDue(atEnd, to)) << start;
        Timeframe after = frameOf(start, end, hour);
        EXPECT_FALSE(fallsDue(after, to + tick)) << start;
        EXPECT_FALSE(fallsDue(after, to + seconds(1))) << start;
    }
}

TEST_F(DueCheck, AnExecutionTimeAtTheEndNeverComes) {
    Timeframe frame = frameOf(0, 7200, hour);
    ASSERT_TRUE(fallsDue(frame, tick));
    ASSERT_TRUE(fallsDue(frame, seconds(hour) + tick));
    ASSERT_EQ(frame.executionTime(), at(7200));

    EXPECT_FALSE(fallsDue(frame, seconds(7200)));
    EXPECT_FALSE(fallsDue(frame, seconds(7200) + tick));
}

TEST_F(DueCheck, WhereNoFurtherOneFitsEveryCheckUpToTheEndIsDue) {
    Timeframe frame = frameOf(0, 7200, 5000);
    ASSERT_TRUE(fallsDue(frame, tick));
    ASSERT_EQ(frame.executionTime(), at(5000));

    for (const int second : {5001, 5002, 6000, 7199, 7200}) {
        EXPECT_TRUE(fallsDue(frame, seconds(second))) << second;
        EXPECT_EQ(frame.executionTime(), at(5000));
    }
    EXPECT_FALSE(fallsDue(frame, seconds(7200) + tick));
}

TEST_F(DueCheck, OneCheckMovesOneIntervalHoweverLateItComes) {
    Timeframe frame = frameOf(0, 7200, 60);
    for (const int minute : {1, 2, 3}) {
        EXPECT_TRUE(fallsDue(frame, seconds(7000)));
        EXPECT_EQ(frame.executionTime(), at(minute * 60));
    }
}

TEST_F(DueCheck, WithoutAnIntervalEveryCheckAfterTheStartIsDue) {
    Timeframe frame = frameOf(100, 200, 0);
    EXPECT_FALSE(fallsDue(frame, seconds(100)));
    for (const int second : {101, 102, 150, 200}) {
        EXPECT_TRUE(fallsDue(frame, seconds(second))) << second;
        EXPECT_EQ(frame.executionTime(), at(100));
    }
    EXPECT_FALSE(fallsDue(frame, seconds(201)));
}

TEST_F(DueCheck, ASpanOfOneMomentOrBackwardIsNeverDue) {
    Timeframe moment = frameOf(100, 100, hour);
    Timeframe backward = frameOf(100, 99, hour);
    for (microseconds now = seconds(98); now <= seconds(102); now += microseconds(250000)) {
        EXPECT_FALSE(fallsDue(moment, now)) << now.count();
        EXPECT_FALSE(fallsDue(backward, now)) << now.count();
        EXPECT_EQ(isOpen(moment, now), now == seconds(100)) << now.count();
        EXPECT_FALSE(isOpen(backward, now)) << now.count();
    }
}

TEST_F(DueCheck, TheLastSpanThereIsEndsInItsLastMicrosecond) {
    Timeframe frame = frameOf(lastSecond - 1, lastSecond, 1);
    EXPECT_FALSE(isOpen(frame, seconds(lastSecond) - seconds(1) - tick));
    EXPECT_TRUE(isOpen(frame, seconds(lastSecond) - seconds(1)));
    EXPECT_TRUE(isOpen(frame, seconds(lastSecond)));
    EXPECT_FALSE(isOpen(frame, seconds(lastSecond) + tick));
    EXPECT_TRUE(fallsDue(frame, seconds(lastSecond)));
    EXPECT_EQ(frame.executionTime(), at(lastSecond));
}

TEST_F(DueCheck, AClockBefore1970IsBeforeEveryStart) {
    Timeframe frame = frameOf(0, lastSecond, hour);
    EXPECT_FALSE(fallsDue(frame, -tick));
    EXPECT_FALSE(fallsDue(frame, seconds(-1)));
    EXPECT_TRUE(fallsDue(frame, tick));
}

TEST_F(DueCheck, AnExecutionTimeBeforeTheStartWaitsForTheStart) {
    Timeframe frame = frameOf(100, 200, -60);
    ASSERT_FALSE(frame.updateExecutionTime());
    ASSERT_EQ(frame.executionTime(), at(40));
    EXPECT_FALSE(fallsDue(frame, seconds(41)));
    EXPECT_FALSE(fallsDue(frame, seconds(100) - tick));
    EXPECT_TRUE(fallsDue(frame, seconds(100)));
}

struct LimitCase {
    Runs runs;
    bool open;
};

const LimitCase limitCases[] = {
    // a limit of 3 allows a fourth run
    {{3, 0}, true},
    {{3, 2}, true},
    {{3, 3}, true},
    {{3, 4}, false},
    {{3, 5}, false},
    {{0, 0}, true},
    {{0, 1}, false},
    {{INT_MAX, INT_MAX - 1}, true},
    {{INT_MAX, INT_MAX}, true},
    // none
    {{noLimit, 0}, true},
    {{noLimit, 1000000}, true},
    {{noLimit, INT_MAX}, true},
    {{noLimit, INT_MIN}, true},
    {{noLimit, -1}, true},
    {{-2, INT_MAX}, true},
    {{INT_MIN, INT_MAX}, true},
    // a counter below zero is one above 2147483647
    {{3, -1}, false},
    {{0, -1}, false},
    {{INT_MAX, -1}, false},
    {{INT_MAX, INT_MIN}, false},
    {{0, INT_MIN}, false},
};

TEST_F(DueCheck, TheLimitIsComparedWithTheRunsAsUnsignedNumbers) {
    for (const LimitCase& given : limitCases) {
        SCOPED_TRACE(std::to_string(given.runs.limit) + " with " + std::to_string(given.runs.counter));
        Timeframe frame = frameOf(0, 7200, hour, given.runs);
        EXPECT_EQ(isOpen(frame, seconds(1)), given.open);
        EXPECT_EQ(fallsDue(frame, seconds(1)), given.open);
    }
}

TEST_F(DueCheck, TheRunCounterThatIsSetCounts) {
    Timeframe frame = frameOf(0, 7200, 1, {3, 0});
    frame.setRunCounter(4);
    EXPECT_FALSE(fallsDue(frame, seconds(10)));
    frame.setRunCounter(3);
    EXPECT_TRUE(fallsDue(frame, seconds(10)));
}

TEST_F(DueCheck, DoesNotCountRuns) {
    Timeframe frame = frameOf(0, 7200, 1, {3, 1});
    EXPECT_TRUE(fallsDue(frame, seconds(10)));
    EXPECT_EQ(frame.runCounter(), 1);
}

TEST_F(DueCheck, IsOpenInItsSpanWhateverItsExecutionTime) {
    Timeframe frame = frameOf(100, 200, hour);
    EXPECT_FALSE(isOpen(frame, seconds(100) - tick));
    EXPECT_TRUE(isOpen(frame, seconds(100)));
    EXPECT_TRUE(isOpen(frame, seconds(200)));
    EXPECT_FALSE(isOpen(frame, seconds(200) + tick));
    EXPECT_FALSE(frame.isDue());
    EXPECT_EQ(frame.executionTime(), at(100));
}

TEST_F(DueCheck, WhatIsDueStaysSoUntilItIsCleared) {
    Timeframe frame = frameOf(0, 7200, hour);
    clock_.set(seconds(1));
    frame.checkExecution();
    frame.checkExecution(); // not due again
    EXPECT_TRUE(frame.isDue());
    clock_.set(seconds(8000));
    frame.checkExecution(); // over
    EXPECT_TRUE(frame.isDue());

    frame.clearDue();

    EXPECT_FALSE(frame.isDue());
    frame.checkExecution();
    EXPECT_FALSE(frame.isDue());
}

TEST_F(DueCheck, OfTwoFramesOneMayBeDue) {
    Timeframe one = frameOf(0, 7200, hour);
    Timeframe other = frameOf(0, 7200, hour);
    EXPECT_TRUE(fallsDue(one, seconds(1)));
    EXPECT_FALSE(other.isDue());
    EXPECT_EQ(other.executionTime(), at(0));
    EXPECT_TRUE(fallsDue(other, seconds(1)));
}

// The clock moves on by a microsecond from each step to the next.
struct MovingCase {
    microseconds first; // what the step that looks at the end sees
    bool due;
};

const MovingCase movingCases[] = {
    {seconds(100) - 3 * tick, false}, // the step that looks at the start is too early
    {seconds(100) - 2 * tick, false},
    {seconds(100) - tick, true}, // it sees the start, and the next step what is after it
    {seconds(100), true},
    {seconds(200) - tick, true},
    {seconds(200), true}, // only the first step looks at the end
    {seconds(200) + tick, false},
};

TEST_F(DueCheck, EachStepLooksAtTheClockAfresh) {
    for (const MovingCase& given : movingCases) {
        Timeframe frame = frameOf(100, 200, hour);
        clock_.tick(tick);
        EXPECT_EQ(fallsDue(frame, given.first), given.due) << given.first.count();
    }
}

TEST_F(DueCheck, SaysWhatClosesAFrameTheEndFirstTheRunsLast) {
    constexpr std::uint32_t from = 100;
    constexpr std::uint32_t to = 200;
    constexpr Runs left = {3, 3};
    constexpr Runs usedUp = {3, 4};
    const struct {
        std::uint32_t start;
        std::uint32_t end;
        Runs runs;
        microseconds now;
        Timeframe::Closing closing;
    } cases[] = {
        {from, to, left, seconds(from), Timeframe::Closing::None},
        {from, to, left, seconds(to), Timeframe::Closing::None},
        {from, to, left, seconds(to) + tick, Timeframe::Closing::Over},
        {from, to, left, seconds(from) - tick, Timeframe::Closing::NotBegun},
        {from, to, usedUp, seconds(from), Timeframe::Closing::RunsUsedUp},
        {from, to, usedUp, seconds(to) + tick, Timeframe::Closing::Over},
        {from, to, usedUp, seconds(from) - tick, Timeframe::Closing::NotBegun},
        {to, from, usedUp, seconds(from) + tick, Timeframe::Closing::Over}, // not begun either
        {to, from, usedUp, seconds(from), Timeframe::Closing::NotBegun},
    };
    for (const auto& given : cases) {
        SCOPED_TRACE(testing::Message() << "case " << (&given - cases));
        Timeframe frame = frameOf(given.start, given.end, hour, given.runs);
        EXPECT_EQ(isOpen(frame, given.now), given.closing == Timeframe::Closing::None);
        EXPECT_EQ(frame.closing(), given.closing);
        EXPECT_EQ(frame.checkExecution(), given.closing);
    }
}

} // namespace
