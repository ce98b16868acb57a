#include "fakes/temporarydirectory.h"
#include "store/storage/database.h"
#include "unit/storage/testtables.h"

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
        result = database.transaction().insert("Plans", cell("Name", textValue(std::string(4000, 'x'))), id);
    return result;
}

TEST(StorageFailure, FullDatabaseSaysSoAndKeepsTheLastCommit) {
    const FullDisk full;
    Database database(schemaOf(testTables), "");
    std::uint32_t id = 0;
    ASSERT_TRUE(database.transaction().insert("Plans", {}, id).ok());
    (void)commit(database);

    EXPECT_EQ(fill(database).code(), code::storageFull);
    database.transaction().rollBack();

    EXPECT_EQ(tableOf(database, "Plans").size(), 1U);
    ASSERT_TRUE(database.transaction().writeSingle("Globals", 0, cell("Enable", switchValue(0))).ok());
    EXPECT_EQ(commit(database), velta::NameList{"Globals"});
}

TEST(StorageFailure, FailedCommitEndsTheTransactionAndKeepsTheLastCommit) {
    const TemporaryDirectory directory;
    Database database(schemaOf(testTables), directory.path("db"));
    ASSERT_TRUE(database.transaction()
                    .writeSingle("Globals", 0, cell("Text", textValue(std::string(4000, 'x'))))
                    .ok());

    velta::NameList changed;
    {
        const FileSizeLimit limit(4096);
        EXPECT_EQ(database.transaction().commit(changed).code(), code::storageFailed);
    }

    EXPECT_THAT(changed, testing::IsEmpty());
    EXPECT_EQ(tableOf(database, "Globals", Database::View::OpenTransaction).at(0).getValue("Text"),
              textValue("it's"));
    ASSERT_TRUE(database.transaction().writeSingle("Globals", 0, cell("Enable", switchValue(0))).ok());
    EXPECT_EQ(commit(database), velta::NameList{"Globals"});
}

TEST(StorageFailure, ForeignWriterMakesAWriteBusy) {
    const TemporaryDirectory directory;
    Database database(schemaOf(testTables), directory.path("db"));
    store::Connection foreign(directory.path("db"), SQLITE_OPEN_READWRITE);
    foreign.execute("BEGIN IMMEDIATE");

    EXPECT_EQ(database.transaction().writeSingle("Globals", 0, cell("Enable", switchValue(0))).code(),
              code::busy);

    foreign.execute("ROLLBACK");
    EXPECT_TRUE(database.transaction().writeSingle("Globals", 0, cell("Enable", switchValue(0))).ok());
}

TEST(StorageFailure, TableDroppedByAForeignHandFailsItsOperationsOnly) {
    const TemporaryDirectory directory;
    Database database(schemaOf(testTables), directory.path("db"));
    store::Connection foreign(directory.path("db"), SQLITE_OPEN_READWRITE);
    foreign.execute("DROP TABLE Other");

    std::vector<velta::ValueList> values;
    EXPECT_EQ(readTable(database, "Other", Database::View::LastCommit, values).code(), code::storageFailed);
    EXPECT_EQ(database.transaction().writeSingle("Other", 0, cell("Enable", switchValue(1))).code(),
              code::storageFailed);
    EXPECT_TRUE(database.transaction().writeSingle("Globals", 0, cell("Enable", switchValue(0))).ok());
    EXPECT_EQ(commit(database), velta::NameList{"Globals"});
}

} // namespace
