#include "store/storage/database.h"
#include "store/storage/databasefile.h"
#include "support/temporarydirectory.h"
#include "unit/storage/testtables.h"

#include <gmock/gmock.h>
#include <unistd.h>

namespace {

using store::Database;

std::string errorOf(const std::string& path) {
    try {
        const Database database(schemaOf(testTables), path);
    } catch (const store::StorageError& error) {
        return error.what();
    }
    return "";
}

TEST(DatabaseFile, ReopenedFindsWhatWasCommitted) {
    const TemporaryDirectory directory;
    {
        Database database(schemaOf(testTables), directory.path("db"));
        ASSERT_TRUE(database.transaction().writeSingle("Globals", 0, cell("Text", textValue("kept"))).ok());
        (void)commit(database);
        ASSERT_TRUE(database.transaction()
                        .writeSingle("Globals", 0, cell("Text", textValue("never committed")))
                        .ok());
    }

    Database database(schemaOf(testTables), directory.path("db"));

    EXPECT_EQ(tableOf(database, "Globals").at(0).getValue("Text"), textValue("kept"));
}

TEST(DatabaseFile, OneServerAtATime) {
    const TemporaryDirectory directory;
    const Database database(schemaOf(testTables), directory.path("db"));

    EXPECT_EQ(errorOf(directory.path("db")),
              "database " + directory.path("db") + " is in use by another server");
}

TEST(DatabaseFile, IsItsOwnersAlone) {
    const TemporaryDirectory directory;
    const Database database(schemaOf(testTables), directory.path("db"));

    EXPECT_EQ(std::filesystem::status(directory.path("db")).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST(DatabaseFile, InMemoryLeavesNothingToSee) {
    const Database database(schemaOf(testTables), "");

    EXPECT_TRUE(database.file().inMemory());
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        const std::string target = std::filesystem::read_symlink(entry, error);
        EXPECT_TRUE(target.find("/cfgserver.") == std::string::npos ||
                    target.find(" (deleted)") != std::string::npos)
            << target;
    }
}

TEST(DatabaseFile, InMemorySurvivesManyCheckpoints) {
    Database database(schemaOf(testTables), "");
    std::uint32_t id = 0;
    for (int i = 0; i < 3000; ++i) { // each some 4 kB, a checkpoint comes every 1000 pages
        ASSERT_TRUE(
            database.transaction().insert("Plans", cell("Name", textValue(std::string(4000, 'x'))), id).ok());
        ASSERT_EQ(commit(database), velta::NameList{"Plans"});
    }

    EXPECT_EQ(tableOf(database, "Plans").size(), 3000U);
}

TEST(DatabaseFile, DirectoryIsRefused) {
    const TemporaryDirectory directory;

    EXPECT_THAT(errorOf(directory.path(".")), testing::HasSubstr("can't be opened: Is a directory"));
}

struct Displacement {
    const char* name;
    void (*act)(const std::string& path);
};

class DisplacedDatabaseTest : public testing::TestWithParam<Displacement> {};

TEST_P(DisplacedDatabaseTest, TakesNoCommit) {
    const TemporaryDirectory directory;
    Database database(schemaOf(testTables), directory.path("db"));
    ASSERT_TRUE(database.transaction().writeSingle("Globals", 0, cell("Text", textValue("lost"))).ok());

    GetParam().act(directory.path("db"));
    velta::NameList changed;
    const Database::Result result = database.transaction().commit(changed);

    EXPECT_EQ(result.code(), velta::protocol::code::storageFailed);
    EXPECT_THAT(result.strerror(), testing::HasSubstr("the database file was removed, moved or replaced"));
    EXPECT_THAT(changed, testing::IsEmpty());
    EXPECT_EQ(smallTableOf(database, "Globals").at(0).getValue("Text"), textValue("it's"));
}

TEST(DatabaseFile, AnotherDatabaseInItsPlaceIsNotRead) {
    const TemporaryDirectory directory;
    Database database(schemaOf(testTables), directory.path("db"));
    { const Database other(schemaOf(testTables), directory.path("other")); }
    std::filesystem::rename(directory.path("other"), directory.path("db"));

    std::vector<velta::ValueList> values;
    const Database::Result result = readTable(database, "Globals", Database::View::LastCommit, values);

    EXPECT_EQ(result.code(), velta::protocol::code::storageFailed);
    EXPECT_THAT(result.strerror(), testing::HasSubstr("the database file was removed, moved or replaced"));
}

const Displacement displacements[] = {
    {"Removed", [](const std::string& path) { std::filesystem::remove(path); }},
    {"Moved", [](const std::string& path) { std::filesystem::rename(path, path + ".old"); }},
    {"Replaced",
     [](const std::string& path) {
         writeFile(path + ".new", "");
         std::filesystem::rename(path + ".new", path);
     }},
};

INSTANTIATE_TEST_SUITE_P(DatabaseFile, DisplacedDatabaseTest, testing::ValuesIn(displacements),
                         [](const auto& test) { return std::string(test.param.name); });

// Root may write anything, so what is to be refused is done as nobody.
class AsNobody {
public:
    AsNobody() : before_(geteuid()) { EXPECT_EQ(seteuid(before_ == 0 ? 65534 : before_), 0); }
    ~AsNobody() { EXPECT_EQ(seteuid(before_), 0); }
    AsNobody(const AsNobody&) = delete;
    AsNobody& operator=(const AsNobody&) = delete;

private:
    uid_t before_;
};

TEST(DatabaseFile, ReadOnlyFileIsRefusedAndUntouched) {
    const TemporaryDirectory directory;
    { const Database database(schemaOf(testTables), directory.path("db")); }
    const std::string before = contentOf(directory.path("db"));
    std::filesystem::permissions(directory.path(""), std::filesystem::perms::all);
    std::filesystem::permissions(directory.path("db"), std::filesystem::perms(0444));

    {
        const AsNobody nobody;
        EXPECT_THAT(errorOf(directory.path("db")), testing::HasSubstr("can't be opened: Permission denied"));
    }

    EXPECT_EQ(contentOf(directory.path("db")), before);
}

} // namespace
