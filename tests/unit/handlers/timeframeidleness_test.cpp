// What calls, streams and the plan keep from running.

#include "unit/handlers/timeframefixture.h"

#include <stdexcept>

#include <gmock/gmock.h>

namespace {

using orv::horad::TimeframeHandler;
using testing::ElementsAre;
using testing::IsEmpty;

using Lines = std::vector<std::string>;

class TimeframeIdleness : public TimeframeFixture {};

const Lines aRun = {"debug timefrmhdl: executionRequired for Timeframe(Id=1)",
                    "debug timefrmhdl: Timeframes (1) active -> perform Action",
                    "debug timefrmhdl: _startService(FileTransfer, 10)", "debug timefrmhdl: start wexd"};
const Lines notIdle = {"debug timefrmhdl: executionRequired for Timeframe(Id=1)",
                       "info timefrmhdl: system not idle, reschedule"};

struct SystemCase {
    const char* calls;
    bool stream;
    bool idle;
};

const SystemCase systemCases[] = {
    {"0", false, true}, {"1", false, false}, {"0", true, false}, {"1", true, false}, {"-1", false, false},
};

TEST_F(TimeframeIdleness, ModeThreeRunsOnAnIdleSystemOnlyAndTheOthersOnAny) {
    for (const int mode : {1, 2, 3})
        for (const SystemCase& given : systemCases) {
            SCOPED_TRACE(testing::Message()
                         << "mode " << mode << ", calls " << given.calls << ", stream " << given.stream);
            TimeframeHandler handler(0, true);
            setFrames({FrameRow(1).mode(mode)});
            setServices({{10, 0, 0}});
            kernel_.setCalls(given.calls);
            kernel_.setStream(given.stream);
            begin(handler);
            const bool runs = mode != 3 || given.idle;
            EXPECT_EQ(pass(handler), runs ? ran(1) : Lines{});
            EXPECT_EQ(log_.lines(), runs ? aRun : notIdle);
        }
}

TEST_F(TimeframeIdleness, ABusySystemIsLoggedOnceAnExecutionTimeAndNoRunIsCounted) {
    setFrames({FrameRow(1).mode(3)});
    kernel_.setCalls("1");
    begin(handler_);
    std::size_t logged = 0;
    for (const std::time_t second : {1, 2, 3, 180, 181, 182}) {
        (void)passAt(handler_, mondayNoon + second);
        EXPECT_THAT(store_.journal(), IsEmpty());
        logged += log_.lines().size();
    }
    EXPECT_EQ(logged, 4u); // two lines each

    kernel_.setCalls("0");

    EXPECT_THAT(passAt(handler_, mondayNoon + 360), IsEmpty());
    EXPECT_EQ(passAt(handler_, mondayNoon + 361), ran(1));
}

TEST_F(TimeframeIdleness, ABusySystemIsLoggedWithoutDebugLinesToo) {
    TimeframeHandler handler(0, false);
    setFrames({FrameRow(1).mode(3)});
    kernel_.setCalls("1");
    begin(handler);

    (void)pass(handler);

    EXPECT_THAT(log_.lines(), ElementsAre(notIdle.back()));
}

TEST_F(TimeframeIdleness, OutsideThePlanModeThreeSkipsItsRunSilently) {
    setPlan({{8, 0, 10, 0}});
    setFrames({FrameRow(1).mode(3)});
    begin(handler_);

    EXPECT_THAT(pass(handler_), IsEmpty());

    EXPECT_THAT(log_.lines(), ElementsAre("debug timefrmhdl: executionRequired for Timeframe(Id=1)"));
    EXPECT_THAT(pass(handler_), IsEmpty()); // not before its next execution time
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TimeframeIdleness, OutsideThePlanABusySystemIsLoggedToo) {
    setPlan({{8, 0, 10, 0}});
    setFrames({FrameRow(1).mode(3)});
    kernel_.setCalls("1");
    begin(handler_);

    EXPECT_THAT(pass(handler_), IsEmpty());

    EXPECT_EQ(log_.lines(), notIdle);
}

TEST_F(TimeframeIdleness, ThePlanBindsModeThreeOnly) {
    setPlan({{8, 0, 10, 0}});
    for (const int mode : {1, 2}) {
        TimeframeHandler handler(0, true);
        setFrames({FrameRow(1).mode(mode)});
        setServices({{10, 0, 0}});
        begin(handler);
        EXPECT_EQ(pass(handler), ran(1));
    }
}

TEST_F(TimeframeIdleness, ThePlanFollowsTheTimeZone) {
    setPlan({{20, 0, 21, 0}});
    setFrames({FrameRow(1).mode(3)});
    zone_.set("XXX-8:30");
    begin(handler_);
    EXPECT_EQ(pass(handler_), ran(1));
}

TEST_F(TimeframeIdleness, ModeThreeWithAnEmptyPlanOrNothingEnabledInItOnlyNeedsAnIdleSystem) {
    for (const std::vector<PlanWindow>& plan : {std::vector<PlanWindow>{}, {{8, 0, 10, 0, 0, 0}}}) {
        TimeframeHandler handler(0, true);
        setPlan(plan);
        setFrames({FrameRow(1).mode(3)});
        setServices({{10, 0, 0}});
        begin(handler);
        EXPECT_EQ(pass(handler), ran(1));
    }
}

TEST_F(TimeframeIdleness, ANumberOfCallsThatCantBeReadEndsThePassInEveryMode) {
    for (const int mode : {1, 2, 3}) {
        TimeframeHandler handler(0, true);
        setFrames({FrameRow(1).mode(mode)});
        begin(handler);
        clock_.set(mondayNoon);
        kernel_.setCalls("");
        EXPECT_NO_THROW(pass(handler)); // nobody asks before a frame is due
        clock_.set(mondayNoon + 1);
        EXPECT_THROW(pass(handler), std::invalid_argument);
        clock_.set(mondayNoon + 181);
        kernel_.setCalls("99999999999999999999");
        EXPECT_THROW(pass(handler), std::out_of_range);
    }
}

} // namespace
