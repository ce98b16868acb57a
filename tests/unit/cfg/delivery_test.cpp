#include "cfg/notificationhandler.h"
#include "unit/cfg/support.h"

#include <memory>

namespace orv::cfg {

using fakes::ScriptedServer;
using support::Calls;
using support::CapturedLog;
using support::RecordingHandler;
using support::row;
using velta::protocol::Request;
using velta::protocol::RequestKind;
namespace code = velta::protocol::code;

namespace {

class DeliveryTest : public testing::Test {
protected:
    void SetUp() override {
        server.setTable("A", {row(1, "one"), row(2, "two")});
        server.setTable("B", {row(1, "one")});
    }

    void build(bool mergeChanges = true, bool leaveOutOwn = false) {
        notifications = std::make_unique<NotificationHandler>(
            server.socketPath(), dispatcher, support::clientName, true, 5, 500, mergeChanges, leaveOutOwn);
    }

    void initialize(const std::vector<RecordingHandler*>& handlers) {
        for (RecordingHandler* handler : handlers)
            notifications->registerConfigHandler(handler);
        notifications->initialize();
        ASSERT_TRUE(notifications->initialized());
        calls.clear();
    }

    // What process() makes of notices that the dispatcher took in.
    Calls delivered() {
        dispatcher.handleEvents(0);
        return processed();
    }

    Calls processed() {
        calls.clear();
        notifications->process();
        return calls;
    }

    ScriptedServer server;
    velta::net::EventDispatcher dispatcher;
    Calls calls;
    std::unique_ptr<NotificationHandler> notifications;
    RecordingHandler first{calls, "first", {"A", "B"}};
    RecordingHandler second{calls, "second", {"A"}};
    RecordingHandler idle{calls, "idle", {}};
};

// An operation that fails: the table does not exist.
void fail(RecordingHandler::Client& client) {
    unsigned rows = 0;
    EXPECT_EQ(client.size("Missing", rows).code(), code::unknownTable);
}

} // namespace

TEST_F(DeliveryTest, ConstructionDoesNotConnect) {
    build();
    EXPECT_FALSE(notifications->initialized());
    EXPECT_EQ(server.count(RequestKind::Hello), 0u);
}

TEST_F(DeliveryTest, FirstReadingReachesEveryHandlerInOrderThenAllAct) {
    build();
    for (RecordingHandler* handler : {&second, &idle, &first})
        notifications->registerConfigHandler(handler);
    notifications->initialize();
    EXPECT_TRUE(notifications->initialized());
    EXPECT_EQ(calls, (Calls{"second reads everything", "idle reads everything", "first reads everything",
                            "second acts", "idle acts", "first acts"}));
}

TEST_F(DeliveryTest, SubscribesToTheTablesOfAllHandlersOnce) {
    build();
    initialize({&first, &second, &idle});
    EXPECT_EQ(server.last(RequestKind::Subscribe).names, (velta::NameList{"A", "B"}));
    EXPECT_EQ(server.last(RequestKind::Subscribe).number, 0u);
}

TEST_F(DeliveryTest, OwnCommitsAreLeftOutByTheStore) {
    build(true, true);
    initialize({&first});
    EXPECT_EQ(server.last(RequestKind::Subscribe).number, 1u);
}

TEST_F(DeliveryTest, InitializingASecondTimeDoesNothing) {
    build();
    initialize({&first});
    notifications->initialize();
    EXPECT_EQ(calls, Calls());
    EXPECT_EQ(server.count(RequestKind::Hello), 1u);
}

TEST_F(DeliveryTest, ProcessingBeforeInitializingDoesNothing) {
    build();
    notifications->registerConfigHandler(&first);
    EXPECT_EQ(processed(), Calls());
    EXPECT_EQ(server.count(RequestKind::Hello), 0u);
}

TEST_F(DeliveryTest, MissingStoreFailsSilentlyUntilItIsThere) {
    build();
    notifications->registerConfigHandler(&first);
    server.stopListening();
    CapturedLog log;
    notifications->initialize();
    notifications->initialize();
    EXPECT_FALSE(notifications->initialized());
    EXPECT_EQ(calls, Calls());
    server.listenAgain();
    notifications->initialize();
    EXPECT_TRUE(notifications->initialized());
    EXPECT_EQ(calls, (Calls{"first reads everything", "first acts"}));
    EXPECT_EQ(log.text(), "");
}

TEST_F(DeliveryTest, RefusedSubscriptionIsLoggedOnceHoweverOftenItIsTried) {
    build();
    notifications->registerConfigHandler(&first);
    server.refuse(RequestKind::Subscribe, code::unknownTable);
    CapturedLog log;
    for (int attempt = 0; attempt < 5; ++attempt)
        notifications->initialize();
    EXPECT_FALSE(notifications->initialized());
    EXPECT_EQ(log.lines(), 1) << log.text();
    EXPECT_EQ(log.count("unknown table"), 1) << log.text();
}

TEST_F(DeliveryTest, StoreThatBreaksTheFirstReadingIsLoggedOnceHoweverOftenItIsTried) {
    build();
    first.onChange = [](RecordingHandler::Client& client, const std::string&) {
        unsigned rows = 0;
        EXPECT_FALSE(client.size("A", rows).ok());
    };
    notifications->registerConfigHandler(&first);
    server.closeWithin(RequestKind::ReadTable, 9);
    CapturedLog log;
    for (int attempt = 0; attempt < 5; ++attempt)
        notifications->initialize();
    EXPECT_FALSE(notifications->initialized());
    EXPECT_EQ(log.lines(), 1) << log.text();
}

TEST_F(DeliveryTest, NoticeReachesWhoFollowsTheTableAndOnlyThose) {
    build();
    initialize({&first, &second, &idle});
    server.notify({"B"});
    EXPECT_EQ(delivered(), (Calls{"first reads B", "first acts"}));
}

TEST_F(DeliveryTest, TableThatNobodyFollowsReachesNobody) {
    build();
    initialize({&first, &idle});
    server.notify({"C"});
    EXPECT_EQ(delivered(), Calls());
}

TEST_F(DeliveryTest, NoticeOfTwoTablesIsOneDelivery) {
    build();
    initialize({&first, &second});
    server.notify({"A", "B"});
    EXPECT_EQ(delivered(),
              (Calls{"first reads A", "second reads A", "first reads B", "first acts", "second acts"}));
}

TEST_F(DeliveryTest, DeliveryHappensOnce) {
    build();
    initialize({&first});
    server.notify({"A"});
    EXPECT_EQ(delivered(), (Calls{"first reads A", "first acts"}));
    EXPECT_EQ(delivered(), Calls());
}

TEST_F(DeliveryTest, DispatcherOnlyTakesIn) {
    build();
    initialize({&first});
    server.notify({"A"});
    dispatcher.handleEvents(1000);
    EXPECT_EQ(calls, Calls());
    EXPECT_EQ(processed(), (Calls{"first reads A", "first acts"}));
}

TEST_F(DeliveryTest, ChangesOfOneTableAreMerged) {
    build();
    initialize({&first});
    server.notify({"A"});
    server.notify({"A"});
    EXPECT_EQ(delivered(), (Calls{"first reads A", "first acts"}));
}

TEST_F(DeliveryTest, ChangesOfOneTableAreNotMergedWhereThatIsWanted) {
    build(false);
    initialize({&first});
    server.notify({"A"});
    server.notify({"A"});
    EXPECT_EQ(delivered(), (Calls{"first reads A", "first reads A", "first acts"}));
}

TEST_F(DeliveryTest, UnmergedChangesStayBounded) {
    build(false);
    initialize({&first});
    for (int i = 0; i < 10; ++i) {
        server.notify(velta::NameList(500, "A"));
        dispatcher.handleEvents(1000);
    }
    EXPECT_EQ(processed().size(), 1001u); // the readings and the action
}

TEST_F(DeliveryTest, NoticeDuringADeliveryWaitsForTheNext) {
    build();
    initialize({&first});
    first.onChange = [&](RecordingHandler::Client& client, const std::string&) {
        first.onChange = nullptr;
        server.notify({"B"});
        unsigned rows = 0;
        EXPECT_TRUE(client.size("A", rows).ok()); // reads the notice on the way to its answer
    };
    server.notify({"A"});
    EXPECT_EQ(delivered(), (Calls{"first reads A", "first acts"}));
    EXPECT_EQ(processed(), (Calls{"first reads B", "first acts"}));
}

TEST_F(DeliveryTest, NoticeBehindTheAnswerToTheOwnCommitIsDelivered) {
    build();
    initialize({&first});
    server.answer(RequestKind::Commit, [](const Request& request) {
        velta::protocol::Reply notice;
        notice.kind = velta::protocol::ReplyKind::Notice;
        notice.names = {"B"};
        return fakes::frameOf(fakes::replyTo(request)) + fakes::frameOf(notice);
    });
    ASSERT_TRUE(notifications->getConfigClient().closeTransaction().ok());
    EXPECT_EQ(processed(), (Calls{"first reads B", "first acts"}));
}

TEST_F(DeliveryTest, ProcessForgetsTheSnapshots) {
    build();
    initialize({&first});
    common::IConfigClient& client = notifications->getConfigClient();
    unsigned rows = 0;
    ASSERT_TRUE(client.size("A", rows).ok());
    server.setTable("A", {row(1, "changed")});
    velta::ValueList values;
    ASSERT_TRUE(client.selectRow("A", 0, values, {}).ok());
    EXPECT_EQ(values.getValue("Name").getText(), "one");
    notifications->process();
    ASSERT_TRUE(client.selectRow("A", 0, values, {}).ok());
    EXPECT_EQ(values.getValue("Name").getText(), "changed");
}

TEST_F(DeliveryTest, FailedReadingIsRepeatedWithItsTableAndActionWaitsForIt) {
    build();
    initialize({&first});
    int failuresLeft = 2;
    first.onChange = [&](RecordingHandler::Client& client, const std::string&) {
        if (failuresLeft-- > 0)
            fail(client);
    };
    server.notify({"B"});
    EXPECT_EQ(delivered(), Calls{"first reads B"});
    EXPECT_EQ(processed(), Calls{"first reads B"});
    EXPECT_EQ(processed(), (Calls{"first reads B", "first acts"}));
    EXPECT_EQ(processed(), Calls());
}

TEST_F(DeliveryTest, FailedFirstReadingIsRepeatedAsAReadingOfEverything) {
    build();
    first.onChange = [&](RecordingHandler::Client& client, const std::string&) {
        first.onChange = nullptr;
        fail(client);
    };
    initialize({&first, &second});
    EXPECT_EQ(processed(), (Calls{"first reads everything", "first acts"}));
}

TEST_F(DeliveryTest, ActionWaitsForAllTablesOfItsHandler) {
    build();
    initialize({&first});
    bool failing = true;
    first.onChange = [&](RecordingHandler::Client& client, const std::string& table) {
        if (failing && table == "A")
            fail(client);
    };
    server.notify({"A", "B"});
    EXPECT_EQ(delivered(), (Calls{"first reads A", "first reads B"}));
    failing = false;
    EXPECT_EQ(processed(), (Calls{"first reads A", "first acts"}));
}

TEST_F(DeliveryTest, FailedReadingAndANewChangeAreOneReading) {
    build();
    initialize({&first});
    first.onChange = [&](RecordingHandler::Client& client, const std::string&) {
        first.onChange = nullptr;
        fail(client);
    };
    server.notify({"B"});
    EXPECT_EQ(delivered(), Calls{"first reads B"});
    server.notify({"B"});
    EXPECT_EQ(delivered(), (Calls{"first reads B", "first acts"}));
}

TEST_F(DeliveryTest, FailedActionIsRepeatedAlone) {
    build();
    initialize({&first});
    int failuresLeft = 2;
    first.onProcess = [&](RecordingHandler::Client& client) {
        if (failuresLeft-- > 0)
            fail(client);
    };
    server.notify({"A"});
    EXPECT_EQ(delivered(), (Calls{"first reads A", "first acts"}));
    EXPECT_EQ(processed(), Calls{"first acts"});
    EXPECT_EQ(processed(), Calls{"first acts"});
    EXPECT_EQ(processed(), Calls());
}

TEST_F(DeliveryTest, AnotherHandlersFailureChangesNothing) {
    build();
    initialize({&first, &second});
    first.onChange = [](RecordingHandler::Client& client, const std::string&) { fail(client); };
    server.notify({"A"});
    EXPECT_EQ(delivered(), (Calls{"first reads A", "second reads A", "second acts"}));
    EXPECT_EQ(processed(), Calls{"first reads A"});
}

TEST_F(DeliveryTest, DispatcherOutlivesIt) {
    build();
    initialize({&first});
    server.notify({"A"});
    notifications.reset();
    // The kernel would refuse to change a descriptor that the dispatcher still has and that is closed.
    for (int descriptor = 0; descriptor < 100; ++descriptor)
        EXPECT_NO_THROW(dispatcher.setInterest(descriptor, velta::net::EventDispatcher::Readable));
    dispatcher.handleEvents(0);
    EXPECT_EQ(calls, Calls());
}

} // namespace orv::cfg
