// What fails for long, and what does not answer: neither may flood the log nor hold the daemon up again and
// again.

#include "cfg/notificationhandler.h"
#include "unit/cfg/support.h"

#include <algorithm>

namespace orv::cfg {

using fakes::ScriptedServer;
using support::Calls;
using support::RecordingHandler;
using support::row;
using velta::protocol::RequestKind;
namespace code = velta::protocol::code;

namespace {

class PatienceTest : public testing::Test {
protected:
    void SetUp() override {
        server.setTable("A", {row(1, "one")});
        notifications.registerConfigHandler(&handler);
        notifications.initialize();
        ASSERT_TRUE(notifications.initialized());
        calls.clear();
    }

    void readingsFail() {
        handler.onChange = [](RecordingHandler::Client& client, const std::string&) {
            unsigned rows = 0;
            EXPECT_EQ(client.size("Missing", rows).code(), code::unknownTable);
        };
    }

    void notify() {
        server.notify({"A"});
        dispatcher.handleEvents(5000);
    }

    long readingsIn(int deliveries) {
        calls.clear();
        for (int i = 0; i < deliveries; ++i)
            notifications.process();
        return std::count(calls.begin(), calls.end(), "handler reads A");
    }

    ScriptedServer server;
    velta::net::EventDispatcher dispatcher;
    Calls calls;
    RecordingHandler handler{calls, "handler", {"A"}};
    NotificationHandler notifications{
        server.socketPath(), dispatcher, support::clientName, true, 1, 500, true, false};
};

} // namespace

TEST_F(PatienceTest, ReadingThatKeepsFailingIsTriedTenTimesInARowAndThenNowAndAgain) {
    readingsFail();
    notify();
    EXPECT_EQ(readingsIn(10), 10);
    EXPECT_EQ(readingsIn(29), 0);
    EXPECT_EQ(readingsIn(1), 1);
    EXPECT_EQ(readingsIn(60), 2);
}

TEST_F(PatienceTest, HandlerDoesNotActWhileItsReadingRests) {
    readingsFail();
    notify();
    (void)readingsIn(15);
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "handler acts"), 0);
}

TEST_F(PatienceTest, ChangeEndsTheRestOfAFailedReading) {
    readingsFail();
    notify();
    (void)readingsIn(15);
    handler.onChange = nullptr;
    notify();
    EXPECT_EQ(readingsIn(1), 1);
    EXPECT_EQ(calls, (Calls{"handler reads A", "handler acts"}));
}

TEST_F(PatienceTest, StoreThatDoesNotAnswerIsNotAskedAgainInTheSameBreath) {
    server.neverAnswer(RequestKind::Begin);
    const std::size_t greetings = server.count(RequestKind::Hello);

    EXPECT_EQ(notifications.getConfigClient().startTransaction().code(), code::timedOut);
    EXPECT_EQ(notifications.getConfigClient().startTransaction().code(), code::notConnected);

    EXPECT_EQ(server.count(RequestKind::Hello), greetings);
}

// Each greeting would hold up the caller's loop for the whole time-out.
TEST_F(PatienceTest, LoopForATransactionGreetsAStoreThatDoesNotAnswerOnceATimeOut) {
    server.neverAnswer(RequestKind::Begin);
    server.neverAnswer(RequestKind::Hello);
    const std::size_t greetings = server.count(RequestKind::Hello);
    EXPECT_EQ(notifications.getConfigClient().startTransaction().code(), code::timedOut);
    const auto begin = std::chrono::steady_clock::now();

    ASSERT_TRUE(support::until([&] {
        (void)notifications.getConfigClient().startTransaction();
        return server.count(RequestKind::Hello) > greetings;
    }));

    EXPECT_GT(std::chrono::steady_clock::now() - begin,
              std::chrono::milliseconds(1900)); // a rest and a time-out
    EXPECT_EQ(server.count(RequestKind::Hello), greetings + 1);
}

// Its time-out is longer than the loop may take: only the connection that was back in between can end the
// rest.
TEST_F(PatienceTest, LoopForATransactionIsServedAtOnceWhereTheConnectionWasBackMeanwhile) {
    NotificationHandler patient(server.socketPath(), dispatcher, support::clientName, true, 2, 500, true,
                                false);
    patient.initialize();
    ASSERT_TRUE(patient.initialized());
    server.neverAnswer(RequestKind::Begin);
    ASSERT_EQ(patient.getConfigClient().startTransaction().code(), code::timedOut);
    ASSERT_TRUE(support::until([&] {
        patient.process();
        return patient.connected();
    }));
    server.closeClients();
    const std::size_t greetings = server.count(RequestKind::Hello);

    EXPECT_TRUE(support::until(
        [&] {
            (void)patient.getConfigClient().startTransaction();
            return server.count(RequestKind::Hello) > greetings;
        },
        std::chrono::milliseconds(1000)));
}

} // namespace orv::cfg
