#include "unit/cluster/clusterfixture.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using store::Json;
using store::SharedChange;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
namespace code = velta::protocol::code;

constexpr std::size_t plansTable = 0; // its index
constexpr const char* everything = "00000000-0000-0000-0000-000000000000";

// The device follows a cluster that holds the plan "Night", and changes it.
class ClusterCommitTest : public ClusterTest {
protected:
    ClusterCommitTest() {
        (void)held.transact(Json::array({store::insertInto("Cluster", {{"SeededBy", "attic"}}),
                                         store::insertInto("Plans", {{"Id", 1}, {"Name", "Night"}})}));
        start();
        (void)follow(false, "t1", heldRows("initial"));
    }

    Cluster::Committed noteCommit() {
        return [this](const Result& result) { committed.push_back(textOf(result)); };
    }
    Cluster::Reserved noteId() {
        return [this](const Result& result, std::uint32_t id) {
            reserved.push_back(result.ok() ? std::to_string(id) : textOf(result));
        };
    }
    static std::string textOf(const Result& result) {
        return result.ok() ? "done" : std::to_string(result.code()) + ' ' + result.detail();
    }
    static std::string textOf(int failure, const std::string& detail = "") {
        return textOf(Result(failure, detail));
    }

    SharedChange renaming(const std::string& name) {
        const store::SharedRow row = rowsOf(database, plansTable).at(0);
        return {{{row, store::SharedCells{textValue(name), row.cells.at(1)}, false}}, {}};
    }
    static SharedChange adding(std::int64_t id) {
        return {{{{plansTable, id, "", {}}, store::SharedCells{textValue("new"), textValue("")}, true}}, {}};
    }
    void rename(const std::string& name) {
        EXPECT_TRUE(cluster->commit(renaming(name), noteCommit()).ok());
        round();
    }

    // What the device's row holds, and the plans.
    void tellHeld(const std::string& transaction) {
        Json tables = Json::object();
        for (const char* const table : {"Plans", "Devices"})
            for (const Json& row : held.rows(table))
                tables[table][row.at("_uuid").at(1).get<std::string>()] = {{"insert", row}};
        member.tellChange(transaction, tables);
    }
    // A first change, with all that comes before: the device is registered, and fenced.
    void begin() {
        rename("First");
        carryOutAll();
        tellHeld("t2");
        ASSERT_THAT(committed, ElementsAre("done"));
        committed.clear();
    }

    std::vector<std::string> committed;
    std::vector<std::string> reserved;
};

TEST_F(ClusterCommitTest, ACommitIsDoneOnceItsRowsWereApplied) {
    applies = false;
    rename("Late");
    carryOutAll();
    EXPECT_EQ(held.rows("Plans").at(0).at("Name"), "Late");
    EXPECT_THAT(committed, IsEmpty());
    tellHeld("t2");
    EXPECT_THAT(committed, IsEmpty());
    EXPECT_THAT(plans(), ElementsAre("1 Night 0 ")); // a transaction is open
    EXPECT_THAT(cluster->apply(), ElementsAre("Plans"));
    EXPECT_THAT(committed, ElementsAre("done"));
    EXPECT_THAT(plans(), ElementsAre("1 Late 0 "));
}

TEST_F(ClusterCommitTest, RowsMayComeBeforeTheAnswer) {
    begin();
    rename("Late");
    const Json call = member.receive("transact");
    Json operations = call["params"];
    operations.erase(0);
    const Json results = held.transact(operations);
    tellHeld("t3");
    EXPECT_THAT(plans(), ElementsAre("1 Late 0 "));
    EXPECT_THAT(committed, IsEmpty());
    member.raw().answer(call["id"], results);
    round();
    EXPECT_THAT(committed, ElementsAre("done"));
}

TEST_F(ClusterCommitTest, RowsOfAnEarlierCommitAreNotThoseOfALaterOne) {
    begin();
    rename("Late");
    carryOutAll();
    rename("Later"); // the rows of the first did not come yet: what is read here is older
    carryOutAll();
    EXPECT_THAT(committed, ElementsAre(textOf(code::conflict, "Plans.1")));
    tellHeld("t3");
    EXPECT_THAT(committed, ElementsAre(textOf(code::conflict, "Plans.1"), "done"));
}

TEST_F(ClusterCommitTest, CommitsAreDoneEachWithItsOwnRows) {
    begin();
    rename("Late");
    carryOutAll();
    EXPECT_TRUE(cluster->commit(adding(7), noteCommit()).ok());
    const std::int64_t first = held.rows("Devices").at(0).at("Done");
    round();
    carryOutAll();
    EXPECT_EQ(held.rows("Devices").at(0).at("Done"), first + 1);
    const std::string uuid = held.rows("Plans").at(0).at("_uuid").at(1);
    member.tellChange("t3", {{"Plans", {{uuid, {{"modify", {{"Name", "Late"}}}}}}},
                             {"Devices", {{"d", {{"modify", {{"Token", first}, {"Done", first}}}}}}}});
    EXPECT_THAT(committed, ElementsAre("done"));
    tellHeld("t4");
    EXPECT_THAT(committed, ElementsAre("done", "done"));
    EXPECT_THAT(plans(), ElementsAre("1 Late 0 ", "7 new 0 "));
}

// The transaction that is open here ends after ten seconds.
TEST_F(ClusterCommitTest, RowsThatDoNotComeMakeTheOutcomeUnknownAfterFifteenSeconds) {
    begin();
    rename("Late");
    pass(seconds(3));
    carryOutAll(); // it is accepted
    EXPECT_EQ(cluster->nextDeadline(), now + seconds(15));
    pass(milliseconds(14999));
    EXPECT_THAT(committed, IsEmpty());
    pass(milliseconds(1));
    EXPECT_THAT(committed, ElementsAre(textOf(code::outcomeUnknown,
                                              "the cluster has taken the change, it could not be applied "
                                              "here yet")));
    EXPECT_THAT(linesWith("in force"), IsEmpty());
    tellHeld("t3");
    EXPECT_EQ(committed.size(), 1U);
    EXPECT_THAT(plans(), ElementsAre("1 Late 0 "));
    EXPECT_THAT(linesWith("the change with an unknown outcome is in force here"), SizeIs(1));
}

TEST_F(ClusterCommitTest, ARowThatIsRefusedHereDoesNotStandInTheWayOfItsTable) {
    begin();
    (void)held.transact(Json::array({store::insertInto("Plans", {{"Id", 9}, {"Start", "99:99"}})}));
    tellHeld("t3");
    ASSERT_THAT(linesWith("a row of the cluster is not applied"), SizeIs(1));

    SharedChange change = renaming("Late");
    change.tables = {{plansTable, rowsOf(database, plansTable)}};
    EXPECT_TRUE(cluster->commit(change, noteCommit()).ok());
    round();
    carryOutAll();
    tellHeld("t4");

    EXPECT_THAT(committed, ElementsAre("done"));
    EXPECT_THAT(plans(), ElementsAre("1 Late 0 "));
    EXPECT_EQ(held.rows("Plans").size(), 2U);
}

TEST_F(ClusterCommitTest, ARowThatIsRefusedHereCanBeReplacedHere) {
    begin();
    Json& row = held.rows("Plans").at(0);
    row["Start"] = "99:99";
    const std::string uuid = row.at("_uuid").at(1);
    member.tellChange("t3", {{"Plans", {{uuid, {{"modify", {{"Start", "99:99"}}}}}}}});
    ASSERT_THAT(plans(), ElementsAre("1 First 0 "));

    SharedChange change = renaming("First");
    change.rows[0].after->at(1) = textValue("8:00");
    change.tables = {{plansTable, rowsOf(database, plansTable)}};
    EXPECT_TRUE(cluster->commit(change, noteCommit()).ok());
    round();
    carryOutAll();
    EXPECT_EQ(held.rows("Plans").at(0).at("Start"), "8:00");
    member.tellChange("t4", {{"Plans", {{uuid, {{"modify", {{"Start", "8:00"}}}}}}},
                             {"Devices", {{"d", {{"insert", held.rows("Devices").at(0)}}}}}});

    EXPECT_THAT(committed, ElementsAre("done"));
    EXPECT_THAT(plans(), ElementsAre("1 First 0 8:00"));
    EXPECT_TRUE(member.raw().isLeft()); // its other cells may differ
    EXPECT_EQ(followAgain(false, "t5", heldRows("initial")), everything);
    rename("Held again");
    carryOutAll();
    EXPECT_EQ(lastOperations.at(2).at("op"), "wait"); // behind the token: the row as it was
}

TEST_F(ClusterCommitTest, ASingleRowThatWasRefusedFromTheFirstCanBeReplacedHere) {
    begin();
    (void)held.transact(Json::array({store::insertInto("Globals", {{"Always", 7}})}));
    (void)followAgain(false, "t3", heldRows("initial"));
    ASSERT_THAT(linesWith("a row of the cluster is not applied: Globals"), SizeIs(1));

    const store::SharedRow row = rowsOf(database, 1).at(0);
    ASSERT_EQ(row.uuid, "");
    EXPECT_TRUE(
        cluster->commit({{{row, store::SharedCells{switchValue(1)}, false}}, {{1, {row}}}}, noteCommit())
            .ok());
    round();
    carryOutAll();

    EXPECT_EQ(held.rows("Globals").size(), 1U);
    EXPECT_EQ(held.rows("Globals").at(0).at("Always"), 1);
}

// Another program has written to the file.
TEST_F(ClusterCommitTest, ConflictsThatNothingExplainsMakeItReadEverything) {
    begin();
    ASSERT_TRUE(database.transaction().update("Plans", "Id", "1", cell("Name", textValue("Other"))).ok());
    (void)commit(database);
    rename("Late");
    carryOutAll();
    EXPECT_FALSE(member.raw().isLeft());
    rename("Later");
    EXPECT_TRUE(carryOut());
    EXPECT_THAT(committed, ElementsAre(textOf(code::conflict, "Plans.1"), textOf(code::conflict, "Plans.1")));

    EXPECT_TRUE(member.raw().isLeft());
    EXPECT_THAT(linesWith("a row may differ here, everything is read again"), SizeIs(1));
    EXPECT_EQ(followAgain(false, "t5", heldRows("initial")), everything);
    EXPECT_THAT(plans(), ElementsAre("1 First 0 "));
    rename("Latest");
    carryOutAll();
    EXPECT_EQ(held.rows("Plans").at(0).at("Name"), "Latest");
}

TEST_F(ClusterCommitTest, ConflictsThatAnUpdateExplainsDoNot) {
    begin();
    for (const char* const transaction : {"t3", "t4", "t5"}) {
        held.rows("Plans").at(0)["Name"] = transaction;
        rename("Late");
        carryOutAll();
        tellHeld(transaction);
    }
    EXPECT_THAT(committed, SizeIs(3));
    EXPECT_FALSE(member.raw().isLeft());
}

TEST_F(ClusterCommitTest, AChangeThatIsTooLargeIsRefusedBeforeItIsSent) {
    begin();
    SharedChange change;
    for (int id = 10; id < 910; ++id)
        change.rows.push_back({{plansTable, id, "", {}},
                               store::SharedCells{textValue(std::string(4096, 'x')), textValue("")},
                               true});
    EXPECT_TRUE(cluster->commit(change, noteCommit()).ok());
    std::optional<Json> call; // it comes in many pieces
    for (int i = 0; i < 10000 && !call; ++i) {
        round();
        call = member.raw().poll();
    }
    ASSERT_TRUE(call);
    EXPECT_GT(call->dump().size(), 3'700'000U);
    change.rows.insert(change.rows.end(), change.rows.begin(), change.rows.begin() + 100);
    EXPECT_EQ(textOf(cluster->commit(change, noteCommit())),
              textOf(code::tooLarge, "a change of what is shared takes at most 4000000 bytes"));
    EXPECT_FALSE(member.raw().isLeft());
}

TEST_F(ClusterCommitTest, AReservationThatWasLostIsAConflict) {
    EXPECT_TRUE(cluster->reserve(plansTable, noteId()).ok());
    round();
    carryOutAll();
    ASSERT_THAT(reserved, ElementsAre("2"));
    held.rows("Reserved").clear();
    EXPECT_TRUE(cluster->commit(adding(2), noteCommit()).ok());
    round();
    carryOutAll();
    EXPECT_THAT(committed,
                ElementsAre(textOf(code::conflict, "Plans.2 is reserved for this device no longer")));
}

TEST_F(ClusterCommitTest, RowsThatComeWithTheNextConnectionFinishACommit) {
    begin();
    rename("Late");
    carryOutAll();
    member.disconnect();
    pass(seconds(1));
    EXPECT_EQ(follow(true, "t3", Json::object()), "t2");
    EXPECT_THAT(committed, IsEmpty());
    tellHeld("t3");
    EXPECT_THAT(committed, ElementsAre("done"));
}

TEST_F(ClusterCommitTest, WithoutAnAnswerTheOutcomeIsUnknownAfterFiveSeconds) {
    begin();
    rename("Late");
    pass(milliseconds(4999));
    EXPECT_THAT(committed, IsEmpty());
    EXPECT_EQ(cluster->nextDeadline(), now + milliseconds(1));
    pass(milliseconds(1));
    EXPECT_THAT(committed,
                ElementsAre(textOf(code::outcomeUnknown,
                                   "the cluster does not answer, and may apply the change later")));
}

TEST_F(ClusterCommitTest, WhatWasNeverSentWasNotApplied) {
    rename("Late"); // its token has to be read before
    pass(seconds(5));
    EXPECT_THAT(committed, ElementsAre(textOf(code::clusterUnreachable)));
}

TEST_F(ClusterCommitTest, ChangesAreRefusedAtOnceWhileTheClusterIsAway) {
    member.tellServer("modify", {{"connected", false}});
    EXPECT_EQ(cluster->commit(renaming("Late"), noteCommit()).code(), code::clusterUnreachable);
    EXPECT_EQ(cluster->reserve(plansTable, noteId()).code(), code::clusterUnreachable);
    member.tellServer("modify", {{"connected", true}});
    EXPECT_TRUE(cluster->commit(renaming("Late"), noteCommit()).ok());
    member.disconnect();
    EXPECT_EQ(cluster->commit(renaming("Late"), noteCommit()).code(), code::clusterUnreachable);
    EXPECT_THAT(reserved, IsEmpty());
}

TEST_F(ClusterCommitTest, TextThatTheClusterCantHoldIsRefusedAtOnce) {
    EXPECT_EQ(cluster->commit(renaming("\xff"), noteCommit()).code(), code::wrongKind);
    round();
    EXPECT_FALSE(member.raw().poll());
}

TEST_F(ClusterCommitTest, WhatAnotherDeviceChangedMeanwhileIsAConflict) {
    begin();
    held.rows("Plans").at(0)["Name"] = "Theirs";
    rename("Late");
    carryOutAll();
    EXPECT_THAT(committed, ElementsAre(textOf(code::conflict, "Plans.1")));
}

TEST_F(ClusterCommitTest, AnIdThatIsTakenIsADuplicate) {
    begin();
    EXPECT_TRUE(cluster->commit(adding(1), noteCommit()).ok());
    round();
    carryOutAll();
    EXPECT_THAT(committed,
                ElementsAre(textOf(code::duplicateId, "another device has inserted it meanwhile")));
}

TEST_F(ClusterCommitTest, AnIdThatIsPromisedToAnotherDeviceIsADuplicate) {
    begin();
    (void)held.transact(
        Json::array({store::insertInto("Reserved", {{"Table", "Plans"}, {"Id", 5}, {"Device", "attic"}})}));
    EXPECT_TRUE(cluster->commit(adding(5), noteCommit()).ok());
    round();
    carryOutAll();
    EXPECT_THAT(committed, ElementsAre(textOf(code::duplicateId, "Plans.5 is promised to another device")));
    EXPECT_EQ(held.rows("Reserved").size(), 1U);
}

TEST_F(ClusterCommitTest, AReservationDoesNotConcernARowThatIsThere) {
    begin();
    (void)held.transact(
        Json::array({store::insertInto("Reserved", {{"Table", "Plans"}, {"Id", 1}, {"Device", "attic"}})}));
    rename("Late");
    carryOutAll();
    tellHeld("t3");
    EXPECT_THAT(committed, ElementsAre("done"));
}

TEST_F(ClusterCommitTest, AnIdThatADeadDeviceHasReservedCanBeTakenAMinuteAfterItWasRefused) {
    begin();
    (void)held.transact(
        Json::array({store::insertInto("Reserved", {{"Table", "Plans"}, {"Id", 5}, {"Device", "attic"}})}));
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(cluster->commit(adding(5), noteCommit()).ok());
        round();
        carryOutAll();
        for (int part = 0; part < 5; ++part) { // a minute in which the member is not silent
            pass(std::chrono::seconds(12));
            member.tellServer("modify", {{"connected", true}});
            carryOutAll();
        }
    }
    EXPECT_TRUE(held.rows("Reserved").empty());
    EXPECT_EQ(held.rows("Plans").size(), 2U);
}

TEST_F(ClusterCommitTest, AReservedIdIsFreedByTheCommitThatUsesIt) {
    EXPECT_TRUE(cluster->reserve(plansTable, noteId()).ok());
    round();
    carryOutAll();
    EXPECT_THAT(reserved, ElementsAre("2"));
    EXPECT_EQ(held.rows("Reserved").size(), 1U);

    EXPECT_TRUE(cluster->commit(adding(2), noteCommit()).ok());
    round();
    carryOutAll();
    tellHeld("t2");
    EXPECT_THAT(committed, ElementsAre("done"));
    EXPECT_THAT(held.rows("Reserved"), IsEmpty());
    cluster->giveBack(plansTable, 2); // nothing is left to be given back
    round();
    EXPECT_FALSE(member.raw().poll());
}

TEST_F(ClusterCommitTest, ARefusedCommitLeavesTheReservationToBeGivenBack) {
    EXPECT_TRUE(cluster->reserve(plansTable, noteId()).ok());
    round();
    carryOutAll();
    (void)held.transact(Json::array({store::insertInto("Plans", {{"Id", 2}, {"Name", "Theirs"}})}));
    EXPECT_TRUE(cluster->commit(adding(2), noteCommit()).ok());
    round();
    carryOutAll();
    EXPECT_EQ(committed.size(), 1U);
    EXPECT_EQ(held.rows("Reserved").size(), 1U);
    cluster->giveBack(plansTable, 2);
    round();
    carryOutAll();
    EXPECT_THAT(held.rows("Reserved"), IsEmpty());
}

TEST_F(ClusterCommitTest, AReservationOutlivesALostConnection) {
    EXPECT_TRUE(cluster->reserve(plansTable, noteId()).ok());
    round(); // it looks which are free
    member.disconnect();
    pass(seconds(1));
    (void)follow(true, "t1", Json::object());
    carryOutAll();
    EXPECT_THAT(reserved, ElementsAre("2"));
}

TEST_F(ClusterCommitTest, NothingIsSentToAMemberThatLostTheOthers) {
    EXPECT_TRUE(cluster->reserve(plansTable, noteId()).ok());
    round();
    carryOutAll();
    member.tellServer("modify", {{"connected", false}});
    cluster->giveBack(plansTable, 2);
    round();
    EXPECT_FALSE(member.raw().poll());
    member.tellServer("modify", {{"connected", true}});
    carryOutAll();
    EXPECT_THAT(held.rows("Reserved"), IsEmpty());
}

TEST_F(ClusterCommitTest, ADeviceThatLeavesTakesItsReservationsWithIt) {
    begin();
    EXPECT_TRUE(cluster->reserve(plansTable, noteId()).ok());
    round();
    carryOutAll();
    cluster->leave(noteCommit());
    carryOutAll();
    EXPECT_THAT(committed, ElementsAre("done"));
    EXPECT_THAT(held.rows("Reserved"), IsEmpty());
    EXPECT_THAT(held.rows("Devices"), IsEmpty());
    EXPECT_TRUE(cluster->hasFollowed());
}

TEST_F(ClusterCommitTest, ADeviceHasLeftThoughTheAnswerWasLost) {
    begin();
    cluster->leave(noteCommit());
    Json operations = member.receive("transact")["params"];
    operations.erase(0);
    (void)held.transact(operations);
    EXPECT_THAT(held.rows("Devices"), IsEmpty());
    member.disconnect();
    pass(seconds(1));
    (void)follow(true, "t3", Json::object());
    carryOutAll();
    EXPECT_THAT(committed, ElementsAre("done"));
    EXPECT_THAT(held.rows("Devices"), IsEmpty());
}

TEST_F(ClusterCommitTest, ADeviceThatGetsNoAnswerHasNotLeft) {
    begin();
    cluster->leave(noteCommit());
    pass(seconds(5));
    EXPECT_THAT(committed, ElementsAre(textOf(code::clusterUnreachable)));
}

TEST_F(ClusterCommitTest, AReservationWithoutAnAnswerFailsAfterFiveSeconds) {
    EXPECT_TRUE(cluster->reserve(plansTable, noteId()).ok());
    round();
    pass(milliseconds(4999));
    EXPECT_THAT(reserved, IsEmpty());
    pass(milliseconds(1));
    EXPECT_THAT(reserved, ElementsAre(textOf(code::clusterUnreachable)));
}

TEST_F(ClusterCommitTest, AChangeThatOutlivedItsConnectionIsLookedInto) {
    begin();
    rename("Late");
    const Json call = member.receive("transact");
    Json operations = call["params"];
    operations.erase(0);
    (void)held.transact(operations); // it is applied, and not answered
    member.disconnect();
    pass(seconds(1));
    EXPECT_EQ(follow(true, "t2", Json::object()), "t2");
    carryOutAll();
    EXPECT_THAT(committed, IsEmpty()); // its rows are not here
    tellHeld("t3");
    EXPECT_THAT(committed, ElementsAre("done"));
    EXPECT_THAT(plans(), ElementsAre("1 Late 0 "));
}

TEST_F(ClusterCommitTest, TheDeviceIsKnownByTheNameThatItsDatabaseRemembers) {
    rename("Late");
    carryOutAll();
    ASSERT_EQ(held.rows("Devices").size(), 1U);
    EXPECT_EQ(held.rows("Devices").at(0).at("Name"), "kitchen");
}

} // namespace
