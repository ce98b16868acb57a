// The decision alone: each state in each situation.

#include "handlers/rebootdecision.h"
#include "log.h"
#include "support/capturedlog.h"

#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using orv::horad::Log;
using orv::horad::Logger;
using orv::horad::obstacleOfReboot;
using orv::horad::RebootDecision;
using orv::horad::RebootObstacle;
using orv::horad::RebootSituation;
using orv::horad::RebootState;

using Lines = std::vector<std::string>;

constexpr std::time_t now = 1704079810; // seconds since the epoch
constexpr auto noState = static_cast<RebootState>(5);
constexpr RebootState states[] = {RebootState::Idle,      RebootState::Due,       RebootState::WaitingForIdle,
                                  RebootState::Triggered, RebootState::Postponed, noState};

struct Situation : RebootSituation {
    explicit Situation(bool lineIsIdle, bool rebootIsAllowed) : idle(lineIsIdle), allowed(rebootIsAllowed) {}

    bool isIdle() override {
        asked.emplace_back("idle");
        return idle;
    }
    bool isRebootAllowed() override {
        asked.emplace_back("allowed");
        return allowed;
    }

    bool idle;
    bool allowed;
    Lines asked;
};

class RebootDecisionAlone : public testing::Test {
protected:
    RebootDecisionAlone() { Logger::instance().setVerbose(true); }
    ~RebootDecisionAlone() override { Logger::instance().setVerbose(false); }

    fakes::CapturedLog captured_;
    Log log_{"horad", "reboothandler"};
};

TEST_F(RebootDecisionAlone, StartsIdle) {
    EXPECT_EQ(RebootDecision().state, RebootState::Idle);
}

TEST_F(RebootDecisionAlone, TheSlotMakesAnyStateDue) {
    for (const RebootState state : states) {
        const RebootDecision decision = RebootDecision{state, 4711}.inSlot();
        EXPECT_EQ(decision.state, RebootState::Due);
        EXPECT_EQ(decision.waitStart, 4711);
    }
}

struct Transition {
    RebootState from;
    bool idle;
    bool allowed;
    std::time_t waited; // seconds
    RebootState to;
    Lines asked;
    Lines log;
};

const Lines nothing;
const Lines line = {"idle"};
const Lines all = {"idle", "allowed"};
const Lines busyLine = {"info horad: System is not idle => try reboot later."};
const Lines refused = {"debug horad: System is idle, continue with auto reboot."};
const Lines refusedLate = {"debug horad: System is now idle, continue with auto reboot."};
const Lines passed = {"debug horad: System is idle, continue with auto reboot.",
                      "debug horad: Reboot allowed, continue with auto reboot."};
const Lines passedLate = {"debug horad: System is now idle, continue with auto reboot.",
                          "debug horad: Reboot allowed, continue with auto reboot."};
const Lines postponed = {
    "debug horad: System is still not idle => try reboot later.",
    "info horad: System never became idle, postpone auto reboot to next scheduled time."};

Lines stillWaiting(const std::string& seconds) {
    return {"debug horad: System is still not idle => try reboot later.",
            "debug horad: Still waiting for system idle, waited " + seconds + " seconds so far."};
}

constexpr auto idle = RebootState::Idle;
constexpr auto due = RebootState::Due;
constexpr auto waiting = RebootState::WaitingForIdle;
constexpr auto triggered = RebootState::Triggered;
constexpr auto late = RebootState::Postponed;

const Transition transitions[] = {
    {idle, true, true, 0, idle, nothing, {}},
    {idle, false, true, 0, idle, nothing, {}},
    {triggered, true, true, 0, triggered, nothing, {}},
    {triggered, false, false, 0, triggered, nothing, {}},
    {late, true, true, 5000, late, nothing, {}},
    {late, false, true, 5000, late, nothing, {}},
    {noState, true, true, 0, noState, nothing, {"error horad: Invalid state"}},
    {noState, false, true, 0, noState, nothing, {"error horad: Invalid state"}},
    {due, true, true, 0, due, all, passed},
    {due, true, false, 0, idle, all, refused},
    {due, false, true, 0, waiting, line, busyLine},
    {waiting, true, true, 0, due, all, passedLate},
    {waiting, true, true, 20000, due, all, passedLate},
    {waiting, true, true, -3600, due, all, passedLate},
    {waiting, true, false, 100, idle, all, refusedLate},
    {waiting, false, true, -7200, waiting, line, stillWaiting("-7200")},
    {waiting, false, true, 0, waiting, line, stillWaiting("0")},
    {waiting, false, true, 3600, waiting, line, stillWaiting("3600")},
    {waiting, false, true, 3601, late, line, postponed},
};

TEST_F(RebootDecisionAlone, GoesFromStateToStateAndAsksOnlyWhatItNeeds) {
    for (const Transition& given : transitions) {
        SCOPED_TRACE(testing::Message()
                     << "from " << static_cast<unsigned>(given.from) << ", idle " << given.idle
                     << ", allowed " << given.allowed << ", waited " << given.waited);
        captured_.clear();
        Situation situation(given.idle, given.allowed);
        const RebootDecision before{given.from, now - given.waited};

        const RebootDecision after = before.next(now, situation, log_);

        EXPECT_EQ(after.state, given.to);
        EXPECT_EQ(situation.asked, given.asked);
        EXPECT_EQ(captured_.lines(), given.log);
        const bool beginsToWait = given.from == due && given.to == waiting;
        EXPECT_EQ(after.waitStart, beginsToWait ? now : before.waitStart);
    }
}

struct Runtime {
    unsigned uptime;                          // seconds
    std::optional<std::time_t> sinceLastTime; // seconds
    std::uint32_t minimum;
    RebootObstacle obstacle;
};

const Runtime runtimes[] = {
    {5400, {}, 5400, RebootObstacle::None},
    {5399, {}, 5400, RebootObstacle::UptimeTooShort},
    {0, {}, 0, RebootObstacle::None},
    {0xFFFFFFFE, {}, 0xFFFFFFFF, RebootObstacle::UptimeTooShort},
    {5399, 5400, 5400, RebootObstacle::UptimeTooShort}, // it is asked first
    {5400, 5401, 5400, RebootObstacle::None},
    {5400, 5400, 5400, RebootObstacle::LastRebootTooRecent},
    {5400, 1, 5400, RebootObstacle::LastRebootTooRecent},
    {5400, 0, 5400, RebootObstacle::None},  // no time has passed
    {5400, -1, 5400, RebootObstacle::None}, // in the future
    {5400, now, 5400, RebootObstacle::None},
    {0, 1, 0, RebootObstacle::None},
};

TEST(RebootObstacle, TheUptimeAndTheTimeSinceTheLastRebootHaveTheSameMinimum) {
    for (const Runtime& given : runtimes) {
        std::optional<std::time_t> last;
        if (given.sinceLastTime)
            last = now - *given.sinceLastTime;
        EXPECT_EQ(obstacleOfReboot(given.uptime, now, last, given.minimum), given.obstacle)
            << "case " << (&given - runtimes);
    }
}

} // namespace
