// Whether a pass triggers: the state machine, and what it asks.

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

// The handler's private members, to begin in any state.
template <typename Field, auto Member>
struct Reach {
    friend typename Field::Type& reach(RebootHandler& handler, Field) { return handler.*Member; }
};
struct State {
    using Type = RebootState;
    friend Type& reach(RebootHandler&, State);
};
struct WaitStart {
    using Type = std::time_t;
    friend Type& reach(RebootHandler&, WaitStart);
};
template struct Reach<State, &RebootHandler::state_>;
template struct Reach<WaitStart, &RebootHandler::waitStart_>;

RebootState stateOf(RebootHandler& handler) {
    return reach(handler, State());
}

constexpr auto noState = static_cast<RebootState>(5);
constexpr RebootState states[] = {RebootState::Idle,      RebootState::Due,       RebootState::WaitingForIdle,
                                  RebootState::Triggered, RebootState::Postponed, noState};

class RebootDecision : public RebootFixture {
protected:
    RebootDecision() { (void)read(handler_); }

    // Has the handler wait for an idle system since that time.
    void beginToWait(RebootHandler& handler, std::time_t since = insideSlot) {
        setBusy(true);
        EXPECT_EQ(passAt(handler, since), refused(since, {busy}));
    }

    void beginIn(RebootState state, RebootHandler& handler, std::time_t waitStart = insideSlot) {
        reach(handler, State()) = state;
        reach(handler, WaitStart()) = waitStart;
    }

    bool reads(const RebootSettings& settings) { return read(handler_, settings); }
};

// The transitions, one after the other.

TEST_F(RebootDecision, InsideTheSlotAnIdleSystemTriggersInAnyState) {
    for (const RebootState from : states) {
        SCOPED_TRACE(static_cast<unsigned>(from));
        RebootHandler handler;
        ASSERT_TRUE(read(handler, RebootSettings()));
        beginIn(from, handler);
        EXPECT_EQ(passAt(handler, insideSlot), triggered(insideSlot));
        EXPECT_EQ(stateOf(handler), RebootState::Triggered);
        EXPECT_EQ(store_.number("Reboot", 0, "Trigger"), 1);
    }
}

TEST_F(RebootDecision, InsideTheSlotABusySystemIsWaitedForInAnyState) {
    setBusy(true);
    for (const RebootState from : states) {
        SCOPED_TRACE(static_cast<unsigned>(from));
        RebootHandler handler;
        ASSERT_TRUE(read(handler, RebootSettings()));
        beginIn(from, handler, insideSlot - 5000);
        EXPECT_EQ(passAt(handler, insideSlot), refused(insideSlot, {busy}));
        EXPECT_EQ(stateOf(handler), RebootState::WaitingForIdle);
        EXPECT_EQ(reach(handler, WaitStart()), insideSlot);
        EXPECT_THAT(store_.journal(), IsEmpty());
    }
}

TEST_F(RebootDecision, InsideTheSlotARebootThatIsNotAllowedMakesAnyStateIdle) {
    uptime_.set(5399);
    for (const RebootState from : states) {
        SCOPED_TRACE(static_cast<unsigned>(from));
        beginIn(from, handler_);
        EXPECT_EQ(passAt(handler_, insideSlot), refused(insideSlot, {idle, uptimeOnly(5399)}));
        EXPECT_EQ(stateOf(handler_), RebootState::Idle);
        EXPECT_THAT(store_.journal(), IsEmpty());
    }
}

struct Transition {
    RebootState from;
    bool busy;
    unsigned uptime;
    std::time_t waited; // seconds
    RebootState to;
    Lines decision;
};

const Transition outside[] = {
    {RebootState::Idle, false, longUptime, 0, RebootState::Idle, {}},
    {RebootState::Idle, true, longUptime, 0, RebootState::Idle, {}},
    {RebootState::Triggered, false, longUptime, 0, RebootState::Triggered, {}},
    {RebootState::Triggered, true, longUptime, 0, RebootState::Triggered, {}},
    {RebootState::Triggered, false, 0, 0, RebootState::Triggered, {}},
    {RebootState::Postponed, false, longUptime, 5000, RebootState::Postponed, {}},
    {RebootState::Postponed, true, longUptime, 5000, RebootState::Postponed, {}},
    {noState, false, longUptime, 0, noState, {"error horad: Invalid state"}},
    {noState, true, longUptime, 0, noState, {"error horad: Invalid state"}},
    {RebootState::WaitingForIdle,
     false,
     5399,
     100,
     RebootState::Idle,
     {"debug horad: System is now idle, continue with auto reboot.",
      "debug horad: Uptime is only 5399 seconds, skipping reboot."}},
    {RebootState::WaitingForIdle,
     true,
     0,
     100,
     RebootState::WaitingForIdle,
     {"debug horad: System is still not idle => try reboot later.",
      "debug horad: Still waiting for system idle, waited 100 seconds so far."}},
    {RebootState::WaitingForIdle,
     true,
     0,
     3600,
     RebootState::WaitingForIdle,
     {"debug horad: System is still not idle => try reboot later.",
      "debug horad: Still waiting for system idle, waited 3600 seconds so far."}},
    {RebootState::WaitingForIdle,
     true,
     0,
     3601,
     RebootState::Postponed,
     {"debug horad: System is still not idle => try reboot later.",
      "info horad: System never became idle, postpone auto reboot to next scheduled time."}},
    // what a pass leaves behind that could not read the number of calls
    {RebootState::Due,
     false,
     5399,
     0,
     RebootState::Idle,
     {"debug horad: System is idle, continue with auto reboot.",
      "debug horad: Uptime is only 5399 seconds, skipping reboot."}},
    {RebootState::Due,
     true,
     longUptime,
     0,
     RebootState::WaitingForIdle,
     {"info horad: System is not idle => try reboot later."}},
};

TEST_F(RebootDecision, OutsideTheSlotOnlyAnIdleSystemThatWasWaitedForMattersAnyMore) {
    for (const Transition& given : outside) {
        SCOPED_TRACE(testing::Message() << "from " << static_cast<unsigned>(given.from) << ", busy "
                                        << given.busy << ", waited " << given.waited);
        beginIn(given.from, handler_, outsideSlot - given.waited);
        setBusy(given.busy);
        uptime_.set(given.uptime);
        EXPECT_EQ(passAt(handler_, outsideSlot), refused(outsideSlot, given.decision));
        EXPECT_EQ(stateOf(handler_), given.to);
        EXPECT_THAT(store_.journal(), IsEmpty());
    }
}

TEST_F(RebootDecision, OutsideTheSlotAnIdleSystemThatWasWaitedForTriggers) {
    for (const std::time_t waiting : {0, 50, 3000, 3600, 3601, 20000, -3600}) {
        SCOPED_TRACE(waiting);
        RebootHandler handler;
        ASSERT_TRUE(read(handler, RebootSettings()));
        beginIn(RebootState::WaitingForIdle, handler, outsideSlot - waiting);
        EXPECT_EQ(passAt(handler, outsideSlot), triggered(outsideSlot, nowIdle));
        EXPECT_EQ(stateOf(handler), RebootState::Triggered);
    }
}

// The same by passes alone.

TEST_F(RebootDecision, SwitchedOffItAsksNothing) {
    ASSERT_TRUE(reads(RebootSettings().enable(0)));
    kernel_.setCalls("none"); // that can't be read
    EXPECT_EQ(pass(handler_),
              (Lines{"debug horad: process", "debug horad: Auto reboot is disabled, skipping process."}));
    EXPECT_THAT(store_.journal(), IsEmpty());
}

TEST_F(RebootDecision, IdleAgainWithinTheHourItTriggersLongAfterTheSlot) {
    beginToWait(handler_);
    const std::time_t later = insideSlot + 3000;
    EXPECT_EQ(passAt(handler_, later - 50), refused(later - 50, {stillBusy, waited("2950")}));
    EXPECT_THAT(store_.writes(), IsEmpty());

    setBusy(false);

    EXPECT_EQ(passAt(handler_, later), triggered(later, nowIdle));
}

TEST_F(RebootDecision, BusyForMoreThanAnHourItWaitsForTheNextSlot) {
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

TEST_F(RebootDecision, APassInTheSlotBeginsTheWaitingAnew) {
    beginToWait(handler_, slotBegin);
    EXPECT_EQ(passAt(handler_, slotEnd), refused(slotEnd, {busy}));

    EXPECT_EQ(passAt(handler_, slotEnd + 3600), refused(slotEnd + 3600, {stillBusy, waited("3600")}));
    EXPECT_EQ(passAt(handler_, slotEnd + 3601), refused(slotEnd + 3601, {stillBusy, postponed}));
}

TEST_F(RebootDecision, APassInTheSlotTakesAnIdleSystemAsIfItHadNotWaited) {
    beginToWait(handler_, slotBegin);
    setBusy(false);
    EXPECT_EQ(passAt(handler_, slotEnd), triggered(slotEnd));
}

TEST_F(RebootDecision, AClockThatIsSetBackWaitsLonger) {
    beginToWait(handler_);
    const std::time_t before = insideSlot - 7200;
    EXPECT_EQ(passAt(handler_, before), refused(before, {stillBusy, waited("-7200")}));
    EXPECT_EQ(passAt(handler_, outsideSlot), refused(outsideSlot, {stillBusy, postponed}));
}

TEST_F(RebootDecision, WhoWaitedStillHasToBeAllowed) {
    beginToWait(handler_);
    setBusy(false);
    uptime_.set(100);

    EXPECT_EQ(passAt(handler_, insideSlot + 100), refused(insideSlot + 100, {nowIdle, uptimeOnly(100)}));

    uptime_.set(longUptime);
    EXPECT_EQ(passAt(handler_, insideSlot + 150), refused(insideSlot + 150)); // it does not wait any more
    EXPECT_EQ(passAt(handler_, nextSlot), triggered(nextSlot));
}

TEST_F(RebootDecision, ASecondPassInTheSameSlotIsRefusedByTheLastReboot) {
    ASSERT_EQ(passAt(handler_, slotBegin), triggered(slotBegin));
    EXPECT_EQ(passAt(handler_, slotBegin + 50), refused(slotBegin + 50, {idle, lastRebootOnly(50)}));
    EXPECT_EQ(store_.writes(), Lines{});
    EXPECT_EQ(passAt(handler_, outsideSlot), refused(outsideSlot));
    EXPECT_EQ(passAt(handler_, nextSlot), triggered(nextSlot));
}

TEST_F(RebootDecision, ASecondPassInTheSameSlotIsRefusedByTheUptimeOnceTheRouterRebooted) {
    ASSERT_EQ(passAt(handler_, slotBegin), triggered(slotBegin));
    uptime_.set(30);
    EXPECT_EQ(passAt(handler_, slotBegin + 50), refused(slotBegin + 50, {idle, uptimeOnly(30)}));
}

TEST_F(RebootDecision, EachDayOfTheWeekHasOneReboot) {
    for (std::time_t slot = slotBegin; slot < slotBegin + 7 * secondsADay; slot += secondsADay) {
        int triggers = 0;
        for (std::time_t now = slot - 200; now < slot + 200; now += 50)
            triggers += triggersAt(handler_, now) ? 1 : 0;
        EXPECT_EQ(triggers, 1) << slot;
    }
}

TEST_F(RebootDecision, SwitchedOffWhileItWaitsItGoesOnWhereItWas) {
    beginToWait(handler_);
    ASSERT_TRUE(reads(RebootSettings().enable(0)));
    setBusy(false);
    EXPECT_FALSE(triggersAt(handler_, insideSlot + 100));
    ASSERT_TRUE(reads(RebootSettings()));
    EXPECT_EQ(passAt(handler_, insideSlot + 4000), triggered(insideSlot + 4000, nowIdle));
}

TEST_F(RebootDecision, AReadingLeavesTheStateAsItIs) {
    for (const RebootState state : states) {
        SCOPED_TRACE(static_cast<unsigned>(state));
        beginIn(state, handler_, 4711);
        for (const char* table : {"", "AutoReboot"}) {
            ASSERT_TRUE(read(handler_, table));
            EXPECT_EQ(stateOf(handler_), state);
            EXPECT_EQ(reach(handler_, WaitStart()), 4711);
        }
    }
}

TEST_F(RebootDecision, ANewTimeWhileItWaitsDoesNotEndTheWaiting) {
    beginToWait(handler_);
    ASSERT_TRUE(reads(RebootSettings().time("12:00:00")));
    setBusy(false);
    EXPECT_EQ(passAt(handler_, insideSlot + 3000), triggered(insideSlot + 3000, nowIdle));
}

// What is asked: calls, uptime, last reboot.

TEST_F(RebootDecision, ACallHoldsTheRebootAndAStreamDoesNot) {
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

TEST_F(RebootDecision, ANumberOfCallsThatCantBeReadEndsThePassAndTheNextOneAsksAgain) {
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

TEST_F(RebootDecision, ANumberOfCallsThatCantBeReadLeavesTheWaitingAsItIs) {
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

TEST_F(RebootDecision, TheUptimeHasToReachTheMinimum) {
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

TEST_F(RebootDecision, AnUptimeThatIsNotToBeHadIsZero) {
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

TEST_F(RebootDecision, TheLastRebootHasToBeLongerAgoThanTheMinimum) {
    for (const LastRebootCase& given : lastRebootCases) {
        SCOPED_TRACE(testing::Message() << "'" << given.text << "', minimum " << given.minimumRuntime);
        RebootHandler handler;
        ASSERT_TRUE(
            read(handler, RebootSettings().lastReboot(given.text).minimumRuntime(given.minimumRuntime)));
        EXPECT_EQ(passAt(handler, insideSlot),
                  given.blocked == 0 ? triggered(insideSlot)
                                     : refused(insideSlot, {idle, lastRebootOnly(given.blocked)}));
        EXPECT_EQ(stateOf(handler), given.blocked == 0 ? RebootState::Triggered : RebootState::Idle);
    }
}

TEST_F(RebootDecision, TheUptimeIsAskedBeforeTheLastReboot) {
    ASSERT_TRUE(reads(RebootSettings().lastReboot("2024-01-01T03:30:09+0000")));
    uptime_.set(5399);
    EXPECT_EQ(pass(handler_), refused(insideSlot, {idle, uptimeOnly(5399)}));
}

TEST_F(RebootDecision, TheGreatestMinimumCountsUnsigned) {
    ASSERT_TRUE(reads(RebootSettings().minimumRuntime(-1).lastReboot("1970-01-01T00:00:00+0000")));
    uptime_.set(4294967295);
    EXPECT_EQ(pass(handler_), refused(insideSlot, {idle, lastRebootOnly(static_cast<unsigned>(insideSlot))}));
}

TEST_F(RebootDecision, ATimeZoneThatWasSetMeanwhileCounts) {
    ASSERT_FALSE(triggersAt(handler_, insideSlot - 3600));
    setenv("TZ", "XXX-1", 1); // and nobody calls tzset()
    EXPECT_TRUE(triggersAt(handler_, insideSlot - 3600));
    EXPECT_EQ(log_.lines().back(), "info horad: Trigger auto reboot now at '2024-01-01T03:30:10+0100'");
}

} // namespace
