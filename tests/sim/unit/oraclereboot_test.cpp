#include "sim/unit/oraclefixture.h"

namespace {

using namespace sim;

// The slot is 12:10:00 to 12:10:59 every day; horad decides in each 25th pass.
class OracleRebootWorld : public OracleWorld {
public:
    OracleRebootWorld() {
        change("AutoReboot", 0, "Enable", 1);
        change("AutoReboot", 0, "Time", std::string("12:10"));
        change("AutoReboot", 0, "MinimumRuntime", 60);
    }

    // Undisturbed passes, up to the one before the first decision from that time of Monday on.
    void passUntilDecision(const std::string& time) {
        const std::time_t moment = momentOf("2026-03-02 " + time);
        while (machine.time() + 2 < moment || (passes + 1) % 25 != 0)
            step();
    }
    void step() {
        ++passes;
        pass();
    }
    void steps(int count) {
        for (int i = 0; i < count; ++i)
            step();
    }
    // What horad does.
    void trigger() {
        const std::string now = isoText(machine.time());
        commit([&] {
            write("Reboot", 0, "Trigger", 1);
            write("AutoReboot", 0, "LastReboot", now);
        });
    }
    void stepWithTrigger() {
        ++passes;
        pass([this] { trigger(); });
    }
    // What a pass that decides makes of it, at that time of Monday.
    void decideAt(const std::string& time, bool triggers) {
        machine.passUntil(machine.passed() + 5400 * aSecond);
        oracle.rebooted();
        setClock("2026-03-02 " + time);
        machine.setClock(machine.now() - 50 * aSecond);
        for (int i = 0; i < 24; ++i)
            pass();
        pass([&] {
            if (triggers)
                trigger();
        });
    }
    // It goes on after one.
    void boot() {
        machine.restart();
        oracle.rebooted();
        change("Reboot", 0, "Trigger", 0);
        passes = 0;
        disturbed = true;
    }

    int passes = 0;
};

class OracleReboot : public testing::Test, public OracleRebootWorld {};

TEST_F(OracleReboot, HappensInItsSlot) {
    passUntilDecision("12:10:00");
    stepWithTrigger();
    steps(3);
    expectQuiet();
}

TEST_F(OracleReboot, ThatDoesNotHappenInItsSlotIsSeen) {
    passUntilDecision("12:10:00");
    expectQuiet();
    step();
    expectViolation("a reboot was due, in its slot, and it was not triggered");
}

TEST_F(OracleReboot, AtBothEndsOfItsSlot) {
    const struct {
        const char* clock;
        bool inside;
    } cases[] = {
        {"12:09:59", false},
        {"12:10:00", true},
        {"12:10:59", true},
        {"12:11:00", false},
    };
    for (const auto& one : cases)
        for (const bool triggers : {false, true}) {
            OracleRebootWorld world;
            world.decideAt(one.clock, triggers);
            EXPECT_EQ(world.isQuiet(), triggers == one.inside)
                << one.clock << (triggers ? ", triggered: " : ", not triggered: ") << world.text();
        }
}

TEST_F(OracleReboot, IsDecidedInEach25thIteration) {
    passUntilDecision("12:10:00");
    pass(0); // one too many
    stepWithTrigger();
    expectViolation(", and every 25th decides");
}

TEST_F(OracleReboot, NeverWhileItIsOff) {
    change("AutoReboot", 0, "Enable", 0);
    passUntilDecision("12:10:00");
    step();
    expectQuiet();
}

TEST_F(OracleReboot, NeverWhileItIsOffThoughItWaits) {
    view.call = true;
    passUntilDecision("12:10:10");
    step();
    change("AutoReboot", 0, "Enable", 0);
    steps(24);
    view.call = false;
    stepWithTrigger();
    expectViolation("while auto reboot was off");
}

TEST_F(OracleReboot, NeverIntoACall) {
    view.call = true;
    passUntilDecision("12:10:00");
    stepWithTrigger();
    expectViolation("a reboot was triggered during a call");
}

TEST_F(OracleReboot, WaitsForTheEndOfACall) {
    view.call = true;
    passUntilDecision("12:10:10");
    step();
    steps(24 + 25);
    view.call = false;
    stepWithTrigger();
    steps(5);
    expectQuiet();
}

TEST_F(OracleReboot, ThatForgetsThatItWaitsIsSeen) {
    view.call = true;
    passUntilDecision("12:10:10");
    step();
    steps(24);
    view.call = false;
    step();
    expectViolation("a reboot was due, at the end of a call");
}

TEST_F(OracleReboot, DoesNotWaitForACallThatEndedWithTheSlot) {
    view.call = true;
    passUntilDecision("12:10:00");
    view.call = false;
    stepWithTrigger();
    expectQuiet();
}

TEST_F(OracleReboot, WaitsForAnHourByTheClockAndADecision) {
    view.call = true;
    passUntilDecision("12:10:10");
    step();
    steps(72 * 25); // an hour, to the second: it goes on
    view.call = false;
    steps(24);
    expectQuiet();
    stepWithTrigger();
    expectQuiet();
}

TEST_F(OracleReboot, GivesUpAfterAnHour) {
    view.call = true;
    passUntilDecision("12:10:10");
    step();
    steps(73 * 25);
    view.call = false;
    steps(25);
    expectQuiet();
    steps(24);
    stepWithTrigger();
    expectViolation("a reboot was triggered outside its slots, and it was not waited for");
}

TEST_F(OracleReboot, NeverBeforeTheMinimumOfUptime) {
    for (const int missing : {0, 1})
        for (const bool triggers : {false, true}) {
            OracleRebootWorld world;
            world.change("AutoReboot", 0, "MinimumRuntime", 5450 + missing);
            world.decideAt("12:10:30", triggers);
            EXPECT_EQ(world.machine.uptime(), 5450U);
            EXPECT_EQ(world.isQuiet(), triggers == (missing == 0))
                << missing << (triggers ? ", triggered: " : ", not triggered: ") << world.text();
        }
}

TEST_F(OracleReboot, BeforeTheMinimumOfUptimeIsSeenInWhateverTrouble) {
    change("AutoReboot", 0, "MinimumRuntime", 5400);
    passUntilDecision("12:10:00");
    disturbed = true;
    stepWithTrigger();
    expectViolation("after the start, before the minimum of 5400 s");
}

TEST_F(OracleReboot, NeverTooSoonAfterTheLastOne) {
    const struct {
        int elapsed;
        bool mayTrigger;
    } cases[] = {{61, true}, {60, false}, {1, false}, {0, true}, {-100, true}};
    for (const auto& one : cases)
        for (const bool triggers : {false, true}) {
            OracleRebootWorld world;
            world.change("AutoReboot", 0, "LastReboot",
                         isoText(momentOf("2026-03-02 12:10:10") - one.elapsed));
            world.decideAt("12:10:10", triggers);
            EXPECT_EQ(world.isQuiet(), triggers == one.mayTrigger)
                << one.elapsed << (triggers ? ", triggered: " : ", not triggered: ") << world.text();
        }
}

TEST_F(OracleReboot, StampsTheMomentWithTheTrigger) {
    passUntilDecision("12:10:00");
    ++passes;
    pass([this] { commitCell("Reboot", 0, "Trigger", 1); });
    expectViolation("AutoReboot: LastReboot '");
}

TEST_F(OracleReboot, TriggersWithTheStamp) {
    passUntilDecision("12:10:00");
    ++passes;
    pass([this] { commitCell("AutoReboot", 0, "LastReboot", isoText(machine.time())); });
    expectViolation("Reboot: Trigger 1 was expected");
}

TEST_F(OracleReboot, MayLoseTheStampWhereAnOperationFailed) {
    passUntilDecision("12:10:00");
    ++passes;
    pass([this] {
        ++view.failedOperations;
        disturbed = true;
        commitCell("Reboot", 0, "Trigger", 1);
    });
    steps(3);
    expectQuiet();
}

TEST_F(OracleReboot, OnceASlotThoughTheStampWasLost) {
    passUntilDecision("12:10:00");
    pass([this] {
        ++view.failedOperations;
        disturbed = true;
        commitCell("Reboot", 0, "Trigger", 1);
    });
    change("Reboot", 0, "Trigger", 0);
    for (int i = 0; i < 24; ++i)
        pass(1);
    expectQuiet();
    pass([this] { trigger(); });
    expectViolation("a reboot was triggered twice in one slot");
}

TEST_F(OracleReboot, StaysOnTheWeekDaysThatItHadUntilItIsOff) {
    change("AutoReboot", 0, "WeekDay", 0);
    settle();
    passes += 3;
    change("AutoReboot", 0, "WeekDay", 4);
    passUntilDecision("12:10:00");
    stepWithTrigger(); // on Monday
    expectQuiet();
}

TEST_F(OracleReboot, IsOfNoOtherWeekDay) {
    change("AutoReboot", 0, "WeekDay", 2);
    passUntilDecision("12:10:00");
    step();
    expectQuiet();
    steps(24);
    stepWithTrigger();
    expectViolation("outside its slots");
}

TEST_F(OracleReboot, OutsideItsSlotIsSeenInWhateverTrouble) {
    passUntilDecision("12:05:00");
    disturbed = true;
    stepWithTrigger();
    expectViolation("outside its slots");
}

TEST_F(OracleReboot, IsMissedWhereASlotIsOverWithoutADecision) {
    passUntilDecision("12:09:00");
    step();
    for (int i = 0; i < 21; ++i) // the loop is slower than it should be
        pass(5);
    expectQuiet();
    pass(5);
    expectViolation("a slot of the reboot is over, nothing spoke against it, and it was not triggered");
}

TEST_F(OracleReboot, AtTheEndOfADayHasASlotThatRunsPastMidnight) {
    for (const char* const clock : {"00:00:29", "00:00:30"}) {
        OracleRebootWorld world;
        world.change("AutoReboot", 0, "Time", std::string("23:59:30"));
        world.decideAt(clock, true);
        EXPECT_EQ(world.isQuiet(), clock == std::string("00:00:29")) << clock << ": " << world.text();
    }
}

TEST_F(OracleReboot, InTheHourThatSpringLeavesOutDoesNotHappen) {
    change("AutoReboot", 0, "Time", std::string("2:30"));
    setClock("2026-03-29 01:50:00");
    for (int i = 0; i < 1200; ++i)
        pass();
    expectQuiet();
}

} // namespace
