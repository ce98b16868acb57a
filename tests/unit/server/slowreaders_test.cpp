// Clients that ask for much and read little.
#include "unit/server/serverfixture.h"

#include <gmock/gmock.h>

namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;

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
        ASSERT_EQ(whole(*client).rows.size(), std::size_t{rows}) << i;
}

// Its answers are of different sizes, and it takes none: what it asks for waits, and so do its answers.
TEST_F(ServerTest, RequestIsNotTakenWhileTheAnswersBeforeItWait) {
    const Client slow = greeted();
    const Client other = greeted();
    addLargeRows(*other);
    slow->sendAll({ask::readTable("Plans"), ask::begin(0),
                   ask::writeSingle("Globals", cell("Enable", switchValue(0))),
                   ask::plain(ask::RequestKind::Commit)});
    serveAll();
    EXPECT_EQ(enabled(*other, "Globals"), 1);

    ASSERT_EQ(whole(*slow).rows.size(), largeRows);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(next(*slow).reply.result.code(), 0);

    EXPECT_EQ(enabled(*other, "Globals"), 0);
}

TEST_F(ServerTest, WhatOthersDoNotReadIsNobodyElsesLoss) {
    const Client writer = greeted();
    addLargeRows(*writer);
    const Client idle[] = {greeted(), greeted(), greeted()};
    for (const Client& client : idle)
        askWithoutReading(*client);

    for (int i = 0; i < 10; ++i) {
        writer->send(ask::readTable("Plans"));
        ASSERT_EQ(whole(*writer).rows.size(), largeRows) << i;
    }
}

class StallTest : public ServerTest {
protected:
    StallTest() : ServerTest(options()) { addLargeRows(*writer); }

    static store::ServerOptions options() {
        store::ServerOptions short_;
        short_.reading = milliseconds(300);
        return short_;
    }

    const Client writer = greeted();
};

TEST_F(StallTest, ClientThatTakesNothingOfALargeAnswerIsClosed) {
    const Client idle = greeted();

    testing::internal::CaptureStderr();
    askWithoutReading(*idle);
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
    EXPECT_EQ(whole(*slow).rows.size(), largeRows);
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
