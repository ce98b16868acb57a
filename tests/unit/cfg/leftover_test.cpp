// Notices that come in with the answer of an exchange: the descriptor no longer tells of them.

#include "cfg/notificationhandler.h"
#include "unit/cfg/support.h"

#include <chrono>

namespace orv::cfg {

using fakes::ScriptedServer;
using support::Calls;
using support::row;
using velta::protocol::Reply;
using velta::protocol::ReplyKind;
using velta::protocol::Request;
using velta::protocol::RequestKind;

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned longTime = 5000; // milliseconds; no test waits for its end
constexpr unsigned shortTime = 20;  // milliseconds, waited for in full

std::string noticeOf(const std::string& table) {
    Reply notice;
    notice.kind = ReplyKind::Notice;
    notice.names = {table};
    return fakes::frameOf(notice);
}

enum class Place { Before, Behind };

class LeftoverTest : public testing::Test {
protected:
    void SetUp() override {
        server.setTable("A", {row(1, "one")});
        notifications.registerConfigHandler(&handler);
    }

    void initialize() {
        notifications.initialize();
        ASSERT_TRUE(notifications.initialized());
        calls.clear();
    }

    // From now on a notice goes out with each answer of that kind, in the same bytes.
    void noticeWith(RequestKind kind, Place place) {
        server.answer(kind, [this, place](const Request& request) {
            const std::string answer = server.usualAnswer(request);
            return place == Place::Before ? noticeOf("A") + answer : answer + noticeOf("A");
        });
    }

    void readTable() {
        unsigned rows = 0;
        EXPECT_TRUE(notifications.getConfigClient().size("A", rows).ok());
    }

    void startTransaction() { EXPECT_TRUE(notifications.getConfigClient().startTransaction().ok()); }

    Clock::duration timeOfWait(unsigned milliseconds) {
        const Clock::time_point begin = Clock::now();
        dispatcher.handleEvents(milliseconds);
        return Clock::now() - begin;
    }

    bool waitEndsEarly() { return timeOfWait(longTime) < std::chrono::milliseconds(longTime); }
    // A wait may end a little before its time by the clock that measures it here.
    bool waitIsWhole() { return timeOfWait(shortTime) >= std::chrono::milliseconds(shortTime - 1); }

    Calls processed() {
        calls.clear();
        notifications.process();
        return calls;
    }

    ScriptedServer server;
    velta::net::EventDispatcher dispatcher;
    Calls calls;
    support::RecordingHandler handler{calls, "handler", {"A"}};
    NotificationHandler notifications{
        server.socketPath(), dispatcher, support::clientName, true, 5, 500, true, false};
};

const Calls reading = {"handler reads A", "handler acts"};

} // namespace

TEST_F(LeftoverTest, OfATableEndsTheWaitAndIsDelivered) {
    initialize();
    for (const Place place : {Place::Before, Place::Behind}) {
        SCOPED_TRACE(place == Place::Before ? "before the answer" : "behind the answer");
        noticeWith(RequestKind::ReadTable, place);
        readTable();
        ASSERT_TRUE(waitEndsEarly());
        EXPECT_EQ(processed(), reading);
    }
}

TEST_F(LeftoverTest, OfARefusedTableEndsTheWaitAndIsDelivered) {
    initialize();
    noticeWith(RequestKind::ReadTable, Place::Behind);
    unsigned rows = 0;
    ASSERT_FALSE(notifications.getConfigClient().size("Missing", rows).ok());
    ASSERT_TRUE(waitEndsEarly());
    EXPECT_EQ(processed(), reading);
}

TEST_F(LeftoverTest, OfAPlainAnswerEndsTheWaitAndIsDelivered) {
    initialize();
    for (const Place place : {Place::Before, Place::Behind}) {
        SCOPED_TRACE(place == Place::Before ? "before the answer" : "behind the answer");
        noticeWith(RequestKind::Begin, place);
        startTransaction();
        ASSERT_TRUE(waitEndsEarly());
        EXPECT_EQ(processed(), reading);
    }
}

TEST_F(LeftoverTest, OfTheSubscriptionEndsTheFirstWait) {
    noticeWith(RequestKind::Subscribe, Place::Behind);
    initialize();
    EXPECT_TRUE(waitEndsEarly());
    EXPECT_EQ(processed(), reading);
}

TEST_F(LeftoverTest, OnceDeliveredEndsNoWaitAnyMore) {
    initialize();
    noticeWith(RequestKind::ReadTable, Place::Behind);
    readTable();
    dispatcher.handleEvents(0);
    ASSERT_EQ(processed(), reading);
    server.answerAsUsual(RequestKind::ReadTable);
    readTable();
    EXPECT_TRUE(waitIsWhole());
}

TEST_F(LeftoverTest, WithoutOneTheWaitIsWhole) {
    initialize();
    readTable();
    startTransaction();
    EXPECT_TRUE(waitIsWhole());
    EXPECT_EQ(processed(), Calls());
}

} // namespace orv::cfg
