// Clients that ask for much and read little.
#include "unit/server/serverfixture.h"

#include <gmock/gmock.h>

namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;
namespace code = velta::protocol::code;

class OutputTest : public ServerTest {
protected:
    explicit OutputTest(const store::ServerOptions& options = lowBudget()) : ServerTest(options) {
        addLargeRows(*writer);
    }

    static store::ServerOptions lowBudget() {
        store::ServerOptions small;
        small.output = 1024 * 1024;
        return small;
    }
    // All pieces of the answer; false when it is none.
    bool readsAll(RawClient& client) {
        Answer piece = next(client);
        while (piece.reply.kind == velta::protocol::ReplyKind::Rows && !piece.reply.rows.last)
            piece = next(client);
        return piece.reply.kind == velta::protocol::ReplyKind::Rows;
    }
    void askWithoutReading(RawClient& client) {
        client.send(ask::readTable("Plans"));
        server.handleEvents(1000);
    }

    const Client writer = greeted();
};

TEST_F(OutputTest, LargeTableIsRefusedWhileTooMuchWaitsToBeRead) {
    const Client idle = greeted();
    askWithoutReading(*idle);

    const Answer answer = call(*writer, ask::readTable("Plans"));

    EXPECT_EQ(answer.reply.result.code(), code::tooLarge);
    EXPECT_THAT(answer.reply.result.strerror(), HasSubstr("answers wait to be read"));
}

TEST_F(OutputTest, SmallTableIsStillAnswered) {
    const Client idle = greeted();
    askWithoutReading(*idle);

    EXPECT_EQ(enabled(*writer, "Globals"), 1);
}

TEST_F(OutputTest, LargeTableIsAnsweredAgainOnceTheOthersAreRead) {
    const Client idle = greeted();
    askWithoutReading(*idle);
    ASSERT_TRUE(readsAll(*idle));

    writer->send(ask::readTable("Plans"));

    EXPECT_TRUE(readsAll(*writer));
}

// Now and then all that waits to be sent goes in one go, while the next request is in already.
TEST_F(ServerTest, RequestsThatCameTogetherAreAllAnsweredHoweverLargeTheAnswers) {
    constexpr int rows = 24; // of 4 KiB: more than is left unsent when a request is taken
    constexpr std::size_t requests = 20;
    const Client client = greeted();
    ASSERT_TRUE(succeeds(*client, ask::begin(0)));
    for (int i = 0; i < rows; ++i)
        ASSERT_TRUE(succeeds(*client, ask::insert("Plans", cell("Name", textValue(std::string(4096, 'x'))))));

    client->sendAll(std::vector<ask::Request>(requests, ask::readTable("Plans")));

    for (std::size_t i = 0; i < requests; ++i)
        ASSERT_EQ(next(*client).rows.size(), std::size_t{rows}) << i;
}

class StallTest : public OutputTest {
protected:
    StallTest() : OutputTest(options()) {}

    static store::ServerOptions options() {
        store::ServerOptions short_;
        short_.reading = milliseconds(100);
        return short_;
    }
    void serveFor(milliseconds time) {
        const auto end = std::chrono::steady_clock::now() + time;
        while (std::chrono::steady_clock::now() < end)
            server.handleEvents(1);
    }
};

TEST_F(StallTest, ClientThatTakesNothingOfALargeAnswerIsClosed) {
    const Client idle = greeted();
    askWithoutReading(*idle);

    testing::internal::CaptureStderr();
    const bool closed = await([&idle] { return idle->isHungUp(); });
    const std::string log = testing::internal::GetCapturedStderr();

    EXPECT_TRUE(closed);
    EXPECT_THAT(log, HasSubstr("does not read its answers, connection closed"));
}

TEST_F(StallTest, ServerWakesByItselfToCloseIt) {
    const Client idle = greeted();
    askWithoutReading(*idle);

    const auto begin = std::chrono::steady_clock::now();
    server.handleEvents(10000);

    EXPECT_LT(std::chrono::steady_clock::now() - begin, milliseconds(5000));
}

TEST_F(StallTest, ClientThatReadsSlowlyIsServedToTheEnd) {
    const Client slow = greeted();
    askWithoutReading(*slow);

    for (int i = 0; i < 4; ++i) { // each time what a socket takes, so output is left at the end
        slow->receive();
        serveFor(options().reading * 2 / 3);
    }

    ASSERT_FALSE(slow->isHungUp());
    EXPECT_TRUE(readsAll(*slow));
}

TEST_F(StallTest, SubscriberThatNeverReadsIsKept) {
    const Client stopped = subscribed({"Globals"});
    for (int i = 0; i < 1000; ++i) // more notices than a socket takes
        commitEnable(*writer, "Globals", i % 2 == 0 ? 0 : 1);

    serveFor(options().reading * 2);

    EXPECT_FALSE(stopped->isHungUp());
    EXPECT_EQ(enabled(*stopped, "Globals"), 1);
    EXPECT_LT(stopped->notices.size(), 1000U); // so there was one that had to wait
}

} // namespace
