// How services are started and runs written, and what happens where the store fails.

#include "unit/handlers/timeframefixture.h"

#include <gmock/gmock.h>

namespace {

using orv::horad::TimeframeHandler;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
namespace code = velta::protocol::code;

constexpr const char* required = "debug timefrmhdl: executionRequired for Timeframe(Id=1)";
constexpr const char* active = "debug timefrmhdl: Timeframes (1) active -> perform Action";
constexpr const char* starting = "debug timefrmhdl: _startService(FileTransfer, 10)";
constexpr const char* startingDaemon = "debug timefrmhdl: start wexd";

// One frame is due.
class TimeframeWriting : public TimeframeFixture {
protected:
    TimeframeWriting() { setFrames({FrameRow(1)}); }

    // What an action of its own writes.
    Lines act(TimeframeHandler& handler) {
        forget();
        handler.process(store_);
        return store_.writes();
    }
};

TEST_F(TimeframeWriting, WithNothingToWriteThereIsATransactionAllTheSame) {
    EXPECT_THAT(act(handler_), ElementsAre("start", "close"));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TimeframeWriting, ATransactionThatCantBeStartedIsTriedAgainEveryHundredMilliseconds) {
    for (const std::size_t failures : {0U, 1U, 5U, 1000U}) {
        SCOPED_TRACE(failures);
        TimeframeHandler handler(0, true);
        setFrames({FrameRow(1)});
        setServices({{10, 0, 0}});
        begin(handler);
        sleep_.sleeps.clear();
        sleep_.onSleep = [&] {
            if (sleep_.sleeps.size() == failures)
                store_.recover();
        };
        if (failures > 0)
            store_.fail(Operation::Start, code::busy);

        Lines expected(failures, "start -> 9");
        for (const std::string& line : ran(1))
            expected.push_back(line);
        EXPECT_EQ(pass(handler), expected);

        EXPECT_THAT(sleep_.sleeps, SizeIs(failures));
        EXPECT_THAT(sleep_.sleeps, Each(100000u));
        EXPECT_THAT(log_.lines(), ElementsAre(required, active, starting, startingDaemon));
    }
}

struct StatusCase {
    int status;
    int result;
    bool started;
};

const StatusCase statusCases[] = {
    {0, 0, true}, {0, 7, true}, {5, 1, true}, {5, -1, true}, {5, 0, false}, {1, 0, false}, {4, 1, false},
};

// The row became what it is after its state was read.
TEST_F(TimeframeWriting, AStatusIsResetWhereTheServiceIsIdleOrFailed) {
    for (const StatusCase& given : statusCases) {
        SCOPED_TRACE(testing::Message() << "status " << given.status << ", result " << given.result);
        TimeframeHandler handler(0, true);
        setFrames({FrameRow(1)});
        setServices({});
        begin(handler);
        setServices({{10, given.status, given.result}});
        const Lines notReset = {"start", enabled, counted(1, 1), "close"};
        EXPECT_EQ(pass(handler), given.started ? ran(1) : notReset);
    }
}

TEST_F(TimeframeWriting, TheStateIsThatOfTheRowBeforeItsStart) {
    for (const StatusCase& given : statusCases) {
        SCOPED_TRACE(testing::Message() << "status " << given.status << ", result " << given.result);
        TimeframeHandler handler(0, true);
        setFrames({FrameRow(1)});
        setServices({});
        begin(handler);
        setServices({{10, given.status, given.result}});
        (void)pass(handler);

        setServices({{10, given.status, given.result}});

        EXPECT_THAT(read(handler), // and nothing about a state that changed
                    ElementsAre("debug timefrmhdl: load 1 entries from TimeFrame",
                                "debug timefrmhdl: Load service states from FileTransfer (size=1)"));
    }
}

// Failures, one after the other.

TEST_F(TimeframeWriting, AServiceThatCantBeReadIsLoggedAndNotStarted) {
    begin(handler_);
    store_.failNth(Operation::SelectRowByKey, 2, code::timedOut); // the frame's row is the first

    EXPECT_THAT(pass(handler_), ElementsAre("start", counted(1, 1), "close"));

    EXPECT_THAT(log_.lines(), ElementsAre(required, active, starting,
                                          "error timefrmhdl: read service table \"FileTransfer\" failed: the "
                                          "configuration store did not answer in time"));
}

TEST_F(TimeframeWriting, AServiceWithoutARowIsOneThatCantBeRead) {
    setServices({});
    begin(handler_);
    EXPECT_THAT(pass(handler_), ElementsAre("start", counted(1, 1), "close"));
    EXPECT_THAT(log_.lines(),
                Contains("error timefrmhdl: read service table \"FileTransfer\" failed: no such row"));
}

TEST_F(TimeframeWriting, AServiceWithoutAStatusOrAResultIsPassedOverSilently) {
    const velta::ValueList rows[] = {fakes::row({{"Id", 10}, {"Status", 0}}),
                                     fakes::row({{"Id", 10}, {"Result", 0}}), fakes::row({{"Id", 10}})};
    for (const velta::ValueList& row : rows) {
        TimeframeHandler handler(0, true);
        store_.table("FileTransfer") = {row};
        begin(handler);

        EXPECT_THAT(pass(handler), ElementsAre("start", counted(1, 1), "close"));

        EXPECT_THAT(log_.lines(), ElementsAre(required, active, starting));
        setFrames({FrameRow(1)});
    }
}

TEST_F(TimeframeWriting, AStatusThatCantBeWrittenIsLoggedAndTheDaemonEnabledAllTheSame) {
    setServices({{10, 5, 1}});
    begin(handler_);
    store_.failNth(Operation::UpdateRow, 1, code::readOnly);

    EXPECT_THAT(pass(handler_),
                ElementsAre("start", started(10) + " -> 22", enabled, counted(1, 1), "close"));

    EXPECT_THAT(log_.lines(),
                ElementsAre(required, active, starting,
                            "error timefrmhdl: can't save FileTransfer.10: storage is read-only",
                            startingDaemon));
}

TEST_F(TimeframeWriting, TheStateIsRefreshedWhereTheStatusCantBeWritten) {
    setServices({});
    begin(handler_);
    setServices({{10, 5, 1}});
    store_.failNth(Operation::UpdateRow, 1, code::readOnly);
    (void)pass(handler_);
    EXPECT_THAT(read(handler_), Not(Contains("debug timefrmhdl: updateServiceState FileTransfer   0 -> 4")));
}

TEST_F(TimeframeWriting, ADaemonThatCantBeEnabledIsLoggedAndTheRunWritten) {
    begin(handler_);
    store_.failNth(Operation::WriteSingleRow, 1, code::readOnly);

    EXPECT_THAT(pass(handler_),
                ElementsAre("start", started(10), std::string(enabled) + " -> 22", counted(1, 1), "close"));

    EXPECT_THAT(log_.lines(), ElementsAre(required, active, starting, startingDaemon,
                                          "error timefrmhdl: start wexd failed: storage is read-only"));
}

TEST_F(TimeframeWriting, ACounterThatCantBeWrittenIsLoggedAndTheOthersAreWritten) {
    setFrames({FrameRow(1), FrameRow(2)});
    begin(handler_);
    store_.failNth(Operation::UpdateRow, 2, code::readOnly); // the service's row is the first

    EXPECT_THAT(pass(handler_),
                ElementsAre("start", started(10), enabled, counted(1, 1) + " -> 22", counted(2, 1), "close"));

    EXPECT_THAT(log_.lines(), Contains("error timefrmhdl: can't update run counter 1: storage is read-only"));
    EXPECT_THAT(act(handler_), ElementsAre("start", "close")); // it is not tried again
}

TEST_F(TimeframeWriting, ACommitThatFailsIsLoggedAndAborted) {
    begin(handler_);
    store_.failNth(Operation::Close, 1, code::storageFull);

    EXPECT_THAT(pass(handler_), ElementsAre("start", started(10), enabled, counted(1, 1), "close -> 21",
                                            "abort -> 10")); // the failing commit ended it

    EXPECT_THAT(log_.lines(),
                ElementsAre(required, active, starting, startingDaemon,
                            "error timefrmhdl: close dababase transaction failed: storage is full"));
    EXPECT_EQ(store_.number("FileTransfer", 0, "Status"), 0);
}

TEST_F(TimeframeWriting, WhatCouldNotBeCommittedIsWrittenByTheNextActionAndByNoOther) {
    begin(handler_);
    store_.failNth(Operation::Close, 1, code::storageFull);
    (void)pass(handler_);
    EXPECT_THAT(pass(handler_), IsEmpty()); // no frame is due: no action

    EXPECT_EQ(act(handler_), ran(1));
    EXPECT_THAT(act(handler_), ElementsAre("start", "close"));
}

TEST_F(TimeframeWriting, WhatCouldNotBeCommittedIsWrittenWithTheNextRun) {
    setFrames({FrameRow(1), FrameRow(2).service(20).start(mondayNoon + 60)});
    setServices({{10, 0, 0}, {20, 0, 0}});
    begin(handler_);
    store_.failNth(Operation::Close, 1, code::storageFull);
    (void)pass(handler_);

    EXPECT_THAT(passAt(handler_, mondayNoon + 61),
                ElementsAre("start", started(10), enabled, started(20), enabled, counted(1, 1), counted(2, 1),
                            "close"));
}

TEST_F(TimeframeWriting, ARunWhoseFrameIsGoneMeanwhileIsPassedOver) {
    setFrames({FrameRow(1), FrameRow(2)});
    begin(handler_);
    store_.failNth(Operation::Close, 1, code::storageFull);
    (void)pass(handler_);
    setFrames({FrameRow(2)});
    (void)read(handler_);

    EXPECT_EQ(act(handler_), ran(2));
}

} // namespace
