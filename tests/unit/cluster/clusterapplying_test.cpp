#include "unit/cluster/clusterfixture.h"

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

class ClusterApplyingTest : public ClusterTest {
protected:
    ClusterApplyingTest() {
        start();
        (void)follow(false, "t1", filled({{"u1", plan(1, "Night")}}));
    }

    void tellPlan(const std::string& transaction, const std::string& uuid, const std::string& kind,
                  const Json& cells) {
        member.tellChange(transaction, {{"Plans", {{uuid, {{kind, cells}}}}}});
    }
};

TEST_F(ClusterApplyingTest, StorageThatFailsIsTriedAgainAfterASecond) {
    applies = false;
    tellPlan("t2", "u1", "modify", {{"Name", "Late"}});
    tellPlan("t3", "u2", "insert", {{"Id", 2}, {"Name", "Day"}});
    disk.failWrites(1000);
    EXPECT_THAT(cluster->apply(), IsEmpty());
    EXPECT_FALSE(cluster->hasUpdates()); // for a second
    EXPECT_EQ(cluster->nextDeadline(), now + seconds(1));
    pass(milliseconds(999));
    EXPECT_FALSE(cluster->hasUpdates());
    pass(milliseconds(1));
    EXPECT_TRUE(cluster->hasUpdates());
    EXPECT_GT(cluster->nextDeadline(), now + seconds(1)); // the end of a transaction is waited for
    EXPECT_THAT(cluster->apply(), IsEmpty());
    EXPECT_THAT(plans(), ElementsAre("1 Night 0 "));
    EXPECT_THAT(linesWith("what the cluster holds can't be applied, it is tried again"), SizeIs(1));

    disk.failWrites(0);
    pass(seconds(1));
    EXPECT_THAT(cluster->apply(), ElementsAre("Plans"));
    EXPECT_THAT(plans(), ElementsAre("1 Late 0 ", "2 Day 0 "));
    EXPECT_EQ(position().lastTransaction, "t3");
    EXPECT_FALSE(member.raw().isLeft());
}

TEST_F(ClusterApplyingTest, AFailureAfterASuccessIsLoggedAgain) {
    for (int i = 0; i < 2; ++i) {
        disk.failWrites(1000);
        tellPlan("t2", "u1", "modify", {{"Name", "Late " + std::to_string(i)}});
        disk.failWrites(0);
        pass(seconds(1));
    }
    EXPECT_THAT(plans(), ElementsAre("1 Late 1 0 "));
    EXPECT_THAT(linesWith("it is tried again"), SizeIs(2));
}

TEST_F(ClusterApplyingTest, RowThatTheColumnsRefuseIsNamedAndTheOthersAreApplied) {
    member.tellChange("t2", {{"Plans",
                              {{"u1", {{"modify", {{"Start", "25:00"}}}}},
                               {"u3", {{"insert", {{"Id", 3}, {"Start", "26:00"}}}}},
                               {"u4", {{"insert", {{"Id", 4}, {"Start", "4:00"}}}}}}}});
    EXPECT_THAT(plans(), ElementsAre("1 Night 0 ", "4  0 4:00"));
    EXPECT_THAT(linesWith("a row of the cluster is not applied"),
                ElementsAre(HasSubstr(R"(Plans (u1) Start: "25:00" is not a time of day)"),
                            HasSubstr(R"(Plans.3 Start: "26:00" is not a time of day)")));
    EXPECT_EQ(position().lastTransaction, "");
}

TEST_F(ClusterApplyingTest, RowThatTheStorageRefusesIsNamedAndTheOthersAreApplied) {
    member.tellChange("t2",
                      {{"Plans", {{"u0", {{"insert", {{"Id", 0}}}}}, {"u4", {{"insert", {{"Id", 4}}}}}}}});
    EXPECT_THAT(plans(), ElementsAre("1 Night 0 ", "4  0 "));
    EXPECT_THAT(linesWith("a row of the cluster is not applied"),
                ElementsAre(HasSubstr("Plans.0: its Id is not from 1 to 2147483647")));
    EXPECT_EQ(position().lastTransaction, "");
    EXPECT_EQ(followAgain(false, "t3", filled(Json::object())), everything);
}

// The schema may be another one then.
TEST_F(ClusterApplyingTest, RefusedRowsAreReadAgainAtTheNextConnect) {
    for (const char* const id : {"3", "0"}) { // is refused by the column of Start; by the storage
        const Json bad = {{"Id", std::stoi(id)}, {"Start", std::string(id) == "3" ? "x" : ""}};
        tellPlan("t2", "bad", "insert", bad);
        tellPlan("t3", "u5", "insert", {{"Id", 5}});
        EXPECT_EQ(position().lastTransaction, "");
        Json all = filled({{"u1", plan(1, "Night")}});
        EXPECT_EQ(followAgain(false, "t4", all), everything) << id;
        EXPECT_EQ(position().lastTransaction, "t4");
        EXPECT_EQ(followAgain(true, "t4", Json::object()), "t4");
    }
    EXPECT_THAT(plans(), ElementsAre("1 Night 0 "));
}

TEST_F(ClusterApplyingTest, WhatWaitsBehindARefusedRowDoesNotHideIt) {
    applies = false;
    tellPlan("t2", "bad", "insert", {{"Id", 0}});
    tellPlan("t3", "u5", "insert", {{"Id", 5}});
    EXPECT_THAT(cluster->apply(), ElementsAre("Plans"));
    EXPECT_THAT(plans(), SizeIs(2));
    EXPECT_EQ(position().lastTransaction, "");
}

// A plan that was in force is not removed because a new time of it can't be read.
TEST_F(ClusterApplyingTest, RowThatIsRefusedStaysAsItWasInAReadingOfAllToo) {
    setStatus(database, 1, 1);
    followAgain(false, "t2",
                filled({{"u1", {{"initial", {{"Id", 1}, {"Name", "New"}, {"Start", "25:00"}}}}},
                        {"u2", plan(2, "Day")}}));
    EXPECT_THAT(plans(), ElementsAre("1 Night 1 ", "2 Day 0 "));
    EXPECT_EQ(followAgain(false, "t3", filled({{"u1", plan(1, "Mended")}})), everything);
    EXPECT_THAT(plans(), ElementsAre("1 Mended 1 "));
}

TEST_F(ClusterApplyingTest, ARefusedRowIsNamedOnceHoweverOftenItComes) {
    const Json bad =
        filled({{"bad", {{"initial", {{"Id", 3}, {"Start", "x"}}}}}, {"u0", {{"initial", {{"Id", 0}}}}}});
    for (int i = 0; i < 3; ++i)
        followAgain(false, "t2", bad);
    EXPECT_THAT(linesWith("a row of the cluster is not applied"), SizeIs(2));
    followAgain(false, "t3", filled({{"u1", plan(1, "Night")}})); // now all is well
    followAgain(false, "t4", bad);
    EXPECT_THAT(linesWith("a row of the cluster is not applied"), SizeIs(4));
}

// The log is not a member's to fill.
TEST_F(ClusterApplyingTest, AHundredRefusedRowsAreNamed) {
    for (int i = 100; i < 250; ++i)
        tellPlan("t2", "bad", "insert", {{"Id", i}, {"Start", "x"}});
    EXPECT_THAT(linesWith("a row of the cluster is not applied"), SizeIs(100));
}

TEST_F(ClusterApplyingTest, TenRefusedRowsAreNamedAndTheOthersCounted) {
    Json rows = Json::object();
    for (int i = 0; i < 13; ++i)
        rows["u" + std::to_string(100 + i)] = {{"insert", {{"Id", 100 + i}, {"Start", "x"}}}};
    member.tellChange("t2", {{"Plans", rows}});
    EXPECT_THAT(linesWith("a row of the cluster is not applied: Plans.1"), SizeIs(10));
    EXPECT_THAT(linesWith("3 further rows of the cluster are not applied"), SizeIs(1));
}

// A database that has lost its last commits goes on from where it is, not from where this process was.
TEST_F(ClusterApplyingTest, DatabaseThatLostCommitsIsFollowedFromWhereItIs) {
    applies = false;
    tellPlan("t2", "u2", "insert", {{"Id", 2}, {"Name", "Day"}});
    ASSERT_EQ(truncate((path + "-wal").c_str(), 0), 0);
    database.filesTouched();
    ASSERT_EQ(database.timesOpened(), 2U);

    round();
    EXPECT_TRUE(member.raw().isLeft());
    EXPECT_FALSE(cluster->hasUpdates()); // what was to follow the lost ones
    EXPECT_THAT(linesWith("the database was opened anew"), SizeIs(testing::Ge(1U)));
    applies = true;
    pass(seconds(1));
    EXPECT_EQ(follow(false, "t2", filled({{"u1", plan(1, "Night")}, {"u2", plan(2, "Day")}})), everything);
    EXPECT_THAT(plans(), ElementsAre("1 Night 0 ", "2 Day 0 "));
    EXPECT_EQ(position().lastTransaction, "t2");
}

TEST_F(ClusterApplyingTest, DatabaseThatWasOpenedAnewAndLostNothingGoesOn) {
    setStatus(database, 1, 1);
    ASSERT_EQ(unlink((path + "-wal").c_str()), 0);
    database.filesTouched();
    ASSERT_EQ(database.timesOpened(), 2U);
    round();
    EXPECT_TRUE(member.raw().isLeft());
    pass(seconds(1));
    EXPECT_EQ(follow(true, "t2", {{"Plans", {{"u1", {{"modify", {{"Name", "Late"}}}}}}}}), "t1");
    EXPECT_THAT(plans(), ElementsAre("1 Late 1 "));
}

TEST_F(ClusterApplyingTest, DatabaseThatWasOpenedAnewAndCanNotBeWrittenToIsTriedAgain) {
    ASSERT_EQ(truncate((path + "-wal").c_str(), 0), 0); // what it remembered of the cluster is lost
    database.filesTouched();
    ASSERT_EQ(database.timesOpened(), 2U);
    disk.failWrites(1000);

    round();
    EXPECT_FALSE(member.raw().isLeft());
    EXPECT_THAT(linesWith("what the cluster holds can't be applied, it is tried again"), SizeIs(1));
    EXPECT_EQ(cluster->nextDeadline(), now + seconds(1));

    disk.failWrites(0);
    pass(seconds(1));
    EXPECT_TRUE(member.raw().isLeft());
    EXPECT_EQ(followAgain(false, "t2", filled({{"u1", plan(1, "Night")}})), everything);
    EXPECT_THAT(plans(), ElementsAre("1 Night 0 "));
}

} // namespace
