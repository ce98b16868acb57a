#include "rows.h"
#include "tools/cfgctl/clusterstatus.h"
#include "tools/errors.h"

#include <nlohmann/json.hpp>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tools::cfgctl {
namespace {

using testing::errorOf;
using ::testing::HasSubstr;
using ::testing::Not;

// What a member answers, with what differs from case to case.
struct Answer {
    std::string status = "cluster member";
    std::string role = "leader";
    std::string leader = "self";
    std::string log = "[2, 15]";
    std::string uncommitted = "0";
    std::string unapplied = "0";
    std::string connections = "->0000 ->e26b <-e26b (->8a62)";
    std::string servers =
        "    f904 (f904 at tcp:127.9.9.9:6642) (self) next_index=12 match_index=14\n"
        "    e26b (e26b at tcp:127.9.9.9:6643) next_index=15 match_index=14 last msg 50 ms ago\n"
        "    8a62 (8a62 at tcp:127.9.9.9:6641) next_index=15 match_index=0 last msg 9391 ms ago\n";

    std::string text() const {
        return "f904\nName: horad\nCluster ID: 5595 (5595a486-df98-407e-8165-45347743c51c)\n"
               "Server ID: f904 (f90448f4-87f6-45e3-98c3-a4b23b46eda4)\nAddress: "
               "tcp:127.9.9.9:6642\nStatus: " +
               status + "\nRole: " + role + "\nTerm: 3\nLeader: " + leader +
               "\nVote: self\n\nLast Election started 8421 ms ago, reason: timeout\nElection timer: "
               "1000\nLog: " +
               log + "\nEntries not yet committed: " + uncommitted +
               "\nEntries not yet applied: " + unapplied + "\nConnections: " + connections +
               "\nDisconnections: 1\nServers:\n" + servers;
    }
    std::string inWords() const { return clusterInWords(readClusterStatus(text())); }
};

Answer ofFollower() {
    Answer answer;
    answer.role = "follower";
    answer.leader = "e26b";
    answer.servers = "    f904 (f904 at tcp:127.9.9.9:6642) (self)\n"
                     "    e26b (e26b at tcp:127.9.9.9:6643) last msg 50 ms ago\n"
                     "    8a62 (8a62 at tcp:127.9.9.9:6641) last msg 9391 ms ago\n";
    return answer;
}

TEST(ClusterStatus, OfALeaderSaysWhoFollowsAndWhoIsNotConnected) {
    EXPECT_EQ(Answer().inWords(), "Member f904 at tcp:127.9.9.9:6642 leads.\n"
                                  "It holds the changes up to number 14, and all of them are in force.\n"
                                  "\n"
                                  "MEMBER  ADDRESS             STATE\n"
                                  "8a62    tcp:127.9.9.9:6641  not connected, silent for 9 s\n"
                                  "f904    tcp:127.9.9.9:6642  this member, leads\n"
                                  "e26b    tcp:127.9.9.9:6643  follows, has everything\n");
}

TEST(ClusterStatus, OfALeaderSaysHowFarBehindAnotherIs) {
    for (const auto& [log, words] :
         {std::pair{"[2, 16]", "follows, 1 change behind"}, {"[2, 115]", "follows, 100 changes behind"}}) {
        Answer answer;
        answer.log = log;
        EXPECT_THAT(answer.inWords(), HasSubstr(words));
    }
}

TEST(ClusterStatus, OfALeaderThatDoesNotTellHowFarAnotherIsSaysThatItFollows) {
    Answer answer;
    answer.servers = "    f904 (f904 at tcp:127.9.9.9:6642) (self) next_index=12 match_index=14\n"
                     "    e26b (e26b at tcp:127.9.9.9:6643) last msg 50 ms ago\n";
    EXPECT_THAT(answer.inWords(), HasSubstr("6643  follows\n"));
}

TEST(ClusterStatus, OfALeaderSaysWhoWasNotHeardOfYet) {
    Answer answer;
    answer.servers += "    1234 (1234 at tcp:[fd00::7]:6641) next_index=15 match_index=0\n";
    EXPECT_THAT(answer.inWords(), HasSubstr("1234    tcp:[fd00::7]:6641  not connected, not heard of yet\n"));
}

TEST(ClusterStatus, OfAFollowerSaysWhomItFollows) {
    const std::string words = ofFollower().inWords();
    EXPECT_THAT(words, HasSubstr("Member f904 at tcp:127.9.9.9:6642 follows e26b.\n"));
    EXPECT_THAT(words, HasSubstr("6643  leads\n"));
    EXPECT_THAT(words, HasSubstr("6642  this member\n"));
    EXPECT_THAT(words, HasSubstr("6641  not connected\n"));
}

TEST(ClusterStatus, OfAFollowerSaysThatItsLeaderHasBecomeSilent) {
    Answer answer = ofFollower();
    answer.leader = "8a62";
    answer.connections = "<-e26b <-8a62";
    EXPECT_THAT(answer.inWords(), HasSubstr("6641  leads, but is silent for 9 s\n"));
    EXPECT_THAT(answer.inWords(), HasSubstr("6643  connected\n"));
}

TEST(ClusterStatus, WithoutAMajoritySaysThatNothingCanBeChanged) {
    Answer answer = ofFollower();
    answer.status = "disconnected from the cluster (election timeout)";
    answer.role = "candidate";
    answer.leader = "unknown";
    answer.uncommitted = "2";
    answer.unapplied = "1";
    const std::string words = answer.inWords();
    EXPECT_THAT(words,
                HasSubstr("can't reach a majority: what is there is read on, and nothing can be changed."));
    EXPECT_THAT(words, HasSubstr("up to number 14; 2 of them wait for a majority, 1 to be applied here.\n"));
}

TEST(ClusterStatus, DuringAnElectionSaysSo) {
    Answer answer = ofFollower();
    answer.leader = "unknown";
    EXPECT_THAT(answer.inWords(), HasSubstr("knows of no leader: one is being elected.\n"));
}

TEST(ClusterStatus, OfAMemberThatJoinsSaysWhomItAsks) {
    Answer answer = ofFollower();
    answer.status = "joining cluster\nRemotes for joining: tcp:127.9.9.9:6649";
    answer.servers = "";
    EXPECT_EQ(answer.inWords(),
              "Member f904 at tcp:127.9.9.9:6642 waits to be let into a cluster by tcp:127.9.9.9:6649.\n");
}

TEST(ClusterStatus, OfAMemberThatLeavesSaysSo) {
    Answer answer = ofFollower();
    answer.status = "leaving cluster";
    EXPECT_THAT(answer.inWords(), HasSubstr("is leaving its cluster.\n"));
}

TEST(ClusterStatus, AsJsonSaysTheSame) {
    const auto json = nlohmann::json::parse(clusterAsJson(readClusterStatus(Answer().text())));
    EXPECT_EQ(json["member"], "f904");
    EXPECT_EQ(json["cluster"], "5595a486-df98-407e-8165-45347743c51c");
    EXPECT_EQ(json["role"], "leader");
    EXPECT_EQ(json["lastChange"], 14);
    const auto& members = json["members"];
    ASSERT_EQ(members.size(), 3U);
    EXPECT_EQ(members[0]["connected"], false);
    EXPECT_EQ(members[0]["silentMilliseconds"], 9391);
    EXPECT_EQ(members[1]["leads"], true);
    EXPECT_EQ(members[1]["silentMilliseconds"], nullptr);
    EXPECT_EQ(members[2]["connected"], true);
    EXPECT_EQ(members[2]["lastChange"], 14);
}

TEST(ClusterStatus, OfAFollowerAsJsonHasNoWordOfWhatItCantKnow) {
    const auto json = nlohmann::json::parse(clusterAsJson(readClusterStatus(ofFollower().text())));
    EXPECT_EQ(json["members"][2]["leads"], true);
    EXPECT_EQ(json["members"][2]["lastChange"], nullptr);
}

TEST(ClusterStatus, CantDriveATerminal) {
    Answer answer;
    answer.servers = "    \033[1m (e26b at tcp:\033[2J) next_index=15 match_index=14 last msg 50 ms ago\n";
    EXPECT_THAT(answer.inWords(), Not(HasSubstr("\033")));
    EXPECT_THAT(clusterAsJson(readClusterStatus(answer.text())), Not(HasSubstr("\033")));
}

TEST(ClusterStatus, OfAnotherFormIsRefused) {
    const auto errorFor = [](const std::string& text) {
        return errorOf<Refused>([&] { return readClusterStatus(text); });
    };
    EXPECT_EQ(errorFor(""), "the member does not say its \"Server ID\"");
    Answer answer;
    answer.log = "none";
    EXPECT_THAT(errorFor(answer.text()), HasSubstr("its log in an unknown way: \"none\""));
    answer.log = "[1, 0]";
    EXPECT_THAT(errorFor(answer.text()), HasSubstr("its log in an unknown way"));
    answer = Answer();
    answer.uncommitted = "many";
    EXPECT_EQ(errorFor(answer.text()),
              "the member does not say its \"Entries not yet committed\" as a number");
    for (const char* line : {"    ", "    e26b", "    e26b) at (", "    e26b (e26b at tcp:1"}) {
        answer = Answer();
        answer.servers = line;
        EXPECT_THAT(errorFor(answer.text()), HasSubstr("describes another one in an unknown way")) << line;
    }
}

} // namespace
} // namespace tools::cfgctl
