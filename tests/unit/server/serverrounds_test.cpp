// Each client has one turn a round, whatever was pipelined.
#include "unit/server/serverfixture.h"

#include <algorithm>

namespace {

using ask::RequestKind;
using std::chrono::milliseconds;

class RoundsTest : public ServerTest {
protected:
    void oneRound() {
        server.handleEvents(0);
        for (const Client& client : clients)
            client->receive();
    }
    static std::vector<ask::Request> transactions(int count, const std::string& table) {
        std::vector<ask::Request> requests;
        for (int i = 0; i < count; ++i)
            for (const ask::Request& request :
                 {ask::begin(60000), ask::writeSingle(table, cell("Enable", switchValue(i % 2))),
                  ask::plain(RequestKind::Commit)})
                requests.push_back(request);
        return requests;
    }

    const Client clients[3] = {greeted(), greeted(), greeted()};
};

TEST_F(RoundsTest, EachClientHasOneRequestAnsweredARound) {
    for (const Client& client : clients)
        client->sendAll(std::vector<ask::Request>(50, ask::readTable("Globals")));

    for (std::size_t round = 1; round <= 50; ++round) {
        oneRound();
        for (const Client& client : clients)
            ASSERT_EQ(client->answers.size(), round);
    }
}

TEST_F(RoundsTest, OneThatComesLateIsServedBesideWhatWasPipelined) {
    clients[0]->sendAll(std::vector<ask::Request>(300, ask::readTable("Globals")));
    oneRound();
    clients[1]->send(ask::readTable("Globals"));

    oneRound();
    oneRound();

    EXPECT_EQ(clients[1]->answers.size(), 1U);
    EXPECT_LE(clients[0]->answers.size(), 3U);
}

TEST_F(RoundsTest, LargeReadingIsOneTurnAPiece) {
    addLargeRows(*clients[0]);
    clients[0]->send(ask::readTable("Plans"));
    clients[1]->sendAll(std::vector<ask::Request>(20, ask::readTable("Globals")));

    for (std::size_t round = 1; round <= 20; ++round) {
        oneRound();
        ASSERT_EQ(clients[1]->answers.size(), round);
    }

    EXPECT_GE(clients[0]->answers.size(), 10U);
    EXPECT_FALSE(clients[0]->answers.back().reply.rows.last);
}

TEST_F(RoundsTest, ReaderIsServedBesidePipelinedTransactions) {
    clients[0]->sendAll(transactions(100, "Globals"));
    clients[1]->sendAll(transactions(100, "Other"));
    clients[2]->sendAll(std::vector<ask::Request>(100, ask::readTable("Globals")));

    for (std::size_t round = 1; round <= 100; ++round) {
        oneRound();
        ASSERT_EQ(clients[2]->answers.size(), round);
    }
}

TEST_F(RoundsTest, PipelinedTransactionsTakeTurns) {
    for (const Client& client : clients)
        client->sendAll(transactions(40, "Globals"));

    const auto answered = [this](std::size_t client) { return clients[client]->answers.size(); };
    while (answered(0) + answered(1) + answered(2) < std::size_t{3} * 3 * 40) {
        oneRound();
        const auto [least, most] = std::minmax({answered(0), answered(1), answered(2)});
        ASSERT_LE(most - least, 5U * 3) << "four short ones in a row is what a client may have";
    }
}

TEST_F(RoundsTest, RequestsOfATransactionThatCameTogetherAreAnsweredTogether) {
    clients[0]->sendAll(transactions(1, "Globals"));
    oneRound();
    oneRound();
    EXPECT_EQ(clients[0]->answers.size(), 0U);
    oneRound();
    EXPECT_EQ(clients[0]->answers.size(), 3U);
}

TEST_F(RoundsTest, HalfAFrameKeepsNobodyWaiting) {
    std::string bytes;
    encode(ask::readTable("Globals"), bytes);
    clients[0]->sendBytes(bytes + bytes.substr(0, bytes.size() / 2));

    oneRound();
    EXPECT_EQ(clients[0]->answers.size(), 1U);
    EXPECT_EQ(enabled(*clients[1], "Globals"), 1);

    clients[0]->sendBytes(bytes.substr(bytes.size() / 2));
    oneRound();
    EXPECT_EQ(clients[0]->answers.size(), 2U);
}

TEST_F(RoundsTest, WhatWasPipelinedBehindABeginIsAnsweredOnceItIsGranted) {
    ASSERT_TRUE(succeeds(*clients[0], ask::begin(0)));
    clients[1]->sendAll(transactions(1, "Globals"));
    serveAll();
    ASSERT_TRUE(clients[1]->answers.empty());

    ASSERT_TRUE(succeeds(*clients[0], ask::plain(RequestKind::Abort)));

    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(next(*clients[1]).reply.result.code(), 0);
}

TEST_F(RoundsTest, WhatWasPipelinedBehindABeginNeedsNoFurtherEvent) {
    ASSERT_TRUE(succeeds(*clients[0], ask::begin(0)));
    clients[1]->sendAll(transactions(1, "Globals"));
    serveAll();
    clients[0]->send(ask::plain(RequestKind::Abort));
    server.handleEvents(1000);

    const auto begin = std::chrono::steady_clock::now();
    server.handleEvents(5000);
    server.handleEvents(5000);

    EXPECT_LT(std::chrono::steady_clock::now() - begin, milliseconds(2500));
    clients[1]->receive();
    EXPECT_EQ(clients[1]->answers.size(), 3U);
}

// What a client left for the server to wait for does not keep it busy.
struct Situation {
    const char* name;
    void (*bring)(RawClient& client);
};

class AtRestTest : public RoundsTest, public testing::WithParamInterface<Situation> {};

TEST_P(AtRestTest, TheServerSleeps) {
    addLargeRows(*clients[1]);
    ASSERT_TRUE(succeeds(*clients[2], ask::begin(0))); // somebody has the transaction
    GetParam().bring(*clients[0]);
    serveAll();

    const auto begin = std::chrono::steady_clock::now();
    server.handleEvents(100);

    EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(90));
}

const Situation situations[] = {
    {"NothingToDo", [](RawClient&) {}},
    {"RequestsBehindABeginThatWaits",
     [](RawClient& client) {
         client.sendAll({ask::begin(60000), ask::readTable("Globals")});
     }},
    {"AnswerThatIsNotTaken", [](RawClient& client) { client.send(ask::readTable("Plans")); }},
    {"RequestsBehindAnAnswerThatIsNotTaken",
     [](RawClient& client) {
         client.sendAll({ask::readTable("Plans"), ask::readTable("Plans")});
     }},
    {"HalfAFrame", [](RawClient& client) { client.sendBytes(std::string("\x00\x00\x00\x09\x03", 5)); }},
    {"ClientThatKeepsItsPlace", [](RawClient& client) { client.send(ask::begin(1)); }},
    {"ClientThatSendsNoMore",
     [](RawClient& client) {
         client.send(ask::begin(60000));
         client.finishSending();
     }},
    {"ClientThatIsGone",
     [](RawClient& client) {
         client.send(ask::begin(60000));
         client.disconnect();
     }},
};

INSTANTIATE_TEST_SUITE_P(Server, AtRestTest, testing::ValuesIn(situations),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(RoundsTest, FifthReadingThatWaitsLetsTheServerSleep) {
    addLargeRows(*clients[0]);
    const Client holders[] = {greeted(), greeted(), greeted(), greeted()};
    for (const Client& holder : holders)
        askWithoutReading(*holder);
    clients[0]->send(ask::readTable("Plans"));
    serveAll();

    const auto begin = std::chrono::steady_clock::now();
    server.handleEvents(100);

    EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(90));
}

} // namespace
