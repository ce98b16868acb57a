#include "fakes/temporarydirectory.h"
#include "store/storage/database.h"
#include "unit/store/serverfixture.h"
#include "unit/store/testtables.h"

#include <algorithm>
#include <csignal>

#include <gmock/gmock.h>
#include <sys/resource.h>

namespace {

using store::Database;
namespace code = velta::protocol::code;

// Every connection made while it lives belongs to a database that holds so many pages at most: a full disk.
class FullDisk {
public:
    FullDisk() { sqlite3_auto_extension(entry()); }
    ~FullDisk() { sqlite3_cancel_auto_extension(entry()); }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

private:
    static int limitPages(sqlite3* connection, char**, const void*) {
        return sqlite3_exec(connection, "PRAGMA max_page_count = 20", nullptr, nullptr, nullptr);
    }
    static void (*entry())() { return reinterpret_cast<void (*)()>(&limitPages); }
};

// No file grows over so many bytes.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &before_);
        (void)std::signal(SIGXFSZ, handler_);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit before_{};
    void (*handler_)(int);
};

Database::Result fill(Database& database) {
    std::uint32_t id = 0;
    Database::Result result;
    for (int i = 0; i < 1000 && result.ok(); ++i)
        result = database.insert("Plans", cell("Name", textValue(std::string(4000, 'x'))), id);
    return result;
}

TEST(StorageFailure, FullDatabaseSaysSoAndKeepsTheLastCommit) {
    const FullDisk full;
    Database database(schemaOf(testTables), "");
    std::uint32_t id = 0;
    ASSERT_TRUE(database.insert("Plans", {}, id).ok());
    (void)commit(database);

    EXPECT_EQ(fill(database).code(), code::storageFull);
    database.rollBack();

    EXPECT_EQ(tableOf(database, "Plans").size(), 1U);
    ASSERT_TRUE(database.writeSingle("Globals", 0, cell("Enable", switchValue(0))).ok());
    EXPECT_EQ(commit(database), velta::NameList{"Globals"});
}

TEST(StorageFailure, FailedCommitEndsTheTransactionAndKeepsTheLastCommit) {
    const TemporaryDirectory directory;
    Database database(schemaOf(testTables), directory.path("db"));
    ASSERT_TRUE(database.writeSingle("Globals", 0, cell("Text", textValue(std::string(4000, 'x')))).ok());

    velta::NameList changed;
    {
        const FileSizeLimit limit(4096);
        EXPECT_EQ(database.commit(changed).code(), code::storageFailed);
    }

    EXPECT_THAT(changed, testing::IsEmpty());
    EXPECT_EQ(tableOf(database, "Globals", Database::View::OpenTransaction).at(0).getValue("Text"),
              textValue("it's"));
    ASSERT_TRUE(database.writeSingle("Globals", 0, cell("Enable", switchValue(0))).ok());
    EXPECT_EQ(commit(database), velta::NameList{"Globals"});
}

TEST(StorageFailure, ForeignWriterMakesAWriteBusy) {
    const TemporaryDirectory directory;
    Database database(schemaOf(testTables), directory.path("db"));
    store::Connection foreign(directory.path("db"), SQLITE_OPEN_READWRITE);
    foreign.execute("BEGIN IMMEDIATE");

    EXPECT_EQ(database.writeSingle("Globals", 0, cell("Enable", switchValue(0))).code(), code::busy);

    foreign.execute("ROLLBACK");
    EXPECT_TRUE(database.writeSingle("Globals", 0, cell("Enable", switchValue(0))).ok());
}

TEST(StorageFailure, TableDroppedByAForeignHandFailsItsOperationsOnly) {
    const TemporaryDirectory directory;
    Database database(schemaOf(testTables), directory.path("db"));
    store::Connection foreign(directory.path("db"), SQLITE_OPEN_READWRITE);
    foreign.execute("DROP TABLE Other");

    store::Rows rows;
    EXPECT_EQ(database.readTable("Other", Database::View::LastCommit, rows).code(), code::storageFailed);
    EXPECT_EQ(database.writeSingle("Other", 0, cell("Enable", switchValue(1))).code(), code::storageFailed);
    EXPECT_TRUE(database.writeSingle("Globals", 0, cell("Enable", switchValue(0))).ok());
    EXPECT_EQ(commit(database), velta::NameList{"Globals"});
}

class StorageFailureLogTest : public ServerTest {
protected:
    // The lines that the server logs while so many commits fail.
    std::size_t linesOfFailures(int commits) {
        const Client client = greeted();
        testing::internal::CaptureStderr();
        {
            const FileSizeLimit limit(4096);
            for (int i = 0; i < commits; ++i) {
                EXPECT_TRUE(succeeds(*client, ask::begin(0)));
                EXPECT_TRUE(succeeds(*client, ask::writeSingle("Globals", largeText)));
                EXPECT_EQ(codeOf(*client, ask::plain(ask::RequestKind::Commit)), code::storageFailed);
            }
        }
        const std::string log = testing::internal::GetCapturedStderr();
        EXPECT_THAT(log, testing::HasSubstr("disk I/O error"));
        return static_cast<std::size_t>(std::count(log.begin(), log.end(), '\n'));
    }

    const velta::ValueList largeText = cell("Text", textValue(std::string(4000, 'x')));
};

TEST_F(StorageFailureLogTest, FailureThatLastsIsLoggedOnce) {
    EXPECT_EQ(linesOfFailures(5), 1U);
}

TEST_F(StorageFailureLogTest, WrongRequestIsNotLogged) {
    const Client client = greeted();
    testing::internal::CaptureStderr();

    EXPECT_EQ(codeOf(*client, ask::readTable("Unknown")), code::unknownTable);

    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

} // namespace
