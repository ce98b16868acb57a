#include "unit/cluster/clusterfixture.h"

#include <filesystem>

#include <unistd.h>

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using store::Json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* everything = "00000000-0000-0000-0000-000000000000";

TEST_F(ClusterTest, AnEmptyClusterIsFilledWithWhatTheDeviceHas) {
    insertPlan(database, 1, "Night", 1);
    start();
    EXPECT_EQ(follow(false, "t0", Json::object()), everything);
    EXPECT_FALSE(cluster->hasUpdates());
    EXPECT_TRUE(carryOut());
    EXPECT_EQ(lastOperations.back(), (Json{{"op", "commit"}, {"durable", true}}));
    member.tellChange("t1", heldRows("insert"));

    EXPECT_THAT(plans(), ElementsAre("1 Night 1 ")); // with its state
    EXPECT_EQ(position().cluster, held.rows("Cluster").at(0).at("_uuid").at(1));
    EXPECT_EQ(position().lastTransaction, "t1");
    EXPECT_EQ(position().index, 5U);
    EXPECT_EQ(rowsOf(database, 0).at(0).uuid, held.rows("Plans").at(0).at("_uuid").at(1));
    EXPECT_EQ(held.rows("Cluster").at(0).at("SeededBy"), "kitchen");
    EXPECT_FALSE(std::filesystem::exists(path + ".before-cluster"));
    pass(seconds(10));
    EXPECT_FALSE(member.raw().isLeft());
    EXPECT_THAT(linesWith("warning"), IsEmpty());
}

TEST_F(ClusterTest, ADeviceThatComesLaterKeepsItsTablesBesideAndTakesOver) {
    insertPlan(database, 1, "Mine", 1);
    start();
    follow(false, "t1", filled({{"u2", plan(2, "Shared")}}));

    EXPECT_THAT(plans(), ElementsAre("2 Shared 0 "));
    EXPECT_EQ(position().cluster, "c1");
    store::Database before(schemaOf(sharedTables), path + ".before-cluster");
    EXPECT_THAT(plansIn(before), ElementsAre("1 Mine 1 "));
    EXPECT_THAT(linesWith("before the cluster are kept in " + path + ".before-cluster").size(), 1U);
    EXPECT_EQ(changed, (std::vector<velta::NameList>{{"Plans"}}));
}

TEST_F(ClusterTest, ADeviceWhoseFillingWasTooLateTakesOver) {
    insertPlan(database, 1, "Mine", 1);
    start();
    follow(false, "t0", Json::object());
    (void)held.transact(Json::array({store::insertInto("Cluster", {{"SeededBy", "attic"}}),
                                     store::insertInto("Plans", {{"Id", 1}, {"Name", "Other"}})}));
    EXPECT_TRUE(carryOut()); // in vain
    member.tellChange("t1", heldRows("insert"));

    EXPECT_THAT(plans(), ElementsAre("1 Other 0 "));
    EXPECT_TRUE(std::filesystem::exists(path + ".before-cluster"));
    member.tellChange("t2", {{"Plans", {{"u9", {{"insert", {{"Id", 9}, {"Name", "Next"}}}}}}}});
    EXPECT_THAT(plans(), ElementsAre("1 Other 0 ", "9 Next 0 "));
}

TEST_F(ClusterTest, AMemberThatTakesNoRowsIsLeftAfterTenSeconds) {
    start();
    follow(false, "t0", Json::object());
    EXPECT_EQ(cluster->nextDeadline(), now + seconds(10));
    pass(milliseconds(9999));
    EXPECT_FALSE(member.raw().isLeft());
    pass(milliseconds(1));
    EXPECT_TRUE(member.raw().isLeft());
    EXPECT_THAT(linesWith("it does not take the rows of this device").size(), 1U);
}

TEST_F(ClusterTest, WhyAMemberTakesNoRowsIsSaid) {
    start();
    follow(false, "t0", Json::object());
    const Json call = member.receive("transact");
    member.raw().answer(call["id"],
                        Json::parse(R"([{}, {"error": "permission denied", "details": "no role"}])"));
    pass(seconds(10));
    EXPECT_THAT(linesWith("it does not take the rows of this device: permission denied: no role"), SizeIs(1));
}

TEST_F(ClusterTest, ADeviceThatHasMoreThanAChangeCanHoldDoesNotFillTheCluster) {
    for (int id = 1; id <= 1000; ++id) {
        std::uint32_t given = 0;
        ASSERT_TRUE(database.transaction()
                        .insert("Plans", cell("Name", textValue(std::string(4000, 'x'))), given)
                        .ok());
    }
    (void)commit(database);
    start();
    follow(false, "t0", Json::object());
    EXPECT_TRUE(member.raw().isLeft());
    EXPECT_THAT(
        linesWith("it is empty, and can't hold what this device has: too large: a change of what is shared "
                  "takes at most 4000000 bytes"),
        SizeIs(1));
}

TEST_F(ClusterTest, AMemberThatDoesNotTellAllToADeviceThatKnowsNothingIsLeft) {
    start();
    follow(true, "t1", Json::object());
    EXPECT_TRUE(member.raw().isLeft());
    EXPECT_THAT(linesWith("it does not tell all that it holds"), SizeIs(1));
}

TEST_F(ClusterTest, TheTimeForFillingEndsWithTheConnection) {
    start();
    follow(false, "t0", Json::object());
    member.disconnect();
    pass(milliseconds(9500)); // it is called again, and slow
    member.accept();
    pass(milliseconds(500));
    EXPECT_FALSE(member.raw().isLeft());
    EXPECT_THAT(linesWith("it does not take the rows"), IsEmpty());
}

TEST_F(ClusterTest, ItGoesOnFromTheTransactionThatItKnows) {
    start();
    follow(false, "t1", filled({{"u1", plan(1, "Night")}, {"u2", plan(2, "Day")}}));
    setStatus(database, 1, 1);
    start();
    EXPECT_EQ(follow(true, "t3", {{"Plans", {{"u1", {{"modify", {{"Name", "Late"}}}}}}}}, 8), "t1");
    EXPECT_THAT(plans(), ElementsAre("1 Late 1 ", "2 Day 0 "));
    EXPECT_EQ(position().lastTransaction, "t3");
    EXPECT_EQ(position().index, 8U);
    EXPECT_EQ(position().cluster, "c1");
    EXPECT_FALSE(std::filesystem::exists(path + ".before-cluster1"));

    EXPECT_EQ(followAgain(true, "t3", Json::object(), 8), "t3");
    EXPECT_EQ(plans().size(), 2U);
}

TEST_F(ClusterTest, AReadingOfAllBringsDeletionsToo) {
    start();
    follow(false, "t1", filled({{"u1", plan(1, "Night")}, {"u2", plan(2, "Day")}}));
    setStatus(database, 2, 1);
    EXPECT_EQ(followAgain(false, "t9", filled({{"u2", plan(2, "Noon")}})), "t1");
    EXPECT_THAT(plans(), ElementsAre("2 Noon 1 "));
    EXPECT_FALSE(std::filesystem::exists(path + ".before-cluster1")); // what is shared was kept once
}

// Somebody else wrote it into the file.
TEST_F(ClusterTest, ARowThatWasMadeWithoutTheClusterIsReplacedByADeviceThatFilledItToo) {
    const auto filledHere = [](const Json& plans) {
        Json tables = filled(plans);
        tables["Cluster"]["c1"]["initial"]["SeededBy"] = "kitchen";
        return tables;
    };
    start();
    follow(false, "t1", filledHere({{"u1", plan(1, "Night")}}));
    insertPlan(database, 5, "Local", 1);
    followAgain(false, "t2", filledHere({{"u1", plan(1, "Night")}, {"u5", plan(5, "Shared")}}));
    EXPECT_THAT(plans(), ElementsAre("1 Night 0 ", "5 Shared 0 "));
}

TEST_F(ClusterTest, ARelayDoesNotMakeTheKnownPlaceInTheLogForgotten) {
    start();
    follow(false, "t1", filled(Json::object()), 7);
    member.disconnect();
    pass(seconds(1));
    member.acceptWith(database.schema(), {{"connected", true}});
    member.tellTables(true, "t2", {{"Plans", {{"u1", plan(1, "Night")}}}});
    EXPECT_EQ(position().lastTransaction, "t2");
    EXPECT_EQ(position().index, 7U);
}

TEST_F(ClusterTest, AnotherClusterIsRefusedAndAllStays) {
    start();
    follow(false, "t1", filled({{"u1", plan(1, "Night")}}));
    followAgain(false, "t1", filled({{"u7", plan(7, "Other")}}, "c2"));
    EXPECT_TRUE(member.raw().isLeft());
    EXPECT_THAT(plans(), ElementsAre("1 Night 0 "));
    EXPECT_EQ(position().cluster, "c1");
    EXPECT_THAT(linesWith("it is of another cluster than the one that this device follows").size(), 1U);
    EXPECT_FALSE(cluster->hasUpdates());
}

TEST_F(ClusterTest, AnEmptyClusterIsRefusedByADeviceThatFollowsOne) {
    start();
    follow(false, "t1", filled({{"u1", plan(1, "Night")}}));
    followAgain(false, "t0", Json::object());
    EXPECT_TRUE(member.raw().isLeft());
    EXPECT_THAT(plans(), ElementsAre("1 Night 0 "));
    EXPECT_THAT(linesWith("it holds an empty cluster").size(), 1U);
}

TEST_F(ClusterTest, MalformedRowsAreAReasonToLeave) {
    start();
    follow(false, "t1", filled({{"u1", plan(1, "Night")}}));
    member.tellChange("t2", {{"Plans", {{"u1", 7}}}});
    EXPECT_TRUE(member.raw().isLeft());
    EXPECT_THAT(linesWith("table Plans: a malformed row").size(), 1U);
    EXPECT_THAT(plans(), ElementsAre("1 Night 0 "));
}

TEST_F(ClusterTest, EachTransactionIsACommitAndAChangeOfATableIsToldOnce) {
    applies = false;
    start();
    follow(false, "t1", filled({{"u1", plan(1, "Night")}}));
    member.tellChange("t2", {{"Globals", {{"g", {{"insert", {{"Always", 1}}}}}}}});
    member.tellChange("t3", {{"Plans", {{"u1", {{"modify", {{"Name", "Late"}}}}}}}});
    EXPECT_THAT(plans(), IsEmpty());
    EXPECT_TRUE(cluster->hasUpdates());
    EXPECT_THAT(cluster->apply(), testing::UnorderedElementsAre("Plans", "Globals"));
    EXPECT_FALSE(cluster->hasUpdates());
    EXPECT_THAT(plans(), ElementsAre("1 Late 0 "));
    EXPECT_EQ(position().lastTransaction, "t3");
}

TEST_F(ClusterTest, WhatWasNotAppliedBeforeTheConnectionWasLostComesAgain) {
    start();
    follow(false, "t1", filled({{"u1", plan(1, "Night")}}));
    applies = false;
    member.tellChange("t2", {{"Plans", {{"u1", {{"modify", {{"Name", "Late"}}}}}}}});
    EXPECT_EQ(followAgain(true, "t2", {{"Plans", {{"u1", {{"modify", {{"Name", "Later"}}}}}}}}), "t1");
    EXPECT_THAT(cluster->apply(), ElementsAre("Plans"));
    EXPECT_FALSE(cluster->hasUpdates());
    EXPECT_THAT(plans(), ElementsAre("1 Later 0 "));
}

TEST_F(ClusterTest, ALackOfCellsMakesItReadEverything) {
    start();
    follow(false, "t1", filled({{"u1", plan(1, "Night")}}));
    member.tellChange("t2", {{"Plans", {{"u2", {{"modify", {{"Name", "Unknown"}}}}}}}});
    EXPECT_TRUE(member.raw().isLeft());
    EXPECT_FALSE(cluster->hasUpdates());
    EXPECT_THAT(linesWith("a row changed that is not known here").size(), 1U);
    pass(seconds(1));
    EXPECT_EQ(follow(false, "t3", filled({{"u2", plan(2, "Known")}})), everything);
    EXPECT_THAT(plans(), ElementsAre("2 Known 0 "));
}

TEST_F(ClusterTest, MoreThanCanBeAppliedIsNotKept) {
    start();
    follow(false, "t1", filled({{"u1", plan(1, "Night")}}));
    applies = false;
    const auto tellRows = [this](int count) {
        Json rows = Json::object();
        for (int i = 0; i < count; ++i)
            rows[std::to_string(i)] = {{"delete", nullptr}};
        member.tellChange("t2", {{"Plans", rows}});
        round(); // it is read in pieces
        round();
    };
    for (int i = 0; i < 4; ++i)
        tellRows(4990);
    EXPECT_FALSE(member.raw().isLeft());
    tellRows(100);
    EXPECT_TRUE(member.raw().isLeft());
    EXPECT_THAT(linesWith("it sends more than can be applied").size(), 1U);

    pass(seconds(1));
    EXPECT_EQ(follow(false, "t3", filled({{"u2", plan(2, "Day")}})), "t1");
    applies = true;
    round();
    EXPECT_THAT(plans(), ElementsAre("2 Day 0 "));
    for (int i = 0; i < 5; ++i) // what was dropped and what was applied does not count
        tellRows(4990);
    EXPECT_FALSE(member.raw().isLeft());
}

TEST_F(ClusterTest, TransactionsWithoutRowsAreNotKeptWithoutBoundEither) {
    start();
    follow(false, "t1", filled(Json::object()));
    applies = false;
    std::string notices;
    for (int i = 0; i < 500; ++i)
        notices += R"({"id":null,"method":"update3","params":["tables","t2",{}]})";
    for (int i = 0; i < 41 && !member.raw().isLeft(); ++i) {
        member.raw().sendBytes(notices);
        for (int rounds = 0; rounds < 5; ++rounds)
            round();
    }
    EXPECT_TRUE(member.raw().isLeft());
    EXPECT_THAT(linesWith("it sends more than can be applied").size(), 1U);
}

} // namespace
