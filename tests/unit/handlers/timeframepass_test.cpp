// Which frames a pass runs.

#include "unit/handlers/timeframefixture.h"

#include <climits>

#include <gmock/gmock.h>

namespace {

using orv::horad::TimeframeHandler;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
namespace code = velta::protocol::code;

using Lines = std::vector<std::string>;

class TimeframePass : public TimeframeFixture {};

const Lines firstPass = {"start", "write wexd 0 Enable=1(type 2)", "close"};

TEST_F(TimeframePass, TheFirstOneOnlyEnablesTheServiceDaemon) {
    setFrames({FrameRow(1)});
    (void)read(handler_);

    EXPECT_EQ(pass(handler_), firstPass);

    EXPECT_EQ(store_.journal(), firstPass); // nothing was read either
    EXPECT_THAT(log_.lines(),
                ElementsAre("debug timefrmhdl: First process: synchronise", "debug timefrmhdl: start wexd"));
    EXPECT_EQ(store_.number("wexd", 0, "Enable"), 1);
    EXPECT_EQ(pass(handler_), ran(1));
}

TEST_F(TimeframePass, TheFirstOneIsRepeatedWhereItsTransactionFails) {
    const std::pair<Operation, Lines> failures[] = {
        {Operation::Start, {"start -> 9"}},
        {Operation::Close, {"start", enabled, "close -> 9", "abort -> 10"}},
    };
    for (const auto& [operation, written] : failures) {
        TimeframeHandler handler(0, true);
        store_.failNth(operation, 1, code::busy);

        EXPECT_EQ(pass(handler), written);

        EXPECT_THAT(log_.lines(),
                    Contains("error timefrmhdl: start wexd failed: another transaction is open"));
        EXPECT_EQ(pass(handler), firstPass);
        EXPECT_THAT(pass(handler), IsEmpty());
        EXPECT_THAT(sleep_.sleeps, IsEmpty());
    }
}

TEST_F(TimeframePass, TheFirstOneIsOverWhereTheServiceDaemonCantBeEnabled) {
    store_.failNth(Operation::WriteSingleRow, 1, code::readOnly);

    EXPECT_THAT(pass(handler_), ElementsAre("start", std::string(enabled) + " -> 22", "close"));

    EXPECT_THAT(log_.lines(),
                ElementsAre("debug timefrmhdl: First process: synchronise", "debug timefrmhdl: start wexd",
                            "error timefrmhdl: start wexd failed: storage is read-only"));
    EXPECT_THAT(pass(handler_), IsEmpty());
}

TEST_F(TimeframePass, WithoutAFrameThatIsDueNothingIsAskedOfTheStore) {
    setFrames({FrameRow(1).start(mondayNoon + hour).end(mondayNoon + 2 * hour)});
    begin(handler_);
    (void)pass(handler_);
    EXPECT_THAT(store_.journal(), IsEmpty());
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TimeframePass, ARunIsLogged) {
    setFrames({FrameRow(7)});
    begin(handler_);

    (void)pass(handler_);

    EXPECT_THAT(log_.lines(), ElementsAre("debug timefrmhdl: executionRequired for Timeframe(Id=7)",
                                          "debug timefrmhdl: Timeframes (7) active -> perform Action",
                                          "debug timefrmhdl: _startService(FileTransfer, 10)",
                                          "debug timefrmhdl: start wexd"));
}

TEST_F(TimeframePass, ARunStartsTheServiceAndItsDaemonAndIsCountedInOneTransaction) {
    setFrames({FrameRow(7)});
    begin(handler_);

    (void)pass(handler_);

    EXPECT_THAT(store_.journal(), ElementsAre("select TimeFrame Id=7", "start", "select FileTransfer Id=10",
                                              started(10), enabled, counted(7, 1), "close"));
    EXPECT_EQ(store_.number("FileTransfer", 0, "Status"), 1);
    EXPECT_EQ(store_.number("TimeFrame", 0, "RunCounter"), 1);
}

TEST_F(TimeframePass, EveryModeRunsOnAnIdleSystem) {
    for (const int mode : {1, 2, 3}) {
        SCOPED_TRACE(mode);
        TimeframeHandler handler(0, true);
        setFrames({FrameRow(1).mode(mode)});
        setServices({{10, 0, 0}});
        begin(handler);
        EXPECT_EQ(pass(handler), ran(1));
    }
}

// When.

struct MomentCase {
    std::chrono::microseconds sinceStart;
    bool runs;
};

const MomentCase momentCases[] = {
    {std::chrono::seconds(-1), false},
    {std::chrono::microseconds(0), false}, // after its start
    {std::chrono::microseconds(1), true},
    {std::chrono::seconds(1), true},
    {std::chrono::seconds(hour - 1), true},
    {std::chrono::seconds(hour), true},
    {std::chrono::microseconds(hour * 1000000 + 1), false},
};

TEST_F(TimeframePass, AFrameRunsAfterItsStartAndUpToItsEnd) {
    constexpr std::time_t after2038 = 3000000000;
    for (const std::time_t start : {mondayNoon, after2038})
        for (const MomentCase& given : momentCases) {
            SCOPED_TRACE(testing::Message() << start << " + " << given.sinceStart.count() << " us");
            TimeframeHandler handler(0, true);
            setFrames({FrameRow(1).start(start).end(start + hour)});
            begin(handler);
            clock_.set(std::chrono::seconds(start) + given.sinceStart);
            EXPECT_EQ(pass(handler), given.runs ? ran(1) : Lines{});
            setServices({{10, 0, 0}});
        }
}

struct IntervalCase {
    unsigned given;
    std::vector<std::time_t> firstRuns; // seconds since the start
    std::size_t runs;                   // up to the end
};

// An execution time that has no next one up to the end stays: each pass behind it runs.
const IntervalCase intervalCases[] = {
    {0, {1, 181, 361, 541, 542}, 63},
    {180, {1, 181, 361, 541, 542}, 63},
    {1, {1, 2, 3}, 600},
    {300, {1, 301}, 2}, // at the end itself the third is not due yet
    {301, {1, 302, 303}, 300},
    {601, {1, 2, 3}, 600},
    {UINT_MAX, {1, 2, 3}, 600},
};

TEST_F(TimeframePass, AFrameFallsDueAgainAfterTheInterval) {
    for (const IntervalCase& given : intervalCases) {
        SCOPED_TRACE(given.given);
        TimeframeHandler handler(given.given, false);
        setFrames({FrameRow(1).end(mondayNoon + 600)});
        begin(handler);
        std::vector<std::time_t> runs;
        for (std::time_t second = 0; second <= 601; ++second)
            if (runsAt(handler, mondayNoon + second))
                runs.push_back(second);
        EXPECT_EQ(runs.size(), given.runs);
        runs.resize(given.firstRuns.size());
        EXPECT_EQ(runs, given.firstRuns);
    }
}

TEST_F(TimeframePass, AnIntervalThatNoNumberHoldsIsTheLongestOne) {
    constexpr std::time_t lastSecond = UINT32_MAX; // in 2106, more than the longest interval away
    for (const unsigned given : {unsigned{INT_MAX}, unsigned{INT_MAX} + 1, UINT_MAX}) {
        SCOPED_TRACE(given);
        TimeframeHandler handler(given, false);
        setFrames({FrameRow(1).end(lastSecond)});
        begin(handler);
        EXPECT_TRUE(runsAt(handler, mondayNoon + 1));
        EXPECT_FALSE(runsAt(handler, mondayNoon + 2));
        EXPECT_FALSE(runsAt(handler, mondayNoon + INT_MAX));
        EXPECT_TRUE(runsAt(handler, mondayNoon + INT_MAX + 1));
    }
}

struct LimitCase {
    int maxRetries;
    int runs;
    bool runsAgain;
};

const LimitCase limitCases[] = {
    {3, 0, true},        {3, 3, true},        {3, 4, false},  {0, 0, true},         {0, 1, false},
    {-1, 1000000, true}, {-5, 7, true},       {3, -1, false}, {INT_MAX, -1, false}, {INT_MAX, INT_MAX, true},
    {-1, -1, true},      {-1, INT_MAX, true},
};

TEST_F(TimeframePass, ALimitIsUsedUpByOneRunMoreThanItSays) {
    for (const LimitCase& given : limitCases) {
        SCOPED_TRACE(testing::Message() << "limit " << given.maxRetries << ", runs " << given.runs);
        TimeframeHandler handler(0, true);
        setFrames({FrameRow(1).maxRetries(given.maxRetries).runs(given.runs)});
        setServices({{10, 0, 0}});
        begin(handler);
        const unsigned next = static_cast<unsigned>(given.runs) + 1;
        EXPECT_EQ(pass(handler), given.runsAgain ? ran(1, 10, next) : Lines{});
    }
}

TEST_F(TimeframePass, ALimitOfThreeAllowsFourRuns) {
    setFrames({FrameRow(1).maxRetries(3)});
    begin(handler_);
    int runs = 0;
    for (std::time_t second = 1; second < hour; second += repeatInterval)
        runs += runsAt(handler_, mondayNoon + second) ? 1 : 0;
    EXPECT_EQ(runs, 4);
    EXPECT_EQ(store_.number("TimeFrame", 0, "RunCounter"), 4);
}

TEST_F(TimeframePass, WithoutALimitAFrameRunsUntilItsEnd) {
    setFrames({FrameRow(1)});
    begin(handler_);
    int runs = 0;
    for (std::time_t second = 1; second < hour; second += repeatInterval)
        runs += runsAt(handler_, mondayNoon + second) ? 1 : 0;
    EXPECT_EQ(runs, 20);
}

// The state of the service.

struct ServiceCase {
    int status;
    int result;
    Lines written;
    Lines logged;
};

const Lines aRun = {"debug timefrmhdl: executionRequired for Timeframe(Id=1)",
                    "debug timefrmhdl: Timeframes (1) active -> perform Action",
                    "debug timefrmhdl: _startService(FileTransfer, 10)", "debug timefrmhdl: start wexd"};
const Lines finished = {"debug timefrmhdl: Skip service FileTransfer(Id=10), already successfull finished"};
const Lines busy = {"debug timefrmhdl: Skip service FileTransfer(Id=10), already running"};

TEST_F(TimeframePass, WhatAServiceIsDoingDecidesWhetherItIsStarted) {
    const ServiceCase cases[] = {
        {0, 0, ran(1), aRun}, {0, 1, ran(1), aRun}, {5, 1, ran(1), aRun},
        {5, 0, {}, finished}, {1, 0, {}, busy},     {4, 1, {}, busy},
    };
    for (const ServiceCase& given : cases) {
        SCOPED_TRACE(testing::Message() << "status " << given.status << ", result " << given.result);
        TimeframeHandler handler(0, true);
        setFrames({FrameRow(1)});
        setServices({{10, given.status, given.result}});
        begin(handler);
        EXPECT_EQ(pass(handler), given.written);
        EXPECT_EQ(log_.lines(), given.logged);
    }
}

TEST_F(TimeframePass, AServiceThatSucceededIsNeverRunAgain) {
    setFrames({FrameRow(1)});
    setServices({{10, 5, 0}});
    begin(handler_);
    for (std::time_t second = 1; second < hour; second += repeatInterval)
        EXPECT_THAT(passAt(handler_, mondayNoon + second), IsEmpty());
}

TEST_F(TimeframePass, WhatAServiceIsDoingIsLoggedOutsideTheSpanToo) {
    setFrames({FrameRow(1), FrameRow(2).service(20)});
    setServices({{10, 5, 0}, {20, 1, 0}});
    begin(handler_);
    for (const std::time_t now : {mondayNoon - 1, mondayNoon + 2 * hour}) {
        EXPECT_THAT(passAt(handler_, now), IsEmpty());
        EXPECT_THAT(
            log_.lines(),
            ElementsAre("debug timefrmhdl: Skip service FileTransfer(Id=10), already successfull finished",
                        "debug timefrmhdl: Skip service FileTransfer(Id=20), already running"));
    }
}

TEST_F(TimeframePass, RunsThatFellDueWhileTheServiceWasBusyAreMadeUpForByOne) {
    setFrames({FrameRow(1)});
    setServices({{10, 2, 0}});
    begin(handler_);
    for (const std::time_t second : {1, 181})
        EXPECT_THAT(passAt(handler_, mondayNoon + second), IsEmpty());
    setServices({{10, 5, 1}});
    (void)read(handler_);

    EXPECT_TRUE(runsAt(handler_, mondayNoon + 182));

    EXPECT_FALSE(runsAt(handler_, mondayNoon + 183));
    EXPECT_TRUE(runsAt(handler_, mondayNoon + 361));
}

TEST_F(TimeframePass, ARunThatFellDueWhileTheServiceWasBusyIsLeftOutBehindTheEnd) {
    setFrames({FrameRow(1).end(mondayNoon + 10)});
    setServices({{10, 2, 0}});
    begin(handler_);
    EXPECT_THAT(passAt(handler_, mondayNoon + 1), IsEmpty());
    setServices({{10, 5, 1}});
    (void)read(handler_);

    EXPECT_THAT(passAt(handler_, mondayNoon + 11), IsEmpty());

    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TimeframePass, WhileAServiceIsFinishedTheExecutionTimeStands) {
    setFrames({FrameRow(1)});
    setServices({{10, 5, 0}});
    begin(handler_);
    EXPECT_THAT(passAt(handler_, mondayNoon + 1), IsEmpty());
    setServices({{10, 0, 0}}); // wanted once more
    (void)read(handler_);

    EXPECT_TRUE(runsAt(handler_, mondayNoon + 182)); // due since the start
    EXPECT_TRUE(runsAt(handler_, mondayNoon + 183)); // due since the interval after it
    EXPECT_FALSE(runsAt(handler_, mondayNoon + 184));
}

TEST_F(TimeframePass, AFrameDoesNotHoldUpTheOthers) {
    setFrames({FrameRow(1), FrameRow(2).service(20), FrameRow(3).service(30)});
    setServices({{10, 5, 0}, {20, 1, 0}, {30, 0, 0}});
    begin(handler_);
    EXPECT_EQ(pass(handler_), ran(3, 30));
}

} // namespace
