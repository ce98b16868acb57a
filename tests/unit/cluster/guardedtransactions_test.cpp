#include "store/cluster/guardedtransactions.h"
#include "support/fakeovsdb.h"

#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

using store::GuardedTransactions;
using store::Json;
using Clock = GuardedTransactions::Clock;
using Outcome = GuardedTransactions::Outcome;

constexpr const char* device = "attic-1";
constexpr auto pauseBetweenAttempts = std::chrono::milliseconds(200);

// A cluster with the device's row, once it is registered, and plans by name: how often each was inserted.
class FakeCluster {
public:
    Json apply(const Json& operations) { return tables.transact(operations); }

    bool isRegistered() { return !tables.rows("Devices").empty(); }
    std::int64_t number(const char* column) {
        return isRegistered() ? tables.rows("Devices").at(0).at(column).get<std::int64_t>() : 0;
    }
    std::int64_t token() { return number("Token"); }
    std::int64_t done() { return number("Done"); }
    std::int64_t probe() { return number("Probe"); }

    std::map<std::string, int> inserted() {
        std::map<std::string, int> times;
        for (const Json& plan : tables.rows("Plans"))
            ++times[plan.at("Name")];
        return times;
    }

    test::FakeOvsdb tables = tablesOfDevices();

private:
    static test::FakeOvsdb tablesOfDevices() {
        test::FakeOvsdb tables({{"Devices", {{"Token", 0}, {"Done", 0}, {"Probe", 0}}}});
        tables.addIndex("Devices", {"Name"});
        return tables;
    }
};

Json insertionOf(const std::string& name) {
    return Json::array({Json{{"op", "insert"}, {"table", "Plans"}, {"row", {{"Name", name}}}}});
}

// Transactions, a cluster, and the time between them. What is sent waits until the test decides about it.
class GuardedTransactionsTest : public testing::Test {
protected:
    struct Sent {
        Json operations;
        GuardedTransactions::Answer answer;
    };

    void connect() {
        guarded->connected([this](Json operations, GuardedTransactions::Answer answer) {
            sent.push_back({std::move(operations), std::move(answer)});
        });
    }
    void disconnect() {
        for (Sent& one : sent)
            one.answer = nullptr;
        guarded->disconnected();
    }
    void run(const std::string& name, Json operations = Json::array(), int seconds = 5) {
        if (operations.empty())
            operations = insertionOf(name);
        guarded->run(std::move(operations), now + std::chrono::seconds(seconds),
                     [this, name](const GuardedTransactions::Report& report) {
                         EXPECT_EQ(reports.count(name), 0u) << name << " is reported twice";
                         reports[name] = report;
                     });
    }
    Sent take() {
        Sent one = sent.at(0);
        sent.erase(sent.begin());
        return one;
    }
    // What was sent is applied and answered, and what follows from that, to the end.
    void answerAll() {
        while (!sent.empty())
            answerFirst();
    }
    void answerFirst() {
        const Sent one = take();
        const Json result = cluster.apply(one.operations);
        if (one.answer)
            one.answer(result, nullptr);
    }
    void pass(Clock::duration time) {
        now += time;
        guarded->settle();
    }
    Outcome outcomeOf(const std::string& name) const { return reports.at(name).outcome; }

    Clock::time_point now = Clock::time_point() + std::chrono::hours(1);
    std::unique_ptr<GuardedTransactions> guarded =
        std::make_unique<GuardedTransactions>(device, [this] { return now; });
    FakeCluster cluster;
    std::vector<Sent> sent;
    std::map<std::string, GuardedTransactions::Report> reports;
};

TEST_F(GuardedTransactionsTest, ANewDeviceIsRegisteredBeforeItsFirstTransaction) {
    connect();
    run("a");
    answerAll();
    EXPECT_TRUE(cluster.isRegistered());
    EXPECT_EQ(outcomeOf("a"), Outcome::Applied);
    EXPECT_EQ(reports.at("a").token, cluster.done());
    EXPECT_EQ(cluster.inserted(), (std::map<std::string, int>{{"a", 1}}));
}

TEST_F(GuardedTransactionsTest, NothingIsSentAsLongAsThereIsNothingToDo) {
    connect();
    pass(std::chrono::minutes(10));
    EXPECT_TRUE(sent.empty());
    EXPECT_EQ(guarded->nextDeadline(), Clock::time_point::max());
}

TEST_F(GuardedTransactionsTest, TheFenceIsRaisedOnceForEachConnection) {
    connect();
    run("a");
    answerAll();
    const std::int64_t token = cluster.token();
    run("b");
    answerAll();
    EXPECT_EQ(cluster.token(), token + 1);
    disconnect();
    connect();
    run("c");
    answerAll();
    EXPECT_EQ(cluster.token(), token + 3); // the fence and the transaction
    EXPECT_EQ(cluster.inserted().size(), 3u);
}

TEST_F(GuardedTransactionsTest, WhatTheMemberToldOfTheDeviceSavesAReading) {
    connect();
    run("a");
    answerAll();
    disconnect();
    const std::int64_t probe = cluster.probe();
    connect();
    guarded->deviceSeen(cluster.token(), cluster.done());
    run("b");
    answerAll();
    EXPECT_EQ(outcomeOf("b"), Outcome::Applied);
    EXPECT_EQ(cluster.probe(), probe);
}

TEST_F(GuardedTransactionsTest, AnOldTokenIsReadAnew) {
    cluster.apply(Json::array(
        {Json{{"op", "insert"}, {"table", "Devices"}, {"row", {{"Name", device}, {"Token", 9}}}}}));
    connect();
    guarded->deviceSeen(7, 7);
    run("a");
    answerAll();
    pass(pauseBetweenAttempts);
    answerAll();
    EXPECT_EQ(outcomeOf("a"), Outcome::Applied);
    EXPECT_EQ(cluster.token(), 11);
}

TEST_F(GuardedTransactionsTest, OneInDoubtIsFoundWhereTheMemberToldOfTheDeviceMeanwhile) {
    connect();
    run("first");
    answerAll();
    run("a");
    cluster.apply(take().operations);
    pass(std::chrono::seconds(5)); // no answer, and the member does not tell of the row yet
    EXPECT_EQ(outcomeOf("a"), Outcome::Unknown);
    testing::internal::CaptureStderr();

    guarded->deviceSeen(cluster.token(), cluster.done());
    run("b");
    pass(pauseBetweenAttempts);
    answerAll();

    EXPECT_EQ(outcomeOf("b"), Outcome::Applied);
    EXPECT_EQ(testing::internal::GetCapturedStderr().find("was not applied"), std::string::npos);
}

TEST_F(GuardedTransactionsTest, OneThatWasAppliedInATroubleIsFoundWhereTheMemberToldOfTheDeviceMeanwhile) {
    connect();
    run("first");
    answerAll();
    run("a");
    const Sent one = take();
    cluster.apply(one.operations);
    one.answer(nullptr, Json{{"error", "not leader"}});
    guarded->deviceSeen(cluster.token(), cluster.done());
    pass(pauseBetweenAttempts);
    answerAll();
    EXPECT_EQ(outcomeOf("a"), Outcome::Applied);
    EXPECT_EQ(cluster.inserted()["a"], 1);
}

// Counts what is sent while a member answers so.
struct Liar {
    const char* name;
    const char* token;
    bool registers;
};

class LyingMembers : public GuardedTransactionsTest, public testing::WithParamInterface<Liar> {
protected:
    Json answerTo(const Json& operations) const {
        const std::string first = operations.at(0).at("op");
        if (first == "mutate")
            return Json::parse(std::string(R"([{}, {"rows": [)") + GetParam().token + "]}, {}]");
        if (first == "insert")
            return Json::parse(GetParam().registers ? "[{}, {}]"
                                                    : R"([{"error": "permission denied", "details": "no"}])");
        return Json::parse(R"([{"error": "timed out"}, null, null])"); // the guard
    }
};

TEST_P(LyingMembers, AreNotAskedAtWireSpeedAndNotAtAllOnceNobodyWaits) {
    connect();
    run("a");
    int asked = 0;
    for (int i = 0; i < 25; ++i) { // five seconds
        while (!sent.empty()) {
            const Sent one = take();
            one.answer(answerTo(one.operations), nullptr);
            ASSERT_LT(++asked, 200);
        }
        pass(pauseBetweenAttempts);
    }
    EXPECT_EQ(outcomeOf("a"), Outcome::NotApplied);
    sent.clear();
    pass(std::chrono::minutes(1));
    EXPECT_TRUE(sent.empty());
}

INSTANTIATE_TEST_SUITE_P(
    All, LyingMembers,
    testing::Values(Liar{"NoRegistration", "", false}, Liar{"RowThatNeverComes", "", true},
                    Liar{"AlwaysAnotherToken", R"({"Token": 5, "Done": 5})", true},
                    Liar{"LargestToken", R"({"Token": 9223372036854775807, "Done": 1})", true},
                    Liar{"NegativeToken", R"({"Token": -1, "Done": 1})", true}),
    [](const auto& test) { return test.param.name; });

TEST_F(GuardedTransactionsTest, ARegistrationThatIsRefusedIsSaidOnce) {
    connect();
    run("a");
    testing::internal::CaptureStderr();
    for (int i = 0; i < 10; ++i) {
        while (!sent.empty()) {
            const Sent one = take();
            one.answer(one.operations.at(0).at("op") == "insert"
                           ? Json::parse(R"([{"error": "permission denied", "details": "no role"}])")
                           : cluster.apply(one.operations),
                       nullptr);
        }
        pass(pauseBetweenAttempts);
    }
    const std::string lines = testing::internal::GetCapturedStderr();
    const std::string line =
        "the cluster refuses to register this device, its shared tables can't be changed "
        "here: permission denied: no role\n";
    EXPECT_NE(lines.find(line), std::string::npos) << lines;
    EXPECT_EQ(lines.find(line), lines.rfind(line));
}

TEST_F(GuardedTransactionsTest, ARefusedOneNamesTheOperationOfItsOwn) {
    connect();
    Json operations = insertionOf("a");
    operations.push_back({{"op", "wait"},
                          {"table", "Plans"},
                          {"where", Json::array()},
                          {"columns", Json::array({"Name"})},
                          {"rows", Json::array()}});
    run("a", operations);
    run("b");
    answerAll();
    EXPECT_EQ(outcomeOf("a"), Outcome::Refused);
    EXPECT_EQ(reports.at("a").failed, 1u);
    EXPECT_EQ(outcomeOf("b"), Outcome::Applied);
    EXPECT_EQ(cluster.inserted().count("a"), 0u);
}

TEST_F(GuardedTransactionsTest, AnIndexThatWouldNotBeUniqueRefusesTheWhole) {
    connect();
    run("first");
    answerAll();
    run("a");
    const Sent one = take();
    Json results = Json::array();
    for (std::size_t i = 0; i < one.operations.size(); ++i)
        results.push_back(Json::object());
    results.push_back({{"error", "constraint violation"}, {"details", "identical values"}});
    one.answer(results, nullptr);
    EXPECT_EQ(outcomeOf("a"), Outcome::Refused);
    EXPECT_EQ(reports.at("a").failed, 1u);
    EXPECT_EQ(reports.at("a").error, "identical values");
}

TEST_F(GuardedTransactionsTest, OneThatWasAppliedButNotAnsweredIsFoundByTheFence) {
    connect();
    run("first");
    answerAll();
    run("a");
    cluster.apply(take().operations);
    disconnect();
    pass(std::chrono::seconds(1));
    EXPECT_EQ(reports.count("a"), 0u);
    connect();
    answerAll();
    EXPECT_EQ(outcomeOf("a"), Outcome::Applied);
    EXPECT_EQ(cluster.inserted()["a"], 1);
}

TEST_F(GuardedTransactionsTest, OneThatWasLostIsSentAgainBehindTheFence) {
    connect();
    run("first");
    answerAll();
    run("a");
    const Sent lost = take();
    disconnect();
    connect();
    answerAll();
    EXPECT_EQ(outcomeOf("a"), Outcome::Applied);
    cluster.apply(lost.operations); // it is late, and fenced off
    EXPECT_EQ(cluster.inserted()["a"], 1);
}

TEST_F(GuardedTransactionsTest, OneThatWasRunTwiceIsAppliedOnceAndKnownAsApplied) {
    connect();
    run("first");
    answerAll();
    run("a");
    const Sent one = take();
    cluster.apply(one.operations);
    one.answer(cluster.apply(one.operations), nullptr); // the second run fails at the guard
    pass(std::chrono::seconds(1));
    answerAll();
    EXPECT_EQ(outcomeOf("a"), Outcome::Applied);
    EXPECT_EQ(cluster.inserted()["a"], 1);
}

TEST_F(GuardedTransactionsTest, ATroubleOfTheClusterLeavesItOpenUntilTheFence) {
    connect();
    run("first");
    answerAll();
    run("a");
    take().answer(nullptr, Json{{"error", "not leader"}});
    EXPECT_EQ(reports.count("a"), 0u);
    EXPECT_TRUE(sent.empty()); // not at once
    pass(std::chrono::milliseconds(200));
    answerAll();
    EXPECT_EQ(outcomeOf("a"), Outcome::Applied);
    EXPECT_EQ(cluster.inserted()["a"], 1);
}

TEST_F(GuardedTransactionsTest, WithoutAnAnswerTheOutcomeIsUnknownAndTheNextOneIsFenced) {
    connect();
    run("first");
    answerAll();
    run("a");
    const Sent late = take();
    pass(std::chrono::seconds(5));
    EXPECT_EQ(outcomeOf("a"), Outcome::Unknown);
    late.answer(Json::array(), nullptr); // too late
    run("b");
    pass(std::chrono::milliseconds(200));
    EXPECT_EQ(sent.at(0).operations.at(0).at("op"), "mutate"); // the token is read anew
    answerAll();
    EXPECT_EQ(outcomeOf("b"), Outcome::Applied);
    EXPECT_EQ(cluster.inserted().count("a"), 0u);
    const Json result = cluster.apply(late.operations);
    EXPECT_EQ(cluster.inserted().count("a"), 0u);
    late.answer(result, nullptr); // is not taken for an answer to a later one
    EXPECT_EQ(reports.size(), 3u);
}

TEST_F(GuardedTransactionsTest, WhatTheMemberToldBeforeTheTimeWasUpReplacesTheAnswer) {
    connect();
    run("first");
    answerAll();
    run("a");
    cluster.apply(take().operations);
    guarded->deviceSeen(cluster.token(), cluster.done());
    pass(std::chrono::seconds(5));
    EXPECT_EQ(outcomeOf("a"), Outcome::Applied);
}

TEST_F(GuardedTransactionsTest, AReadingOrAFenceWithoutAnAnswerIsMadeAgain) {
    connect();
    run("first");
    answerAll();
    for (const std::size_t answered : {0U, 1U}) { // of those that come before a transaction
        guarded->disconnected();
        connect();
        run("a" + std::to_string(answered));
        for (std::size_t i = 0; i < answered; ++i)
            answerFirst();
        const Sent lost = take();
        EXPECT_EQ(guarded->nextDeadline(), now + std::chrono::seconds(5));
        pass(std::chrono::seconds(5));
        EXPECT_EQ(outcomeOf("a" + std::to_string(answered)), Outcome::NotApplied);
        run("b" + std::to_string(answered));
        EXPECT_TRUE(sent.empty());
        pass(std::chrono::milliseconds(200));
        EXPECT_EQ(sent.size(), 1U);
        lost.answer(cluster.apply(lost.operations), nullptr); // late, and heeded no more
        answerAll();
        EXPECT_EQ(outcomeOf("b" + std::to_string(answered)), Outcome::Applied);
    }
}

TEST_F(GuardedTransactionsTest, OneThatHasLessTimeThanTheOneBeforeIsNotApplied) {
    connect();
    run("first");
    answerAll();
    run("a");
    run("b", Json::array(), 2);
    run("c");
    pass(std::chrono::seconds(2));
    EXPECT_EQ(outcomeOf("b"), Outcome::NotApplied);
    EXPECT_EQ(reports.count("a"), 0U);
    answerAll();
    EXPECT_EQ(outcomeOf("a"), Outcome::Applied);
    EXPECT_EQ(outcomeOf("c"), Outcome::Applied);
    EXPECT_EQ(cluster.inserted().count("b"), 0U);
}

TEST_F(GuardedTransactionsTest, OneThatWasNeverSentIsNotApplied) {
    run("a");
    run("b");
    pass(std::chrono::milliseconds(4999));
    EXPECT_TRUE(reports.empty());
    EXPECT_EQ(guarded->nextDeadline(), now + std::chrono::milliseconds(1));
    pass(std::chrono::milliseconds(1));
    EXPECT_EQ(outcomeOf("a"), Outcome::NotApplied);
    EXPECT_EQ(outcomeOf("b"), Outcome::NotApplied);
}

struct Malformed {
    const char* name;
    const char* answer;
};

class MalformedAnswers : public GuardedTransactionsTest, public testing::WithParamInterface<Malformed> {};

TEST_P(MalformedAnswers, EndInATimeOutAndNothingWorse) {
    connect();
    run("a");
    for (int i = 0; i < 40; ++i) {
        while (!sent.empty())
            take().answer(Json::parse(GetParam().answer), nullptr);
        pass(std::chrono::milliseconds(200));
    }
    EXPECT_EQ(outcomeOf("a"), Outcome::NotApplied);
    answerAll();
    pass(std::chrono::seconds(1));
    run("b");
    for (int i = 0; i < 10; ++i) {
        answerAll();
        pass(std::chrono::milliseconds(200));
    }
    EXPECT_EQ(outcomeOf("b"), Outcome::Applied);
}

INSTANTIATE_TEST_SUITE_P(
    All, MalformedAnswers,
    testing::Values(Malformed{"Null", "null"}, Malformed{"Number", "7"}, Malformed{"Object", "{}"},
                    Malformed{"Empty", "[]"}, Malformed{"NoRows", R"([{}, {}, {}])"},
                    Malformed{"RowsAreNone", R"([{}, {"rows": 7}])"},
                    Malformed{"RowIsNone", R"([{}, {"rows": [7]}])"},
                    Malformed{"TokenIsText", R"([{}, {"rows": [{"Token": "1", "Done": 1}]}])"},
                    Malformed{"Nulls", "[null, null]"}),
    [](const auto& test) { return test.param.name; });

// A cluster that loses answers, runs transactions late, or twice, and a device that loses its connection.
class HostileCluster : public GuardedTransactionsTest, public testing::WithParamInterface<unsigned> {
protected:
    bool happens(unsigned percent) { return random() % 100 < percent; }

    void step() {
        for (auto late = delayed.begin(); late != delayed.end();) {
            if (!happens(10)) {
                ++late;
                continue;
            }
            cluster.apply(*late);
            late = delayed.erase(late);
        }
        if (!sent.empty())
            decide(take());
        if (cluster.isRegistered() && happens(30)) // the member tells of the row
            guarded->deviceSeen(cluster.token(), cluster.done());
        if (happens(3))
            disconnect();
        if (happens(10))
            connect();
        if (happens(1))
            restart();
        pass(std::chrono::milliseconds(random() % 300));
    }

    // The device is killed: what it sent may still be applied, and it does not know of it.
    void restart() {
        disconnect();
        for (int i = 0; i < begun; ++i)
            if (reports.count("t" + std::to_string(i)) == 0)
                forgotten.insert("t" + std::to_string(i));
        guarded = std::make_unique<GuardedTransactions>(device, [this] { return now; });
    }

    void decide(const Sent& one) {
        if (happens(10))
            return; // lost
        if (happens(10))
            return delayed.push_back(one.operations); // applied later, if ever, and not answered
        const Json first = cluster.apply(one.operations);
        const bool again = happens(15);
        const Json last = again ? cluster.apply(one.operations) : first;
        if (one.answer && !happens(10))
            one.answer(happens(5) ? Json() : last, nullptr);
    }

    std::mt19937 random{GetParam()};
    std::vector<Json> delayed;
    std::set<std::string> forgotten;
    int begun = 0;
};

TEST_P(HostileCluster, AppliesEachTransactionOnceOrNotAtAllAndIsNeverMisreported) {
    constexpr int transactions = 60;
    connect();
    for (int i = 0; i < transactions; ++i) {
        run("t" + std::to_string(begun++));
        const int steps = static_cast<int>(random() % 20);
        for (int s = 0; s < steps; ++s)
            step();
    }
    for (int s = 0; s < 200; ++s)
        step();
    for (const Json& late : delayed)
        cluster.apply(late);
    int certain = 0;
    for (int i = 0; i < transactions; ++i) {
        const std::string name = "t" + std::to_string(i);
        const int times = cluster.inserted()[name];
        ASSERT_LE(times, 1) << name;
        if (forgotten.count(name) != 0)
            continue;
        ASSERT_EQ(reports.count(name), 1u) << name;
        if (outcomeOf(name) == Outcome::Applied) {
            ASSERT_EQ(times, 1) << name;
        } else if (outcomeOf(name) == Outcome::NotApplied) {
            ASSERT_EQ(times, 0) << name;
        }
        certain += outcomeOf(name) != Outcome::Unknown ? 1 : 0;
    }
    EXPECT_GT(certain, transactions / 3);
}

INSTANTIATE_TEST_SUITE_P(Seeds, HostileCluster, testing::Range(0u, 200u));

} // namespace
