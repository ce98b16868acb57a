#include "unit/server/serverfixture.h"

#include <gmock/gmock.h>

namespace {

using ask::RequestKind;
using testing::ElementsAre;
using velta::NameList;

class NoticeTest : public ServerTest {
protected:
    NameList nextNotice(RawClient& client) {
        const bool came = await([&client] {
            client.receive();
            return !client.notices.empty();
        });
        if (!came) {
            ADD_FAILURE() << "no notice";
            return {};
        }
        NameList names = client.notices.front();
        client.notices.pop_front();
        return names;
    }
    // Everything that the server sent up to here, since answers come in order.
    std::size_t noticesSoFar(RawClient& client) {
        (void)enabled(client, "Other");
        return client.notices.size();
    }

    const Client writer = greeted();
};

TEST_F(NoticeTest, CommitIsToldToSubscribersOfItsTable) {
    const Client subscriber = subscribed({"Globals"});
    const Client other = subscribed({"Other"});

    commitEnable(*writer, "Globals", 0);

    EXPECT_THAT(nextNotice(*subscriber), ElementsAre("Globals"));
    EXPECT_EQ(noticesSoFar(*other), 0U);
}

TEST_F(NoticeTest, CommitThatChangedNothingIsNotTold) {
    const Client subscriber = subscribed({"Globals"});

    commitEnable(*writer, "Globals", 1);

    EXPECT_EQ(noticesSoFar(*subscriber), 0U);
}

TEST_F(NoticeTest, AllTablesOfACommitComeInOne) {
    const Client subscriber = subscribed({"Globals", "Other", "Plans", "Unknown"});
    ASSERT_TRUE(succeeds(*writer, ask::begin(0)));
    ASSERT_TRUE(succeeds(*writer, ask::writeSingle("Other", cell("Enable", switchValue(1)))));
    ASSERT_TRUE(succeeds(*writer, ask::writeSingle("Globals", cell("Enable", switchValue(0)))));
    ASSERT_TRUE(succeeds(*writer, ask::plain(RequestKind::Commit)));

    EXPECT_THAT(nextNotice(*subscriber), ElementsAre("Globals", "Other"));
    EXPECT_EQ(noticesSoFar(*subscriber), 0U);
}

TEST_F(NoticeTest, OwnCommitIsToldToo) {
    const Client client = subscribed({"Globals"});

    commitEnable(*client, "Globals", 0);

    EXPECT_THAT(nextNotice(*client), ElementsAre("Globals"));
}

TEST_F(NoticeTest, OwnCommitIsLeftOutOnRequest) {
    const Client client = subscribed({"Globals"}, true);

    commitEnable(*client, "Globals", 0);
    EXPECT_EQ(noticesSoFar(*client), 0U);

    commitEnable(*writer, "Globals", 1);
    EXPECT_THAT(nextNotice(*client), ElementsAre("Globals"));
}

TEST_F(NoticeTest, LaterSubscriptionReplacesTheEarlier) {
    const Client client = subscribed({"Globals"});
    ASSERT_TRUE(succeeds(*client, ask::subscribe({"Other"})));

    commitEnable(*writer, "Globals", 0);
    commitEnable(*writer, "Other", 1);

    EXPECT_THAT(nextNotice(*client), ElementsAre("Other"));
}

TEST_F(NoticeTest, EarlierCommitIsToldBeforeALaterBeginIsAnswered) {
    const Client client = subscribed({"Globals"});
    addLargeRows(*writer);
    const std::uint32_t begin = client->sendAll({ask::readTable("Plans"), ask::begin(5000)});
    server.handleEvents(1000);
    commitEnable(*writer, "Globals", 0);

    // Read so slowly that there is always some output left when the Begin has its turn.
    ASSERT_TRUE(await([&client, begin] {
        client->receive(1);
        return client->order.back() == std::to_string(begin);
    }));

    EXPECT_THAT(client->notices, ElementsAre(ElementsAre("Globals")));
}

TEST_F(NoticeTest, SlowSubscriberGetsEachTableOnce) {
    const Client slow = subscribed({"Globals", "Other"});
    addLargeRows(*writer);
    askWithoutReading(*slow);
    for (int i = 0; i < 200; ++i)
        commitEnable(*writer, i % 4 < 2 ? "Globals" : "Other", i % 2);

    while (!next(*slow).reply.rows.last) {
    }

    EXPECT_THAT(nextNotice(*slow), ElementsAre("Globals", "Other"));
    EXPECT_EQ(noticesSoFar(*slow), 0U);
}

} // namespace
