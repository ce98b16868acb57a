#include "store/storage/database.h"
#include "store/storage/databaseformat.h"
#include "support/temporarydirectory.h"
#include "unit/storage/shakydisk.h"
#include "unit/storage/testtables.h"

#include <gmock/gmock.h>

namespace {

using store::Database;
using testing::HasSubstr;

class DatabaseFormatTest : public testing::Test {
protected:
    DatabaseFormatTest() {
        Database database(schemaOf(testTables), path);
        std::uint32_t id = 0;
        EXPECT_TRUE(database.transaction().insert("Plans", cell("Name", textValue("kept")), id).ok());
        (void)commit(database);
    }

    // Another program's hand in the file.
    void execute(const std::string& sql) {
        store::Connection connection(path, SQLITE_OPEN_READWRITE);
        connection.execute(sql);
    }

    std::string errorWith(const std::string& schema) {
        try {
            const Database database(schemaOf(schema), path);
        } catch (const store::StorageError& error) {
            return error.what();
        }
        return "";
    }

    // That opening fails with the reason, and leaves each byte of the file as it was.
    void expectRefused(const std::string& schema, const std::string& reason) {
        const std::string before = contentOf(path);
        EXPECT_THAT(errorWith(schema), HasSubstr("database " + path));
        EXPECT_THAT(errorWith(schema), HasSubstr(reason));
        EXPECT_THAT(errorWith(schema), testing::Not(HasSubstr("\n"))); // it is a line of a log
        EXPECT_TRUE(contentOf(path) == before);
    }

    const TemporaryDirectory directory;
    const std::string path = directory.path("db");
};

TEST_F(DatabaseFormatTest, MissingTableIsMade) {
    Database database(
        schemaOf(std::string(testTables) + "CREATE TABLE Added (Enable SWITCH NOT NULL DEFAULT 1)"), path);

    EXPECT_EQ(tableOf(database, "Added").at(0).getValue("Enable"), switchValue(1));
    EXPECT_EQ(tableOf(database, "Plans").at(0).getValue("Name"), textValue("kept"));
}

TEST_F(DatabaseFormatTest, MissingColumnIsAddedWithItsDefault) {
    execute("ALTER TABLE Plans DROP COLUMN Runs");

    Database database(schemaOf(testTables), path);

    EXPECT_EQ(tableOf(database, "Plans").at(0).getValue("Runs"), counterValue(7));
    EXPECT_EQ(tableOf(database, "Plans").at(0).getValue("Name"), textValue("kept"));
}

TEST_F(DatabaseFormatTest, ChangesThatTheDiskRefusesAreMadeByTheNextStart) {
    const std::string schema =
        std::string(testTables) + "CREATE TABLE Added (Enable SWITCH NOT NULL DEFAULT 1)";
    const std::string before = contentOf(path);
    {
        ShakyDisk disk;
        disk.failWrites(1);
        EXPECT_THAT(errorWith(schema), HasSubstr("database " + path));
    }

    EXPECT_TRUE(contentOf(path) == before);
    Database database(schemaOf(schema), path);
    EXPECT_EQ(tableOf(database, "Added").at(0).getValue("Enable"), switchValue(1));
    EXPECT_EQ(tableOf(database, "Plans").at(0).getValue("Name"), textValue("kept"));
}

TEST_F(DatabaseFormatTest, TableThatTheSchemaLacksIsLeftAlone) {
    execute("CREATE TABLE Foreign_ (a); INSERT INTO Foreign_ VALUES (5)");
    {
        Database database(schemaOf(testTables), path);
        EXPECT_EQ(database.table("Foreign_"), nullptr);
    }
    store::Connection connection(path, SQLITE_OPEN_READWRITE);
    EXPECT_EQ(connection.number("SELECT a FROM Foreign_"), 5);
}

TEST_F(DatabaseFormatTest, ColumnThatTheSchemaLacksIsRefused) {
    execute("ALTER TABLE Plans ADD COLUMN Later TEXT NOT NULL DEFAULT ''");

    expectRefused(testTables, "has the column Plans.Later, which the schema lacks");
}

TEST_F(DatabaseFormatTest, ColumnOfAnotherTypeIsRefused) {
    expectRefused("CREATE TABLE Globals (Enable INTEGER NOT NULL DEFAULT 1, Text TEXT NOT NULL DEFAULT '')",
                  "has the column Globals.Enable as SWITCH, the schema has it as INTEGER");
}

TEST_F(DatabaseFormatTest, TableWithoutIdIsRefusedWhereTheSchemaHasOne) {
    expectRefused("CREATE TABLE Other (Id INTEGER PRIMARY KEY, Enable SWITCH NOT NULL DEFAULT 0)",
                  "has the table Other without \"Id\"");
}

TEST_F(DatabaseFormatTest, NewerFormatIsRefused) {
    execute("PRAGMA user_version = 2");

    expectRefused(testTables, "has format 2, this server knows format 1");
}

TEST_F(DatabaseFormatTest, RefusedDatabaseKeepsTheLogThatAPowerCutLeft) {
    const std::string copy = directory.path("copy");
    {
        Database database(schemaOf(testTables), path);
        ASSERT_TRUE(database.transaction().writeSingle("Globals", 0, cell("Enable", switchValue(0))).ok());
        (void)commit(database);
        std::filesystem::copy_file(path, copy);
        std::filesystem::copy_file(path + "-wal", copy + "-wal");
    }
    const std::string before = contentOf(copy);
    const std::string log = contentOf(copy + "-wal");

    EXPECT_THROW(Database(schemaOf("CREATE TABLE Globals (Enable SWITCH NOT NULL DEFAULT 1)"), copy),
                 store::StorageError);

    EXPECT_TRUE(contentOf(copy) == before);
    EXPECT_TRUE(contentOf(copy + "-wal") == log);
    Database database(schemaOf(testTables), copy);
    EXPECT_EQ(tableOf(database, "Globals").at(0).getValue("Enable"), switchValue(0));
}

TEST_F(DatabaseFormatTest, AnotherProgramsDatabaseIsRefused) {
    execute("PRAGMA application_id = 77");

    expectRefused(testTables, "belongs to another program");
}

TEST_F(DatabaseFormatTest, FileThatIsNoDatabaseIsRefused) {
    writeFile(path, std::string(5000, 'x'));

    expectRefused(testTables, "file is not a database");
}

TEST_F(DatabaseFormatTest, DamagedDatabaseIsRefused) {
    std::string bytes = contentOf(path);
    ASSERT_GT(bytes.size(), 4096U);
    bytes.replace(2048, bytes.size() - 2048, bytes.size() - 2048, '\x5a'); // all but the first page
    writeFile(path, bytes);

    expectRefused(testTables, "damaged");
}

TEST_F(DatabaseFormatTest, CutDatabaseIsRefused) {
    writeFile(path, contentOf(path).substr(0, 6000));

    expectRefused(testTables, "");
}

TEST_F(DatabaseFormatTest, ForeignCellsAreBroughtIntoBounds) {
    execute(
        "UPDATE Plans SET Name = printf('%.*c', 9999, 'x'), Status = 17, Level = 99999999999, Runs = 'soon'");
    Database database(schemaOf(testTables), path);

    const velta::ValueList row = tableOf(database, "Plans").at(0);

    EXPECT_EQ(row.getValue("Name"), textValue(std::string(4096, 'x')));
    EXPECT_EQ(row.getValue("Status"), switchValue(1));
    EXPECT_EQ(row.getValue("Level"), integerValue(INT32_MAX));
    EXPECT_EQ(row.getValue("Runs"), counterValue(0));
}

TEST_F(DatabaseFormatTest, ForeignTriggerDoesNotRun) {
    execute("CREATE TRIGGER Wipe AFTER UPDATE ON Globals BEGIN DELETE FROM Plans; END");
    Database database(schemaOf(testTables), path);

    ASSERT_TRUE(database.transaction().writeSingle("Globals", 0, cell("Enable", switchValue(0))).ok());

    EXPECT_EQ(commit(database), velta::NameList{"Globals"});
    EXPECT_EQ(tableOf(database, "Plans").size(), 1U);
}

} // namespace
