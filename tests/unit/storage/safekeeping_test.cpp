#include "store/storage/database.h"
#include "support/temporarydirectory.h"
#include "unit/storage/shakydisk.h"
#include "unit/storage/testtables.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

namespace {

using store::Database;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
namespace code = velta::protocol::code;
namespace fs = std::filesystem;

class SafekeepingTest : public testing::Test {
protected:
    SafekeepingTest() {
        store::DatabaseOptions options;
        options.now = [this] { return now; };
        database = std::make_unique<Database>(schemaOf(testTables), path, options);
    }

    Database::Result commitText(const std::string& text) {
        changed = {"left over"};
        if (Database::Result result =
                database->transaction().writeSingle("Globals", 0, cell("Text", textValue(text)));
            !result.ok())
            return result;
        return database->transaction().commit(changed);
    }

    static std::string textIn(Database& any) {
        const auto rows = smallTableOf(any, "Globals");
        return rows.empty() ? "nothing" : rows[0].getValue("Text").getText();
    }

    // What a start after kill -9 would find: no one tidies up.
    std::string textAfterKill() const {
        const TemporaryDirectory other;
        for (const char* suffix : {"", "-wal"})
            if (fs::exists(path + suffix))
                fs::copy_file(path + suffix, other.path("db") + suffix);
        Database again(schemaOf(testTables), other.path("db"));
        return textIn(again);
    }

    std::vector<std::string> setAside() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(directory.path()))
            if (entry.path().string().find("aside") != std::string::npos)
                names.push_back(entry.path().filename());
        return names;
    }

    ShakyDisk disk;
    const TemporaryDirectory directory;
    const std::string path = directory.path("db");
    const std::string log = path + "-wal";
    store::Safekeeping::Clock::time_point now{std::chrono::hours(1)};
    velta::NameList changed;
    std::unique_ptr<Database> database;
};

TEST_F(SafekeepingTest, CommitWhoseSyncFailedIsNotThereAfterARestart) {
    ASSERT_TRUE(commitText("kept").ok());
    disk.failSyncs(1);

    EXPECT_EQ(commitText("refused").code(), code::storageFailed);

    EXPECT_THAT(changed, IsEmpty());
    EXPECT_EQ(textIn(*database), "kept");
    EXPECT_EQ(textAfterKill(), "kept");
    EXPECT_TRUE(commitText("goes on").ok());
    EXPECT_EQ(textAfterKill(), "goes on");
}

TEST_F(SafekeepingTest, CommitThatNobodyCanTakeBackIsAnsweredAsUnknown) {
    ASSERT_TRUE(commitText("kept").ok());
    disk.failSyncs(2);

    EXPECT_EQ(commitText("perhaps").code(), code::outcomeUnknown);

    EXPECT_THAT(changed, IsEmpty());
}

TEST_F(SafekeepingTest, AfterAnUnknownOutcomeCommitsAreRefusedUntilTheDatabaseWasOpenedAnew) {
    ASSERT_TRUE(commitText("kept").ok());
    disk.failSyncs(1000);
    ASSERT_EQ(commitText("perhaps").code(), code::outcomeUnknown);

    const Database::Result refused = commitText("too early");
    EXPECT_EQ(refused.code(), code::storageFailed);
    EXPECT_THAT(refused.strerror(), HasSubstr("commits are refused until the database could be opened anew"));

    disk.failSyncs(0);
    EXPECT_EQ(commitText("within the pace").code(), code::storageFailed);
    now += store::Safekeeping::retryPace;
    EXPECT_TRUE(commitText("later").ok());
    EXPECT_EQ(textAfterKill(), "later");
}

TEST_F(SafekeepingTest, UnknownOutcomeIsLookedIntoWithoutBeingAsked) {
    EXPECT_EQ(database->nextDeadline(), store::Safekeeping::Clock::time_point::max());
    disk.failSyncs(10);
    ASSERT_EQ(commitText("unknown").code(), code::outcomeUnknown);
    disk.failSyncs(0);

    ASSERT_NE(database->nextDeadline(), store::Safekeeping::Clock::time_point::max());
    now = std::max(now, database->nextDeadline());
    database->tidy();

    EXPECT_TRUE(commitText("kept").ok());
    EXPECT_GE(database->nextDeadline(), now + std::chrono::seconds(1)); // a line of the log at the most
}

TEST(SafekeepingInMemory, NothingIsLostWhereACommitFails) {
    ShakyDisk disk;
    Database database(schemaOf(testTables), "");
    velta::NameList changed;
    ASSERT_TRUE(database.transaction().writeSingle("Globals", 0, cell("Text", textValue("kept"))).ok());
    ASSERT_TRUE(database.transaction().commit(changed).ok());
    disk.failSyncs(10);
    ASSERT_TRUE(database.transaction().writeSingle("Globals", 0, cell("Text", textValue("refused"))).ok());
    ASSERT_EQ(database.transaction().commit(changed).code(), code::storageFailed);
    disk.failSyncs(0);

    EXPECT_EQ(smallTableOf(database, "Globals").at(0).getValue("Text").getText(), "kept");
    ASSERT_TRUE(database.transaction().writeSingle("Globals", 0, cell("Text", textValue("again"))).ok());
    EXPECT_TRUE(database.transaction().commit(changed).ok());
}

TEST_F(SafekeepingTest, TablesOfAnUnknownOutcomeCountAsChangedOnceItIsKnown) {
    ASSERT_TRUE(commitText("kept").ok());
    disk.failSyncs(2);
    ASSERT_EQ(commitText("perhaps").code(), code::outcomeUnknown);
    EXPECT_THAT(database->takeChanged(), IsEmpty());

    database->tidy();

    EXPECT_THAT(database->takeChanged(), ElementsAre("Globals"));
    EXPECT_THAT(database->takeChanged(), IsEmpty());
    EXPECT_EQ(textIn(*database), textAfterKill());
    EXPECT_EQ(database->timesOpened(), 2U);
}

TEST_F(SafekeepingTest, FailedWriteIsRefusedAndAllGoesOn) {
    ASSERT_TRUE(commitText("kept").ok());
    disk.failWrites(1);

    EXPECT_EQ(commitText("refused").code(), code::storageFailed);

    EXPECT_EQ(textAfterKill(), "kept");
    EXPECT_TRUE(commitText("goes on").ok());
    EXPECT_EQ(database->timesOpened(), 1U);
}

TEST_F(SafekeepingTest, DiskThatTakesNoWritesRefusesCommitsAndNothingIsUnknown) {
    ASSERT_TRUE(commitText("kept").ok());
    disk.failWrites(1000);

    EXPECT_EQ(commitText("refused").code(), code::storageFailed);
    EXPECT_EQ(commitText("refused").code(), code::storageFailed);

    disk.failWrites(0);
    EXPECT_TRUE(commitText("goes on").ok());
    EXPECT_EQ(database->timesOpened(), 1U);
}

TEST_F(SafekeepingTest, LogThatAnotherProgramEmptiesInGoodOrderIsNotCut) {
    ASSERT_TRUE(commitText("kept").ok());
    store::Connection other(path, SQLITE_OPEN_READWRITE);
    EXPECT_EQ(other.number("PRAGMA wal_checkpoint(TRUNCATE)"), 0);
    ASSERT_EQ(contentOf(log), "");

    database->filesTouched();
    EXPECT_TRUE(commitText("goes on").ok());

    EXPECT_EQ(database->timesOpened(), 1U);
    EXPECT_EQ(textAfterKill(), "goes on");
}

struct Accident {
    const char* name;
    void (*happen)(const std::string& path);
};

void replaceBy(const std::string& file, const std::string& content) {
    writeFile(file + ".new", content);
    fs::rename(file + ".new", file);
}

class LogAccidentTest : public SafekeepingTest, public testing::WithParamInterface<Accident> {};

TEST_P(LogAccidentTest, BeforeACommitLosesNothing) {
    ASSERT_TRUE(commitText("before").ok());
    GetParam().happen(path);

    EXPECT_TRUE(commitText("after").ok());

    EXPECT_EQ(textIn(*database), "after");
    EXPECT_EQ(textAfterKill(), "after");
    EXPECT_EQ(database->timesOpened(), 2U);
}

TEST_P(LogAccidentTest, BetweenCommitsIsNoticedAndBroughtToSafety) {
    ASSERT_TRUE(commitText("before").ok());
    GetParam().happen(path);

    testing::internal::CaptureStderr();
    database->filesTouched();
    const std::string lines = testing::internal::GetCapturedStderr();

    EXPECT_EQ(textAfterKill(), "before");
    EXPECT_THAT(lines,
                HasSubstr("the log of the database was removed, replaced or cut by another hand: " + log));
    EXPECT_THAT(lines, HasSubstr("the database was opened anew: " + path));
    EXPECT_THAT(database->takeChanged(), IsEmpty());
}

TEST_P(LogAccidentTest, InsideOfATransactionDoesNotCostItsCommit) {
    ASSERT_TRUE(database->transaction().writeSingle("Globals", 0, cell("Text", textValue("inside"))).ok());
    GetParam().happen(path);

    EXPECT_EQ(commit(*database), velta::NameList{"Globals"});

    EXPECT_EQ(textAfterKill(), "inside");
}

const Accident accidents[] = {
    {"LogRemoved", [](const std::string& path) { fs::remove(path + "-wal"); }},
    {"LogMoved", [](const std::string& path) { fs::rename(path + "-wal", path + "-wal.moved"); }},
    {"LogReplaced", [](const std::string& path) { replaceBy(path + "-wal", "no log"); }},
    {"IndexRemoved", [](const std::string& path) { fs::remove(path + "-shm"); }},
    {"IndexReplaced", [](const std::string& path) { replaceBy(path + "-shm", "no index"); }},
    {"BothRemoved",
     [](const std::string& path) {
         fs::remove(path + "-wal");
         fs::remove(path + "-shm");
     }},
};

INSTANTIATE_TEST_SUITE_P(Safekeeping, LogAccidentTest, testing::ValuesIn(accidents),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(LogAccidentTest, DuringTheSyncDoesNotCostTheCommit) {
    disk.duringNextSync([this] { GetParam().happen(path); });

    EXPECT_TRUE(commitText("synced").ok());

    EXPECT_EQ(textAfterKill(), "synced");
    EXPECT_EQ(database->timesOpened(), 2U);
}

TEST_F(SafekeepingTest, DatabaseThatIsReplacedDuringTheSyncMakesTheOutcomeUnknown) {
    disk.duringNextSync([this] { fs::rename(path, path + ".away"); });

    const Database::Result result = commitText("where?");

    EXPECT_EQ(result.code(), code::outcomeUnknown);
    EXPECT_THAT(result.strerror(), HasSubstr("the database file was removed, moved or replaced: " + path));
    EXPECT_THAT(changed, IsEmpty());
    EXPECT_THAT(database->takeChanged(), ElementsAre("Globals"));
}

TEST_F(SafekeepingTest, OlderLogInThePlaceOfTheLogIsNeverRead) {
    ASSERT_TRUE(commitText("old").ok());
    const std::string older = contentOf(log);
    ASSERT_TRUE(commitText("new").ok());

    replaceBy(log, older);
    database->filesTouched();

    EXPECT_EQ(textIn(*database), "new");
    EXPECT_EQ(textAfterKill(), "new");
    EXPECT_THAT(setAside(), ElementsAre("db-wal.aside"));
    EXPECT_EQ(contentOf(log + ".aside"), older);
}

TEST_F(SafekeepingTest, LogThatCanNotBeBroughtToSafetyMakesTheCommitUnknownAndRefusesFurtherOnes) {
    ASSERT_TRUE(database->transaction().writeSingle("Globals", 0, cell("Text", textValue("last"))).ok());
    fs::remove(log);
    disk.failDatabaseSyncs(1000);

    EXPECT_EQ(database->transaction().commit(changed).code(), code::outcomeUnknown);
    EXPECT_THAT(database->takeChanged(), ElementsAre("Globals"));
    EXPECT_EQ(commitText("refused").code(), code::storageFailed);
    EXPECT_EQ(textIn(*database), "last");

    disk.failDatabaseSyncs(0);
    now += store::Safekeeping::retryPace;
    EXPECT_TRUE(database->transaction().writeSingle("Globals", 0, cell("Enable", switchValue(0))).ok());
    EXPECT_EQ(commit(*database), velta::NameList{"Globals"});
    EXPECT_EQ(textAfterKill(), "last");
}

TEST_F(SafekeepingTest, TransactionThatWasOpenWhenTheLogWasLostIsRefusedUntilAllIsSafe) {
    ASSERT_TRUE(commitText("kept").ok());
    ASSERT_TRUE(database->transaction().writeSingle("Globals", 0, cell("Text", textValue("refused"))).ok());
    fs::remove(log);
    disk.failDatabaseSyncs(1000);
    database->filesTouched();

    const Database::Result result = database->transaction().commit(changed);

    EXPECT_EQ(result.code(), code::storageFailed);
    EXPECT_THAT(result.strerror(), HasSubstr("commits are refused until the database could be opened anew"));
    disk.failDatabaseSyncs(0);
    now += store::Safekeeping::retryPace;
    database->tidy();
    EXPECT_EQ(textAfterKill(), "kept");
}

TEST_F(SafekeepingTest, ReadingRightAfterTheLogWasLostFailsAndTheNextOneFindsAll) {
    ASSERT_TRUE(commitText("kept").ok());
    fs::remove(log);
    std::unique_ptr<store::TableReading> reading;

    const Database::Result result = database->beginReading("Globals", Database::View::LastCommit, reading);

    EXPECT_EQ(result.code(), code::storageFailed);
    EXPECT_THAT(result.strerror(), HasSubstr("the database was opened anew meanwhile"));
    EXPECT_EQ(textIn(*database), "kept");
}

// There is no room in the file's name for what is added to it.
TEST(Safekeeping, StrangersLogThatCanNotBeSetAsideIsNotReadAndCommitsAreRefused) {
    const TemporaryDirectory directory;
    const std::string path = directory.path(std::string(247, 'd'));
    store::Safekeeping::Clock::time_point now{std::chrono::hours(1)};
    store::DatabaseOptions options;
    options.now = [&now] { return now; };
    Database database(schemaOf(testTables), path, options);
    ASSERT_TRUE(database.transaction().writeSingle("Globals", 0, cell("Text", textValue("old"))).ok());
    ASSERT_EQ(commit(database), velta::NameList{"Globals"});
    const std::string older = contentOf(path + "-wal");
    ASSERT_TRUE(database.transaction().writeSingle("Globals", 0, cell("Text", textValue("new"))).ok());
    ASSERT_EQ(commit(database), velta::NameList{"Globals"});

    fs::remove(path + "-wal");
    writeFile(path + "-wal", older);
    testing::internal::CaptureStderr();
    database.filesTouched();
    const std::string lines = testing::internal::GetCapturedStderr();

    EXPECT_THAT(lines, HasSubstr(path + "-wal can't be moved away: File name too long"));
    EXPECT_EQ(database.transaction().writeSingle("Globals", 0, cell("Text", textValue("refused"))).code(),
              code::storageFailed);
    fs::remove(path + "-wal");
    now += store::Safekeeping::retryPace;
    database.tidy();
    EXPECT_EQ(smallTableOf(database, "Globals").at(0).getValue("Text").getText(), "new");
}

TEST_F(SafekeepingTest, CutLogIsALossThatIsLoggedAndMarksAllTables) {
    ASSERT_TRUE(commitText("lost").ok());
    ASSERT_EQ(truncate(log.c_str(), 0), 0);

    testing::internal::CaptureStderr();
    EXPECT_TRUE(commitText("after").ok());

    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("is lost"));
    EXPECT_THAT(database->takeChanged(), ElementsAre("Globals", "Other", "Plans"));
    EXPECT_EQ(textAfterKill(), "after");
}

TEST_F(SafekeepingTest, CutLogIsNotReadWhereTheDatabaseHoldsSomeOfItAlready) {
    ASSERT_TRUE(commitText("moved").ok());
    std::unique_ptr<store::TableReading> holds; // the rest of the log back
    ASSERT_TRUE(database->beginReading("Globals", Database::View::LastCommit, holds).ok());
    for (int i = 0; i < 250; ++i)
        ASSERT_TRUE(commitText("lost " + std::to_string(i)).ok());
    database->tidy();
    ASSERT_EQ(truncate(log.c_str(), 32 + 10 * 2072), 0);

    database->filesTouched();

    EXPECT_THAT(setAside(), ElementsAre("db-wal.aside"));
    EXPECT_TRUE(commitText("after").ok());
    EXPECT_EQ(textAfterKill(), "after");
}

TEST_F(SafekeepingTest, LogThatIsCutInsideOfATransactionRefusesItsCommit) {
    ASSERT_TRUE(commitText("lost").ok());
    ASSERT_TRUE(database->transaction().writeSingle("Globals", 0, cell("Text", textValue("refused"))).ok());
    ASSERT_EQ(textIn(*database), "lost"); // it is in memory, and no reading meets the gap
    ASSERT_EQ(truncate(log.c_str(), 0), 0);

    EXPECT_EQ(database->transaction().commit(changed).code(), code::storageFailed);

    EXPECT_TRUE(commitText("after").ok());
    EXPECT_EQ(textAfterKill(), "after");
}

TEST_F(SafekeepingTest, ReadingThatGoesOnEndsWithAnErrorWhenTheDatabaseIsOpenedAnew) {
    std::uint32_t id = 0;
    for (int i = 0; i < 100; ++i)
        ASSERT_TRUE(database->transaction()
                        .insert("Plans", cell("Name", textValue(std::string(1000, 'x'))), id)
                        .ok());
    ASSERT_EQ(commit(*database), velta::NameList{"Plans"});
    std::unique_ptr<store::TableReading> reading;
    store::Rows rows;
    ASSERT_TRUE(database->beginReading("Plans", Database::View::LastCommit, reading).ok());
    ASSERT_TRUE(reading->next(rows, 10).ok());

    fs::remove(log);
    database->filesTouched();

    EXPECT_EQ(reading->next(rows, 10).code(), code::storageFailed);
    reading.reset();
    EXPECT_EQ(tableOf(*database, "Plans").size(), 100U);
}

TEST_F(SafekeepingTest, OpenTransactionFailsWhenTheDatabaseIsOpenedAnew) {
    ASSERT_TRUE(database->transaction().writeSingle("Globals", 0, cell("Text", textValue("refused"))).ok());
    fs::remove(log);
    database->filesTouched();

    EXPECT_EQ(database->transaction().commit(changed).code(), code::storageFailed);

    EXPECT_TRUE(commitText("after").ok());
}

TEST_F(SafekeepingTest, DatabaseThatIsBackInItsPlaceTakesCommitsAgain) {
    fs::rename(path, path + ".away");
    testing::internal::CaptureStderr();
    database->filesTouched();
    EXPECT_EQ(commitText("refused").code(), code::storageFailed);
    fs::rename(path + ".away", path);
    database->filesTouched();

    EXPECT_TRUE(commitText("after").ok());
    const std::string lines = testing::internal::GetCapturedStderr();
    EXPECT_THAT(lines, HasSubstr("commits are refused: " + path));
    EXPECT_THAT(lines, HasSubstr("the database file is back: " + path));
}

TEST_F(SafekeepingTest, WatchedFilesAreTheDatabaseItsLogAndItsIndex) {
    EXPECT_THAT(database->watchedFiles(), ElementsAre(path, log, path + "-shm"));
    const Database inMemory(schemaOf(testTables), "");
    EXPECT_THAT(inMemory.watchedFiles(), IsEmpty());
}

} // namespace
