// The decision alone: each condition from both sides, the order in which they are asked, and what is asked.

#include "handlers/timeframedecision.h"
#include "handlers/timeframereader.h"
#include "orv/system.h"

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using orv::horad::Timeframe;
using orv::horad::TimeframeObstacle;
using orv::horad::TimeframeSituation;
using orv::horad::TimePlanEntry;
using orv::horad::TimePlanFlex;
using orv::horad::TimePlanTime;
using State = orv::horad::ServiceState;
using Questions = std::vector<std::string>;

constexpr std::uint32_t start = 1704110400; // 2024-01-01 12:00:00 UTC, a Monday
constexpr std::uint32_t end = start + 3600;
constexpr std::time_t inside = start + 60;
constexpr int limit = 3;
constexpr int runsLeft = limit;
constexpr int runsUsedUp = limit + 1;

// A clock that counts who looks at it.
class Clock : public orv::System {
public:
    explicit Clock(std::time_t now) : now_(now) {}

    std::time_t time() override { return now_; }
    std::int64_t now() override {
        ++readings_;
        return std::int64_t{now_} * 1'000'000;
    }
    unsigned uptime() override { return 0; }
    void sleep(unsigned) override {}

    int readings() const { return readings_; }
    void set(std::time_t now) { now_ = now; }

private:
    std::time_t now_;
    int readings_ = 0;
};

struct Situation : TimeframeSituation {
    explicit Situation(bool lineIsIdle) : idle(lineIsIdle) {}

    void dueTaken() override { asked.emplace_back("due"); }
    bool isIdle() override {
        asked.emplace_back("idle");
        return idle;
    }

    bool idle;
    Questions asked;
};

std::shared_ptr<TimePlanFlex> planFor(int weekDay) {
    auto plan = std::make_shared<TimePlanFlex>();
    plan->add(TimePlanEntry(TimePlanTime(0, 0, 0), TimePlanTime(23, 59, 59), weekDay, true));
    return plan;
}

constexpr int monday = 1;
constexpr int tuesday = 2;

struct Given {
    State state = State::Idle;
    std::time_t now = inside;
    int runs = runsLeft;
    bool due = true; // its execution time has passed
    int mode = orv::horad::InWindowWhenIdle;
    bool idle = true;
    int planned = monday;
};

constexpr std::time_t over = end + 1;
constexpr std::time_t early = start - 1;
constexpr int always = orv::horad::InWindow;
constexpr int alwaysToo = orv::horad::InWindowAlias;
constexpr int whenIdle = orv::horad::InWindowWhenIdle;

const Questions none;
const Questions all = {"due", "idle"};

struct Case {
    Given given;
    TimeframeObstacle obstacle;
    Questions asked;
};

using Obstacle = TimeframeObstacle;

const Case cases[] = {
    // Everything speaks against it; then one condition after the other is met.
    {{State::Succeeded, over, runsUsedUp, false, whenIdle, false, tuesday}, Obstacle::Succeeded, none},
    {{State::Running, over, runsUsedUp, false, whenIdle, false, tuesday}, Obstacle::Running, none},
    {{State::Failed, over, runsUsedUp, false, whenIdle, false, tuesday}, Obstacle::Over, none},
    {{State::Failed, early, runsUsedUp, false, whenIdle, false, tuesday}, Obstacle::NotBegun, none},
    {{State::Failed, inside, runsUsedUp, false, whenIdle, false, tuesday}, Obstacle::RunsUsedUp, none},
    {{State::Failed, inside, runsLeft, false, whenIdle, false, tuesday}, Obstacle::NotDue, none},
    {{State::Failed, inside, runsLeft, true, whenIdle, false, tuesday}, Obstacle::LineBusy, all},
    {{State::Failed, inside, runsLeft, true, whenIdle, true, tuesday}, Obstacle::OutsidePlan, all},
    {{State::Failed, inside, runsLeft, true, whenIdle, true, monday}, Obstacle::None, all},
    // One alone speaks against it.
    {{State::Succeeded, inside, runsLeft, true, whenIdle, true, monday}, Obstacle::Succeeded, none},
    {{State::Running, inside, runsLeft, true, whenIdle, true, monday}, Obstacle::Running, none},
    {{State::Idle, over, runsLeft, true, whenIdle, true, monday}, Obstacle::Over, none},
    {{State::Idle, early, runsLeft, true, whenIdle, true, monday}, Obstacle::NotBegun, none},
    {{State::Idle, inside, runsUsedUp, true, whenIdle, true, monday}, Obstacle::RunsUsedUp, none},
    {{State::Idle, inside, runsLeft, false, whenIdle, true, monday}, Obstacle::NotDue, none},
    {{State::Idle, inside, runsLeft, true, whenIdle, false, monday}, Obstacle::LineBusy, all},
    {{State::Idle, inside, runsLeft, true, whenIdle, true, tuesday}, Obstacle::OutsidePlan, all},
    // Nothing does: the ends of the span, the states, and the modes that look at the line for nothing.
    {{State::Idle, end, runsLeft, true, whenIdle, true, monday}, Obstacle::None, all},
    {{State::Idle, start, runsLeft, false, whenIdle, true, monday}, Obstacle::NotDue, none},
    {{State::Unknown, inside, runsLeft, true, whenIdle, true, monday}, Obstacle::None, all},
    {{State::Idle, inside, runsLeft, true, always, false, tuesday}, Obstacle::None, all},
    {{State::Idle, inside, runsLeft, true, alwaysToo, false, tuesday}, Obstacle::None, all},
};

Timeframe frameOf(const Given& given, Clock& clock) {
    // A run falls due one microsecond after its time, which is the start at first: an interval that long
    // moves it behind the present, and stands still at the span's end.
    constexpr int untilEnd = end - start;
    Timeframe frame("FileTransfer", 10, start, end, given.mode, "", limit, untilEnd, given.runs,
                    planFor(given.planned), clock);
    if (!given.due)
        (void)frame.updateExecutionTime();
    return frame;
}

TEST(TimeframeDecision, NamesTheFirstConditionThatIsNotMetAndAsksNothingBehindIt) {
    for (const Case& expected : cases) {
        SCOPED_TRACE(testing::Message() << "case " << (&expected - cases));
        Clock clock(expected.given.now);
        Situation situation(expected.given.idle);
        Timeframe frame = frameOf(expected.given, clock);

        EXPECT_EQ(obstacleOf(frame, expected.given.state, situation), expected.obstacle);
        EXPECT_EQ(situation.asked, expected.asked);
    }
}

TEST(TimeframeDecision, APassCostsAFrameThreeLooksAtTheClockAtMost) {
    for (const Case& expected : cases) {
        SCOPED_TRACE(testing::Message() << "case " << (&expected - cases));
        Clock clock(expected.given.now);
        Situation situation(expected.given.idle);
        Timeframe frame = frameOf(expected.given, clock);
        (void)obstacleOf(frame, expected.given.state, situation);
        EXPECT_LE(clock.readings(), 3);
    }
}

TEST(TimeframeDecision, WhatFellDueIsKeptWhileTheServiceRunsAndTakenOnce) {
    Clock clock(inside);
    Situation situation(true);
    Timeframe frame = frameOf({}, clock);
    EXPECT_EQ(obstacleOf(frame, State::Running, situation), Obstacle::Running);
    EXPECT_TRUE(frame.isDue());
    EXPECT_EQ(obstacleOf(frame, State::Idle, situation), Obstacle::None);
    EXPECT_FALSE(frame.isDue());
    EXPECT_EQ(obstacleOf(frame, State::Idle, situation), Obstacle::NotDue);
}

TEST(TimeframeDecision, AServiceThatSucceededLetsNothingFallDue) {
    Clock clock(inside);
    Situation situation(true);
    Timeframe frame = frameOf({}, clock);
    EXPECT_EQ(obstacleOf(frame, State::Succeeded, situation), Obstacle::Succeeded);
    EXPECT_FALSE(frame.isDue());
    EXPECT_EQ(clock.readings(), 0);
}

TEST(TimeframeDecision, WhatFellDueDoesNotOpenAFrameThatIsOver) {
    Clock clock(inside);
    Situation situation(true);
    Timeframe frame = frameOf({}, clock);
    EXPECT_EQ(obstacleOf(frame, State::Running, situation), Obstacle::Running);
    clock.set(over);
    EXPECT_EQ(obstacleOf(frame, State::Failed, situation), Obstacle::Over);
    EXPECT_TRUE(frame.isDue());
    EXPECT_TRUE(situation.asked.empty());
}

TEST(TimeframeDecision, ABusyLineAndThePlanUseTheRunUp) {
    for (const bool idle : {false, true}) {
        Clock clock(inside);
        Situation situation(idle);
        Given given;
        given.planned = tuesday;
        Timeframe frame = frameOf(given, clock);
        EXPECT_EQ(obstacleOf(frame, State::Idle, situation),
                  idle ? Obstacle::OutsidePlan : Obstacle::LineBusy);
        EXPECT_EQ(obstacleOf(frame, State::Idle, situation), Obstacle::NotDue);
        EXPECT_EQ(situation.asked, all);
    }
}

TEST(TimeframeDecision, AFrameWhosePlanCouldNotBeReadIsOutsideIt) {
    Clock clock(inside);
    Situation situation(true);
    Timeframe frame = frameOf({}, clock);
    frame.setTimePlan(nullptr);
    EXPECT_EQ(obstacleOf(frame, State::Idle, situation), Obstacle::OutsidePlan);
}

} // namespace
