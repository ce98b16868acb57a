#include "unit/cluster/clusterfixture.h"

#include <filesystem>
#include <thread>

namespace {

using store::Json;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class ClusterBoundsTest : public ClusterTest {};

TEST_F(ClusterBoundsTest, TheTablesAreKeptBesideOnceHoweverOftenItConnects) {
    applies = false;
    start();
    follow(false, "t1", filled({{"u1", plan(1, "Night")}}));
    followAgain(false, "t1", filled({{"u1", plan(1, "Night")}}));

    EXPECT_TRUE(std::filesystem::exists(path + ".before-cluster"));
    EXPECT_FALSE(std::filesystem::exists(path + ".before-cluster1"));
    EXPECT_THAT(linesWith("before the cluster are kept in"), SizeIs(1));
}

// Sent while the device reads: the socket holds a part of it.
TEST_F(ClusterBoundsTest, AllThatAClusterHoldsIsTakenHoweverManyRowsThatAre) {
    constexpr int count = 20'100;
    Json rows = Json::object();
    for (int i = 1; i <= count; ++i)
        rows["u" + std::to_string(i)] = plan(i, "");
    start();
    member.acceptWith(database.schema(), {{"connected", true}, {"index", 5}});
    const Json call = member.receive("monitor_cond_since");
    std::thread sender([&] { member.raw().answer(call["id"], Json::array({false, "t1", filled(rows)})); });
    while (changed.empty() && linesWith("can't be followed").empty())
        round();
    sender.join();

    EXPECT_THAT(linesWith("can't be followed"), IsEmpty());
    EXPECT_THAT(plans(), SizeIs(count));
}

TEST_F(ClusterBoundsTest, ChangesWithoutRowsAreNotKeptWithoutBoundEither) {
    start();
    follow(false, "t1", filled(Json::object()));
    applies = false;
    for (int i = 0; i < 20'100 && !member.raw().isLeft(); ++i)
        member.tellChange("t2", Json::object());
    EXPECT_TRUE(member.raw().isLeft());
    EXPECT_THAT(linesWith("it sends more than can be applied"), SizeIs(1));
}

TEST_F(ClusterBoundsTest, ChangesWithLongTextsAreNotKeptWithoutBoundEither) {
    start();
    follow(false, "t1", filled({{"u1", plan(1, "")}}));
    applies = false;
    const Json row = {{"Plans", {{"u1", {{"modify", {{"Name", std::string(4000, 'x')}}}}}}}};
    for (int i = 0; i < 1'000; ++i)
        member.tellChange("t2", row);
    EXPECT_FALSE(member.raw().isLeft());
    for (int i = 0; i < 2'000 && !member.raw().isLeft(); ++i)
        member.tellChange("t2", row);
    EXPECT_TRUE(member.raw().isLeft());
}

TEST_F(ClusterBoundsTest, ManyTransactionsAreAppliedInPartsSoThatClientsHaveTheirTurns) {
    start();
    follow(false, "t1", filled({{"u1", plan(1, "Night")}}));
    applies = false;
    for (const char* const name : {"One", "Two", "Three"})
        member.tellChange(name, {{"Plans", {{"u1", {{"modify", {{"Name", name}}}}}}}});
    tick = std::chrono::milliseconds(30);
    (void)cluster->apply();
    EXPECT_THAT(plans(), ElementsAre("1 Two 0 "));
    EXPECT_TRUE(cluster->hasUpdates());
    (void)cluster->apply();
    EXPECT_THAT(plans(), ElementsAre("1 Three 0 "));
    EXPECT_FALSE(cluster->hasUpdates());
}

} // namespace
