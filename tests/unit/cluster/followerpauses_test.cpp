#include "unit/cluster/followerfixture.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;
using store::Json;
using testing::ElementsAre;
using testing::HasSubstr;

using Pauses = std::vector<std::int64_t>; // milliseconds

// What is tried again, and when: random is 1, so each pause is as long as it can be.
class FollowerPausesTest : public FollowerTest {
protected:
    Pauses pauses(int count) {
        Pauses found;
        for (int i = 0; i < count; ++i)
            found.push_back(std::chrono::duration_cast<milliseconds>(passPause()).count());
        return found;
    }
    // The next pause, which goes on.
    std::int64_t pause() const {
        return std::chrono::duration_cast<milliseconds>(follower->nextDeadline() - now).count();
    }
    void followFor(Clock::duration time) {
        follow();
        for (; time > seconds(10); time -= seconds(10)) {
            pass(seconds(10));
            member().notify("nothing", Json::array());
        }
        pass(time);
        member().disconnect();
    }
};

TEST_F(FollowerPausesTest, OneMemberIsTriedAgainAfterPausesThatDoubleToHalfAMinute) {
    start(0, 1);
    EXPECT_EQ(pauses(9), (Pauses{500, 1000, 2000, 4000, 8000, 16000, 30000, 30000, 30000}));
}

TEST_F(FollowerPausesTest, AllMembersAreTriedBeforeALongerPause) {
    start(0, 3);
    EXPECT_EQ(pauses(9), (Pauses{250, 250, 500, 250, 250, 1000, 250, 250, 2000}));
    EXPECT_THAT(lines(), ElementsAre(HasSubstr("at unix:a: it can't be reached: No such file or directory"),
                                     HasSubstr("at unix:b: "), HasSubstr("at unix:c: ")));
}

TEST_F(FollowerPausesTest, ManyFailuresMakeNoPauseLongerThanHalfAMinute) {
    start(0, 1);
    (void)pauses(100);
    EXPECT_EQ(pauses(2), (Pauses{30000, 30000}));
}

TEST_F(FollowerPausesTest, PausesAreFromHalfToAllOfTheirLength) {
    random = 0;
    start(0, 2);
    EXPECT_EQ(pauses(4), (Pauses{125, 250, 125, 500}));
    random = 0.5;
    EXPECT_EQ(pauses(2), (Pauses{125, 1500})); // the first was decided before
    EXPECT_EQ(pauses(2), (Pauses{187, 3000}));
}

TEST_F(FollowerPausesTest, NobodyIsCalledDuringAPause) {
    start(1);
    member().raw().accept();
    member().disconnect();
    pass(milliseconds(499));
    EXPECT_FALSE(member().raw().isCalled());
    pass(milliseconds(1));
    EXPECT_TRUE(member().raw().isCalled());
}

TEST_F(FollowerPausesTest, AfterTheLastMemberComesTheFirst) {
    start(2);
    for (int times = 0; times < 2; ++times)
        for (const std::size_t i : {0U, 1U}) {
            EXPECT_TRUE(member(i).raw().isCalled());
            member(i).raw().accept();
            member(i).disconnect();
            (void)passPause();
        }
}

TEST_F(FollowerPausesTest, AMemberThatIsFollowedForAMinuteMakesThemShortAgain) {
    start(1);
    for (int i = 0; i < 5; ++i) {
        member().raw().accept();
        member().disconnect();
        (void)passPause();
    }
    followFor(seconds(60));
    EXPECT_EQ(pause(), 250);
}

struct Followed {
    milliseconds time;
    std::int64_t longest; // pause, in milliseconds
};

class FollowerPausesAfterTest : public FollowerPausesTest, public testing::WithParamInterface<Followed> {};

TEST_P(FollowerPausesAfterTest, AMemberThatIsFollowedForLessMakesThemLongerUpToATenthOfThat) {
    start(1);
    Pauses found;
    for (int i = 0; i < 8; ++i) {
        followFor(GetParam().time);
        found.push_back(pause());
        (void)passPause();
    }
    EXPECT_EQ(found.front(), std::min(std::int64_t{500}, GetParam().longest));
    EXPECT_EQ(found.back(), GetParam().longest);
}

INSTANTIATE_TEST_SUITE_P(Times, FollowerPausesAfterTest,
                         testing::Values(Followed{milliseconds(59999), 4000}, Followed{seconds(40), 4000},
                                         Followed{milliseconds(39999), 2000}, Followed{seconds(5), 500},
                                         Followed{milliseconds(4999), 250}, Followed{milliseconds(1), 250}));

TEST_F(FollowerPausesTest, FailuresBeforeAMemberWasFollowedDontCountAfterwards) {
    start(1);
    for (int i = 0; i < 8; ++i) {
        member().raw().accept();
        member().disconnect();
        (void)passPause();
    }
    followFor(seconds(10));
    EXPECT_EQ(pause(), 1000);
}

// What was followed long ago says nothing of the present.
TEST_F(FollowerPausesTest, AMemberThatTellsWhatCantBeUsedIsTriedLessAndLessOften) {
    start(1);
    followFor(minutes(2));
    EXPECT_EQ(pauses(1), (Pauses{250}));
    complaint = "it tells nonsense";
    Pauses found;
    for (int i = 0; i < 3; ++i) {
        follow();
        found.push_back(pause());
        (void)passPause();
    }
    EXPECT_EQ(found, (Pauses{500, 1000, 2000}));
}

TEST_F(FollowerPausesTest, AReasonIsLoggedOnce) {
    start(0, 2);
    (void)pauses(50);
    EXPECT_EQ(lines().size(), 2U);
}

TEST_F(FollowerPausesTest, AReasonIsLoggedAgainAfterAMemberWasFollowed) {
    start(1);
    for (int i = 0; i < 2; ++i) {
        followFor(seconds(1));
        (void)passPause();
    }
    EXPECT_THAT(lines(),
                ElementsAre("info cfgserver: follows the cluster at unix:a", HasSubstr("it closed"),
                            "info cfgserver: follows the cluster at unix:a", HasSubstr("it closed")));
}

TEST_F(FollowerPausesTest, TwentyLinesAreLoggedInTenMinutes) {
    start(1);
    random = 0;
    const auto giveReasons = [this](int count, const std::string& reason) {
        for (int i = 0; i < count; ++i) {
            complaint = reason + std::to_string(i);
            follow();
            (void)passPause();
        }
    };
    const Clock::time_point begin = now;
    giveReasons(30, "first ");
    EXPECT_LT(now, begin + minutes(10));
    EXPECT_EQ(lines().size(), 20U);
    pass(begin + minutes(10) - now); // in which the member says nothing
    EXPECT_EQ(lines().size(), 21U);
    EXPECT_THAT(lines().back(), HasSubstr("it does not tell what it holds"));
}

TEST_F(FollowerPausesTest, AHundredReasonsAreKeptInMind) {
    start(1);
    const auto giveReason = [this](int number) {
        complaint = "reason " + std::to_string(number);
        pass(seconds(9)); // so that there are few enough in ten minutes
        follow();
        (void)passPause();
    };
    for (int i = 0; i <= 99; ++i)
        giveReason(i);
    EXPECT_EQ(lines().size(), 100U);
    giveReason(0);
    EXPECT_EQ(lines().size(), 100U);
    giveReason(100);
    giveReason(0);
    EXPECT_EQ(lines().size(), 102U);
}

TEST_F(FollowerPausesTest, ThatItFollowsIsLoggedOnceThereMayBeLinesAgain) {
    start(1);
    for (int i = 0; i < 12; ++i) {
        followFor(milliseconds(1));
        (void)passPause();
    }
    log.clear();
    follow();
    EXPECT_THAT(lines(), testing::IsEmpty());
    pass(minutes(10));
    EXPECT_THAT(lines(), testing::Contains("info cfgserver: follows the cluster at unix:a"));
}

} // namespace
