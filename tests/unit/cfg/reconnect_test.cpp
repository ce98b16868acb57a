#include "cfg/notificationhandler.h"
#include "unit/cfg/support.h"

#include <algorithm>
#include <memory>
#include <utility>

namespace orv::cfg {

using fakes::ScriptedServer;
using support::Calls;
using support::CapturedLog;
using support::RecordingHandler;
using support::row;
using support::until;
using velta::protocol::RequestKind;
namespace code = velta::protocol::code;

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

class ReconnectTest : public testing::Test {
protected:
    void SetUp() override {
        server.setTable("A", {row(1, "one")});
        build(true);
    }

    void build(bool reconnect) {
        notifications = std::make_unique<NotificationHandler>(
            server.socketPath(), dispatcher, support::clientName, reconnect, 5, 500, true, false);
        notifications->registerConfigHandler(&first);
        notifications->registerConfigHandler(&second);
        notifications->initialize();
        ASSERT_TRUE(notifications->initialized());
        calls.clear();
    }

    void lose() {
        server.closeClients();
        dispatcher.handleEvents(5000);
    }

    common::IConfigClient& client() { return notifications->getConfigClient(); }

    bool processUntil(const std::string& call) {
        return until([&] {
            notifications->process();
            return std::find(calls.begin(), calls.end(), call) != calls.end();
        });
    }

    // The first start brings the connection back, and is refused.
    void startUntilConnectedAgain() {
        ASSERT_TRUE(until([&] { return client().startTransaction().code() == code::outdated; }));
    }

    ScriptedServer server;
    velta::net::EventDispatcher dispatcher;
    Calls calls;
    RecordingHandler first{calls, "first", {"A"}};
    RecordingHandler second{calls, "second", {"B"}};
    std::unique_ptr<NotificationHandler> notifications;
};

const Calls everythingAnew = {"first reads everything", "second reads everything", "first acts",
                              "second acts"};

} // namespace

TEST_F(ReconnectTest, LostConnectionFailsEveryOperation) {
    const CapturedLog log;
    lose();
    unsigned rows = 0;
    EXPECT_EQ(client().size("A", rows).code(), code::notConnected);
    EXPECT_EQ(client().writeSingleRow("A", 0, {}).code(), code::notConnected);
    EXPECT_EQ(client().closeTransaction().code(), code::notConnected);
}

TEST_F(ReconnectTest, ProcessConnectsSubscribesAndReadsEverythingAgain) {
    const CapturedLog log;
    lose();
    notifications->process();
    EXPECT_EQ(calls, everythingAnew);
    EXPECT_EQ(server.count(RequestKind::Subscribe), 2u);
    calls.clear();
    server.notify({"A"});
    dispatcher.handleEvents(5000);
    notifications->process();
    EXPECT_EQ(calls, (Calls{"first reads A", "first acts"}));
}

TEST_F(ReconnectTest, LossBehindTheDispatchersBackIsFoundInItsNextRound) {
    const CapturedLog log;
    server.closeClients();
    notifications->process();
    EXPECT_TRUE(calls.empty());

    dispatcher.handleEvents(20000);
    notifications->process();
    EXPECT_EQ(calls, everythingAnew);
}

TEST_F(ReconnectTest, LoopForATransactionInTheFirstDeliveryBringsTheConnectionBack) {
    const CapturedLog log;
    bool started = false;
    second.onProcess = [&](RecordingHandler::Client& store) {
        if (std::exchange(started, true))
            return;
        server.closeClients();
        started = until([&] { return store.startTransaction().ok(); });
        EXPECT_EQ(store.closeTransaction().ok(), started);
    };
    build(true);
    EXPECT_TRUE(started);
    EXPECT_TRUE(processUntil("second reads everything"));
}

TEST_F(ReconnectTest, LossAndReturnAreOneWarningAndOneInfoEachTime) {
    CapturedLog log;
    for (int round = 0; round < 3; ++round) {
        calls.clear();
        lose();
        ASSERT_TRUE(processUntil("second acts"));
    }
    EXPECT_EQ(log.count(" warning client: " + server.socketPath() + ": connection lost"), 3) << log.text();
    EXPECT_EQ(log.count(" info client: Connected to the configuration store again"), 3) << log.text();
    EXPECT_EQ(log.lines(), 6) << log.text();
}

TEST_F(ReconnectTest, StoreThatStaysAwayIsLoggedOnce) {
    CapturedLog log;
    server.stopListening();
    dispatcher.handleEvents(5000);
    const auto end = steady_clock::now() + milliseconds(250);
    until([&] {
        notifications->process();
        return steady_clock::now() > end;
    });
    EXPECT_EQ(calls, Calls());
    server.listenAgain();
    EXPECT_TRUE(processUntil("second acts"));
    EXPECT_EQ(log.warnings(), 1) << log.text();
    EXPECT_EQ(log.lines(), 2) << log.text();
}

TEST_F(ReconnectTest, ConnectingIsTriedEvery100MillisecondsAtMost) {
    const CapturedLog log;
    server.refuse(RequestKind::Hello, code::tooManyClients);
    lose();
    const std::size_t before = server.count(RequestKind::Hello);
    const auto begin = steady_clock::now();
    until([&] {
        notifications->process();
        EXPECT_FALSE(client().startTransaction().ok());
        return steady_clock::now() - begin > milliseconds(350);
    });
    const auto passed = std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin).count();
    const std::size_t attempts = server.count(RequestKind::Hello) - before;
    EXPECT_GE(attempts, 2u);
    EXPECT_LE(attempts, static_cast<std::size_t>(passed / 100 + 1));
}

TEST_F(ReconnectTest, WithoutTheOptionItStaysLost) {
    const CapturedLog log;
    build(false);
    lose();
    calls.clear();
    const std::size_t greetings = server.count(RequestKind::Hello);
    notifications->process();
    EXPECT_EQ(client().startTransaction().code(), code::notConnected);
    EXPECT_EQ(calls, Calls());
    EXPECT_EQ(server.count(RequestKind::Hello), greetings);
}

TEST_F(ReconnectTest, StartOfATransactionConnectsButWaitsForTheReading) {
    const CapturedLog log;
    lose();
    EXPECT_EQ(client().startTransaction().code(), code::outdated);
    EXPECT_EQ(calls, Calls());
    EXPECT_EQ(server.count(RequestKind::Begin), 0u);
    notifications->process();
    EXPECT_EQ(calls, everythingAnew);
    EXPECT_TRUE(client().startTransaction().ok());
}

TEST_F(ReconnectTest, HandlerMayWriteInTheDeliveryAfterTheReturn) {
    const CapturedLog log;
    velta::protocol::EResultCode started = code::failure;
    second.onProcess = [&](RecordingHandler::Client& store) { started = store.startTransaction(); };
    lose();
    notifications->process();
    EXPECT_TRUE(started.ok()) << started.strerror();
}

TEST_F(ReconnectTest, StartGoesThroughForWhoeverKeepsTryingForASecond) {
    const CapturedLog log;
    lose();
    startUntilConnectedAgain();
    const auto begin = steady_clock::now();
    EXPECT_TRUE(until([&] { return client().startTransaction().ok(); }));
    EXPECT_GE(steady_clock::now() - begin, milliseconds(900));
    EXPECT_TRUE(client().isTransactionOpen());
}

TEST_F(ReconnectTest, ReturnWithinADeliveryEndsInAReadingOfEverything) {
    const CapturedLog log;
    first.onChange = [&](RecordingHandler::Client& store, const std::string&) {
        first.onChange = nullptr;
        server.closeClients();
        unsigned rows = 0;
        EXPECT_FALSE(store.size("A", rows).ok());
        EXPECT_EQ(store.startTransaction().code(), code::outdated);
    };
    server.notify({"A", "B"});
    dispatcher.handleEvents(5000);
    notifications->process();
    EXPECT_EQ(calls, (Calls{"first reads A", "second reads B", "second acts"}));
    calls.clear();
    notifications->process();
    EXPECT_EQ(calls, everythingAnew);
}

TEST_F(ReconnectTest, OpenTransactionIsGoneWithTheConnection) {
    const CapturedLog log;
    ASSERT_TRUE(client().startTransaction().ok());
    lose();
    EXPECT_FALSE(client().isTransactionOpen());
}

TEST_F(ReconnectTest, RowsThatWereFetchedAreGoneWithTheConnection) {
    const CapturedLog log;
    unsigned rows = 0;
    ASSERT_TRUE(client().size("A", rows).ok());
    lose();
    server.setTable("A", {row(1, "another")});
    startUntilConnectedAgain();
    velta::ValueList values;
    ASSERT_TRUE(client().selectRow("A", 0, values, {}).ok());
    EXPECT_EQ(values.getValue("Name").getText(), "another");
}

TEST_F(ReconnectTest, FailedReadingGoesIntoTheReadingOfEverything) {
    const CapturedLog log;
    first.onChange = [&](RecordingHandler::Client& store, const std::string&) {
        first.onChange = nullptr;
        server.closeClients();
        unsigned rows = 0;
        EXPECT_FALSE(store.size("A", rows).ok());
    };
    server.notify({"A"});
    dispatcher.handleEvents(5000);
    notifications->process();
    calls.clear();
    notifications->process();
    EXPECT_EQ(calls, everythingAnew);
}

TEST_F(ReconnectTest, FailedActionIsRepeatedAfterTheReturn) {
    const CapturedLog log;
    first.onProcess = [&](RecordingHandler::Client& store) {
        first.onProcess = nullptr;
        server.closeClients();
        EXPECT_FALSE(store.closeTransaction().ok());
    };
    server.notify({"A"});
    dispatcher.handleEvents(5000);
    notifications->process();
    calls.clear();
    notifications->process();
    EXPECT_EQ(calls, everythingAnew);
}

} // namespace orv::cfg
