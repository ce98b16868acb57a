#include "store/cluster/reservations.h"
#include "store/storage/schema.h"
#include "support/fakeovsdb.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

using store::GuardedTransactions;
using store::Json;
using store::Reservations;
using Clock = Reservations::Clock;
using Result = Reservations::Result;
namespace code = velta::protocol::code;

constexpr std::size_t plans = 0; // the indexes of the tables
constexpr std::size_t rooms = 1;

test::FakeOvsdb emptyCluster() {
    test::FakeOvsdb tables({{"Devices", {{"Token", 0}, {"Done", 0}, {"Probe", 0}}}});
    tables.addIndex("Devices", {"Name"});
    tables.addIndex("Plans", {"Id"});
    tables.addIndex("Reserved", {"Table", "Id"});
    return tables;
}

store::Schema schemaOfPlans() {
    store::Schema schema;
    for (const char* const table : {"Plans", "Rooms"})
        schema.add("CREATE TABLE " + std::string(table) +
                       " (Id INTEGER PRIMARY KEY, Name TEXT NOT NULL DEFAULT '' SHARED)",
                   "test");
    return schema;
}

// A device of that cluster.
class Device {
public:
    Device(const std::string& name, const store::Schema& schema, test::FakeOvsdb& cluster,
           const GuardedTransactions::Now& now)
        : cluster_(cluster),
          guarded_(name, now),
          reservations_(
              schema, name, guarded_, [this](Json operations, auto answer) { send(operations, answer); },
              now) {
        connect();
    }

    Reservations& reservations() { return reservations_; }
    // Asks for an Id that is wanted within five seconds; what comes is in ids and failures.
    void ask(Clock::time_point now, std::size_t table = plans) {
        reservations_.reserve(table, now + std::chrono::seconds(5),
                              [this](const Result& result, std::uint32_t id) {
                                  if (result.ok())
                                      ids.push_back(id);
                                  else
                                      failures.push_back(result.code());
                              });
    }
    // Does what is due, and answers what is sent, to the end.
    void work() {
        do {
            answerAll();
            guarded_.settle();
            reservations_.settle(isConnected);
        } while (!sent_.empty());
    }
    // Answers one message, if there is one.
    void answerOne() {
        if (sent_.empty())
            return;
        const auto [operations, answer] = std::move(sent_.front());
        sent_.erase(sent_.begin());
        ++answered;
        answer(cluster_.transact(operations), nullptr);
    }
    // Answers the message that waits with this.
    void answerWith(const Json& result) {
        const Answer answer = std::move(sent_.at(0).second);
        sent_.erase(sent_.begin());
        answer(result, nullptr);
    }
    bool hasSent() const { return !sent_.empty(); }
    void connect() {
        isConnected = true;
        guarded_.connected([this](Json operations, auto answer) { send(operations, answer); });
    }
    void begin() { reservations_.settle(isConnected); }
    void loseConnection() {
        sent_.clear();
        isConnected = false;
        guarded_.disconnected();
        reservations_.disconnected();
    }

    std::vector<std::uint32_t> ids;
    std::vector<int> failures;
    int answered = 0;
    bool isConnected = true;

private:
    using Answer = GuardedTransactions::Answer;

    void send(Json operations, Answer answer) {
        sent_.emplace_back(std::move(operations), std::move(answer));
    }
    void answerAll() {
        while (!sent_.empty())
            answerOne();
    }

    test::FakeOvsdb& cluster_;
    std::vector<std::pair<Json, Answer>> sent_;
    GuardedTransactions guarded_;
    Reservations reservations_;
};

class ReservationsTest : public testing::Test {
protected:
    std::unique_ptr<Device> deviceNamed(const std::string& name) {
        return std::make_unique<Device>(name, schema, cluster, [this] { return now; });
    }
    std::vector<std::uint32_t> idsOf(Device& device, int count) {
        device.ids.clear();
        for (int i = 0; i < count; ++i)
            device.ask(now);
        device.work();
        return device.ids;
    }
    void addPlan(std::int64_t id) {
        const std::string uuid = "plan " + std::to_string(id);
        cluster.rows("Plans").push_back({{"_uuid", {"uuid", uuid}}, {"Id", id}, {"Name", ""}});
    }

    Clock::time_point now = Clock::time_point() + std::chrono::hours(1);
    store::Schema schema = schemaOfPlans();
    test::FakeOvsdb cluster = emptyCluster();
    std::unique_ptr<Device> attic = deviceNamed("attic");
};

using Ids = std::vector<std::uint32_t>;

TEST_F(ReservationsTest, TheLowestFreeIdIsReserved) {
    for (const std::int64_t id : {1, 2, 4})
        addPlan(id);
    EXPECT_EQ(idsOf(*attic, 2), (Ids{3, 5}));
    EXPECT_TRUE(attic->reservations().holds(plans, 3));
    EXPECT_EQ(cluster.rows("Reserved").size(), 2u);
    EXPECT_EQ(cluster.rows("Reserved").at(0).at("Device"), "attic");
}

TEST_F(ReservationsTest, EachTableHasIdsOfItsOwn) {
    EXPECT_EQ(idsOf(*attic, 2), (Ids{1, 2}));
    attic->ask(now, rooms);
    attic->work();
    EXPECT_EQ(attic->ids.back(), 1u);
    attic->reservations().giveBack(rooms, 1);
    attic->work();
    EXPECT_EQ(cluster.rows("Reserved").size(), 2u);
}

TEST_F(ReservationsTest, WhatIsGivenBackIsFreeAgain) {
    EXPECT_EQ(idsOf(*attic, 2), (Ids{1, 2}));
    attic->reservations().giveBack(plans, 1);
    attic->work();
    EXPECT_EQ(cluster.rows("Reserved").size(), 1u);
    EXPECT_EQ(idsOf(*attic, 1), (Ids{1}));
}

TEST_F(ReservationsTest, WhatWasNeverReservedIsNotGivenBack) {
    attic->reservations().giveBack(plans, 7);
    attic->work();
    EXPECT_TRUE(cluster.rows("Devices").empty()); // nothing was sent
}

TEST_F(ReservationsTest, TwoDevicesAtOnceGetDifferentIds) {
    const auto cellar = deviceNamed("cellar");
    attic->ask(now);
    cellar->ask(now);
    attic->begin();
    cellar->begin();
    for (int i = 0; i < 2; ++i) { // both look before either writes
        attic->answerOne();
        cellar->answerOne();
    }
    attic->work();
    cellar->work();
    ASSERT_EQ(attic->ids.size(), 1u);
    ASSERT_EQ(cellar->ids.size(), 1u);
    EXPECT_EQ(attic->ids.at(0) + cellar->ids.at(0), 3u);
}

TEST_F(ReservationsTest, ADeviceBeforeWhichOthersAreFasterTimeAfterTimeGetsAnIdInTheEnd) {
    constexpr int rounds = 100;
    attic->ask(now);
    attic->begin();
    for (int id = 1; id <= rounds; ++id) {
        addPlan(id);
        attic->answerOne();
    }
    attic->work();
    EXPECT_TRUE(attic->failures.empty());
    EXPECT_EQ(attic->ids, (Ids{rounds + 1}));
}

TEST_F(ReservationsTest, AnIdThatIsTakenMeanwhileIsNotReserved) {
    EXPECT_EQ(idsOf(*attic, 1), (Ids{1}));
    attic->ask(now);
    attic->begin();
    attic->answerOne(); // 2 is free
    addPlan(2);
    attic->work();
    EXPECT_EQ(attic->ids.back(), 3u);
}

TEST_F(ReservationsTest, AnIdThatAnotherDeviceReservedIsLeftOut) {
    const auto cellar = deviceNamed("cellar");
    EXPECT_EQ(idsOf(*cellar, 1), (Ids{1}));
    EXPECT_EQ(idsOf(*attic, 1), (Ids{2}));
}

TEST_F(ReservationsTest, WhatADeadDeviceReservedIsFreedAMinuteAfterSomebodyMetIt) {
    EXPECT_EQ(idsOf(*deviceNamed("cellar"), 1), (Ids{1}));
    EXPECT_EQ(idsOf(*attic, 1), (Ids{2}));
    now += std::chrono::seconds(59);
    attic->work();
    EXPECT_EQ(cluster.rows("Reserved").size(), 2u);
    EXPECT_EQ(attic->reservations().nextDeadline(), now + std::chrono::seconds(1));
    now += std::chrono::seconds(1);
    attic->work();
    EXPECT_EQ(cluster.rows("Reserved").size(), 1u);
    EXPECT_EQ(idsOf(*attic, 1), (Ids{1}));
}

TEST_F(ReservationsTest, WhatADeviceReservedLaterStaysWhenAnEarlierOneIsFreed) {
    const auto cellar = deviceNamed("cellar");
    EXPECT_EQ(idsOf(*cellar, 1), (Ids{1}));
    EXPECT_EQ(idsOf(*attic, 1), (Ids{2}));
    EXPECT_EQ(idsOf(*cellar, 1), (Ids{3}));
    now += std::chrono::minutes(1);
    attic->work();
    EXPECT_EQ(cluster.rows("Reserved").size(), 2u);
    EXPECT_EQ(idsOf(*attic, 1), (Ids{1}));
}

TEST_F(ReservationsTest, WhatTheDeviceItselfHoldsStays) {
    EXPECT_EQ(idsOf(*attic, 2), (Ids{1, 2})); // it sees its first one when it asks for the second
    EXPECT_EQ(attic->reservations().nextDeadline(), Clock::time_point::max());
    now += std::chrono::minutes(2);
    attic->work();
    EXPECT_EQ(cluster.rows("Reserved").size(), 2u);
}

TEST_F(ReservationsTest, AThousandReservationsOfOthersAreKeptInMind) {
    EXPECT_EQ(idsOf(*attic, 1), (Ids{1}));
    Json strangers = Json::array();
    for (int i = 0; i < 1500; ++i)
        strangers.push_back({{"_uuid", {"uuid", std::to_string(i)}}, {"Id", i}, {"Device", "cellar"}});
    attic->ask(now);
    attic->begin();
    attic->answerWith(Json::array({{{"rows", Json::array()}}, {{"rows", strangers}}}));
    attic->work();
    attic->answered = 0;
    now += std::chrono::minutes(1);
    attic->work();
    EXPECT_EQ(attic->answered, 1000);
}

// Or it would be overdue, and the store busy with nothing, until the cluster is back.
TEST_F(ReservationsTest, NothingIsDueWhileTheClusterIsAway) {
    EXPECT_EQ(idsOf(*deviceNamed("cellar"), 1), (Ids{1}));
    EXPECT_EQ(idsOf(*attic, 1), (Ids{2}));
    attic->loseConnection();
    EXPECT_EQ(attic->reservations().nextDeadline(), Clock::time_point::max());
    now += std::chrono::minutes(2);
    attic->connect();
    attic->work();
    EXPECT_EQ(cluster.rows("Reserved").size(), 2u);
    EXPECT_EQ(idsOf(*attic, 1), (Ids{3})); // it comes across it again
    now += std::chrono::minutes(1);
    attic->work();
    EXPECT_EQ(idsOf(*attic, 1), (Ids{1}));
}

// The connection stayed, only the majority was lost for a while.
TEST_F(ReservationsTest, AnAnswerFromBeforeTheClusterWasAwayIsNotHeeded) {
    EXPECT_EQ(idsOf(*deviceNamed("cellar"), 1), (Ids{1}));
    attic->ask(now);
    attic->begin();
    attic->reservations().disconnected();
    attic->answerOne();
    EXPECT_FALSE(attic->hasSent());
    EXPECT_EQ(attic->reservations().nextDeadline(), now + std::chrono::seconds(5)); // of the request
    attic->work();
    EXPECT_EQ(attic->ids, (Ids{2}));
}

TEST_F(ReservationsTest, WhatAnEarlierLifeOfTheDeviceReservedIsUsed) {
    EXPECT_EQ(idsOf(*attic, 2), (Ids{1, 2}));
    attic = deviceNamed("attic");
    EXPECT_EQ(idsOf(*attic, 2), (Ids{1, 2}));
    EXPECT_EQ(cluster.rows("Reserved").size(), 2u);
}

TEST_F(ReservationsTest, ThereAreNineHundredNinetyNineIds) {
    for (int id = 1; id < 999; ++id)
        addPlan(id);
    EXPECT_EQ(idsOf(*attic, 1), (Ids{999}));
    attic->ask(now);
    attic->work();
    EXPECT_EQ(attic->failures, (std::vector<int>{code::tooLarge}));
}

TEST_F(ReservationsTest, MalformedAnswersAreAFailure) {
    const char* const answers[] = {
        "null",
        "[]",
        R"([{"rows":[]}])",
        R"([{},{"rows":[]}])",
        R"([{"rows":[]},{"rows":7}])",
        R"([{"rows":[]},{"error":"not supported"}])",
        R"([{"rows":[7]},{"rows":[]}])",
        R"([{"rows":[{"Id":"1"}]},{"rows":[]}])",
        R"([{"rows":[]},{"rows":[{"_uuid":["uuid","r"],"Device":"cellar"}]}])",
        R"([{"rows":[]},{"rows":[{"_uuid":["uuid","r"],"Id":1}]}])",
        R"([{"rows":[]},{"rows":[{"_uuid":["uuid","r"],"Id":1,"Device":7}]}])",
        R"([{"rows":[]},{"rows":[{"_uuid":"r","Id":1,"Device":"cellar"}]}])",
        R"([{"rows":[]},{"rows":[{"Id":1,"Device":"cellar"}]}])",
    };
    for (const char* const answer : answers) {
        attic->failures.clear();
        attic->ask(now);
        attic->begin();
        attic->answerWith(Json::parse(answer));
        EXPECT_EQ(attic->failures, (std::vector<int>{code::clusterUnreachable})) << answer;
        EXPECT_FALSE(attic->hasSent()) << answer;
    }
    EXPECT_EQ(attic->reservations().nextDeadline(), Clock::time_point::max());
    EXPECT_EQ(idsOf(*attic, 1), (Ids{1}));
}

TEST_F(ReservationsTest, MalformedAnswersTellOfNoStrangers) {
    for (const char* const answer :
         {"null", "[]", R"([{"rows":7}])", R"([{"rows":[7]}])", R"([{"rows":[{"Device":"cellar"}]}])",
          R"([{"rows":[{"_uuid":["uuid","r"]}]}])",
          R"([{"rows":[{"_uuid":["uuid","r"],"Device":"attic"}]}])"}) {
        attic->reservations().meetStrangers(plans);
        ASSERT_TRUE(attic->hasSent()) << answer;
        attic->answerWith(Json::parse(answer));
        EXPECT_EQ(attic->reservations().nextDeadline(), Clock::time_point::max()) << answer;
    }
}

TEST_F(ReservationsTest, WithoutAnAnswerItFailsInTime) {
    attic->ask(now);
    attic->begin();
    now += std::chrono::seconds(5);
    attic->begin();
    EXPECT_EQ(attic->failures, (std::vector<int>{code::clusterUnreachable}));
    attic->work(); // the answer comes late
    EXPECT_TRUE(attic->ids.empty());
}

TEST_F(ReservationsTest, ALostConnectionIsOvercomeInTime) {
    attic->ask(now);
    attic->begin();
    attic->loseConnection();
    attic->begin();
    EXPECT_FALSE(attic->hasSent());
    EXPECT_TRUE(attic->failures.empty());
    now += std::chrono::seconds(1);
    attic->connect();
    attic->work();
    EXPECT_EQ(attic->ids, (Ids{1}));
}

// What a commit adds: the row is inserted if the Id is this device's, or nobody's.
TEST_F(ReservationsTest, ACommitNeedsAnIdThatIsItsOwnOrNobodys) {
    const auto cellar = deviceNamed("cellar");
    EXPECT_EQ(idsOf(*cellar, 1), (Ids{1}));
    const auto isFree = [this](Device& device, std::int64_t id) {
        return !cluster.transact(Json::array({device.reservations().waitForFreedom(plans, id)}))
                    .at(0)
                    .contains("error");
    };
    EXPECT_TRUE(isFree(*cellar, 1));
    EXPECT_FALSE(isFree(*attic, 1));
    EXPECT_TRUE(isFree(*attic, 2));
    (void)cluster.transact(Json::array({cellar->reservations().removal(plans, 1)}));
    EXPECT_FALSE(isFree(*cellar, 1)); // somebody freed it
}

} // namespace
