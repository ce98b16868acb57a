// What one pass makes of several frames, and of frames whose rows changed meanwhile.

#include "unit/handlers/timeframefixture.h"

#include <gmock/gmock.h>

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
namespace code = velta::protocol::code;

class TimeframeRuns : public TimeframeFixture {};

TEST_F(TimeframeRuns, TwoFramesOfOneServiceStartItOnceAndAreBothCounted) {
    setFrames({FrameRow(1), FrameRow(2).runs(4)});
    begin(handler_);

    EXPECT_THAT(pass(handler_),
                ElementsAre("start", started(10), enabled, counted(1, 1), counted(2, 5), "close"));

    EXPECT_THAT(log_.lines(), ElementsAre("debug timefrmhdl: executionRequired for Timeframe(Id=1)",
                                          "debug timefrmhdl: Timeframes (1) active -> perform Action",
                                          "debug timefrmhdl: executionRequired for Timeframe(Id=2)",
                                          "debug timefrmhdl: Timeframes (2) active -> perform Action",
                                          "debug timefrmhdl: _startService(FileTransfer, 10)",
                                          "debug timefrmhdl: start wexd"));
}

TEST_F(TimeframeRuns, ServicesStartInTheOrderOfTheirIdsAndCountersAreWrittenInThatOfTheFrames) {
    setFrames({FrameRow(2).service(10), FrameRow(1).service(20)});
    setServices({{10, 0, 0}, {20, 0, 0}});
    begin(handler_);
    EXPECT_THAT(pass(handler_), ElementsAre("start", started(10), enabled, started(20), enabled,
                                            counted(1, 1), counted(2, 1), "close"));
}

TEST_F(TimeframeRuns, OfTwoTablesWithTheSameServiceIdTheLaterFramesIsStarted) {
    setFrames({FrameRow(1), FrameRow(2).service("Other", 10)});
    setServices({{10, 0, 0}}, "Other");
    begin(handler_);
    EXPECT_THAT(pass(handler_),
                ElementsAre("start", started(10, "Other"), counted(1, 1), counted(2, 1), "close"));
}

TEST_F(TimeframeRuns, AServiceThatIsNoFileTransferDoesNotNeedTheServiceDaemon) {
    setFrames({FrameRow(1).service("Other", 10)});
    setServices({{10, 5, 3}}, "Other");
    begin(handler_);

    EXPECT_THAT(pass(handler_), ElementsAre("start", started(10, "Other"), counted(1, 1), "close"));

    EXPECT_THAT(log_.lines(), ElementsAre("debug timefrmhdl: executionRequired for Timeframe(Id=1)",
                                          "debug timefrmhdl: Timeframes (1) active -> perform Action",
                                          "debug timefrmhdl: _startService(Other, 10)"));
}

TEST_F(TimeframeRuns, TheStatesOfTwoTablesAreKeptApart) {
    setFrames({FrameRow(1).service("Other", 10)});
    setServices({{10, 5, 0}});
    setServices({{10, 0, 0}}, "Other");
    begin(handler_);
    EXPECT_THAT(pass(handler_), Contains(started(10, "Other")));
}

TEST_F(TimeframeRuns, TheServiceThatTheRowNamesAtTheRunIsStarted) {
    setFrames({FrameRow(1)});
    setServices({{20, 0, 0}}, "Other");
    begin(handler_);
    store_.set("TimeFrame", 0, {"Servicetable", "Other"});
    store_.set("TimeFrame", 0, {"ServicetableId", 20});
    EXPECT_EQ(pass(handler_), (Lines{"start", started(20, "Other"), counted(1, 1), "close"}));
}

TEST_F(TimeframeRuns, AFrameWhoseRowCantBeReadIsSkippedSilentlyAndItsRunCounts) {
    setFrames({FrameRow(1)});
    begin(handler_);
    store_.failNth(Operation::SelectRowByKey, 1, code::timedOut);

    EXPECT_THAT(pass(handler_), IsEmpty());

    EXPECT_THAT(log_.lines(), ElementsAre("debug timefrmhdl: executionRequired for Timeframe(Id=1)"));
    EXPECT_EQ(passAt(handler_, mondayNoon + repeatInterval + 1), ran(1, 10, 2));
}

TEST_F(TimeframeRuns, AFrameWhoseRowCantBeReadDoesNotHoldUpTheNext) {
    setFrames({FrameRow(1), FrameRow(2).service(20)});
    setServices({{10, 0, 0}, {20, 0, 0}});
    begin(handler_);
    store_.failNth(Operation::SelectRowByKey, 1, code::timedOut);
    EXPECT_EQ(pass(handler_), ran(2, 20));
}

TEST_F(TimeframeRuns, TheNextPassDoesNotWriteTheRunAgain) {
    setFrames({FrameRow(1)});
    begin(handler_);
    (void)pass(handler_);
    EXPECT_THAT(pass(handler_), IsEmpty());
}

} // namespace
