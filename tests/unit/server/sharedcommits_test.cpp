#include "store/server/writes.h"
#include "unit/server/sharingfixture.h"

#include <gmock/gmock.h>

namespace {

using ask::RequestKind;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
namespace code = velta::protocol::code;

TEST_F(SharingTest, CommitOfLocalCellsGoesToNobody) {
    begin(*first, {update(1, cell("Status", switchValue(1)))});
    EXPECT_TRUE(succeeds(*first, commitRequest));
    EXPECT_THAT(sharing.commits, IsEmpty());
    EXPECT_THAT(plansIn(database), ElementsAre("1 a 1 ", "2 b 0 "));
}

TEST_F(SharingTest, CommitOfSharedCellsIsAnsweredOnceItIsKeptHere) {
    begin(*first, {rename(1, "new")});
    start(*first, commitRequest);
    EXPECT_EQ(nameOf(1), "a");
    EXPECT_TRUE(hasNoAnswer(*first));
    ASSERT_EQ(sharing.commits[0].change.rows.size(), 1U);
    EXPECT_EQ(sharing.commits[0].change.rows[0].row.uuid, "u1");

    keepCommit();

    EXPECT_EQ(next(*first).reply.kind, velta::protocol::ReplyKind::Done);
    EXPECT_EQ(nameOf(1), "new");
}

TEST_F(SharingTest, NoticeOfACommitComesBeforeItsAnswer) {
    const Client other = subscribed({"Plans"});
    const Client own = subscribed({"Plans"});
    begin(*own, {rename(1, "new")});
    own->order.clear();
    start(*own, commitRequest);
    keepCommit();

    EXPECT_EQ(next(*own).reply.kind, velta::protocol::ReplyKind::Done);

    ASSERT_EQ(own->order.size(), 2U);
    EXPECT_EQ(own->order[0], "notice");
    EXPECT_TRUE(await([&other] {
        other->receive();
        return !other->notices.empty();
    }));
}

TEST_F(SharingTest, OthersHaveTheirTurnsWhileACommitHangs) {
    begin(*first, {rename(1, "new")});
    start(*first, commitRequest);

    commitLocally(*second);

    EXPECT_TRUE(hasNoAnswer(*first));
    keepCommit();
    EXPECT_EQ(nextCode(*first), 0);
}

TEST_F(SharingTest, ClientGoesOnAfterItsCommit) {
    begin(*first, {rename(1, "new")});
    first->sendAll({commitRequest, ask::begin(0), update(1, cell("Status", switchValue(1))), commitRequest});
    ASSERT_TRUE(await([this] { return !sharing.commits.empty(); }));
    keepCommit();
    for (int answer = 0; answer < 4; ++answer)
        EXPECT_EQ(nextCode(*first), 0);
    EXPECT_THAT(plansIn(database), ElementsAre("1 new 1 ", "2 b 0 "));
}

TEST_F(SharingTest, CommitThatIsRefusedAtOnceLeavesNothing) {
    begin(*first, {rename(1, "new")});
    sharing.refusal = code::clusterUnreachable;
    EXPECT_EQ(codeOf(*first, commitRequest), code::clusterUnreachable);
    EXPECT_EQ(nameOf(1), "a");
    EXPECT_EQ(codeOf(*first, commitRequest), code::noTransaction);
    commitLocally(*second);
}

TEST_F(SharingTest, CommitThatFailsLaterLeavesNothing) {
    for (const int failure : {code::conflict, code::outcomeUnknown}) {
        begin(*first, {rename(1, "new")});
        start(*first, commitRequest);
        sharing.endCommit(failure);
        EXPECT_EQ(nextCode(*first), failure);
        EXPECT_EQ(nameOf(1), "a");
    }
    commitLocally(*second);
}

TEST_F(SharingTest, UnknownOutcomeIsLoggedAsTheClustersAndNotAsATroubleOfTheStorage) {
    begin(*first, {rename(1, "new")});
    start(*first, commitRequest);
    testing::internal::CaptureStderr();
    sharing.endCommit({code::outcomeUnknown, "the cluster does not answer"});
    EXPECT_EQ(nextCode(*first), code::outcomeUnknown);
    const std::string lines = testing::internal::GetCapturedStderr();
    EXPECT_THAT(lines, HasSubstr(" warning cfgserver: client \"test\" ("));
    EXPECT_THAT(lines, HasSubstr(") changed what is shared, outcome unknown: the cluster does not answer\n"));
    EXPECT_THAT(lines, Not(HasSubstr("database")));
}

TEST_F(SharingTest, BothKindsOfCellsAreRefusedAndLeaveNothing) {
    begin(*first, {rename(1, "new"), update(1, cell("Status", switchValue(1)))});
    const Answer answer = call(*first, commitRequest);
    EXPECT_EQ(answer.reply.result.code(), code::mixedChange);
    EXPECT_EQ(answer.reply.result.detail(), "Plans.Name is shared, Plans.Status is not");
    EXPECT_THAT(sharing.commits, IsEmpty());
    EXPECT_THAT(plansIn(database), ElementsAre("1 a 0 ", "2 b 0 "));
    commitLocally(*second);
}

TEST_F(SharingTest, WhatTheTransactionHasReadGoesAlong) {
    begin(*first, {byKey(RequestKind::ReadKey, "Id", "2"), ask::readTable("Globals"), rename(1, "new")});
    start(*first, commitRequest);
    const store::SharedChange& change = sharing.commits[0].change;
    ASSERT_EQ(change.rows.size(), 2U);
    EXPECT_EQ(change.rows[1].row.uuid, "u2");
    ASSERT_EQ(change.tables.size(), 1U);
    EXPECT_EQ(change.tables[0].first, 1U);
}

TEST_F(SharingTest, WhatAnEarlierTransactionHasReadDoesNotGoAlong) {
    begin(*first, {ask::readTable("Globals")});
    ASSERT_TRUE(succeeds(*first, abortRequest));
    begin(*first, {rename(1, "new")});
    start(*first, commitRequest);
    EXPECT_THAT(sharing.commits[0].change.tables, IsEmpty());
}

TEST_F(SharingTest, WhatIsReadWithoutATransactionDoesNotGoAlong) {
    ASSERT_TRUE(succeeds(*first, ask::readTable("Globals")));
    begin(*first, {rename(1, "new")});
    start(*first, commitRequest);
    EXPECT_THAT(sharing.commits[0].change.tables, IsEmpty());
}

TEST_F(SharingTest, CommitGoesOnWithoutItsClient) {
    begin(*first, {rename(1, "new")});
    start(*first, commitRequest);
    first->disconnect();
    commitLocally(*second);
    keepCommit();
    EXPECT_TRUE(await([this] { return nameOf(1) == "new"; }));
    commitLocally(*second);
}

TEST_F(SharingTest, ServerThatEndsAnswersACommitThatEndsInTime) {
    begin(*first, {rename(1, "new")});
    start(*first, commitRequest);
    keepCommit();
    server.shutDown(std::chrono::seconds(10));
    first->receive();
    ASSERT_EQ(first->answers.size(), 1U);
    EXPECT_TRUE(first->answers[0].reply.result.ok());
}

TEST_F(SharingTest, ServerThatEndsDoesNotWaitForACommitForLong) {
    begin(*first, {rename(1, "new")});
    start(*first, commitRequest);
    server.shutDown(shortTime);
    first->receive();
    EXPECT_THAT(first->answers, IsEmpty());
    EXPECT_TRUE(isClosed(*first));
    sharing.commits[0].done({}); // too late
}

TEST_F(SharingTest, CommitMayEndAfterTheServer) {
    fakes::FakeSharing elsewhere;
    {
        store::TransactionQueue queue{store::TransactionQueue::Limits()};
        store::SharedTransactions transactions(elsewhere, database, queue, shortTime,
                                               [](const velta::NameList&) {});
        queue.join(1, store::Clock::now());
        queue.ask(1, 1, store::Clock::now(), store::Clock::now());
        ASSERT_TRUE(queue.admitIfNext(1, store::Clock::now()));
        std::uint32_t none = 0;
        ASSERT_TRUE(store::carryOut(database.transaction(), rename(1, "new"), none).ok());
        ASSERT_TRUE(transactions.commit({1, 2}).has_value());
        EXPECT_TRUE(transactions.isCommitting());
    }
    elsewhere.commits.at(0).done({});
    EXPECT_EQ(nameOf(1), "a");
}

} // namespace
