// Whether a pass triggers, and what it asks: calls, uptime, last reboot.

#include "unit/handlers/rebootfixture.h"

#include <cstdlib>
#include <stdexcept>

#include <gmock/gmock.h>

namespace {

using orv::horad::RebootHandler;
using orv::horad::RebootState;
using testing::ElementsAre;
using testing::IsEmpty;

using Lines = std::vector<std::string>;

class RebootPasses : public RebootFixture {
protected:
    RebootPasses() { (void)read(handler_); }

    // Has the handler wait for an idle system since that time.
    void beginToWait(RebootHandler& handler, std::time_t since = insideSlot) {
        setBusy(true);
        EXPECT_EQ(passAt(handler, since), refused(since, {busy}));
    }

    bool reads(const RebootSettings& settings) { return read(handler_, settings); }
};

TEST_F(RebootPasses, SwitchedOffItAsksNothing) {
    ASSERT_TRUE(reads(RebootSettings().enable(0)));
    kernel_.setCalls("none"); // that can't be read
    EXPECT_EQ(pass(handler_),
              (Lines{"debug horad: process", "debug horad: Auto reboot is disabled, skipping process."}));
    EXPECT_THAT(store_.journal(), IsEmpty());
}

TEST_F(RebootPasses, IdleAgainWithinTheHourItTriggersLongAfterTheSlot) {
    beginToWait(handler_);
    const std::time_t later = insideSlot + 3000;
    EXPECT_EQ(passAt(handler_, later - 50), refused(later - 50, {stillBusy, waited("2950")}));
    EXPECT_THAT(store_.writes(), IsEmpty());

    setBusy(false);

    EXPECT_EQ(passAt(handler_, later), triggered(later, nowIdle));
}

TEST_F(RebootPasses, BusyForMoreThanAnHourItWaitsForTheNextSlot) {
    beginToWait(handler_);
    std::time_t now = insideSlot + 3600;
    EXPECT_EQ(passAt(handler_, now), refused(now, {stillBusy, waited("3600")}));
    ++now;
    EXPECT_EQ(passAt(handler_, now), refused(now, {stillBusy, postponed}));
    setBusy(false);
    for (now += 50; now < slotBegin + secondsADay; now += 600)
        EXPECT_EQ(passAt(handler_, now), refused(now));

    EXPECT_EQ(passAt(handler_, nextSlot), triggered(nextSlot));
}

TEST_F(RebootPasses, APassInTheSlotBeginsTheWaitingAnew) {
    beginToWait(handler_, slotBegin);
    EXPECT_EQ(passAt(handler_, slotEnd), refused(slotEnd, {busy}));

    EXPECT_EQ(passAt(handler_, slotEnd + 3600), refused(slotEnd + 3600, {stillBusy, waited("3600")}));
    EXPECT_EQ(passAt(handler_, slotEnd + 3601), refused(slotEnd + 3601, {stillBusy, postponed}));
}

TEST_F(RebootPasses, APassInTheSlotTakesAnIdleSystemAsIfItHadNotWaited) {
    beginToWait(handler_, slotBegin);
    setBusy(false);
    EXPECT_EQ(passAt(handler_, slotEnd), triggered(slotEnd));
}

TEST_F(RebootPasses, AClockThatIsSetBackWaitsLonger) {
    beginToWait(handler_);
    const std::time_t before = insideSlot - 7200;
    EXPECT_EQ(passAt(handler_, before), refused(before, {stillBusy, waited("-7200")}));
    EXPECT_EQ(passAt(handler_, outsideSlot), refused(outsideSlot, {stillBusy, postponed}));
}

TEST_F(RebootPasses, WhoWaitedStillHasToBeAllowed) {
    beginToWait(handler_);
    setBusy(false);
    uptime_.set(100);

    EXPECT_EQ(passAt(handler_, insideSlot + 100), refused(insideSlot + 100, {nowIdle, uptimeOnly(100)}));

    uptime_.set(longUptime);
    EXPECT_EQ(passAt(handler_, insideSlot + 150), refused(insideSlot + 150)); // it does not wait any more
    EXPECT_EQ(passAt(handler_, nextSlot), triggered(nextSlot));
}

TEST_F(RebootPasses, ASecondPassInTheSameSlotIsRefusedByTheLastReboot) {
    ASSERT_EQ(passAt(handler_, slotBegin), triggered(slotBegin));
    EXPECT_EQ(passAt(handler_, slotBegin + 50), refused(slotBegin + 50, {idle, lastRebootOnly(50)}));
    EXPECT_EQ(store_.writes(), Lines{});
    EXPECT_EQ(passAt(handler_, outsideSlot), refused(outsideSlot));
    EXPECT_EQ(passAt(handler_, nextSlot), triggered(nextSlot));
}

TEST_F(RebootPasses, ASecondPassInTheSameSlotIsRefusedByTheUptimeOnceTheRouterRebooted) {
    ASSERT_EQ(passAt(handler_, slotBegin), triggered(slotBegin));
    uptime_.set(30);
    EXPECT_EQ(passAt(handler_, slotBegin + 50), refused(slotBegin + 50, {idle, uptimeOnly(30)}));
}

TEST_F(RebootPasses, EachDayOfTheWeekHasOneReboot) {
    for (std::time_t slot = slotBegin; slot < slotBegin + 7 * secondsADay; slot += secondsADay) {
        int triggers = 0;
        for (std::time_t now = slot - 200; now < slot + 200; now += 50)
            triggers += triggersAt(handler_, now) ? 1 : 0;
        EXPECT_EQ(triggers, 1) << slot;
    }
}

TEST_F(RebootPasses, SwitchedOffWhileItWaitsItGoesOnWhereItWas) {
    beginToWait(handler_);
    ASSERT_TRUE(reads(RebootSettings().enable(0)));
    setBusy(false);
    EXPECT_FALSE(triggersAt(handler_, insideSlot + 100));
    ASSERT_TRUE(reads(RebootSettings()));
    EXPECT_EQ(passAt(handler_, insideSlot + 4000), triggered(insideSlot + 4000, nowIdle));
}

TEST_F(RebootPasses, AReadingLeavesTheStateAsItIs) {
    beginToWait(handler_);
    for (const char* table : {"", "AutoReboot"}) {
        ASSERT_TRUE(read(handler_, table));
        EXPECT_EQ(handler_.decision().state, RebootState::WaitingForIdle);
        EXPECT_EQ(handler_.decision().waitStart, insideSlot);
    }
}

TEST_F(RebootPasses, ANewTimeWhileItWaitsDoesNotEndTheWaiting) {
    beginToWait(handler_);
    ASSERT_TRUE(reads(RebootSettings().time("12:00:00")));
    setBusy(false);
    EXPECT_EQ(passAt(handler_, insideSlot + 3000), triggered(insideSlot + 3000, nowIdle));
}

// What is asked: calls, uptime, last reboot.

TEST_F(RebootPasses, ACallHoldsTheRebootAndAStreamDoesNot) {
    struct SystemCase {
        const char* calls;
        bool stream;
        bool triggers;
    };
    const SystemCase cases[] = {
        {"0", false, true}, {"1", false, false}, {"0", true, true}, {"1", true, false}, {"-1", false, false},
    };
    for (const SystemCase& given : cases) {
        SCOPED_TRACE(testing::Message() << "calls " << given.calls << ", stream " << given.stream);
        RebootHandler handler;
        ASSERT_TRUE(read(handler, RebootSettings()));
        kernel_.setCalls(given.calls);
        kernel_.setStream(given.stream);
        EXPECT_EQ(triggersAt(handler, insideSlot), given.triggers);
    }
}

TEST_F(RebootPasses, ANumberOfCallsThatCantBeReadEndsThePassAndTheNextOneAsksAgain) {
    kernel_.setCalls("");
    EXPECT_EQ(passAt(handler_, slotBegin - 1), refused(slotBegin - 1)); // nobody asks before the slot
    clock_.set(insideSlot);
    EXPECT_THROW(pass(handler_), std::invalid_argument);
    EXPECT_THAT(log_.lines(), ElementsAre("debug horad: process"));
    kernel_.setCalls("99999999999999999999");
    EXPECT_THROW(pass(handler_), std::out_of_range);
    EXPECT_THAT(store_.journal(), IsEmpty());

    kernel_.setCalls("0");

    EXPECT_EQ(passAt(handler_, outsideSlot), triggered(outsideSlot));
}

TEST_F(RebootPasses, ANumberOfCallsThatCantBeReadLeavesTheWaitingAsItIs) {
    beginToWait(handler_);
    kernel_.setCalls("none");
    clock_.set(insideSlot + 100);
    EXPECT_THROW(pass(handler_), std::invalid_argument);
    setBusy(true);
    EXPECT_EQ(passAt(handler_, insideSlot + 150), refused(insideSlot + 150, {stillBusy, waited("150")}));
}

struct UptimeCase {
    int minimumRuntime;
    unsigned uptime;
    bool triggers;
};

const UptimeCase uptimeCases[] = {{5400, 0, false},
                                  {5400, 5399, false},
                                  {5400, 5400, true},
                                  {5400, 5401, true},
                                  {5400, 2147483647, true},
                                  {0, 0, true},
                                  {0, 1, true},
                                  {1, 0, false},
                                  {1, 1, true},
                                  {-1, 5400, false},
                                  {-1, 2147483647, false},
                                  {-1, 4294967294, false}, // 4294967295 as unsigned
                                  {-1, 4294967295, true},
                                  {-2147483647 - 1, 1, false}};

TEST_F(RebootPasses, TheUptimeHasToReachTheMinimum) {
    for (const UptimeCase& given : uptimeCases) {
        SCOPED_TRACE(testing::Message() << "minimum " << given.minimumRuntime << ", uptime " << given.uptime);
        RebootHandler handler;
        ASSERT_TRUE(read(handler, RebootSettings().minimumRuntime(given.minimumRuntime)));
        uptime_.set(given.uptime);
        EXPECT_EQ(passAt(handler, insideSlot), given.triggers
                                                   ? triggered(insideSlot)
                                                   : refused(insideSlot, {idle, uptimeOnly(given.uptime)}));
    }
}

TEST_F(RebootPasses, AnUptimeThatIsNotToBeHadIsZero) {
    uptime_.fail();
    EXPECT_EQ(pass(handler_), refused(insideSlot, {idle, uptimeOnly(0)}));

    ASSERT_TRUE(reads(RebootSettings().minimumRuntime(0)));
    EXPECT_EQ(pass(handler_), triggered(insideSlot));

    ASSERT_TRUE(reads(RebootSettings()));
    uptime_.fail(false);
    EXPECT_EQ(passAt(handler_, nextSlot), triggered(nextSlot));
}

struct LastRebootCase {
    const char* text; // the pass is at 2024-01-01T03:30:10+0000
    int minimumRuntime;
    unsigned blocked; // by so many seconds, or not
};

const LastRebootCase lastRebootCases[] = {
    {"2024-01-01T02:00:10+0000", 5400, 5400},
    {"2024-01-01T02:00:09+0000", 5400, 0},
    {"2024-01-01T03:30:09+0000", 5400, 1},
    {"2024-01-01T02:45:00+0000", 5400, 2710},
    {"2023-12-31T03:30:10+0000", 5400, 0},
    {"1970-01-01T00:00:00+0000", 5400, 0},
    // now and in the future
    {"2024-01-01T03:30:10+0000", 5400, 0},
    {"2024-01-01T03:30:11+0000", 5400, 0},
    {"2024-01-01T04:30:10+0000", 5400, 0},
    {"2099-01-01T00:00:00+0000", 5400, 0},
    // other minima
    {"2024-01-01T03:30:00+0000", 10, 10},
    {"2024-01-01T03:29:59+0000", 10, 0},
    {"2024-01-01T03:30:09+0000", 1, 1},
    {"2024-01-01T03:30:09+0000", 0, 0},
    {"2024-01-01T03:30:10+0000", 0, 0},
    // what can't be read
    {"", 5400, 0},
    {" ", 5400, 0},
    {"yesterday", 5400, 0},
    {"2024-01-01", 5400, 0},
    {"2024-01-01T03:29", 5400, 0},
    {"2024-01-01T03:29:00", 5400, 0},
    {"2024-01-01 03:29:00+0000", 5400, 0},
    {"2024-13-01T03:29:00+0000", 5400, 0},
    {"01.01.2024T03:29:00+0000", 5400, 0},
    {"1704079740", 5400, 0},
};

TEST_F(RebootPasses, TheLastRebootHasToBeLongerAgoThanTheMinimum) {
    for (const LastRebootCase& given : lastRebootCases) {
        SCOPED_TRACE(testing::Message() << "'" << given.text << "', minimum " << given.minimumRuntime);
        RebootHandler handler;
        ASSERT_TRUE(
            read(handler, RebootSettings().lastReboot(given.text).minimumRuntime(given.minimumRuntime)));
        EXPECT_EQ(passAt(handler, insideSlot),
                  given.blocked == 0 ? triggered(insideSlot)
                                     : refused(insideSlot, {idle, lastRebootOnly(given.blocked)}));
        EXPECT_EQ(handler.decision().state, given.blocked == 0 ? RebootState::Triggered : RebootState::Idle);
    }
}

TEST_F(RebootPasses, TheUptimeIsAskedBeforeTheLastReboot) {
    ASSERT_TRUE(reads(RebootSettings().lastReboot("2024-01-01T03:30:09+0000")));
    uptime_.set(5399);
    EXPECT_EQ(pass(handler_), refused(insideSlot, {idle, uptimeOnly(5399)}));
}

TEST_F(RebootPasses, TheGreatestMinimumCountsUnsigned) {
    ASSERT_TRUE(reads(RebootSettings().minimumRuntime(-1).lastReboot("1970-01-01T00:00:00+0000")));
    uptime_.set(4294967295);
    EXPECT_EQ(pass(handler_), refused(insideSlot, {idle, lastRebootOnly(static_cast<unsigned>(insideSlot))}));
}

TEST_F(RebootPasses, ATimeZoneThatWasSetMeanwhileCounts) {
    ASSERT_FALSE(triggersAt(handler_, insideSlot - 3600));
    setenv("TZ", "XXX-1", 1); // and nobody calls tzset()
    EXPECT_TRUE(triggersAt(handler_, insideSlot - 3600));
    EXPECT_EQ(log_.lines().back(), "info horad: Trigger auto reboot now at '2024-01-01T03:30:10+0100'");
}

} // namespace
