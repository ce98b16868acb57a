#include "handlers/transaction.h"
#include "support/fakestore.h"

#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using fakes::FakeStore;
using orv::horad::Transaction;
using testing::ElementsAre;

class TransactionOf : public testing::Test {
protected:
    FakeStore store_;
};

TEST_F(TransactionOf, AHandlerIsStartedAndCommitted) {
    Transaction transaction(store_);
    EXPECT_TRUE(transaction.started().ok());
    EXPECT_TRUE(transaction.commit().ok());
    EXPECT_THAT(store_.journal(), ElementsAre("start", "close"));
}

TEST_F(TransactionOf, NobodyNeedsNoEnd) {
    store_.fail(FakeStore::Operation::Start, 9);
    {
        const Transaction transaction(store_);
        EXPECT_EQ(transaction.started().code(), 9);
    }
    EXPECT_THAT(store_.journal(), ElementsAre("start -> 9"));
}

TEST_F(TransactionOf, AHandlerThatThrowsIsAborted) {
    const auto write = [this] {
        const Transaction transaction(store_);
        throw std::runtime_error("over");
    };
    EXPECT_THROW(write(), std::runtime_error);
    EXPECT_THAT(store_.journal(), ElementsAre("start", "abort"));
    EXPECT_FALSE(store_.isTransactionOpen());
}

TEST_F(TransactionOf, AnotherStartIsTakenOver) {
    ASSERT_TRUE(store_.startTransaction().ok());
    EXPECT_TRUE(Transaction::takeOver(store_).commit().ok());
    EXPECT_THAT(store_.journal(), ElementsAre("start", "close"));
}

TEST_F(TransactionOf, AFailedCommitIsOverAndAbortedOnlyWhereThatIsAskedFor) {
    store_.fail(FakeStore::Operation::Close, 7);
    EXPECT_EQ(Transaction(store_).commit().code(), 7);
    EXPECT_THAT(store_.journal(), ElementsAre("start", "close -> 7"));
    store_.clearJournal();
    (void)store_.abortTransaction();
    store_.clearJournal();
    EXPECT_EQ(Transaction(store_).commitOrAbort().code(), 7);
    EXPECT_THAT(store_.journal(), ElementsAre("start", "close -> 7", "abort -> 10"));
}

} // namespace
