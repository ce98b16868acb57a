#include "store/storage/database.h"
#include "support/temporarydirectory.h"
#include "unit/storage/shakydisk.h"
#include "unit/storage/testtables.h"

#include <algorithm>

#include <gmock/gmock.h>

namespace {

using store::Database;
using testing::HasSubstr;

constexpr std::uint64_t enoughPages = 200;

class CheckpointsTest : public testing::Test {
protected:
    CheckpointsTest() {
        store::DatabaseOptions options;
        options.now = [this] { return now; };
        database = std::make_unique<Database>(schemaOf(testTables), path, options);
    }

    void commitOnce() {
        const std::string text(1500, static_cast<char>('a' + commits++ % 26));
        EXPECT_TRUE(database->transaction().writeSingle("Globals", 0, cell("Text", textValue(text))).ok());
        EXPECT_EQ(commit(*database), velta::NameList{"Globals"});
    }
    // Some 60 pages.
    void commitMany() {
        std::uint32_t id = 0;
        for (int i = 0; i < 25; ++i)
            ASSERT_TRUE(database->transaction()
                            .insert("Plans", cell("Name", textValue(std::string(4000, 'x'))), id)
                            .ok());
        EXPECT_EQ(commit(*database), velta::NameList{"Plans"});
    }
    void commitUntil(std::uint64_t pages) {
        while (database->logPages() + 100 < pages)
            commitMany();
        while (database->logPages() < pages)
            commitOnce();
    }
    std::unique_ptr<store::TableReading> reading() {
        std::unique_ptr<store::TableReading> begun;
        EXPECT_TRUE(database->beginReading("Globals", Database::View::LastCommit, begun).ok());
        store::Rows rows;
        EXPECT_TRUE(begun->next(rows, 1).ok());
        return begun;
    }
    std::uintmax_t logBytes() const { return std::filesystem::file_size(path + "-wal"); }

    ShakyDisk disk;
    const TemporaryDirectory directory;
    const std::string path = directory.path("db");
    store::Checkpoints::Clock::time_point now{std::chrono::hours(1)};
    int commits = 0;
    std::unique_ptr<Database> database;
};

TEST_F(CheckpointsTest, CommitLeavesTheLogAlone) {
    commitUntil(1500); // SQLite by itself would have a go at 1000

    EXPECT_GE(database->logPages(), 1500U);
}

TEST_F(CheckpointsTest, TidyingWaitsForEnoughPages) {
    commitUntil(enoughPages - 1);
    database->tidy();
    EXPECT_EQ(database->logPages(), enoughPages - 1);

    commitUntil(enoughPages);
    database->tidy();
    EXPECT_EQ(database->logPages(), 0U);
}

TEST_F(CheckpointsTest, LogThatWasBroughtInBeginsAnew) {
    for (int i = 0; i < 500; ++i) {
        commitOnce();
        database->tidy();
    }

    EXPECT_LE(logBytes(), (enoughPages + 10) * (2048 + 24));
}

TEST_F(CheckpointsTest, ReaderThatHoldsTheLogBackIsNoFailure) {
    commitOnce();
    const auto held = reading();
    testing::internal::CaptureStderr();

    for (int i = 0; i < 300; ++i) {
        commitOnce();
        database->tidy();
    }

    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_GE(database->logPages(), 300U);
}

TEST_F(CheckpointsTest, TidyingGoesOnWhenTheReaderIsGone) {
    commitOnce();
    auto held = reading();
    commitUntil(1000);
    database->tidy();
    ASSERT_GE(database->logPages(), 1000U);

    held.reset();
    database->tidy();

    EXPECT_EQ(database->logPages(), 0U);
}

TEST_F(CheckpointsTest, OpenTransactionDoesNotHoldTheLogBack) {
    commitUntil(enoughPages);
    ASSERT_TRUE(database->transaction().writeSingle("Other", 0, cell("Enable", switchValue(1))).ok());

    database->tidy();

    EXPECT_EQ(database->logPages(), 0U);
    EXPECT_EQ(commit(*database), velta::NameList{"Other"});
}

TEST_F(CheckpointsTest, LogThatASnapshotHoldsIsLongFrom4MiBAndTooLongFrom12) {
    commitOnce();
    auto held = reading();
    commitUntil(4 * 1024 * 1024 / 2072 - 1);
    EXPECT_FALSE(database->logIsLong());
    commitUntil(4 * 1024 * 1024 / 2072 + 1);
    EXPECT_TRUE(database->logIsLong());
    EXPECT_FALSE(database->logIsTooLong());
    commitUntil(12 * 1024 * 1024 / 2072 + 1);
    EXPECT_TRUE(database->logIsTooLong());

    held.reset();
    EXPECT_FALSE(database->logIsLong()); // nobody is to wait for nobody
    database->tidy();
    EXPECT_EQ(logBytes(), 0U);
}

TEST_F(CheckpointsTest, LogIsShortAgainAfterAVeryLargeTransaction) {
    std::uint32_t id = 0;
    for (int i = 0; i < 5000; ++i)
        ASSERT_TRUE(database->transaction()
                        .insert("Plans", cell("Name", textValue(std::string(4000, 'x'))), id)
                        .ok());
    ASSERT_EQ(commit(*database), velta::NameList{"Plans"});
    ASSERT_GT(logBytes(), 16U * 1024 * 1024);

    database->tidy();

    EXPECT_EQ(logBytes(), 0U);
    commitOnce();
    EXPECT_EQ(database->timesOpened(), 1U); // that is no other hand's doing
}

TEST_F(CheckpointsTest, FailureIsLoggedOnceAMinuteWithItsCount) {
    commitUntil(enoughPages);
    disk.failDatabaseSyncs(1000);
    testing::internal::CaptureStderr();

    for (int i = 0; i < 5; ++i) {
        database->tidy();
        commitUntil(database->logPages() + 50);
    }
    const std::string first = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(first.begin(), first.end(), '\n'), 1) << first;
    EXPECT_THAT(first,
                HasSubstr("error cfgserver: the log can't be brought into the database: disk I/O error"));

    now += std::chrono::minutes(1);
    testing::internal::CaptureStderr();
    database->tidy();
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("disk I/O error (the last of 4 such lines"));

    disk.failDatabaseSyncs(0);
    commitUntil(database->logPages() + 50);
    database->tidy();
    EXPECT_EQ(database->logPages(), 0U);
}

} // namespace
