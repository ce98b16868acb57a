#include "sim/unit/oraclefixture.h"

namespace {

using namespace sim;

constexpr int anHour = 3600;

class OracleServicesWorld : public OracleWorld {
public:
    static constexpr int frameId = 3;
    static constexpr int serviceId = 5;

    // A window of an hour from a moment on, which is `seconds` ahead.
    void insertFrame(int mode = 1, int limit = 3, int seconds = 100, int counter = 0) {
        Row frame = newRow("TimeFrame", frameId);
        start = static_cast<int>(machine.time()) + seconds;
        set(frame, "WindowMode", mode);
        set(frame, "ServicetableId", serviceId);
        set(frame, "TimeFrameStart", start);
        set(frame, "TimeFrameEnd", start + anHour);
        set(frame, "MaxRetries", limit);
        set(frame, "RunCounter", counter);
        insert("TimeFrame", frame);
        insert("FileTransfer", newRow("FileTransfer", serviceId));
        change("wexd", 0, "Enable", 1);
        settle();
    }
    // Of the user's plan, on that day of the week.
    void insertEntry(int weekDay, int fromHour, int toHour, bool enabled = true, int toMinute = 0) {
        Row entry = newRow("FirmwareUpdateTimePlan", 1);
        set(entry, "Enable", enabled ? 1 : 0);
        set(entry, "WeekDay", weekDay);
        set(entry, "StartTimeHour", fromHour);
        set(entry, "EndTimeHour", toHour);
        set(entry, "EndTimeMinute", toMinute);
        insert("FirmwareUpdateTimePlan", entry);
    }
    void setService(int status, int result) {
        change("FileTransfer", serviceId, "Status", status);
        change("FileTransfer", serviceId, "Result", result);
    }
    // What horad does where it starts the service.
    void run(int counter) {
        commit([&] {
            const int status = tables.number("FileTransfer", "Status", serviceId);
            if (status == 0 || status == 5)
                write("FileTransfer", serviceId, "Status", 1);
            write("TimeFrame", frameId, "RunCounter", counter);
        });
    }
    void waitUntil(int moment) {
        while (machine.time() + 2 < moment)
            pass();
    }
    // A pass that ends so many seconds after the window's beginning, with a run in it.
    void runAt(int seconds, int counter = 1) {
        waitUntil(start + seconds);
        const std::int64_t rest = (start + seconds) * aSecond - machine.now();
        machine.passUntil(machine.passed() + rest);
        pass([&] { run(counter); }, 0);
    }
    // Nobody runs for so long.
    void waitFor(int seconds) {
        for (int i = 0; i < seconds / 2; ++i)
            pass();
    }

    int start = 0; // of the window
};

class OracleServices : public testing::Test, public OracleServicesWorld {};

TEST_F(OracleServices, ARunBeginsInsideItsWindow) {
    insertFrame();
    runAt(1);
    settle();
    expectQuiet();
}

TEST_F(OracleServices, ARunBeforeItsWindowIsSeen) {
    insertFrame();
    runAt(-1);
    expectViolation("TimeFrame 3 ran outside its window");
}

TEST_F(OracleServices, AWindowsLastMomentBelongsToIt) {
    for (const bool late : {false, true}) {
        OracleServicesWorld world;
        world.insertFrame(1, -1, 10);
        world.setService(2, 0); // it is on its way until shortly before the end
        world.waitUntil(world.start + anHour - 20);
        world.setService(5, 1);
        world.settle();
        world.machine.passUntil(world.machine.passed() + (world.start + anHour) * aSecond -
                                world.machine.now() + (late ? 1 : 0));
        world.pass([&world] { world.run(1); }, 0);
        EXPECT_EQ(world.isQuiet(), !late) << world.text();
    }
}

TEST_F(OracleServices, ALimitAllowsOneRunMore) {
    insertFrame(1, 3, 100, 3);
    runAt(10, 4);
    expectQuiet();
    setService(5, 1);
    settle();
    pass([this] { run(5); });
    expectViolation("TimeFrame 3 ran for the 5th time, above its MaxRetries 3");
}

TEST_F(OracleServices, WithoutALimitRunsAreUnlimited) {
    insertFrame(1, -7, 100, 3'000'000);
    runAt(10, 3'000'001);
    expectQuiet();
}

TEST_F(OracleServices, ACounterGoesUpByOne) {
    insertFrame();
    runAt(10, 2);
    expectViolation("TimeFrame 3: RunCounter 1 was expected; it is 2");
}

TEST_F(OracleServices, ACounterThatSomebodyElseChangedIsNotNoticed) {
    insertFrame(1, 9);
    runAt(10);
    setService(5, 1);
    change("TimeFrame", frameId, "RunCounter", 7);
    settle();
    runAt(200, 2);
    expectQuiet();
}

TEST_F(OracleServices, NoServiceIsStartedThatRunsOrHasSucceeded) {
    const struct {
        int status;
        int result;
        bool mayStart;
    } cases[] = {{0, 0, true}, {0, 1, true}, {5, 1, true}, {5, 0, false}, {1, 0, false}, {2, 1, false}};
    for (const auto& one : cases) {
        OracleServicesWorld world;
        world.insertFrame(1, 9, 20);
        world.setService(one.status, one.result);
        world.waitUntil(world.start + 10);
        world.pass([&] {
            world.commit([&] {
                if (one.mayStart)
                    world.write("FileTransfer", OracleServicesWorld::serviceId, "Status", 1);
                world.write("TimeFrame", OracleServicesWorld::frameId, "RunCounter", 1);
            });
        });
        EXPECT_EQ(world.isQuiet(), one.mayStart) << one.status << ", " << one.result << ": " << world.text();
    }
}

TEST_F(OracleServices, ModeThreeNeedsAnIdleLineAndTheUsersPlan) {
    enum Busy { Idle, Call, Stream, OutsidePlan, InsidePlan, DisabledPlan };
    const struct {
        int mode;
        Busy busy;
        bool mayRun;
    } cases[] = {{3, Idle, true},         {3, Call, false},      {3, Stream, false},
                 {3, OutsidePlan, false}, {3, InsidePlan, true}, {3, DisabledPlan, true},
                 {1, Call, true},         {2, Stream, true},     {1, OutsidePlan, true}};
    for (const auto& one : cases) {
        OracleServicesWorld world;
        world.view.call = one.busy == Call;
        world.view.stream = one.busy == Stream;
        if (one.busy == OutsidePlan || one.busy == DisabledPlan)
            world.insertEntry(0, 1, 1, one.busy != DisabledPlan);
        if (one.busy == InsidePlan)
            world.insertEntry(0, 12, 24);
        world.insertFrame(one.mode, 9, 20);
        world.runAt(10);
        EXPECT_EQ(world.isQuiet(), one.mayRun) << one.mode << ", " << one.busy << ": " << world.text();
    }
}

TEST_F(OracleServices, TheEndMinuteOfTheUsersPlanBelongsToIt) {
    for (const int late : {0, 1}) {
        OracleServicesWorld world;
        world.setClock("2026-03-03 12:29:00");
        world.insertEntry(0, 12, 12, true, 30);
        world.insertFrame(3, 9, 20); // begins at 12:29:20
        world.runAt(99 + late);
        EXPECT_EQ(world.isQuiet(), late == 0) << world.text();
    }
}

TEST_F(OracleServices, AChangeOfTheUsersPlanAloneIsNotNoticed) {
    insertFrame(3);
    insertEntry(0, 1, 1);
    settle();
    runAt(10);
    expectQuiet();
    setService(5, 1); // horad reads the plan with it
    settle();
    runAt(200, 2);
    expectViolation("outside the user's plan");
}

TEST_F(OracleServices, NothingRunsInTheFirstIteration) {
    insertFrame(1, 3, -100);
    oracle.rebooted();
    disturbed = true;
    run(1);
    expectViolation("TimeFrame 3 ran in the first iteration of horad");
}

TEST_F(OracleServices, ARunFollowsAnotherWhereItsMomentHasCome) {
    insertFrame(1, 9);
    runAt(10);
    setService(5, 1);
    settle();
    runAt(181, 2);
    expectQuiet();
}

TEST_F(OracleServices, ARunBeforeItsMomentIsSeen) {
    insertFrame(1, 9);
    runAt(10);
    setService(5, 1);
    settle();
    runAt(180, 2);
    expectViolation("TimeFrame 3 ran 2 times, and only 1 runs were due since it began");
}

TEST_F(OracleServices, ARunBeforeItsMomentIsSeenInTheIterationInWhichItsServiceFailed) {
    insertFrame(1, 9);
    runAt(10);
    settle();
    waitUntil(start + 100);
    setService(5, 1);
    onlyEdited = true;
    pass([this] { run(2); });
    expectViolation("TimeFrame 3 ran 2 times, and only 1 runs were due since it began");
}

TEST_F(OracleServices, MissedMomentsMayBeCaughtUp) {
    insertFrame(1, 9, -1000); // six moments have passed
    for (int counter = 1; counter <= 6; ++counter) {
        pass([&] { run(counter); });
        setService(5, 1);
        settle();
    }
    expectQuiet();
    pass([&] { run(7); });
    expectViolation("ran 7 times, and only 6 runs were due");
}

TEST_F(OracleServices, InTheLastIntervalRunsFollowEachOther) {
    tables.edit("FileTransfer", {}); // no such service: nothing keeps it from being tried again
    insertFrame(1, -1, -anHour + 100);
    tables.edit("FileTransfer", {});
    change("TimeFrame", frameId, "TimeFrameEnd",
           start + anHour - 1); // its last moment is 3420 s after its start
    settle();
    for (int counter = 1; counter <= 40; ++counter)
        pass([&] { commitCell("TimeFrame", frameId, "RunCounter", counter); });
    expectQuiet();
}

TEST_F(OracleServices, ARunComesWithinAnIntervalFromTheStart) {
    insertFrame();
    waitUntil(start + 179);
    expectQuiet();
    waitFor(10);
    expectViolation("TimeFrame 3 was to run by");
}

TEST_F(OracleServices, NothingIsDueWhereSomethingSpeaksAgainstIt) {
    enum Against { Nothing, Running, Succeeded, UsedUp, Call, Stream, Plan };
    for (const Against against : {Nothing, Running, Succeeded, UsedUp, Call, Stream, Plan}) {
        OracleServicesWorld world;
        world.view.call = against == Call;
        world.view.stream = against == Stream;
        if (against == Plan)
            world.insertEntry(4, 0, 24);
        world.insertFrame(3, 3, 20, against == UsedUp ? 4 : 0);
        if (against == Running || against == Succeeded)
            world.setService(against == Running ? 2 : 5, 0);
        world.waitFor(600);
        EXPECT_EQ(world.isQuiet(), against != Nothing) << against << ": " << world.text();
    }
}

TEST_F(OracleServices, AfterACallARunComesWithinAnInterval) {
    insertFrame(3);
    view.call = true;
    waitUntil(start + 300);
    view.call = false;
    waitFor(180);
    expectQuiet();
    waitFor(6);
    expectViolation("TimeFrame 3 was to run by");
}

TEST_F(OracleServices, AClockThatWasAheadMakesARunLate) {
    insertFrame(1, -1, 10);
    waitUntil(start + 8);
    pass([this] { run(1); });
    setService(5, 1);
    machine.setClock(machine.now() + 1000 * aSecond);
    settle();
    machine.setClock(machine.now() - 1000 * aSecond);
    disturbed = true;
    waitFor(1000);
    expectQuiet();
    waitFor(200);
    expectViolation("TimeFrame 3 was to run by");
}

TEST_F(OracleServices, AFailureLeavesOpenWhatHoradKnowsOfTheRuns) {
    insertFrame(1, 9);
    runAt(10);
    setService(5, 1);
    pass([this] {
        ++view.failedOperations;
        disturbed = true;
    });
    settle();
    runAt(100, 4);
    expectQuiet();
}

TEST_F(OracleServices, AStatusIsOnlySetToOneAndWhereAServiceCanStart) {
    insertFrame();
    waitUntil(start + 2);
    pass([this] { commitCell("FileTransfer", serviceId, "Status", 2); });
    expectViolation("FileTransfer 5: Status was changed from 0 to 2");
}

TEST_F(OracleServices, AStartThatIsNotCountedIsSeen) {
    insertFrame();
    waitUntil(start + 2);
    pass([this] { commitCell("FileTransfer", serviceId, "Status", 1); });
    expectViolation("FileTransfer 5 was started, and no run of a frame was counted for it");
}

TEST_F(OracleServices, ARunThatStartsNothingIsSeen) {
    insertFrame();
    waitUntil(start + 2);
    pass([this] { commitCell("TimeFrame", frameId, "RunCounter", 1); });
    expectViolation("FileTransfer 5: Status 1 was expected after a run; it is 0");
}

TEST_F(OracleServices, AStartEnablesTheServiceDaemon) {
    insertFrame();
    change("wexd", 0, "Enable", 0);
    settle();
    runAt(4);
    expectViolation("wexd: Enable 1 was expected");
}

TEST_F(OracleServices, TheFirstIterationEnablesTheServiceDaemon) {
    for (const bool enables : {false, true}) {
        OracleServicesWorld world;
        world.change("wexd", 0, "Enable", 0);
        world.oracle.rebooted();
        world.pass([&] {
            if (enables)
                world.commitCell("wexd", 0, "Enable", 1);
        });
        world.settle();
        EXPECT_EQ(world.text() == "quiet", enables);
    }
}

TEST_F(OracleServices, AServiceOfAnotherTableIsLeftToItself) {
    tables.edit("Backup", {newRow("FileTransfer", serviceId)});
    insertFrame(3);
    change("TimeFrame", frameId, "Servicetable", "Backup");
    tables.edit("TimeFrame", {tables.rows("TimeFrame").front()});
    oracle.rebooted();
    disturbed = true;
    settle();
    waitFor(1000);
    expectQuiet();
}

TEST_F(OracleServices, ARowOfAnUnknownModeDoesNotRun) {
    insertFrame(4);
    runAt(10);
    expectViolation("TimeFrame 3 ran, and its mode is none that is known");
}

TEST_F(OracleServices, OtherCellsAreNotHorads) {
    settle();
    insertFrame();
    pass([this] { commitCell("TimeFrame", frameId, "MaxRetries", 9); });
    expectViolation("TimeFrame 3: MaxRetries was changed, and is not horad's to change");
}

} // namespace
