#include "unit/server/sharingfixture.h"

#include <gmock/gmock.h>

namespace {

namespace code = velta::protocol::code;

TEST_F(SharingTest, UpdatesAreAppliedAndTold) {
    const Client client = subscribed({"Plans", "Other"});
    renameElsewhere("elsewhere");
    EXPECT_TRUE(await([&client] {
        client->receive();
        return !client->notices.empty();
    }));
    EXPECT_EQ(client->notices[0], velta::NameList{"Plans"});
    EXPECT_EQ(nameOf(1), "elsewhere");
}

TEST_F(SharingTest, UpdatesWaitForTheEndOfATransaction) {
    begin(*first, {update(1, cell("Status", switchValue(1)))});
    renameElsewhere("elsewhere");
    serveAll();
    EXPECT_EQ(nameOf(1), "a");

    ASSERT_TRUE(succeeds(*first, commitRequest));

    EXPECT_THAT(plansIn(database), testing::ElementsAre("1 elsewhere 1 ", "2 b 0 "));
}

TEST_F(SharingTest, UpdatesAreAppliedBeforeTheNextTransactionBegins) {
    begin(*first, {update(1, cell("Status", switchValue(1)))});
    second->send(ask::begin(5000));
    serveAll();
    renameElsewhere("elsewhere");
    ASSERT_TRUE(succeeds(*first, commitRequest));
    EXPECT_EQ(nextCode(*second), 0);
    const Answer row = call(*second, byKey(ask::RequestKind::ReadKey, "Id", "1"));
    EXPECT_EQ(row.rows.at(0).getValue("Name").getText(), "elsewhere");
}

TEST_F(SharingTest, UpdatesAreAppliedBeforeATransactionThatBeginsAtOnce) {
    renameElsewhere("elsewhere");
    const Client client = greeted();
    renameElsewhere("later");
    ASSERT_TRUE(succeeds(*client, ask::begin(0)));
    EXPECT_EQ(nameOf(1), "later");
}

TEST_F(SharingTest, UpdatesThatAreAppliedInPartsNeedNoFurtherEvent) {
    constexpr auto asleep = std::chrono::seconds(10);
    const auto begin = std::chrono::steady_clock::now();
    sharing.atOnce = 1;
    for (const char* const name : {"one", "two", "three"})
        renameElsewhere(name);
    server.handleEvents(0);
    EXPECT_EQ(nameOf(1), "one");
    for (int i = 0; i < 2; ++i)
        server.handleEvents(std::chrono::milliseconds(asleep).count());
    EXPECT_EQ(nameOf(1), "three");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, asleep);
}

class ImpatientUpdatesTest : public SharingTest {
protected:
    static store::ServerOptions options() {
        store::ServerOptions options;
        options.transaction.updates = shortTime;
        return options;
    }
    ImpatientUpdatesTest() : SharingTest(options()) {}
};

TEST_F(ImpatientUpdatesTest, TransactionThatUpdatesWaitedForTooLongExpires) {
    begin(*first, {rename(1, "mine")});
    renameElsewhere("elsewhere");
    EXPECT_TRUE(await([this] { return nameOf(1) == "elsewhere"; }));
    EXPECT_EQ(codeOf(*first, commitRequest), code::transactionExpired);
    EXPECT_EQ(codeOf(*first, commitRequest), code::noTransaction);
}

TEST_F(ImpatientUpdatesTest, TransactionDoesNotExpireWithoutUpdates) {
    begin(*first, {update(1, cell("Status", switchValue(1)))});
    serveFor(3 * shortTime);
    EXPECT_TRUE(succeeds(*first, commitRequest));
}

TEST(SharedUpdates, TimeCountsFromTheLaterOfTheirArrivalAndTheTransaction) {
    using std::chrono::seconds;
    store::TransactionQueue queue{store::TransactionQueue::Limits()};
    const store::Clock::time_point start{seconds(1000)};
    queue.join(1, start);
    const auto begin = [&queue](store::Clock::time_point at) {
        queue.ask(1, 1, at, at);
        return queue.admitIfNext(1, at);
    };
    queue.updatesWait(true, start); // they could not be applied
    ASSERT_TRUE(begin(start + seconds(30)));
    EXPECT_EQ(queue.nextDeadline(), start + seconds(40));
    EXPECT_FALSE(queue.takeExpired(start + seconds(39)).has_value());
    queue.release(start + seconds(39));
    queue.updatesWait(false, start + seconds(39));
    ASSERT_TRUE(begin(start + seconds(40)));
    queue.updatesWait(true, start + seconds(45));
    queue.updatesWait(true, start + seconds(50)); // further ones
    EXPECT_EQ(queue.takeExpired(start + seconds(55)), store::ClientId{1});
}

} // namespace
