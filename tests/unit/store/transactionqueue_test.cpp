#include "store/server/transactionqueue.h"

#include <gtest/gtest.h>

namespace {

using std::chrono::seconds;
using store::Clock;

class TransactionQueueTest : public testing::Test {
protected:
    const Clock::time_point now{};
    store::TransactionQueue queue{seconds(60)};
};

TEST_F(TransactionQueueTest, FirstToAskComesFirst) {
    queue.wait(1, now + seconds(9));
    queue.wait(2, now + seconds(5));

    EXPECT_EQ(queue.admit(now), 1U);
    EXPECT_EQ(queue.admit(now), std::nullopt);
    queue.leave(1);
    EXPECT_EQ(queue.admit(now), 2U);
}

TEST_F(TransactionQueueTest, IsNotFreeWhileSomebodyWaits) {
    EXPECT_TRUE(queue.isFree());
    queue.wait(1, now + seconds(9));
    EXPECT_FALSE(queue.isFree());
}

TEST_F(TransactionQueueTest, WhoWaitedLongEnoughIsTakenOut) {
    queue.wait(1, now + seconds(9));
    (void)queue.admit(now);
    queue.wait(2, now + seconds(5));

    EXPECT_EQ(queue.takeTimedOut(now + seconds(4)), std::nullopt);
    EXPECT_EQ(queue.takeTimedOut(now + seconds(5)), 2U);
    queue.leave(1);
    EXPECT_TRUE(queue.isFree());
}

TEST_F(TransactionQueueTest, OwnerExpires) {
    queue.wait(1, now + seconds(9));
    (void)queue.admit(now);

    EXPECT_EQ(queue.takeExpired(now + seconds(59)), std::nullopt);
    EXPECT_EQ(queue.takeExpired(now + seconds(60)), 1U);
    EXPECT_FALSE(queue.owns(1));
}

TEST_F(TransactionQueueTest, WhoLeavesWhileWaitingIsNotAdmitted) {
    queue.wait(1, now + seconds(9));
    queue.wait(2, now + seconds(9));
    queue.leave(1);

    EXPECT_EQ(queue.admit(now), 2U);
}

TEST_F(TransactionQueueTest, NextDeadlineIsTheEarliest) {
    EXPECT_EQ(queue.nextDeadline(), Clock::time_point::max());
    queue.wait(1, now + seconds(9));
    (void)queue.admit(now);
    EXPECT_EQ(queue.nextDeadline(), now + seconds(60));
    queue.wait(2, now + seconds(5));
    EXPECT_EQ(queue.nextDeadline(), now + seconds(5));
}

} // namespace
