#include "unit/server/queuescript.h"

#include <random>

namespace {

using store::TransactionQueue;

struct Case {
    const char* name;
    const char* script;
    const char* happens;
};

class TransactionQueueTest : public testing::TestWithParam<Case> {};

TEST_P(TransactionQueueTest, GoesAsItShould) {
    QueueScript script;
    EXPECT_EQ(script.play(GetParam().script), GetParam().happens);
}

// Clients come at times of their own, so that their ranks differ.
#define A_HOLDS "0 a joins; 1 b joins; 2 c joins; 3 d joins; 10 a asks 0;"

// A row is what happens, up to the last step.
const Case cases[] = {
    {"WhoAsksAloneBeginsAtOnce", "0 a joins; 5 a asks 0;", "5 a begins"},
    {"WhoCameFirstIsNextWhoeverAskedFirst",
     A_HOLDS "20 c asks 9000; 30 d asks 9000; 40 b asks 9000; 500 a ends; 1000 b ends; 1500 c ends;",
     "10 a begins; 500 b begins; 1000 c begins; 1500 d begins"},
    {"WhoHeldItLeastRecentlyIsNext",
     A_HOLDS "500 a ends; 500 c asks 0; 900 c ends; 900 b asks 0; 1500 b ends; 1500 d asks 0;"
             "1600 b asks 9000; 1601 c asks 9000; 1602 a asks 9000; 2000 d ends; 3000 a ends; 4000 c ends;",
     "10 a begins; 500 c begins; 900 b begins; 1500 d begins; 2000 a begins; 3000 c begins; 4000 b begins"},
    {"ANewcomerIsBehindThoseThatWait",
     A_HOLDS
     "500 a ends; 500 b asks 0; 600 a asks 9000; 1000 n joins; 1001 n asks 9000; 2000 b ends; 3000 a ends;",
     "10 a begins; 500 b begins; 2000 a begins; 3000 n begins"},
    {"ANewcomerIsBeforeWhoHeldItSince",
     A_HOLDS "20 n joins; 500 a ends; 500 b asks 0; 600 a asks 9000; 700 n asks 9000; 2000 b ends;",
     "10 a begins; 500 b begins; 2000 n begins"},
    {"AWaitEndsWhenItWasSaid", A_HOLDS "20 b asks 500; 30 c asks 100; 600 a sends;",
     "10 a begins; 130 c busy; 520 b busy"},
    {"WhoWaitsUpToTheMomentOfTheEndBegins", A_HOLDS "20 b asks 480; 500 a ends;", "10 a begins; 500 b busy"},

    // A place that is kept.
    {"APlaceIsKeptForFiveSeconds", A_HOLDS "20 b asks 500; 30 c asks 9000; 5300 a ends; 5510 b asks 0;",
     "10 a begins; 520 b busy; 5510 b begins"},
    {"AndNotLonger", A_HOLDS "20 b asks 500; 30 c asks 9000; 5300 a ends; 6000 c sends;",
     "10 a begins; 520 b busy; 5520 c begins"},
    {"APlaceThatEndedIsNotWaitedFor", A_HOLDS "20 b asks 500; 30 c asks 9000; 5600 a ends;",
     "10 a begins; 520 b busy; 5600 c begins"},
    {"TheFreeTransactionWaitsForAPlaceThatIsKept",
     A_HOLDS "20 b asks 500; 30 c asks 9000; 600 a ends; 3090 b asks 0;",
     "10 a begins; 520 b busy; 3090 b begins"},
    {"ButNotLongerThanTwoSecondsAndAHalf", A_HOLDS "20 b asks 500; 30 c asks 9000; 600 a ends; 3100 c sends;",
     "10 a begins; 520 b busy; 3100 c begins"},
    {"AndNothingThatOthersDoLengthensThat",
     A_HOLDS "20 b asks 500; 30 c asks 9000; 600 a ends; 1000 n joins; 2000 n asks 9000; 3100 c sends;",
     "10 a begins; 520 b busy; 3100 c begins"},
    {"NobodyWaitsForAPlaceBehindTheOwn", A_HOLDS "20 c asks 500; 30 b asks 9000; 600 a ends;",
     "10 a begins; 520 c busy; 600 b begins"},
    {"WhoAsksAgainHasItsOldPlaceAndANewWait",
     A_HOLDS "20 b asks 500; 30 c asks 9000; 2000 b asks 500; 2400 a ends;",
     "10 a begins; 520 b busy; 2400 b begins"},
    {"APlaceLastsAsLongAsOneAsksAgain",
     A_HOLDS
     "20 b asks 500; 30 c asks 60000; 2000 b asks 500; 4000 b asks 500; 6000 b asks 500; 8000 b asks 500;"
     "8900 a sends; 9000 a ends; 10000 b asks 500;",
     "10 a begins; 520 b busy; 2500 b busy; 4500 b busy; 6500 b busy; 8500 b busy; 10000 b begins"},
    {"AReservationThatWasNotUsedIsATurn",
     A_HOLDS "20 b asks 500; 30 c asks 9000; 600 a ends; 3200 b asks 9000; 3300 d asks 9000; 3400 c ends;",
     "10 a begins; 520 b busy; 3100 c begins; 3400 d begins"},
    {"APlaceThatWasNotReservedCostsNoTurn",
     A_HOLDS "20 b asks 500; 6000 b asks 9000; 6100 c asks 9000; 6200 a ends;",
     "10 a begins; 520 b busy; 6200 b begins"},

    // Silence, and the limit.
    {"ASilentOwnerHasTenSecondsWhileSomebodyWaits", A_HOLDS "20 b asks 60000; 10021 b sends;",
     "10 a begins; 10020 a expired; 10020 b begins"},
    {"TheyCountFromWhenSomebodyWaits", A_HOLDS "8000 b asks 60000; 18001 b sends;",
     "10 a begins; 18000 a expired; 18000 b begins"},
    {"AndFromWhatItSentLast",
     A_HOLDS "20 b asks 60000; 9000 a sends; 18000 a sends; 27000 a sends; 37001 b sends;",
     "10 a begins; 37000 a expired; 37000 b begins"},
    {"NotFromTheFirstOfThemThatWait", A_HOLDS "20 b asks 60000; 5000 c asks 60000; 10021 b sends;",
     "10 a begins; 10020 a expired; 10020 b begins"},
    {"WhoKeepsItsPlaceWaits", A_HOLDS "20 b asks 500; 4000 b asks 500; 8000 b asks 500; 11000 b asks 0;",
     "10 a begins; 520 b busy; 4500 b busy; 8500 b busy; 10020 a expired; 11000 b begins"},
    {"AWaiterThatWentAwayDoesNotCount", A_HOLDS "20 b asks 60000; 5000 b goes; 59000 a sends;",
     "10 a begins"},
    {"APlaceThatEndedDoesNotCount", A_HOLDS "20 b asks 500; 59000 a sends;", "10 a begins; 520 b busy"},
    {"TheSilenceBeginsAnewWithTheNextThatWaits",
     A_HOLDS "20 b asks 500; 8000 c asks 60000; 17999 a sends; 20000 a ends;",
     "10 a begins; 520 b busy; 20000 c begins"},
    {"SilentAndAloneItHasAMinute", A_HOLDS "60010 d joins;", "10 a begins; 60010 a expired"},
    {"AMinuteIsAllWhateverItSends",
     A_HOLDS "20 b asks 99000; 9000 a sends; 18000 a sends; 27000 a sends; 36000 a sends; 45000 a sends;"
             "54000 a sends; 60009 a sends; 60011 b sends;",
     "10 a begins; 60010 a expired; 60010 b begins"},
    {"WhatExpiresAtTheEndOfAWaitIsGranted", A_HOLDS "20 b asks 10000; 10021 b sends;",
     "10 a begins; 10020 a expired; 10020 b begins"},

    // Clients that go.
    {"AnOwnerThatGoesMakesRoom", A_HOLDS "20 b asks 9000; 500 a goes;", "10 a begins; 500 b begins"},
    {"AWaiterThatGoesIsPassedOver", A_HOLDS "20 b asks 9000; 30 c asks 9000; 400 b goes; 500 a ends;",
     "10 a begins; 500 c begins"},
    {"ForOneThatWentNoPlaceIsKept", A_HOLDS "20 b asks 100; 30 c asks 9000; 400 b goes; 500 a ends;",
     "10 a begins; 120 b busy; 500 c begins"},
    {"AReservationEndsWithItsClient",
     A_HOLDS "20 b asks 100; 30 c asks 9000; 500 a ends; 1000 b goes; 1500 c ends;",
     "10 a begins; 120 b busy; 1000 c begins"},
};

INSTANTIATE_TEST_SUITE_P(Queue, TransactionQueueTest, testing::ValuesIn(cases),
                         [](const auto& test) { return std::string(test.param.name); });

struct Holds {
    int count;
    int milliseconds; // each
    char next;
};

class ShortHoldsTest : public testing::TestWithParam<Holds> {};

// Then the client and another, whose rank lies between, ask while a third has it.
TEST_P(ShortHoldsTest, LeaveTheClientItsRankAFewTimes) {
    std::string script = "0 a joins; 1 n joins; 2 x joins;";
    int time = 1000;
    for (int i = 0; i < GetParam().count; ++i, time += 1000)
        script +=
            std::to_string(time) + " a asks 0;" + std::to_string(time + GetParam().milliseconds) + " a ends;";
    script += std::to_string(time) + " x asks 0;" + std::to_string(time + 1) + " a asks 9000;" +
              std::to_string(time + 2) + " n asks 9000;" + std::to_string(time + 500) + " x ends;";

    QueueScript queue;
    queue.play(script);

    EXPECT_TRUE(queue.queue.owns(static_cast<store::ClientId>(GetParam().next)));
}

INSTANTIATE_TEST_SUITE_P(Queue, ShortHoldsTest,
                         testing::Values(Holds{1, 99, 'a'}, Holds{3, 99, 'a'}, Holds{4, 99, 'n'},
                                         Holds{5, 99, 'n'}, Holds{1, 100, 'n'}, Holds{1, 500, 'n'}),
                         [](const auto& test) {
                             return std::to_string(test.param.count) + "Of" +
                                    std::to_string(test.param.milliseconds) + "Milliseconds";
                         });

TEST(TransactionQueue, ALongHoldEndsTheRowOfShortOnes) {
    QueueScript queue;
    queue.play("0 a joins; 1 x joins;"
               "100 a asks 0; 110 a ends; 200 a asks 0; 210 a ends; 300 a asks 0; 310 a ends;"
               "400 a asks 0; 900 a ends;"   // ranks from here on
               "950 n joins;"                // behind it
               "1000 a asks 0; 1010 a ends;" // one of a new row
               "2000 x asks 0; 2001 a asks 9000; 2002 n asks 9000; 2500 x ends;");
    EXPECT_TRUE(queue.queue.owns('a'));
}

TEST(TransactionQueue, OfTwoThatRankTheSameWhoHeldItLessRecentlyIsNext) {
    QueueScript queue;
    queue.play("0 a joins; 0 b joins; 0 x joins; 100 b asks 0; 110 b ends; 200 a asks 0; 210 a ends;"
               "300 x asks 0; 310 a asks 9000; 320 b asks 9000; 900 x ends;");
    EXPECT_TRUE(queue.queue.owns('b'));
}

TEST(TransactionQueue, WhoseTransactionExpiredIsToldOnce) {
    QueueScript script;
    script.play("0 a joins; 0 b joins; 0 a asks 0; 70000 b asks 0;");

    EXPECT_FALSE(script.queue.takeExpiry('b'));
    EXPECT_TRUE(script.queue.takeExpiry('a'));
    EXPECT_FALSE(script.queue.takeExpiry('a'));
    EXPECT_FALSE(script.queue.takeExpiry('?')); // not here
}

TEST(TransactionQueue, AnswersTheBeginThatWasSentLast) {
    TransactionQueue queue{TransactionQueue::Limits()};
    const auto at = [](int milliseconds) { return QueueScript::at(milliseconds); };
    queue.join(1, at(0));
    queue.join(2, at(0));
    queue.ask(1, 11, at(0), at(0));
    ASSERT_EQ(queue.admit(at(0))->sequence, 11U);
    queue.ask(2, 21, at(100), at(0));
    ASSERT_EQ(queue.takeTimedOut(at(100))->sequence, 21U);
    queue.ask(2, 22, at(900), at(200));
    queue.release(at(300));

    EXPECT_EQ(queue.admit(at(300))->sequence, 22U);
}

TEST(TransactionQueue, WhoWithdrawsHasNoPlace) {
    QueueScript script;
    script.play("0 a joins; 1 b joins; 2 c joins; 10 a asks 0; 20 b asks 100; 30 c asks 9000;");
    script.queue.withdraw('b');
    script.play("500 a ends;");

    EXPECT_TRUE(script.queue.owns('c'));
}

// Whatever clients do, the server is not woken without need (the script looks), and nobody stays in line
// while the transaction is free for longer than it is reserved.
TEST(TransactionQueue, NoOrderOfEventsKeepsTheServerAwakeOrTheTransactionFree) {
    std::mt19937 dice(20261121); // NOLINT: the same each time
    const auto roll = [&dice](unsigned most) { return static_cast<int>(dice() % (most + 1)); };
    for (int round = 0; round < 200; ++round) {
        QueueScript script;
        script.play("0 a joins; 0 b joins; 0 c joins; 0 d joins;");
        int time = 0;
        for (int i = 0; i < 60 && !HasFatalFailure(); ++i) {
            time += roll(3) == 0 ? roll(12000) : roll(300);
            const char client = static_cast<char>('a' + roll(3));
            (void)script.playUntil(time);
            std::string verb = "asks " + std::to_string(roll(1) * roll(6000));
            if (script.queue.owns(static_cast<store::ClientId>(client)))
                verb = roll(2) == 0 ? "sends" : "ends";
            script.play(std::to_string(time) + ' ' + client + ' ' + verb + ';');
        }
        script.playUntil(time + 200000);
        EXPECT_EQ(script.queue.nextDeadline(), store::Clock::time_point::max()) << "somebody is left over";
    }
}

} // namespace
