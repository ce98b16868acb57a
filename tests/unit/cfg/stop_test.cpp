// A request to stop: nothing is waited for any more, but a transaction that is open may be finished.

#include "cfg/notificationhandler.h"
#include "orv/stop.h"
#include "unit/cfg/support.h"

#include <chrono>

namespace orv::cfg {

using fakes::ScriptedServer;
using support::Calls;
using support::CapturedLog;
using support::RecordingHandler;
using support::row;
using velta::protocol::EResultCode;
using velta::protocol::Request;
using velta::protocol::RequestKind;
namespace code = velta::protocol::code;

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr unsigned answerTimeout = 60; // seconds; no test waits for its end
constexpr milliseconds atOnce(1500);   // on a loaded machine
constexpr milliseconds timeToFinish(2000);

class StopTest : public testing::Test {
protected:
    void SetUp() override {
        server.setTable("A", {row(1, "one")});
        notifications.stopOn(stop.descriptor());
        notifications.registerConfigHandler(&handler);
        notifications.initialize();
        ASSERT_TRUE(notifications.initialized());
    }

    common::IConfigClient& client() { return notifications.getConfigClient(); }
    EResultCode size() {
        unsigned rows = 0;
        return client().size("A", rows);
    }
    EResultCode write() { return client().writeSingleRow("A", 0, row(1, "two")); }

    // From now on the store is asked to no avail, and the program is to stop as soon as it waits for such an
    // answer.
    void stopInsteadOfAnAnswer(RequestKind kind) {
        server.answer(kind, [this](const Request&) {
            stop.request();
            return std::string();
        });
    }

    milliseconds timeOf(const std::function<void()>& what) {
        const Clock::time_point begin = Clock::now();
        what();
        return std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
    }

    const orv::Stop stop;
    ScriptedServer server;
    velta::net::EventDispatcher dispatcher;
    Calls calls;
    RecordingHandler handler{calls, "handler", {"A"}};
    NotificationHandler notifications{
        server.socketPath(), dispatcher, support::clientName, true, answerTimeout, 500, true, false};
};

} // namespace

TEST_F(StopTest, EndsTheWaitForAnAnswer) {
    stopInsteadOfAnAnswer(RequestKind::ReadTable);
    EXPECT_LT(timeOf([this] { EXPECT_EQ(size().code(), code::stopping); }), atOnce);
}

TEST_F(StopTest, EndsTheWaitForATurn) {
    stopInsteadOfAnAnswer(RequestKind::Begin);
    EXPECT_LT(timeOf([this] { EXPECT_EQ(client().startTransaction().code(), code::stopping); }), atOnce);
}

TEST_F(StopTest, NoTransactionStartsAfterIt) {
    stop.request();
    EXPECT_EQ(client().startTransaction().code(), code::stopping);
    EXPECT_FALSE(client().isTransactionOpen());
    EXPECT_LT(timeOf([this] {
                  for (int attempt = 0; attempt < 200; ++attempt)
                      EXPECT_EQ(client().startTransaction().code(), code::stopping);
              }),
              atOnce);
}

// The store holds the transaction that it granted no longer: the connection is closed.
TEST_F(StopTest, CountsBeforeTheAnswerToAStart) {
    server.answer(RequestKind::Begin, [this](const Request& request) {
        stop.request();
        return server.usualAnswer(request);
    });
    EXPECT_EQ(client().startTransaction().code(), code::stopping);
    EXPECT_FALSE(notifications.connected());
}

TEST_F(StopTest, LetsAnOpenTransactionBeFinished) {
    struct Case {
        const char* name;
        EResultCode (common::IConfigClient::*end)();
        RequestKind kind;
    };
    const Case cases[] = {
        {"commit", &common::IConfigClient::closeTransaction, RequestKind::Commit},
        {"abort", &common::IConfigClient::abortTransaction, RequestKind::Abort},
    };
    for (const Case& transaction : cases) {
        SCOPED_TRACE(transaction.name);
        const orv::Stop own;
        NotificationHandler other(server.socketPath(), dispatcher, "other", true, answerTimeout, 500, true,
                                  false);
        other.stopOn(own.descriptor());
        other.initialize();
        common::IConfigClient& store = other.getConfigClient();
        ASSERT_TRUE(store.startTransaction().ok());
        own.request();
        velta::ValueList values;
        EXPECT_TRUE(store.selectRow("A", 0, values, {}).ok());
        EXPECT_TRUE(store.writeSingleRow("A", 0, row(1, "two")).ok());
        EXPECT_TRUE((store.*transaction.end)().ok());
        EXPECT_EQ(server.count(transaction.kind), 1u);
        EXPECT_EQ(store.startTransaction().code(), code::stopping);
    }
}

TEST_F(StopTest, AnOpenTransactionOfAStoreThatFallsSilentIsGivenUpAfterAShortTime) {
    ASSERT_TRUE(client().startTransaction().ok());
    stopInsteadOfAnAnswer(RequestKind::Commit);
    const milliseconds passed =
        timeOf([this] { EXPECT_EQ(client().closeTransaction().code(), code::stopping); });
    EXPECT_GE(passed, timeToFinish - milliseconds(100));
    EXPECT_LT(passed, timeToFinish + atOnce);
    EXPECT_FALSE(notifications.connected()); // so that the store aborts it
}

// Half of a transaction is never committed.
TEST_F(StopTest, NothingIsCommittedOfATransactionThatWasGivenUp) {
    ASSERT_TRUE(client().startTransaction().ok());
    stopInsteadOfAnAnswer(RequestKind::WriteSingle);
    EXPECT_EQ(write().code(), code::stopping);
    EXPECT_FALSE(write().ok());
    EXPECT_FALSE(client().closeTransaction().ok());
    EXPECT_EQ(server.count(RequestKind::Commit), 0u);
}

TEST_F(StopTest, EndsTheDispatchersWait) {
    stop.request();
    EXPECT_LT(timeOf([this] { dispatcher.handleEvents(10000); }), atOnce);
}

TEST_F(StopTest, NothingConnectsAfterIt) {
    const CapturedLog log;
    server.closeClients();
    dispatcher.handleEvents(5000);
    ASSERT_FALSE(notifications.connected());
    const std::size_t greetings = server.count(RequestKind::Hello);
    stop.request();
    notifications.process();
    EXPECT_EQ(client().startTransaction().code(), code::stopping);
    EXPECT_EQ(server.count(RequestKind::Hello), greetings);
}

TEST_F(StopTest, EndsTheWaitForAGreeting) {
    NotificationHandler other(server.socketPath(), dispatcher, "other", true, answerTimeout, 500, true,
                              false);
    other.stopOn(stop.descriptor());
    stopInsteadOfAnAnswer(RequestKind::Hello);
    EXPECT_LT(timeOf([&] { other.initialize(); }), atOnce);
    EXPECT_FALSE(other.initialized());
}

TEST_F(StopTest, IsNoWarning) {
    const CapturedLog log;
    stopInsteadOfAnAnswer(RequestKind::ReadTable);
    EXPECT_EQ(size().code(), code::stopping);
    EXPECT_EQ(log.lines(), 0) << log.text();
}

TEST_F(StopTest, DispatcherForgetsTheDescriptorWithTheClient) {
    {
        const orv::Stop own;
        NotificationHandler other(server.socketPath(), dispatcher, "other", true, answerTimeout, 500, true,
                                  false);
        other.stopOn(own.descriptor());
        own.request();
    }
    EXPECT_GE(timeOf([this] { dispatcher.handleEvents(20); }), milliseconds(19));
}

} // namespace orv::cfg
