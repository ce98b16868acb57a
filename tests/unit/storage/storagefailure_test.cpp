#include "store/storage/database.h"
#include "support/loweredlimit.h"
#include "support/temporarydirectory.h"
#include "unit/storage/testtables.h"

#include <algorithm>
#include <optional>

#include <gmock/gmock.h>

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

TEST(StorageFailure, NewTablesThatFindNoRoomLeaveTheDatabaseAsItWas) {
    const TemporaryDirectory directory;
    const std::string path = directory.path("db");
    { const Database database(schemaOf(testTables), path); }
    std::string more = testTables;
    for (int i = 0; i < 30; ++i)
        more += "CREATE TABLE Added" + std::to_string(i) + " (Enable SWITCH NOT NULL DEFAULT 1);";
    {
        const FullDisk full;
        EXPECT_THROW(Database(schemaOf(more), path), store::StorageError);
    }

    store::Connection connection(path, SQLITE_OPEN_READWRITE);
    EXPECT_EQ(connection.number("SELECT count(*) FROM sqlite_schema WHERE name LIKE 'Added%'"), 0);
    connection.close();
    Database database(schemaOf(more), path); // there is room again
    EXPECT_EQ(tableOf(database, "Added29").size(), 1U);
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

// The connections know the schema anew when they come to the table.
TEST(StorageFailure, TableThatIsKnownToBeDroppedFailsItsOperationsOnly) {
    const TemporaryDirectory directory;
    Database database(schemaOf(testTables), directory.path("db"));
    store::Connection foreign(directory.path("db"), SQLITE_OPEN_READWRITE);
    foreign.execute("DROP TABLE Other");
    ASSERT_EQ(smallTableOf(database, "Globals").size(), 1U);
    ASSERT_TRUE(database.transaction().writeSingle("Globals", 0, cell("Enable", switchValue(0))).ok());

    store::Rows rows;
    std::vector<velta::ValueList> values;
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(database.reader(Database::View::LastCommit).readRow("Other", 0, rows).strerror(),
                  "storage failed: no such table: Other");
        EXPECT_EQ(readTable(database, "Other", Database::View::LastCommit, values).code(),
                  code::storageFailed);
        EXPECT_EQ(database.transaction().writeSingle("Other", 0, cell("Enable", switchValue(1))).code(),
                  code::storageFailed);
    }
    EXPECT_EQ(commit(database), velta::NameList{"Globals"});
}

TEST(StorageFailure, SchemaThatIsDamagedWhileItServesFailsRequestsOnly) {
    const TemporaryDirectory directory;
    Database database(schemaOf(testTables), directory.path("db"));
    {
        sqlite3* foreign = nullptr;
        ASSERT_EQ(sqlite3_open(directory.path("db").c_str(), &foreign), SQLITE_OK);
        EXPECT_EQ(sqlite3_exec(foreign,
                               "PRAGMA writable_schema = ON;"
                               "UPDATE sqlite_schema SET sql = replace(sql, 'DEFAULT', 'DEFAQLT');"
                               "PRAGMA schema_version = 4711",
                               nullptr, nullptr, nullptr),
                  SQLITE_OK);
        sqlite3_close(foreign);
    }

    store::Rows rows;
    std::vector<velta::ValueList> values;
    for (int i = 0; i < 2; ++i) {
        const Database::Result result = database.reader(Database::View::LastCommit).readRow("Plans", 0, rows);
        EXPECT_THAT(result.strerror(), testing::HasSubstr("storage failed: malformed database schema"));
        EXPECT_EQ(readTable(database, "Plans", Database::View::LastCommit, values).code(),
                  code::storageFailed);
        EXPECT_EQ(database.transaction().writeSingle("Globals", 0, cell("Enable", switchValue(0))).code(),
                  code::storageFailed);
        std::uint32_t id = 0;
        EXPECT_EQ(database.transaction().insert("Plans", {}, id).code(), code::storageFailed);
        EXPECT_EQ(commit(database), velta::NameList{});
    }
}

TEST(StorageFailure, ReadingThatFindsNoFurtherDescriptorFailsAlone) {
    const TemporaryDirectory directory;
    Database database(schemaOf(testTables), directory.path("db"));
    std::optional<LoweredLimit> none(std::in_place, RLIMIT_NOFILE, 3);

    std::vector<velta::ValueList> values;
    const Database::Result result = readTable(database, "Globals", Database::View::LastCommit, values);
    const bool small = smallTableOf(database, "Globals").size() == 1;
    none.reset();

    EXPECT_EQ(result.code(), code::storageFailed);
    EXPECT_TRUE(small);
    EXPECT_TRUE(readTable(database, "Globals", Database::View::LastCommit, values).ok());
}

} // namespace
