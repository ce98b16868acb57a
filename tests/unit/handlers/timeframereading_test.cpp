// What is read of the time frames, and what becomes of those that were known before.

#include "unit/handlers/timeframefixture.h"

#include <gmock/gmock.h>

namespace {

using orv::horad::TimeframeHandler;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
namespace code = velta::protocol::code;

constexpr const char* noServices = "debug timefrmhdl: Load service states from FileTransfer (size=0)";

class TimeframeReading : public TimeframeFixture {
protected:
    TimeframeReading() { setServices({}); }
};

TEST_F(TimeframeReading, TheTimeFramesAndTheFileTransfersAreFollowed) {
    std::list<std::string> tables = {"Before"};
    handler_.getTables(tables);
    EXPECT_THAT(tables, ElementsAre("Before", "TimeFrame", "FileTransfer"));
}

TEST_F(TimeframeReading, EveryChangeReadsBothTablesAndThePlan) {
    setFrames({FrameRow(1)});
    setPlan({{8, 0, 10, 0}, {20, 0, 22, 0}});
    setServices({{10, 0, 0}});
    for (const char* table : {"", "TimeFrame", "FileTransfer"}) {
        SCOPED_TRACE(table);
        store_.clearJournal();

        EXPECT_TRUE(handler_.configChanged(store_, table));

        EXPECT_THAT(store_.journal(),
                    ElementsAre("size TimeFrame", "select TimeFrame 0", "size FirmwareUpdateTimePlan",
                                "select FirmwareUpdateTimePlan 0", "select FirmwareUpdateTimePlan 1",
                                "size FileTransfer", "select FileTransfer 0"));
    }
}

TEST_F(TimeframeReading, AReadingIsLogged) {
    setFrames({FrameRow(7), FrameRow(2)});
    setServices({{10, 0, 0}});
    EXPECT_THAT(read(handler_),
                ElementsAre("debug timefrmhdl: load 2 entries from TimeFrame",
                            "debug timefrmhdl: New entry from Database Id=2",
                            "debug timefrmhdl: New entry from Database Id=7",
                            "debug timefrmhdl: Load service states from FileTransfer (size=1)",
                            "debug timefrmhdl: updateServiceState FileTransfer   0 -> 1"));
}

TEST_F(TimeframeReading, WithoutDebugOnlyWhatIsWrongIsLogged) {
    TimeframeHandler handler(0, false);
    setFrames({FrameRow(1), FrameRow(2).mode(4)});
    EXPECT_THAT(read(handler), ElementsAre("warning timefrmhdl: unknown timeframe mode 4"));
}

TEST_F(TimeframeReading, EmptyTablesAreNoFailure) {
    EXPECT_TRUE(handler_.configChanged(store_, ""));
    EXPECT_THAT(log_.lines(), ElementsAre("debug timefrmhdl: load 0 entries from TimeFrame", noServices));
}

TEST_F(TimeframeReading, AnUnknownModeIsLeftOut) {
    for (const int mode : {0, -1, 4, 100}) {
        setFrames({FrameRow(1).mode(mode), FrameRow(2)});
        TimeframeHandler handler(0, true);

        EXPECT_THAT(read(handler),
                    ElementsAre("debug timefrmhdl: load 2 entries from TimeFrame",
                                "warning timefrmhdl: unknown timeframe mode " + std::to_string(mode),
                                "debug timefrmhdl: New entry from Database Id=2", noServices));
        EXPECT_TRUE(handler.configChanged(store_, "")); // nothing that a further reading would mend
    }
}

TEST_F(TimeframeReading, TheKnownModesAreRead) {
    setFrames({FrameRow(1).mode(1), FrameRow(2).mode(2), FrameRow(3).mode(3)});
    EXPECT_THAT(read(handler_), ElementsAre("debug timefrmhdl: load 3 entries from TimeFrame",
                                            "debug timefrmhdl: New entry from Database Id=1",
                                            "debug timefrmhdl: New entry from Database Id=2",
                                            "debug timefrmhdl: New entry from Database Id=3", noServices));
}

TEST_F(TimeframeReading, AFrameWhoseModeBecomesUnknownIsRemoved) {
    setFrames({FrameRow(1)});
    (void)read(handler_);
    setFrames({FrameRow(1).mode(4)});
    EXPECT_THAT(read(handler_), ElementsAre("debug timefrmhdl: load 1 entries from TimeFrame",
                                            "warning timefrmhdl: unknown timeframe mode 4",
                                            "debug timefrmhdl: Delete removed Timefames Id=1", noServices));
}

TEST_F(TimeframeReading, OfTwoRowsWithOneIdTheLaterCounts) {
    setFrames({FrameRow(1), FrameRow(1).maxRetries(5)});
    (void)read(handler_);
    setFrames({FrameRow(1).maxRetries(5)});
    EXPECT_THAT(read(handler_), ElementsAre("debug timefrmhdl: load 1 entries from TimeFrame", noServices));
}

TEST_F(TimeframeReading, ThePlanIsReadForFileTransfersOnly) {
    setFrames({FrameRow(1).service("Other", 10)});
    (void)read(handler_);
    EXPECT_THAT(store_.journal(), Not(Contains(HasSubstr("FirmwareUpdateTimePlan"))));
}

TEST_F(TimeframeReading, ThePlanIsReadOnceForAllFrames) {
    setFrames({FrameRow(1), FrameRow(2), FrameRow(3)});
    (void)read(handler_);
    EXPECT_THAT(store_.journal(), Contains("size FirmwareUpdateTimePlan").Times(1));
}

// The frames that a reading finds changed are replaced by what it has read.

TEST_F(TimeframeReading, AnUnchangedFrameKeepsItsRuns) {
    setServices({{10, 0, 0}});
    setFrames({FrameRow(1)});
    begin(handler_);
    (void)pass(handler_);
    setFrames({FrameRow(1)}); // the store lost the counter
    setServices({{10, 0, 0}});

    EXPECT_THAT(read(handler_),
                ElementsAre("debug timefrmhdl: load 1 entries from TimeFrame",
                            "debug timefrmhdl: Load service states from FileTransfer (size=1)"));

    EXPECT_THAT(pass(handler_), IsEmpty()); // its execution time has not come again
    EXPECT_EQ(passAt(handler_, mondayNoon + repeatInterval + 1), ran(1, 10, 2));
}

struct ChangeCase {
    const char* field;
    FrameRow row;
    bool replaced;
};

const ChangeCase changeCases[] = {
    {"start", FrameRow(1).start(mondayNoon - 1), true},
    {"end", FrameRow(1).end(mondayNoon + hour + 1), true},
    {"mode", FrameRow(1).mode(2), true},
    {"message", FrameRow(1).message("Now!"), true},
    {"limit", FrameRow(1).maxRetries(9), true},
    {"a limit that is none either", FrameRow(1).maxRetries(-2), false},
    {"service", FrameRow(1).service(11), false},
    {"service table", FrameRow(1).service("Other", 10), false},
    {"run counter", FrameRow(1).runs(5), false},
};

TEST_F(TimeframeReading, AFrameIsReplacedWhereItsSpanModeMessageOrLimitChanged) {
    for (const ChangeCase& given : changeCases) {
        SCOPED_TRACE(given.field);
        TimeframeHandler handler(0, true);
        setFrames({FrameRow(1), FrameRow(2)});
        (void)read(handler);
        setFrames({given.row, FrameRow(2)});

        const Lines lines = read(handler);

        if (given.replaced)
            EXPECT_THAT(lines, ElementsAre("debug timefrmhdl: load 2 entries from TimeFrame",
                                           "debug timefrmhdl: Update entry from Database Id=1", noServices));
        else
            EXPECT_THAT(lines, ElementsAre("debug timefrmhdl: load 2 entries from TimeFrame", noServices));
    }
}

TEST_F(TimeframeReading, AReplacedFrameBeginsAnewWithTheCounterOfItsRow) {
    setServices({{10, 0, 0}});
    setFrames({FrameRow(1)});
    begin(handler_);
    (void)pass(handler_);
    setFrames({FrameRow(1).message("Now!").runs(7)});
    setServices({{10, 0, 0}});
    (void)read(handler_);

    EXPECT_EQ(pass(handler_), ran(1, 10, 8));
}

TEST_F(TimeframeReading, AFrameWhoseRowIsGoneIsRemovedAndRunsNoMore) {
    setServices({{10, 0, 0}});
    setFrames({FrameRow(1), FrameRow(2).service(20)});
    begin(handler_);
    setFrames({FrameRow(2).service(20)});

    EXPECT_THAT(read(handler_),
                ElementsAre("debug timefrmhdl: load 1 entries from TimeFrame",
                            "debug timefrmhdl: Delete removed Timefames Id=1",
                            "debug timefrmhdl: Load service states from FileTransfer (size=1)"));

    EXPECT_THAT(pass(handler_), Not(Contains(started(10))));
}

TEST_F(TimeframeReading, NewAndChangedFramesComeBeforeTheRemovedOnes) {
    setFrames({FrameRow(1), FrameRow(3), FrameRow(5)});
    (void)read(handler_);
    setFrames({FrameRow(6), FrameRow(5).mode(2), FrameRow(2)});
    EXPECT_THAT(read(handler_), ElementsAre("debug timefrmhdl: load 3 entries from TimeFrame",
                                            "debug timefrmhdl: New entry from Database Id=2",
                                            "debug timefrmhdl: Update entry from Database Id=5",
                                            "debug timefrmhdl: New entry from Database Id=6",
                                            "debug timefrmhdl: Delete removed Timefames Id=1",
                                            "debug timefrmhdl: Delete removed Timefames Id=3", noServices));
}

// What can't be read.

class TimeframeReadingFailures : public TimeframeReading {};

TEST_F(TimeframeReadingFailures, AFailingRowIsLoggedAndSkippedAndItsFrameRemoved) {
    setFrames({FrameRow(1), FrameRow(2)});
    (void)read(handler_);
    setFrames({FrameRow(1), FrameRow(2), FrameRow(3)});
    store_.failNth(Operation::SelectRow, 2, code::timedOut);
    log_.clear();

    EXPECT_FALSE(handler_.configChanged(store_, "TimeFrame"));

    EXPECT_THAT(
        log_.lines(),
        ElementsAre("debug timefrmhdl: load 3 entries from TimeFrame",
                    "error timefrmhdl: load time frames: the configuration store did not answer in time",
                    "debug timefrmhdl: New entry from Database Id=3",
                    "debug timefrmhdl: Delete removed Timefames Id=2", noServices));
}

TEST_F(TimeframeReadingFailures, AFailingSizeIsLoggedAndRemovesNothing) {
    setFrames({FrameRow(1)});
    (void)read(handler_);
    setServices({{10, 1, 0}});
    store_.failNth(Operation::Size, 1, code::timedOut);
    log_.clear();

    EXPECT_FALSE(handler_.configChanged(store_, "TimeFrame"));

    EXPECT_THAT(
        log_.lines(),
        ElementsAre("error timefrmhdl: load time frames: the configuration store did not answer in time",
                    "debug timefrmhdl: Load service states from FileTransfer (size=1)",
                    "debug timefrmhdl: updateServiceState FileTransfer   0 -> 2"));
    EXPECT_THAT(read(handler_), Not(Contains("debug timefrmhdl: New entry from Database Id=1")));
}

TEST_F(TimeframeReadingFailures, FailingServicesAreLoggedAndTheFramesReadAllTheSame) {
    setFrames({FrameRow(1)});
    store_.failNth(Operation::Size, 3, code::timedOut);

    EXPECT_FALSE(handler_.configChanged(store_, ""));

    EXPECT_THAT(
        log_.lines(),
        ElementsAre("debug timefrmhdl: load 1 entries from TimeFrame",
                    "debug timefrmhdl: New entry from Database Id=1",
                    "error timefrmhdl: size() failed: the configuration store did not answer in time"));
}

} // namespace
