#include "unit/cluster/followerfixture.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;
using store::Json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST_F(FollowerTest, WhatAMemberHoldsIsToldOnceItHasAnswered) {
    start(1);
    follow();
    ASSERT_EQ(told.size(), 1U);
    EXPECT_TRUE(told[0].isFirst);
    EXPECT_TRUE(told[0].complete);
    EXPECT_EQ(told[0].tables, Json::object());
    EXPECT_EQ(told[0].transaction, "t1");
    EXPECT_EQ(told[0].index, 5U);
    EXPECT_THAT(readiness, ElementsAre(true));
    EXPECT_TRUE(follower->isFollowing() && follower->isReady());
    EXPECT_THAT(lines(), ElementsAre("info cfgserver: follows the cluster at unix:a"));
}

TEST_F(FollowerTest, ItAsksForEverythingWhereNothingIsKnown) {
    start(1);
    member().acceptWith(schema, {{"connected", true}});
    const Json asked = member().tellTables(false, "t1", Json::object());
    EXPECT_EQ(asked, Json::array({"horad", "tables", monitorRequests(schema, "attic"),
                                  "00000000-0000-0000-0000-000000000000"}));
}

TEST_F(FollowerTest, ItGoesOnFromWhereItWas) {
    position.lastTransaction = "t7";
    start(1);
    member().acceptWith(schema, {{"connected", true}});
    EXPECT_EQ(member().tellTables(true, "t8", {{"Plans", Json::object()}})[3], "t7");
    ASSERT_EQ(told.size(), 1U);
    EXPECT_TRUE(told[0].isFirst);
    EXPECT_FALSE(told[0].complete);
    EXPECT_EQ(told[0].tables, (Json{{"Plans", Json::object()}}));

    position.lastTransaction = "t9"; // since then
    member().disconnect();
    (void)passPause();
    member().acceptWith(schema, {{"connected", true}});
    EXPECT_EQ(member().tellTables(true, "t9", Json::object())[3], "t9");
}

TEST_F(FollowerTest, ItAsksTheServerForItsPlaceInTheCluster) {
    start(1);
    member().accept();
    EXPECT_EQ(member().answer("get_schema", clusterSchemaOf(schema)), Json::array({"horad"}));
    const Json asked = member().answer("monitor_cond", Json::object());
    EXPECT_EQ(asked, Json::parse(R"(["_Server", "server", {"Database": [
        {"columns": ["connected", "index"], "where": [["name", "==", "horad"]]}]}])"));
}

TEST_F(FollowerTest, ChangesAreToldWithTheirTransaction) {
    start(1);
    follow();
    member().tellServer("modify", {{"index", 6}});
    member().tellChange("t2", {{"Plans", {{"u", {{"delete", nullptr}}}}}});
    ASSERT_EQ(told.size(), 2U);
    EXPECT_FALSE(told[1].isFirst || told[1].complete);
    EXPECT_EQ(told[1].transaction, "t2");
    EXPECT_EQ(told[1].index, 6U);
    EXPECT_EQ(told[1].tables, Json::parse(R"({"Plans":{"u":{"delete":null}}})"));
}

TEST_F(FollowerTest, ItIsReadyOnceWhatWasToldAtFirstIsInForce) {
    catchesUp = false;
    start(1);
    follow();
    EXPECT_TRUE(follower->isFollowing());
    EXPECT_FALSE(follower->isReady());
    EXPECT_THAT(log.lines(), IsEmpty());
    follower->caughtUp();
    EXPECT_TRUE(follower->isReady());
    EXPECT_EQ(readiness, (std::vector<bool>{true}));
}

TEST_F(FollowerTest, WhatNobodyAskedForIsNotHeeded) {
    start(1);
    follow();
    member().notify("update3", Json::array({"others", "t2", Json::object()}));
    member().notify("update3", Json::array({"tables", "t2"}));
    member().notify("update3", Json::array({}));
    member().notify("update2",
                    Json::array({"tables", MemberScript::serverRow("modify", {{"connected", false}})}));
    member().notify("locked", Json::array({"lock"}));
    EXPECT_EQ(told.size(), 1U);
    EXPECT_TRUE(follower->isReady());
}

TEST_F(FollowerTest, ChangesThatComeBeforeTheWholeAreNotHeeded) {
    start(1);
    member().acceptWith(schema, {{"connected", true}});
    member().tellChange("t2", Json::object());
    EXPECT_THAT(told, IsEmpty());
    member().tellTables(false, "t2", Json::object());
    EXPECT_EQ(told.size(), 1U);
}

TEST_F(FollowerTest, TransactionsAreSentAndAnswered) {
    start(1);
    follow();
    Json answered;
    follower->transact(Json::array({Json{{"op", "abort"}}}),
                       [&answered](const Json& result, const Json&) { answered = result; });
    EXPECT_EQ(member().answer("transact", Json::array({7})), Json::parse(R"(["horad", {"op": "abort"}])"));
    EXPECT_EQ(answered, Json::array({7}));
}

TEST_F(FollowerTest, AnswerToATransactionNeverComesAfterTheConnectionIsLost) {
    start(1);
    follow();
    bool isAnswered = false;
    follower->transact(Json::array(), [&isAnswered](const Json&, const Json&) { isAnswered = true; });
    member().disconnect();
    EXPECT_THAT(readiness, ElementsAre(true, false));
    EXPECT_FALSE(follower->isReady() || follower->isFollowing());
    EXPECT_FALSE(isAnswered);
}

TEST_F(FollowerTest, MemberThatLostTheOthersIsKeptWhereThereIsNoOther) {
    start(1);
    follow(0, {{"connected", false}, {"index", 5}});
    EXPECT_TRUE(follower->isFollowing());
    EXPECT_FALSE(follower->isReady());
    EXPECT_THAT(readiness, IsEmpty());
    member().tellServer("modify", {{"connected", true}});
    EXPECT_TRUE(follower->isReady());
    member().tellServer("modify", {{"connected", false}});
    EXPECT_TRUE(follower->isFollowing());
    member().tellServer("modify", {{"index", 6}}); // nothing new
    EXPECT_THAT(readiness, ElementsAre(true, false));
    EXPECT_THAT(lines(), ElementsAre("info cfgserver: follows the cluster at unix:a"));
}

TEST_F(FollowerTest, MemberThatLostTheOthersIsLeftForTheNextOne) {
    start(2);
    member(0).accept();
    member(0).answer("get_schema", clusterSchemaOf(schema));
    member(0).answer("monitor_cond", MemberScript::serverRow("initial", {{"connected", false}}));
    EXPECT_TRUE(member(0).raw().isLeft());
    (void)passPause();
    follow(1);
    EXPECT_TRUE(follower->isReady());

    member(1).tellServer("modify", {{"connected", false}});
    EXPECT_TRUE(member(1).raw().isLeft());
    EXPECT_THAT(readiness, ElementsAre(true, false));
    (void)passPause();
    EXPECT_TRUE(member(0).raw().isCalled());
    EXPECT_THAT(lines(),
                ElementsAre("warning cfgserver: the cluster can't be followed at unix:a: it has lost "
                            "the other members",
                            "info cfgserver: follows the cluster at unix:b",
                            "warning cfgserver: the cluster can't be followed at unix:b: it has lost "
                            "the other members"));
}

TEST_F(FollowerTest, MemberThatIsBehindIsLeft) {
    position.index = 6;
    start(2);
    member(0).accept();
    member(0).answer("get_schema", clusterSchemaOf(schema));
    member(0).answer("monitor_cond", MemberScript::serverRow("initial", {{"connected", true}, {"index", 5}}));
    EXPECT_TRUE(member(0).raw().isLeft());
    EXPECT_THAT(lines(), ElementsAre("warning cfgserver: the cluster can't be followed at unix:a: it is "
                                     "behind, or of another cluster: it has come to 5, this device knows 6"));
    (void)passPause();
    follow(1, {{"connected", true}, {"index", 6}});
    EXPECT_TRUE(follower->isReady());
}

TEST_F(FollowerTest, MemberThatHasNoPlaceInTheLogIsNotBehind) {
    position.index = 6;
    start(1);
    follow(0, {{"connected", true}, {"index", Json::array({"set", Json::array()})}}); // a relay
    EXPECT_TRUE(follower->isReady());
    EXPECT_EQ(told.at(0).index, 0U);
}

TEST_F(FollowerTest, MemberThatIsFollowedIsNotBehind) {
    start(1);
    follow();
    position.index = 9; // the rows were told before the index
    member().tellServer("modify", {{"index", 8}});
    EXPECT_TRUE(follower->isReady());
}

TEST_F(FollowerTest, WhatAnotherMemberSaidOfItselfIsForgotten) {
    start(1);
    follow();
    member().disconnect();
    (void)passPause();
    follow(0, Json::object());
    EXPECT_TRUE(follower->isFollowing());
    EXPECT_FALSE(follower->isReady());
    EXPECT_EQ(told.back().index, 0U);
}

TEST_F(FollowerTest, SchemaThatLacksAColumnIsNamed) {
    start(2);
    member(0).accept();
    Json lacking = clusterSchemaOf(schema);
    lacking["tables"]["Plans"]["columns"].erase("Start");
    member(0).answer("get_schema", lacking);
    EXPECT_TRUE(member(0).raw().isLeft());
    EXPECT_THAT(lines(), ElementsAre(HasSubstr("unix:a: its schema is another one: there is no column "
                                               "Plans.Start")));
    (void)passPause();
    follow(1);
    EXPECT_TRUE(follower->isReady());
}

TEST_F(FollowerTest, ChangedSchemaIsAskedForAgain) {
    start(1);
    follow();
    member().notify("monitor_canceled", Json::array({"tables"}));
    EXPECT_TRUE(member().raw().isLeft());
    EXPECT_THAT(lines(), testing::Contains(HasSubstr("its schema was changed")));
    (void)passPause();
    follow();
    EXPECT_THAT(readiness, ElementsAre(true, false, true));
}

TEST_F(FollowerTest, NewsThatCantBeUsedAreAReasonToLeave) {
    start(1);
    follow();
    complaint = "it tells nonsense";
    member().tellChange("t2", Json::object());
    EXPECT_TRUE(member().raw().isLeft());
    EXPECT_FALSE(follower->isFollowing());
    EXPECT_THAT(lines(), testing::Contains(HasSubstr("unix:a: it tells nonsense")));
}

TEST_F(FollowerTest, FirstNewsThatCantBeUsedMakeNothingReady) {
    start(1);
    complaint = "it tells nonsense";
    follow();
    EXPECT_TRUE(member().raw().isLeft());
    EXPECT_FALSE(follower->isFollowing());
    EXPECT_THAT(readiness, IsEmpty());
    EXPECT_THAT(lines(), ElementsAre(HasSubstr("unix:a: it tells nonsense")));
}

TEST_F(FollowerTest, LeftMemberIsNotHeardAnyMore) {
    start(1);
    follow();
    member().raw().send(
        {{"id", nullptr}, {"method", "update3"}, {"params", {"tables", "t2", Json::object()}}});
    follower->leave("of something else");
    round();
    EXPECT_EQ(told.size(), 1U);
    EXPECT_TRUE(member().raw().isLeft());
    EXPECT_THAT(readiness, ElementsAre(true, false));
}

struct Answered {
    const char* name;
    int step; // how many questions are answered well before
    Json result;
    Json error;
    const char* complaint;
};

class MalformedAnswerTest : public FollowerTest, public testing::WithParamInterface<Answered> {};

TEST_P(MalformedAnswerTest, IsAReasonToLeave) {
    const char* const questions[] = {"get_schema", "monitor_cond", "monitor_cond_since"};
    const Json answers[] = {clusterSchemaOf(schema),
                            MemberScript::serverRow("initial", {{"connected", true}})};
    start(1);
    member().accept();
    const int step = GetParam().step;
    for (int i = 0; i < step; ++i)
        member().answer(questions[i], answers[i]);
    member().answer(questions[step], GetParam().result, GetParam().error);
    EXPECT_TRUE(member().raw().isLeft());
    EXPECT_THAT(told, IsEmpty());
    EXPECT_THAT(lines(), ElementsAre(HasSubstr(GetParam().complaint)));
    EXPECT_EQ(passPause(), milliseconds(500));
    EXPECT_TRUE(member().raw().isCalled());
}

const Json unknown = {{"error", "unknown database"}, {"details", "no horad\nhere"}};
const char* const malformed = "unix:a: a malformed answer";
const Answered answered[] = {
    {"NoSuchDatabase", 0, nullptr, unknown, "unix:a: it answered: unknown database, no horad?here"},
    {"SchemaThatIsNone", 0, "horad", nullptr, "unix:a: its schema is another one: "},
    {"SchemaOfNothing", 0, nullptr, nullptr, "unix:a: its schema is another one: "},
    {"NoServer", 1, nullptr, "unknown method", "unix:a: it answered: unknown method"},
    {"NoSince", 2, nullptr, Json::array(), "unix:a: it answered with a malformed error"},
    {"TablesThatAreNone", 2, nullptr, nullptr, malformed},
    {"TooFew", 2, Json::array({false, "t"}), nullptr, malformed},
    {"TooMany", 2, Json::array({false, "t", Json::object(), 1}), nullptr, malformed},
    {"FoundThatIsNoSwitch", 2, Json::array({0, "t", Json::object()}), nullptr, malformed},
    {"TransactionThatIsNoText", 2, Json::array({false, 7, Json::object()}), nullptr, malformed},
    {"TablesThatAreAList", 2, Json::array({false, "t", Json::array()}), nullptr, malformed},
};

INSTANTIATE_TEST_SUITE_P(Answers, MalformedAnswerTest, testing::ValuesIn(answered),
                         [](const auto& tested) { return tested.param.name; });

TEST_F(FollowerTest, ServerThatSaysNothingOfItselfHasLostTheOthers) {
    start(1);
    for (const Json& server :
         {Json(), Json::array(), Json{{"Database", 7}}, Json{{"Database", {{"row", 7}}}}}) {
        member().accept();
        member().answer("get_schema", clusterSchemaOf(schema));
        member().answer("monitor_cond", server);
        member().tellTables(false, "t1", Json::object());
        EXPECT_TRUE(follower->isFollowing()) << server.dump();
        EXPECT_FALSE(follower->isReady()) << server.dump();
        member().disconnect();
        (void)passPause();
    }
}

TEST_F(FollowerTest, MalformedNoticeIsAReasonToLeave) {
    const Json cases[] = {Json::array({"tables", 7, Json::object()}),
                          Json::array({"tables", "t2", Json::array()})};
    start(1);
    for (const Json& params : cases) {
        follow();
        member().notify("update3", params);
        EXPECT_TRUE(member().raw().isLeft()) << params.dump();
        EXPECT_EQ(lines().back(),
                  "warning cfgserver: the cluster can't be followed at unix:a: a malformed notice");
        (void)passPause();
    }
}

TEST_F(FollowerTest, MemberThatDoesNotAnswerInTenSecondsIsLeft) {
    start(2);
    for (const int answers : {0, 1, 2}) {
        MemberScript& tested = member(static_cast<std::size_t>(answers) % 2);
        tested.accept();
        if (answers > 0)
            tested.answer("get_schema", clusterSchemaOf(schema));
        if (answers > 1)
            tested.answer("monitor_cond", MemberScript::serverRow("initial", {{"connected", true}}));
        EXPECT_EQ(follower->nextDeadline(), now + seconds(10));
        pass(milliseconds(9999));
        EXPECT_FALSE(tested.raw().isLeft());
        pass(milliseconds(1));
        EXPECT_TRUE(tested.raw().isLeft());
        EXPECT_THAT(lines(), testing::Contains(HasSubstr("it does not tell what it holds")));
        (void)passPause();
    }
}

TEST_F(FollowerTest, MemberThatIsFollowedMayBeQuiet) {
    start(1);
    follow();
    EXPECT_EQ(follower->nextDeadline(), now + seconds(15)); // that of the connection
    pass(seconds(14));
    EXPECT_TRUE(follower->isReady());
}

} // namespace
