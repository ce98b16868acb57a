#include "cfg/configclient.h"
#include "cfg/pipeline.h"
#include "cfg/requests.h"
#include "unit/cfg/support.h"

namespace orv::cfg {

using fakes::frameOf;
using fakes::replyTo;
using fakes::ScriptedServer;
using velta::protocol::EResultCode;
using velta::protocol::Reply;
using velta::protocol::ReplyKind;
using velta::protocol::Request;
using velta::protocol::RequestKind;
namespace code = velta::protocol::code;

namespace {

constexpr unsigned answerTimeout = 2; // seconds

class PipelineTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(connection.open().ok()); }

    // Refuses the insert of that number, from 0.
    void refuse(std::size_t number) {
        server.answer(RequestKind::Insert, [number, seen = std::size_t{0}](const Request& request) mutable {
            Reply reply = replyTo(request, seen++ == number ? ReplyKind::Failed : ReplyKind::Done);
            reply.result = EResultCode(code::duplicateId, "A.1");
            return frameOf(reply);
        });
    }

    ScriptedServer server;
    Connection connection{server.socketPath(), support::clientName, answerTimeout};
    ConfigClient client{connection, 0};
};

Request insert(int id) {
    return requests::insert("A", support::row(id, "name"));
}

} // namespace

TEST_F(PipelineTest, EveryWriteArrivesAndIsCounted) {
    Pipeline writes = client.writesAhead();
    for (int id = 1; id <= 5000; ++id)
        ASSERT_TRUE(writes.send(insert(id)).ok());

    EXPECT_TRUE(writes.finish().ok());
    EXPECT_EQ(writes.done(), 5000U);
    EXPECT_EQ(server.count(RequestKind::Insert), 5000U);
    EXPECT_EQ(server.last(RequestKind::Insert).values, insert(5000).values);
}

TEST_F(PipelineTest, ManyWritesAreOnTheWayBeforeTheFirstAnswer) {
    server.answer(RequestKind::Insert, [answers = std::string(), seen = 0](const Request& request) mutable {
        answers += frameOf(replyTo(request));
        return ++seen == 100 ? answers : std::string();
    });
    Pipeline writes = client.writesAhead();
    for (int id = 1; id <= 100; ++id)
        ASSERT_TRUE(writes.send(insert(id)).ok());

    EXPECT_TRUE(writes.finish().ok());
    EXPECT_EQ(writes.done(), 100U);
}

TEST_F(PipelineTest, TheFirstFailureIsToldWithItsPlace) {
    refuse(9);
    Pipeline writes = client.writesAhead();
    for (int id = 1; id <= 100; ++id)
        (void)writes.send(insert(id)); // says so as soon as it is known

    EXPECT_EQ(writes.finish().code(), code::duplicateId);
    EXPECT_EQ(writes.done(), 9U);
}

TEST_F(PipelineTest, NothingIsSentBehindAFailureThatIsKnown) {
    refuse(0);
    Pipeline writes = client.writesAhead();
    int sent = 0;
    while (sent < 100000 && writes.send(insert(1)).ok())
        ++sent;

    EXPECT_LT(sent, 2000);
    EXPECT_EQ(writes.send(insert(2)).strerror(), "row exists already: A.1");
}

TEST_F(PipelineTest, TheConnectionIsOfUseAfterAFailure) {
    refuse(0);
    {
        Pipeline writes = client.writesAhead();
        (void)writes.send(insert(1));
        (void)writes.send(insert(2)); // nobody asks what these came to
    }

    EXPECT_TRUE(client.startTransaction().ok());
    EXPECT_TRUE(connection.isOpen());
}

// More comes back than both sockets hold: neither end may wait for the other.
TEST_F(PipelineTest, AnswersAreTakenWhileTheStoreTakesNothing) {
    server.answer(RequestKind::Insert, [](const Request& request) {
        Reply notice;
        notice.kind = ReplyKind::Notice;
        notice.names.assign(10000, "A");
        return frameOf(notice) + frameOf(replyTo(request));
    });
    Request large = insert(1);
    velta::Value text;
    text.setText(std::string(100 * 1000, 'x'));
    large.values.add("Comment", text);

    Pipeline writes = client.writesAhead();
    for (int i = 0; i < 200; ++i)
        ASSERT_TRUE(writes.send(large).ok());
    EXPECT_TRUE(writes.finish().ok());
    EXPECT_EQ(writes.done(), 200U);
}

TEST_F(PipelineTest, AWriteThatIsTooLargeFailsBehindThoseBeforeIt) {
    Request large = insert(2);
    velta::Value text;
    text.setText(std::string(velta::protocol::frameLimit, 'x'));
    large.values.add("Comment", text);
    Pipeline writes = client.writesAhead();
    ASSERT_TRUE(writes.send(insert(1)).ok());

    EXPECT_EQ(writes.send(large).code(), code::tooLarge);
    EXPECT_EQ(writes.done(), 1U);
    EXPECT_TRUE(connection.isOpen());
    EXPECT_EQ(server.count(RequestKind::Insert), 1U);
}

TEST_F(PipelineTest, AStoreThatGoesAwayIsAFailure) {
    server.closeWithin(RequestKind::Insert, 0);
    Pipeline writes = client.writesAhead();
    (void)writes.send(insert(1));

    EXPECT_EQ(writes.finish().code(), code::notConnected);
    EXPECT_FALSE(connection.isOpen());
    EXPECT_EQ(writes.send(insert(2)).code(), code::notConnected);
}

TEST_F(PipelineTest, AStoreThatDoesNotAnswerIsAFailure) {
    server.neverAnswer(RequestKind::Insert);
    Pipeline writes = client.writesAhead();
    (void)writes.send(insert(1));

    EXPECT_EQ(writes.finish().code(), code::timedOut);
}

TEST_F(PipelineTest, AnAnswerOutOfOrderClosesTheConnection) {
    server.answer(RequestKind::Insert, [](Request request) {
        ++request.sequence;
        return frameOf(replyTo(request));
    });
    Pipeline writes = client.writesAhead();
    (void)writes.send(insert(1));

    EXPECT_EQ(writes.finish().code(), code::badMessage);
    EXPECT_FALSE(connection.isOpen());
}

TEST_F(PipelineTest, AnAnswerThatMakesNoSenseClosesTheConnection) {
    server.answer(RequestKind::Insert,
                  [](const Request& request) { return frameOf(replyTo(request)) + "\xff\xff\xff\xff"; });
    Pipeline writes = client.writesAhead();
    (void)writes.send(insert(1));
    (void)writes.send(insert(2));

    EXPECT_EQ(writes.finish().code(), code::badMessage);
    EXPECT_EQ(writes.done(), 1U);
    EXPECT_FALSE(connection.isOpen());
}

// Sending fails then, and the reason lies in the socket all the same.
TEST_F(PipelineTest, TheReasonIsToldOfAStoreThatHasClosedBeforeAWriteIsSent) {
    Reply refusal;
    refusal.kind = ReplyKind::Failed;
    refusal.result = EResultCode(code::storageFull, "ends");
    server.send(frameOf(refusal));
    server.closeClients();
    Pipeline writes = client.writesAhead();
    (void)writes.send(insert(1));

    EXPECT_EQ(writes.finish().strerror(), refusal.result.strerror());
    EXPECT_EQ(writes.done(), 0U);
    EXPECT_FALSE(connection.isOpen());
}

} // namespace orv::cfg
