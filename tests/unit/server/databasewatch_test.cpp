#include "store/server/databasewatch.h"
#include "support/loweredlimit.h"
#include "support/temporarydirectory.h"
#include "unit/storage/testtables.h"

#include <filesystem>

#include <gmock/gmock.h>

namespace {

using store::Database;
using store::DatabaseWatch;
using testing::HasSubstr;
namespace fs = std::filesystem;

class DatabaseWatchTest : public testing::Test {
protected:
    const TemporaryDirectory directory;
    const std::string path = directory.path("db");
    const std::string log = path + "-wal";
    const std::string lost = "the log of the database was removed, replaced or cut by another hand: " + log;
    Database database{schemaOf(testTables), path};
    velta::net::EventDispatcher dispatcher;
};

TEST_F(DatabaseWatchTest, LogThatIsRemovedIsNoticedAtOnce) {
    const DatabaseWatch watch(dispatcher, database);
    testing::internal::CaptureStderr();
    fs::remove(log);

    dispatcher.handleEvents(1000);

    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(lost));
    EXPECT_EQ(database.timesOpened(), 2U);
}

TEST_F(DatabaseWatchTest, LogThatWasRemovedBeforeTheWatchBeganIsNoticedToo) {
    testing::internal::CaptureStderr();
    fs::remove(log);

    const DatabaseWatch watch(dispatcher, database);

    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(lost));
    EXPECT_EQ(database.timesOpened(), 2U);
}

TEST_F(DatabaseWatchTest, FilesThatWereOpenedAnewAreFollowed) {
    DatabaseWatch watch(dispatcher, database);
    fs::remove(log);
    dispatcher.handleEvents(1000);

    watch.followFiles();
    fs::remove(log);
    dispatcher.handleEvents(1000);

    EXPECT_EQ(database.timesOpened(), 3U);
}

TEST_F(DatabaseWatchTest, FilesThatCanNotBeWatchedAreSaidOnceAndServedAllTheSame) {
    testing::internal::CaptureStderr();
    {
        const LoweredLimit none(RLIMIT_NOFILE, 0);
        const DatabaseWatch blind(dispatcher, database);
    }

    const std::string lines = testing::internal::GetCapturedStderr();
    EXPECT_THAT(lines,
                HasSubstr("nobody will be told at once if " + path + " is removed: Too many open files"));
    EXPECT_THAT(lines, testing::Not(HasSubstr(log)));
    EXPECT_EQ(tableOf(database, "Globals").size(), 1U);
}

} // namespace
