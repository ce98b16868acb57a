#include "unit/server/sharingfixture.h"

#include <gmock/gmock.h>

namespace {

using ask::RequestKind;
using testing::ElementsAre;
using testing::IsEmpty;
namespace code = velta::protocol::code;

class SharedInsertTest : public SharingTest {
protected:
    explicit SharedInsertTest(const store::ServerOptions& options = {}) : SharingTest(options) {}

    // The client has a transaction with an insertion that waits for its Id.
    void startInsert(RawClient& client, const std::vector<ask::Request>& before = {}) {
        begin(client, before);
        start(client, insert("new"));
    }
    // The same, and it got its Id.
    void beginWithInsert(RawClient& client, std::uint32_t id) {
        startInsert(client);
        sharing.endReservation({}, id);
        EXPECT_EQ(next(client).reply.number, id);
    }
    // The transaction is over, and its client hears of it once more.
    void expectOver(RawClient& client, int failure) {
        EXPECT_EQ(codeOf(client, commitRequest), failure);
        EXPECT_EQ(codeOf(client, commitRequest), code::noTransaction);
        EXPECT_THAT(plansIn(database), ElementsAre("1 a 0 ", "2 b 0 "));
        commitLocally(*second);
    }
};

TEST_F(SharedInsertTest, OtherDevicesChooseTheId) {
    startInsert(*first, {rename(1, "renamed")});
    EXPECT_TRUE(hasNoAnswer(*first));
    EXPECT_EQ(sharing.reservations[0].table, 0U);

    sharing.endReservation({}, 7);

    EXPECT_EQ(next(*first).reply.number, 7U);
    const Answer rows = call(*first, ask::readTable("Plans")); // its own writes
    ASSERT_EQ(rows.rows.size(), 3U);
    EXPECT_EQ(rows.rows[0].getValue("Name").getText(), "renamed");
    EXPECT_EQ(rows.rows[2].getValue("Id").getInteger(), 7);

    start(*first, commitRequest);
    ASSERT_EQ(sharing.commits[0].change.rows.size(), 2U);
    EXPECT_TRUE(sharing.commits[0].change.rows[1].isNew);
    keepCommit();
    EXPECT_EQ(nextCode(*first), 0);
    EXPECT_THAT(plansIn(database), ElementsAre("1 renamed 0 ", "2 b 0 ", "7 new 0 "));
    EXPECT_THAT(sharing.givenBack, IsEmpty());
}

TEST_F(SharedInsertTest, WhatCameWithItIsCarriedOutBehindIt) {
    first->sendAll({ask::begin(0), insert("new"), commitRequest});
    ASSERT_TRUE(await([this] { return !sharing.reservations.empty(); }));
    sharing.endReservation({}, 7);
    ASSERT_TRUE(await([this] { return !sharing.commits.empty(); }));
    keepCommit();
    EXPECT_EQ(nextCode(*first), 0);
    EXPECT_EQ(next(*first).reply.number, 7U);
    EXPECT_EQ(nextCode(*first), 0);
    EXPECT_EQ(nameOf(7), "new");
}

TEST_F(SharedInsertTest, OneTransactionMayHaveSeveral) {
    beginWithInsert(*first, 3);
    for (const std::uint32_t id : {9U, 5U}) {
        start(*first, insert("more"));
        sharing.endReservation({}, id);
        EXPECT_EQ(next(*first).reply.number, id);
    }
    start(*first, commitRequest);
    keepCommit();
    EXPECT_EQ(nextCode(*first), 0);
    EXPECT_THAT(plansIn(database), ElementsAre("1 a 0 ", "2 b 0 ", "3 new 0 ", "5 more 0 ", "9 more 0 "));
}

TEST_F(SharedInsertTest, OthersHaveTheirTurnsMeanwhile) {
    startInsert(*first);
    commitLocally(*second);
    sharing.endReservation({}, 7);
    EXPECT_EQ(next(*first).reply.number, 7U);
}

TEST_F(SharedInsertTest, RowWithAnIdAndALocalTableNeedNoReservation) {
    velta::ValueList values = cell("Id", integerValue(8));
    begin(*first, {ask::insert("Plans", values)});
    EXPECT_THAT(sharing.reservations, IsEmpty());
}

TEST_F(SharedInsertTest, CellsThatTheTableDoesNotTakeAreRefusedAndTheTransactionGoesOn) {
    begin(*first, {update(1, cell("Status", switchValue(1)))});
    EXPECT_EQ(codeOf(*first, ask::insert("Plans", cell("Start", textValue("25:00")))), code::wrongKind);
    EXPECT_EQ(codeOf(*first, ask::insert("Globals", {})), code::singleRow);
    EXPECT_TRUE(succeeds(*first, commitRequest));
    EXPECT_THAT(sharing.reservations, IsEmpty());
    EXPECT_THAT(plansIn(database), ElementsAre("1 a 1 ", "2 b 0 "));
}

TEST_F(SharedInsertTest, WithoutTheOtherDevicesItFailsAndTheTransactionIsOver) {
    begin(*first, {rename(1, "renamed")});
    sharing.refusal = code::clusterUnreachable;
    EXPECT_EQ(codeOf(*first, insert("new")), code::clusterUnreachable);
    expectOver(*first, code::clusterUnreachable);
}

TEST_F(SharedInsertTest, ReservationThatFailsEndsTheTransaction) {
    startInsert(*first, {rename(1, "renamed")});
    sharing.endReservation(code::outcomeUnknown);
    EXPECT_EQ(nextCode(*first), code::outcomeUnknown);
    expectOver(*first, code::outcomeUnknown);
    EXPECT_THAT(sharing.givenBack, IsEmpty());
}

TEST_F(SharedInsertTest, WriteBehindAFailedOneHearsOfItToo) {
    startInsert(*first);
    sharing.endReservation(code::clusterUnreachable);
    EXPECT_EQ(nextCode(*first), code::clusterUnreachable);
    EXPECT_EQ(codeOf(*first, rename(1, "x")), code::clusterUnreachable);
    EXPECT_EQ(codeOf(*first, rename(1, "x")), code::noTransaction);
}

TEST_F(SharedInsertTest, FailedTransactionMayBeAborted) {
    startInsert(*first);
    sharing.endReservation(code::clusterUnreachable);
    EXPECT_EQ(nextCode(*first), code::clusterUnreachable);
    EXPECT_TRUE(succeeds(*first, abortRequest));
    EXPECT_EQ(codeOf(*first, abortRequest), code::noTransaction);
}

TEST_F(SharedInsertTest, TransactionThatBeginsAnewKnowsNothingOfTheFailedOne) {
    startInsert(*first);
    sharing.endReservation(code::clusterUnreachable);
    EXPECT_EQ(nextCode(*first), code::clusterUnreachable);
    begin(*first, {update(1, cell("Status", switchValue(1)))});
    EXPECT_TRUE(succeeds(*first, commitRequest));
    EXPECT_EQ(codeOf(*first, commitRequest), code::noTransaction);
}

TEST_F(SharedInsertTest, TableThatWasWrittenAndIsChangedMeanwhileIsAConflict) {
    startInsert(*first, {ask::writeSingle("Other", cell("Enable", switchValue(0)))});
    commitLocally(*second);
    sharing.endReservation({}, 7);
    EXPECT_EQ(nextCode(*first), code::conflict);
    expectOver(*first, code::conflict);
    EXPECT_THAT(sharing.givenBack, ElementsAre(7U));
}

TEST_F(SharedInsertTest, TableThatWasReadAndIsChangedElsewhereMeanwhileIsAConflict) {
    startInsert(*first, {ask::readTable("Plans")});
    sharing.updates.push_back([this] { // comes and goes: the notice counts
        (void)applyTo(database, {{planChange("u1", "x", std::nullopt)}, false, false, {}});
        return applyTo(database, {{planChange("u1", "a", std::nullopt)}, false, false, {}}).changed;
    });
    sharing.endReservation({}, 7);
    EXPECT_EQ(nextCode(*first), code::conflict);
    expectOver(*first, code::conflict);
}

TEST_F(SharedInsertTest, TableThatOnlyGetsTheRowMayChangeMeanwhile) {
    startInsert(*first);
    renameElsewhere("elsewhere");
    sharing.endReservation({}, 7);
    EXPECT_EQ(next(*first).reply.number, 7U);
    start(*first, commitRequest);
    EXPECT_EQ(sharing.commits[0].change.rows.size(), 1U);
}

TEST_F(SharedInsertTest, IdThatIsTakenHereFailsTheInsertion) {
    startInsert(*first);
    sharing.endReservation({}, 2);
    EXPECT_EQ(nextCode(*first), code::duplicateId);
    expectOver(*first, code::duplicateId);
    EXPECT_THAT(sharing.givenBack, ElementsAre(2U));
}

TEST_F(SharedInsertTest, TransactionWithTooManyWritesIsRefused) {
    begin(*first, {});
    const std::string text(4000, 'x');
    for (int i = 0; i < 300; ++i)
        ASSERT_TRUE(succeeds(*first, update(1, cell("Name", textValue(text)))));
    EXPECT_EQ(codeOf(*first, insert("new")), code::tooLarge);
    expectOver(*first, code::tooLarge);
    EXPECT_THAT(sharing.reservations, IsEmpty());
}

TEST_F(SharedInsertTest, IdIsGivenBackByAnAbort) {
    beginWithInsert(*first, 7);
    ASSERT_TRUE(succeeds(*first, abortRequest));
    EXPECT_THAT(sharing.givenBack, ElementsAre(7U));
}

TEST_F(SharedInsertTest, IdIsGivenBackIfTheRowWasRemovedAgain) {
    beginWithInsert(*first, 7);
    ASSERT_TRUE(succeeds(*first, byKey(RequestKind::Remove, "Id", "7")));
    ASSERT_TRUE(succeeds(*first, commitRequest));
    EXPECT_THAT(sharing.givenBack, ElementsAre(7U));
}

TEST_F(SharedInsertTest, IdIsGivenBackIfTheCommitOfOtherCellsDoesNotUseIt) {
    beginWithInsert(*first, 7);
    ASSERT_TRUE(succeeds(*first, byKey(RequestKind::Remove, "Id", "7")));
    ASSERT_TRUE(succeeds(*first, rename(1, "x")));
    start(*first, commitRequest);
    keepCommit();
    EXPECT_EQ(nextCode(*first), 0);
    EXPECT_THAT(sharing.givenBack, ElementsAre(7U));
}

TEST_F(SharedInsertTest, IdIsGivenBackByACommitThatIsRefused) {
    beginWithInsert(*first, 7);
    sharing.refusal = code::clusterUnreachable;
    EXPECT_EQ(codeOf(*first, commitRequest), code::clusterUnreachable);
    EXPECT_THAT(sharing.givenBack, ElementsAre(7U));
}

TEST_F(SharedInsertTest, IdIsGivenBackByACommitThatFails) {
    beginWithInsert(*first, 7);
    start(*first, commitRequest);
    sharing.endCommit(code::conflict);
    EXPECT_EQ(nextCode(*first), code::conflict);
    EXPECT_THAT(sharing.givenBack, ElementsAre(7U));
}

TEST_F(SharedInsertTest, IdIsGivenBackByACommitOfBothKinds) {
    beginWithInsert(*first, 7);
    ASSERT_TRUE(succeeds(*first, update(1, cell("Status", switchValue(1)))));
    EXPECT_EQ(codeOf(*first, commitRequest), code::mixedChange);
    EXPECT_THAT(sharing.givenBack, ElementsAre(7U));
}

TEST_F(SharedInsertTest, IdIsGivenBackIfTheOwnerGoesAway) {
    beginWithInsert(*first, 7);
    first->disconnect();
    EXPECT_TRUE(await([this] { return !sharing.givenBack.empty(); }));
    EXPECT_THAT(sharing.givenBack, ElementsAre(7U));
    commitLocally(*second);
}

TEST_F(SharedInsertTest, IdIsGivenBackIfTheClientWentAwayBeforeItCame) {
    startInsert(*first);
    first->disconnect();
    commitLocally(*second);
    sharing.endReservation({}, 7);
    EXPECT_TRUE(await([this] { return !sharing.givenBack.empty(); }));
    EXPECT_THAT(sharing.givenBack, ElementsAre(7U));
}

TEST_F(SharedInsertTest, IdIsGivenBackIfTheClientGoesAwayBeforeItsTurn) {
    startInsert(*first);
    begin(*second, {});
    sharing.endReservation({}, 7);
    serveAll();
    first->disconnect();
    EXPECT_TRUE(await([this] { return !sharing.givenBack.empty(); }));
    EXPECT_TRUE(succeeds(*second, commitRequest));
}

TEST_F(SharedInsertTest, AllIdsOfATransactionAreGivenBack) {
    beginWithInsert(*first, 7);
    start(*first, insert("more"));
    sharing.endReservation(code::outcomeUnknown);
    EXPECT_EQ(nextCode(*first), code::outcomeUnknown);
    EXPECT_THAT(sharing.givenBack, ElementsAre(7U));
}

class ImpatientInsertTest : public SharedInsertTest {
protected:
    static store::ServerOptions options() {
        store::ServerOptions options;
        options.turnAgain = shortTime;
        options.transaction.updates = shortTime;
        return options;
    }
    ImpatientInsertTest() : SharedInsertTest(options()) {}
};

TEST_F(ImpatientInsertTest, TurnThatDoesNotComeInTimeFailsTheInsertion) {
    startInsert(*first);
    begin(*second, {});
    sharing.endReservation({}, 7);
    EXPECT_EQ(nextCode(*first), code::busy);
    EXPECT_THAT(sharing.givenBack, ElementsAre(7U));
    ASSERT_TRUE(succeeds(*second, commitRequest));
    expectOver(*first, code::busy);
}

TEST_F(ImpatientInsertTest, IdIsGivenBackIfTheTransactionExpires) {
    beginWithInsert(*first, 7);
    renameElsewhere("elsewhere");
    EXPECT_TRUE(await([this] { return !sharing.givenBack.empty(); }));
    EXPECT_THAT(sharing.givenBack, ElementsAre(7U));
    EXPECT_EQ(codeOf(*first, commitRequest), code::transactionExpired);
}

} // namespace
