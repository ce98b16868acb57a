// What the user's time plan means to the frames that heed it.

#include "unit/handlers/timeframefixture.h"

#include <gmock/gmock.h>

namespace {

using orv::horad::TimeframeHandler;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
namespace code = velta::protocol::code;

class UserTimePlan : public TimeframeFixture {
protected:
    static constexpr PlanWindow morning = {8, 0, 10, 0};
    static constexpr PlanWindow allDay = {0, 0, 23, 59};
    static constexpr PlanWindow morningOff = {8, 0, 10, 0, 0, 0};
    static constexpr PlanWindow allDayOff = {0, 0, 23, 59, 0, 0};

    UserTimePlan() {
        kernel_.setQuiet();
        setFrames({FrameRow(1).mode(3).start(mondayNoon - 48 * hour).end(mondayNoon + 200 * hour)});
    }
};

struct WindowCase {
    PlanWindow window;
    std::time_t now;
    bool runs;
};

constexpr std::time_t monday = mondayNoon - 12 * hour;
constexpr std::time_t day = 24 * hour;

const WindowCase windowCases[] = {
    // both ends' minutes belong to it
    {{8, 0, 17, 30}, monday + 8 * hour - 1, false},
    {{8, 0, 17, 30}, monday + 8 * hour, true},
    {{8, 0, 17, 30}, monday + 17 * hour + 1800, true},
    {{8, 0, 17, 30}, monday + 17 * hour + 1859, true},
    {{8, 0, 17, 30}, monday + 17 * hour + 1860, false},
    {{8, 0, 24, 0}, monday + day - 1, true},
    {{22, 0, 2, 0}, monday + 23 * hour, false},
    // weekdays: 1 is Monday, 0 every day
    {{0, 0, 23, 59, 1}, monday, true},
    {{0, 0, 23, 59, 1}, monday + day, false},
    {{0, 0, 23, 59, 7}, monday - 1, true},
    {{0, 0, 23, 59, 7}, monday, false},
    {{0, 0, 23, 59, 0}, monday + 3 * day, true},
    {{0, 0, 23, 59, 8}, monday, false},
    // one that is switched off restricts nothing
    {{8, 0, 10, 0, 0, 0}, mondayNoon, true},
    {{8, 0, 10, 0, 0, 1}, mondayNoon, false},
    {{8, 0, 10, 0, 0, 2}, mondayNoon, false},
};

TEST_F(UserTimePlan, AWindowIsReadWithItsMinutesItsDayAndItsSwitch) {
    for (const WindowCase& given : windowCases) {
        SCOPED_TRACE(testing::Message() << given.window.startHour << ":" << given.window.startMinute << " to "
                                        << given.window.endHour << ":" << given.window.endMinute << ", day "
                                        << given.window.weekDay << ", enable " << given.window.enable
                                        << ", at Monday + " << given.now - monday << " s");
        setPlan({given.window});
        TimeframeHandler handler(0, true);
        begin(handler);
        EXPECT_EQ(runsAt(handler, given.now), given.runs);
    }
}

struct PlanChangeCase {
    const char* what;
    std::vector<PlanWindow> before;
    std::vector<PlanWindow> after;
    bool ranBefore;
    bool runsAfter;
};

TEST_F(UserTimePlan, AChangedPlanIsTakenOverByTheKeptFrameWithoutAWord) {
    const PlanChangeCase cases[] = {
        {"one window more", {morning}, {morning, allDay}, false, true},
        {"one window less", {morning, allDay}, {morning}, true, false},
        {"the first window", {}, {morning}, true, false},
        {"the last window gone", {morning}, {}, false, true},
        {"switched on", {morningOff}, {morning}, true, false},
        {"switched off", {morning, allDay}, {morning, allDayOff}, true, false},
        {"another window", {morning}, {allDay}, false, true},
    };
    for (const PlanChangeCase& given : cases) {
        SCOPED_TRACE(given.what);
        TimeframeHandler handler(0, true);
        setPlan(given.before);
        begin(handler);
        EXPECT_EQ(runsAt(handler, mondayNoon), given.ranBefore);
        setPlan(given.after);

        EXPECT_THAT(read(handler),
                    ElementsAre("debug timefrmhdl: load 1 entries from TimeFrame",
                                "debug timefrmhdl: Load service states from FileTransfer (size=1)"));

        EXPECT_EQ(runsAt(handler, mondayNoon), given.runsAfter);
    }
}

TEST_F(UserTimePlan, AFrameThatRunsAnotherServiceHasAnEmptyOne) {
    setPlan({morning});
    setFrames({FrameRow(1).mode(3).service("Other", 10)});
    setServices({{10, 0, 0}}, "Other");
    begin(handler_);
    EXPECT_THAT(pass(handler_), Contains(started(10, "Other")));
}

// What can't be read.

constexpr const char* planFailed = "error timefrmhdl: error while reading user time plan entry for "
                                   "FirmwareUpdateTimePlan: the configuration store did not answer in time)";

TEST_F(UserTimePlan, AFailingWindowIsLoggedAndTheOthersCount) {
    setPlan({allDay, morning});
    store_.failNth(Operation::SelectRow, 2, code::timedOut); // the frame's row is the first

    EXPECT_FALSE(handler_.configChanged(store_, ""));

    EXPECT_THAT(log_.lines(), ElementsAre("debug timefrmhdl: load 1 entries from TimeFrame", planFailed,
                                          "debug timefrmhdl: New entry from Database Id=1",
                                          "debug timefrmhdl: Load service states from FileTransfer (size=1)",
                                          "debug timefrmhdl: updateServiceState FileTransfer   0 -> 1"));
    handler_.checkTimeframes(store_);
    EXPECT_THAT(passAt(handler_, mondayNoon), IsEmpty());
    EXPECT_EQ(passAt(handler_, monday + 9 * hour), ran(1));
}

TEST_F(UserTimePlan, WithoutAPlanAFrameRunsOnlyWhereItNeedsNone) {
    setFrames({FrameRow(1).mode(1).service(10), FrameRow(2).mode(3).service(20)});
    setServices({{10, 0, 0}, {20, 0, 0}});
    store_.failNth(Operation::Size, 2, code::timedOut);

    EXPECT_FALSE(handler_.configChanged(store_, ""));

    EXPECT_THAT(log_.lines(), Contains(planFailed).Times(1));
    handler_.checkTimeframes(store_);
    EXPECT_EQ(pass(handler_), ran(1, 10));
}

TEST_F(UserTimePlan, AFrameWithoutAPlanTakesTheNextOne) {
    store_.failNth(Operation::Size, 2, code::timedOut);
    begin(handler_);
    EXPECT_FALSE(runsAt(handler_, mondayNoon - repeatInterval)); // which reads again
    EXPECT_TRUE(runsAt(handler_, mondayNoon));
}

TEST_F(UserTimePlan, AKeptFrameKeepsItsPlan) {
    setPlan({morning});
    begin(handler_);
    store_.failNth(Operation::Size, 2, code::timedOut);

    (void)read(handler_);

    EXPECT_THAT(passAt(handler_, mondayNoon), IsEmpty());
    EXPECT_EQ(passAt(handler_, monday + 9 * hour), ran(1));
}

} // namespace
