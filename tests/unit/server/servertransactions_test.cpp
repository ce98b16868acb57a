#include "unit/server/serverfixture.h"

#include <thread>

namespace {

using ask::RequestKind;
namespace code = velta::protocol::code;

class TransactionTest : public ServerTest {
protected:
    // The request is with the server when this returns.
    void startBegin(RawClient& client, std::uint32_t milliseconds) {
        client.send(ask::begin(milliseconds));
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(20);
        while (std::chrono::steady_clock::now() < deadline)
            server.handleEvents(1);
    }
    bool hasAnswer(RawClient& client) {
        server.handleEvents(0);
        client.receive();
        return !client.answers.empty();
    }

    const Client first = greeted();
    const Client second = greeted();
    const Client third = greeted();
    const velta::protocol::Request commit = ask::plain(RequestKind::Commit);
    const velta::protocol::Request abort = ask::plain(RequestKind::Abort);
    const velta::protocol::Request disable = ask::writeSingle("Globals", cell("Enable", switchValue(0)));
};

TEST_F(TransactionTest, IsNeededForAWriteACommitAndAnAbort) {
    for (const auto& request : {disable, commit, abort})
        EXPECT_EQ(codeOf(*first, request), code::noTransaction);
}

TEST_F(TransactionTest, SecondBeginOfTheOwnerIsRefused) {
    ASSERT_TRUE(succeeds(*first, ask::begin(0)));

    EXPECT_EQ(codeOf(*first, ask::begin(1000)), code::transactionOpen);
}

TEST_F(TransactionTest, OwnerReadsItsWritesOthersDoNot) {
    ASSERT_TRUE(succeeds(*first, ask::begin(0)));
    ASSERT_TRUE(succeeds(*first, disable));

    EXPECT_EQ(enabled(*first, "Globals"), 0);
    EXPECT_EQ(enabled(*second, "Globals"), 1);
    ASSERT_TRUE(succeeds(*first, commit));
    EXPECT_EQ(enabled(*second, "Globals"), 0);
}

TEST_F(TransactionTest, AbortTakesTheWritesBack) {
    ASSERT_TRUE(succeeds(*first, ask::begin(0)));
    ASSERT_TRUE(succeeds(*first, disable));
    ASSERT_TRUE(succeeds(*first, abort));

    EXPECT_EQ(enabled(*first, "Globals"), 1);
}

TEST_F(TransactionTest, WaitersGetTheirTurnInOrder) {
    ASSERT_TRUE(succeeds(*first, ask::begin(0)));
    startBegin(*second, 5000);
    startBegin(*third, 5000);

    ASSERT_TRUE(succeeds(*first, commit));
    EXPECT_EQ(next(*second).reply.result.code(), code::success);
    EXPECT_FALSE(hasAnswer(*third));
    ASSERT_TRUE(succeeds(*second, commit));
    EXPECT_EQ(next(*third).reply.result.code(), code::success);
}

TEST_F(TransactionTest, WhoAsksInTheRoundOfItsEndDoesNotGetWhatIsAnothers) {
    for (const std::uint32_t milliseconds : {60000U, 0U}) {
        ASSERT_TRUE(succeeds(*first, ask::begin(0)));
        startBegin(*second, 60000);
        first->send(commit);
        third->send(ask::begin(milliseconds));

        ASSERT_EQ(next(*first).reply.result.code(), code::success);
        ASSERT_EQ(next(*second).reply.result.code(), code::success);
        ASSERT_TRUE(succeeds(*second, disable));
        ASSERT_TRUE(succeeds(*second, commit));
        ASSERT_EQ(next(*third).reply.result.code(), milliseconds == 0 ? code::busy : code::success);
        EXPECT_EQ(codeOf(*third, abort), milliseconds == 0 ? code::noTransaction : code::success);
    }
}

TEST_F(TransactionTest, BeginThatWaitsForNothingIsBusyAtOnce) {
    ASSERT_TRUE(succeeds(*first, ask::begin(0)));

    EXPECT_EQ(codeOf(*second, ask::begin(0)), code::busy);
}

TEST_F(TransactionTest, BeginThatWaitedLongEnoughIsBusy) {
    ASSERT_TRUE(succeeds(*first, ask::begin(0)));

    EXPECT_EQ(codeOf(*second, ask::begin(30)), code::busy);
    ASSERT_TRUE(succeeds(*first, commit));
    EXPECT_FALSE(hasAnswer(*second));
}

TEST_F(TransactionTest, WhoWasBusyHasItsPlaceWhenItAsksAgain) {
    ASSERT_TRUE(succeeds(*first, ask::begin(0)));
    EXPECT_EQ(codeOf(*second, ask::begin(30)), code::busy);
    startBegin(*third, 60000);
    ASSERT_TRUE(succeeds(*first, commit));

    EXPECT_FALSE(hasAnswer(*third));
    EXPECT_TRUE(succeeds(*second, ask::begin(0)));
    ASSERT_TRUE(succeeds(*second, abort));
    EXPECT_EQ(next(*third).reply.result.code(), code::success);
}

TEST_F(TransactionTest, WhoDoesNotAskAgainKeepsTheOthersForAMomentOnly) {
    ASSERT_TRUE(succeeds(*first, ask::begin(0)));
    EXPECT_EQ(codeOf(*second, ask::begin(30)), code::busy);
    ASSERT_TRUE(succeeds(*first, commit));

    EXPECT_EQ(codeOf(*third, ask::begin(0)), code::busy);
    EXPECT_TRUE(succeeds(*third, ask::begin(60000)));
}

TEST_F(TransactionTest, OwnerThatDisconnectsIsRolledBack) {
    ASSERT_TRUE(succeeds(*first, ask::begin(0)));
    ASSERT_TRUE(succeeds(*first, disable));
    startBegin(*second, 5000);

    first->disconnect();

    EXPECT_EQ(next(*second).reply.result.code(), code::success);
    EXPECT_EQ(enabled(*second, "Globals"), 1);
}

TEST_F(TransactionTest, WaiterThatDisconnectsIsPassedOver) {
    ASSERT_TRUE(succeeds(*first, ask::begin(0)));
    startBegin(*second, 5000);
    startBegin(*third, 5000);

    second->disconnect();
    ASSERT_TRUE(succeeds(*first, commit));

    EXPECT_EQ(next(*third).reply.result.code(), code::success);
}

TEST_F(TransactionTest, ManyTransactionsInOneGoTakeTurns) {
    constexpr int rounds = 100;
    std::vector<velta::protocol::Request> requests;
    for (int i = 0; i < rounds; ++i)
        requests.insert(requests.end(), {ask::begin(5000), disable, commit});
    for (const Client* client : {&first, &second, &third})
        (*client)->sendAll(requests);

    for (const Client* client : {&first, &second, &third})
        for (int i = 0; i < 3 * rounds; ++i)
            ASSERT_EQ(next(**client).reply.result.code(), code::success);
}

class ExpiryTest : public ServerTest {
protected:
    ExpiryTest() : ServerTest(options()) {}

    static store::ServerOptions options() {
        store::ServerOptions short_;
        short_.transaction.held = std::chrono::milliseconds(30);
        short_.turn = std::chrono::milliseconds(200);
        return short_;
    }
};

TEST_F(ExpiryTest, TransactionHeldForTooLongIsRolledBackAndTheNextHasItsTurn) {
    const Client holder = greeted();
    const Client waiter = greeted();
    ASSERT_TRUE(succeeds(*holder, ask::begin(0)));
    ASSERT_TRUE(succeeds(*holder, ask::writeSingle("Globals", cell("Enable", switchValue(0)))));

    EXPECT_TRUE(succeeds(*waiter, ask::begin(5000)));
    EXPECT_EQ(enabled(*waiter, "Globals"), 1);
    EXPECT_EQ(codeOf(*holder, ask::plain(RequestKind::Commit)), code::transactionExpired);
    EXPECT_EQ(codeOf(*holder, ask::plain(RequestKind::Commit)), code::noTransaction);
}

class EqualTimesTest : public ServerTest {
protected:
    EqualTimesTest() : ServerTest(options()) {}

    static store::ServerOptions options() {
        store::ServerOptions equal;
        equal.turn = std::chrono::milliseconds(50);
        equal.transaction.held = equal.turn;
        return equal;
    }
};

TEST_F(EqualTimesTest, WaiterIsGrantedWhatExpiresAtTheEndOfItsTime) {
    const Client holder = greeted();
    const Client waiter = greeted();
    ASSERT_TRUE(succeeds(*holder, ask::begin(0)));
    waiter->send(ask::begin(UINT32_MAX));
    server.handleEvents(0);

    std::this_thread::sleep_for(2 * options().turn); // both times are up when the server looks next

    EXPECT_EQ(next(*waiter).reply.result.code(), code::success);
}

class LongestTurnTest : public ServerTest {
protected:
    LongestTurnTest() : ServerTest(options()) {}

    static store::ServerOptions options() {
        store::ServerOptions short_;
        short_.turn = std::chrono::milliseconds(30);
        return short_;
    }
};

TEST_F(LongestTurnTest, NobodyWaitsLongerThanTheServerLets) {
    const Client holder = greeted();
    const Client waiter = greeted();
    ASSERT_TRUE(succeeds(*holder, ask::begin(0)));

    EXPECT_EQ(codeOf(*waiter, ask::begin(UINT32_MAX)), code::busy);
}

} // namespace
