// How fast a client's own commits may drive its loop, and what the loop then still notices.

#include "cfg/notificationhandler.h"
#include "cfg/pace.h"
#include "unit/cfg/support.h"

#include <chrono>
#include <string>

namespace orv::cfg {

using support::Calls;
using support::CapturedLog;
using support::RecordingHandler;
using support::row;
using velta::protocol::RequestKind;

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned longTime = 10000; // milliseconds; no test waits for its end
constexpr unsigned shortTime = 20;   // milliseconds, waited for in full

// An own commit, and iterations: with a notice after an own commit, with a notice of others, without one.
constexpr char commit = 'c';
constexpr char own = 'o';
constexpr char idle = '.';

void step(Pace& pace, char what) {
    if (what == commit || what == own)
        pace.committed();
    if (what != commit)
        pace.beginIteration(what != idle);
}

std::string repeated(int times, const std::string& text) {
    std::string all;
    for (int i = 0; i < times; ++i)
        all += text;
    return all;
}

} // namespace

TEST(PaceTest, LoopMayWakeUntilItHasDrivenItselfFiftyTimes) {
    struct Case {
        const char* name;
        std::string steps;
        bool mayWake;
    };
    const Case cases[] = {
        {"at first", "", true},
        {"49 own", repeated(49, "o"), true},
        {"50 own", repeated(50, "o"), false},
        {"many own", repeated(5000, "o"), false},
        {"others", repeated(5000, "n"), true},
        {"50 own among those of others", repeated(50, "on"), false},
        {"49 own among those of others", repeated(49, "nno"), true},
        {"rest in between", repeated(49, "o") + "....." + repeated(49, "o"), true},
        {"rest in between, too late", repeated(30, "o") + "....." + repeated(50, "o"), false},
        {"rest at the end", repeated(5000, "o") + ".....", true},
        {"too short a rest", repeated(50, "o") + "....", false},
        {"too short a rest, twice", repeated(50, "o") + "....n....", false},
        {"others after the last", repeated(50, "o") + repeated(50, "n"), false},
        {"at odds with one who is slower", repeated(50, "no."), false},
        {"a commit that is noticed late", repeated(50, "c.n"), false},
    };
    for (const Case& loop : cases) {
        Pace pace;
        for (const char what : loop.steps)
            step(pace, what);
        EXPECT_EQ(pace.mayWake(), loop.mayWake) << loop.name;
    }
}

namespace {

// A loop whose handler commits in each delivery, which the store tells it of.
class DrivenLoopTest : public testing::Test {
protected:
    void SetUp() override {
        server.setTable("A", {row(1, "one")});
        handler.onProcess = [this](RecordingHandler::Client& client) {
            if (commits)
                commit(client);
        };
        notifications.registerConfigHandler(&handler);
        notifications.initialize();
        ASSERT_TRUE(notifications.initialized());
        commits = true;
        for (int i = 0; i < 60; ++i)
            iterate(0);
        calls.clear();
    }

    void commit(RecordingHandler::Client& client) {
        EXPECT_TRUE(client.startTransaction().ok());
        EXPECT_TRUE(client.updateRow("A", "Id", "1", row(1, "two")).ok());
        EXPECT_TRUE(client.closeTransaction().ok());
    }

    void iterate(unsigned wait) {
        server.notify({"A"});
        dispatcher.handleEvents(wait);
        notifications.process();
    }

    Clock::duration timeOfWait(unsigned milliseconds) {
        const Clock::time_point begin = Clock::now();
        dispatcher.handleEvents(milliseconds);
        return Clock::now() - begin;
    }
    // A wait may end a little before its time by the clock that measures it here.
    bool waitIsWhole() { return timeOfWait(shortTime) >= std::chrono::milliseconds(shortTime - 1); }
    bool longWaitEndsEarly() { return timeOfWait(longTime) < std::chrono::milliseconds(longTime); }

    fakes::ScriptedServer server;
    velta::net::EventDispatcher dispatcher;
    Calls calls;
    bool commits = false;
    RecordingHandler handler{calls, "handler", {"A"}};
    NotificationHandler notifications{
        server.socketPath(), dispatcher, support::clientName, true, 5, 500, true, false};
};

const Calls delivery = {"handler reads A", "handler acts"};

} // namespace

TEST_F(DrivenLoopTest, NoticeEndsNoWaitButIsDelivered) {
    server.notify({"A"});
    EXPECT_TRUE(waitIsWhole());
    EXPECT_EQ(calls, Calls());
    notifications.process();
    EXPECT_EQ(calls, delivery);
}

TEST_F(DrivenLoopTest, NoticeWithinAnExchangeEndsNoWaitButIsDelivered) {
    server.notify({"A"});
    unsigned rows = 0;
    EXPECT_TRUE(notifications.getConfigClient().size("A", rows).ok());
    EXPECT_TRUE(waitIsWhole());
    notifications.process();
    EXPECT_EQ(calls, delivery);
}

TEST_F(DrivenLoopTest, WakesAgainOnceItWasAtRest) {
    commits = false;
    for (int i = 0; i < 5; ++i)
        notifications.process();
    server.notify({"A"});
    EXPECT_TRUE(longWaitEndsEarly());
    calls.clear();
    notifications.process();
    EXPECT_EQ(calls, delivery);
}

TEST_F(DrivenLoopTest, LostConnectionIsNoticedAtOnce) {
    const CapturedLog log;
    server.closeClients();
    EXPECT_TRUE(longWaitEndsEarly());
    EXPECT_FALSE(notifications.connected());
    notifications.process();
    EXPECT_TRUE(notifications.connected());
}

} // namespace orv::cfg
