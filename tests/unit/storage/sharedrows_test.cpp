#include "store/storage/sharedrows.h"
#include "support/loweredlimit.h"
#include "support/temporarydirectory.h"
#include "unit/storage/shakydisk.h"
#include "unit/storage/sharedtables.h"

#include <filesystem>

#include <gmock/gmock.h>
#include <sys/stat.h>

namespace {

using store::Database;
using store::SharedRows;
using store::SharedUpdates;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
namespace code = velta::protocol::code;

class SharedRowsTest : public testing::Test {
protected:
    SharedRowsTest() {
        SharedRows::Memory memory;
        EXPECT_TRUE(database.sharedRows().begin("kitchen", memory).ok());
    }

    SharedRows::Applied apply(const SharedUpdates& updates) { return applyTo(database, updates); }
    SharedRows::Memory memory() {
        SharedRows::Memory remembered;
        EXPECT_TRUE(database.sharedRows().begin("another", remembered).ok());
        return remembered;
    }
    void insertLocally(int id, const std::string& name, int status = 0) {
        insertPlan(database, id, name, status);
    }

    const TemporaryDirectory directory;
    const std::string path = directory.path("db");
    Database database{schemaOf(sharedTables), path};
};

TEST_F(SharedRowsTest, RowThatIsNewHereGetsDefaultState) {
    const auto applied = apply({{planUpdate("u1", 3, "Night", "22:00")}, false, false, {"c", "t1", 7}});

    EXPECT_THAT(applied.changed, ElementsAre("Plans"));
    EXPECT_THAT(applied.refused, IsEmpty());
    EXPECT_THAT(plansIn(database), ElementsAre("3 Night 0 22:00"));
    EXPECT_EQ(memory().position.cluster, "c");
    EXPECT_EQ(memory().position.lastTransaction, "t1");
    EXPECT_EQ(memory().position.index, 7U);
    EXPECT_EQ(memory().device, "kitchen"); // the first name counts
}

TEST_F(SharedRowsTest, RowThatIsKnownKeepsItsState) {
    (void)apply({{planUpdate("u1", 3, "Night", "22:00")}, false, false, {}});
    setStatus(database, 3, 1);

    const auto applied = apply({{planChange("u1", std::nullopt, "23:00")}, false, false, {}});

    EXPECT_THAT(applied.changed, ElementsAre("Plans"));
    EXPECT_THAT(plansIn(database), ElementsAre("3 Night 1 23:00"));
}

TEST_F(SharedRowsTest, RowThatGoesMakesRoomForANewOneWithItsId) {
    (void)apply({{planUpdate("u1", 3, "Night", "22:00")}, false, false, {}});
    setStatus(database, 3, 1);

    const auto applied = apply({{planUpdate("u2", 3, "Day", "8:00"), removal("u1")}, false, false, {}});

    EXPECT_THAT(applied.refused, IsEmpty());
    EXPECT_THAT(plansIn(database), ElementsAre("3 Day 0 8:00"));
}

TEST_F(SharedRowsTest, ReadingOfAllRemovesWhatIsNotInIt) {
    (void)apply({{planUpdate("u1", 1, "Night", ""), planUpdate("u2", 2, "Day", "")}, false, false, {}});
    insertLocally(5, "Local");
    setStatus(database, 2, 1);

    const auto applied = apply({{planUpdate("u2", 2, "Day", "")}, true, false, {}});

    EXPECT_THAT(applied.changed, ElementsAre("Plans"));
    EXPECT_THAT(plansIn(database), ElementsAre("2 Day 1 "));
}

TEST_F(SharedRowsTest, LocalRowWithoutANameIsReplacedByTheOneWithItsId) {
    insertLocally(5, "Local", 1);
    (void)apply({{planUpdate("u5", 5, "Shared", "")}, true, false, {}});
    EXPECT_THAT(plansIn(database), ElementsAre("5 Shared 0 "));
}

TEST_F(SharedRowsTest, LocalRowIsReplacedByANewOneThatComesAloneToo) {
    insertLocally(5, "Local", 1);
    (void)apply({{planUpdate("u5", 5, "Shared", "")}, false, false, {}});
    EXPECT_THAT(plansIn(database), ElementsAre("5 Shared 0 "));
}

TEST_F(SharedRowsTest, LocalRowThatIsAdoptedKeepsItsState) {
    insertLocally(5, "Local", 1);
    insertLocally(6, "Other", 1);
    (void)apply({{planUpdate("u5", 5, "Local", "")}, true, true, {}});
    EXPECT_THAT(plansIn(database), ElementsAre("5 Local 1 "));
    EXPECT_EQ(rowsOf(database, 0).at(0).uuid, "u5");
}

TEST_F(SharedRowsTest, SingleRowIsUpdatedAndNeverRemoved) {
    (void)database.transaction().writeSingle("Globals", 0, cell("Enable", switchValue(1)));
    (void)commit(database);
    const auto update = globalsUpdate("g", 1);
    EXPECT_THAT(apply({{update}, false, false, {}}).changed, ElementsAre("Globals"));
    EXPECT_EQ(rowsOf(database, 1).at(0).uuid, "g");

    EXPECT_THAT(apply({{}, true, false, {}}).changed, IsEmpty());

    EXPECT_EQ(tableOf(database, "Globals").at(0).getValue("Always").getInteger(), 1);
    EXPECT_EQ(tableOf(database, "Globals").at(0).getValue("Enable").getInteger(), 1);
    EXPECT_EQ(rowsOf(database, 1).at(0).uuid, "");
}

TEST_F(SharedRowsTest, RowsThatTheSchemaRefusesAreNamedAndTheOthersApplied) {
    (void)apply({{planUpdate("u1", 1, "Night", "22:00")}, false, false, {}});
    SharedUpdates updates;
    updates.rows = {planChange("u1", "Renamed", "25:00"), planUpdate("u2", 0, "", ""),
                    planUpdate("u3", 1, "", ""),          planUpdate("u4", 2147483648, "", ""),
                    planUpdate("u5", 5, "Good", "6:00"),  planChange("u5", std::string(5000, 'x'), "")};
    updates.rows.push_back({2, "u6", store::SharedUpdate::Values{1, {}}});
    updates.rows.push_back({0, "u7", store::SharedUpdate::Values{7, {}}});
    updates.rows.push_back({99, "u8", store::SharedUpdate::Values{8, {}}});

    const auto applied = apply(updates);

    std::vector<std::string> reasons;
    for (const auto& refusal : applied.refused)
        reasons.push_back(refusal.update.uuid + ": " + refusal.reason);
    const char* const textTooLong = "Plans.Name takes a text";
    EXPECT_THAT(reasons,
                ElementsAre(HasSubstr("u1: Plans.1 Start: \"25:00\" is not a time of day"),
                            "u2: its Id is not from 1 to 2147483647", "u3: another row has its Id already",
                            "u4: its Id is not from 1 to 2147483647", HasSubstr(textTooLong),
                            "u6: the table is not shared here", "u7: it has other columns",
                            "u8: the table is not shared here"));
    EXPECT_THAT(plansIn(database), ElementsAre("1 Night 0 22:00", "5 Good 0 6:00"));
}

TEST_F(SharedRowsTest, TableThatIsFullRefusesARow) {
    store::DatabaseOptions options;
    options.limitOfTable = 100;
    Database small(schemaOf(sharedTables), "", options);
    SharedRows::Memory memory;
    ASSERT_TRUE(small.sharedRows().begin("d", memory).ok());

    const auto applied =
        applyTo(small, {{planUpdate("u1", 1, std::string(60, 'a'), ""),
                         planUpdate("u2", 2, std::string(60, 'b'), ""), planUpdate("u3", 3, "", "")},
                        true,
                        false,
                        {}});

    ASSERT_EQ(applied.refused.size(), 1U);
    EXPECT_THAT(applied.refused[0].reason, HasSubstr("at most 100 bytes"));
    EXPECT_EQ(plansIn(small).size(), 2U);
}

TEST_F(SharedRowsTest, ChangeOfARowThatIsNotKnownAppliesNothing) {
    const auto applied =
        apply({{planUpdate("u1", 1, "", ""), planChange("u9", "x", "")}, false, false, {"c", "t", 1}});

    EXPECT_TRUE(applied.isIncomplete);
    EXPECT_THAT(applied.changed, IsEmpty());
    EXPECT_THAT(plansIn(database), IsEmpty());
    EXPECT_EQ(memory().position.cluster, "");
}

TEST_F(SharedRowsTest, ChangeOfASingleRowThatIsNotKnownAppliesNothing) {
    store::SharedUpdate partial = globalsUpdate("u1", 1);
    partial.values->cells[0].reset();

    EXPECT_TRUE(apply({{partial}, false, false, {}}).isIncomplete);
    (void)apply({{globalsUpdate("u1", 1)}, false, false, {}});
    EXPECT_FALSE(apply({{partial}, false, false, {}}).isIncomplete);
}

TEST_F(SharedRowsTest, RowWhoseIdChangedIsRefused) {
    (void)apply({{planUpdate("u1", 3, "Night", "")}, false, false, {}});

    const auto applied = apply({{planUpdate("u1", 4, "Day", "")}, false, false, {}});

    ASSERT_EQ(applied.refused.size(), 1U);
    EXPECT_EQ(applied.refused[0].reason, "its Id changed from 3");
    EXPECT_THAT(plansIn(database), ElementsAre("3 Night 0 "));
}

TEST_F(SharedRowsTest, RowThatSomebodyElseRemovedFromTheFileComesBackAsAWhole) {
    (void)apply({{planUpdate("u1", 3, "Night", "")}, false, false, {}});
    removePlan(database, 3);

    EXPECT_TRUE(apply({{planChange("u1", "Day", std::nullopt)}, false, false, {}}).isIncomplete);
    EXPECT_THAT(plansIn(database), IsEmpty());
    (void)apply({{planUpdate("u1", 3, "Day", "")}, false, false, {}});
    EXPECT_THAT(plansIn(database), ElementsAre("3 Day 0 "));
}

TEST_F(SharedRowsTest, SameRowsAgainChangeAndWriteNothing) {
    const SharedUpdates updates{
        {planUpdate("u1", 1, "a", ""), globalsUpdate("g", 0)}, true, false, {"c", "t", 1}};
    (void)apply(updates);
    const std::uint64_t before = database.logPages();

    EXPECT_THAT(apply(updates).changed, IsEmpty());

    EXPECT_EQ(database.logPages(), before);
}

TEST_F(SharedRowsTest, PositionAloneIsKept) {
    (void)apply({{}, false, false, {"c", "t2", 18446744073709551615U}});
    EXPECT_EQ(memory().position.lastTransaction, "t2");
    EXPECT_EQ(memory().position.index, 18446744073709551615U);
}

TEST_F(SharedRowsTest, SizesFollow) {
    store::DatabaseOptions options;
    options.limitOfTable = 200;
    Database small(schemaOf(sharedTables), "", options);
    SharedRows::Memory memory;
    ASSERT_TRUE(small.sharedRows().begin("d", memory).ok());
    for (int i = 0; i < 20; ++i) { // each takes nearly all the room
        const std::string uuid = "u" + std::to_string(i);
        ASSERT_THAT(
            applyTo(small, {{planUpdate(uuid, 1, std::string(150, 'a'), "")}, true, false, {}}).refused,
            IsEmpty());
    }
}

TEST_F(SharedRowsTest, RememberedRowsAreThereAfterARestart) {
    const std::string other = directory.path("other");
    {
        Database first(schemaOf(sharedTables), other);
        SharedRows::Memory memory;
        ASSERT_TRUE(first.sharedRows().begin("d", memory).ok());
        (void)applyTo(first, {{planUpdate("u1", 4, "a", "")}, false, false, {"c", "t", 3}});
        setStatus(first, 4, 1);
    }
    Database second(schemaOf(sharedTables), other);
    SharedRows::Memory memory;
    ASSERT_TRUE(second.sharedRows().begin("e", memory).ok());
    EXPECT_EQ(memory.device + memory.position.cluster + memory.position.lastTransaction, "dct");
    EXPECT_THAT(applyTo(second, {{planChange("u1", "b", std::nullopt)}, false, false, {}}).changed,
                ElementsAre("Plans"));
    EXPECT_THAT(plansIn(second), ElementsAre("4 b 1 "));
}

TEST_F(SharedRowsTest, ForgettingKeepsTheRowsAndDropsTheTables) {
    (void)apply({{planUpdate("u1", 4, "a", "")}, false, false, {}});
    bool didFollow = false;
    ASSERT_TRUE(database.sharedRows().forget(didFollow).ok());
    EXPECT_TRUE(didFollow);
    EXPECT_THAT(plansIn(database), ElementsAre("4 a 0 "));
    EXPECT_EQ(rowsOf(database, 0).at(0).uuid, "");

    ASSERT_TRUE(database.sharedRows().forget(didFollow).ok());
    EXPECT_FALSE(didFollow);
}

TEST(SharedRows, StoreWithoutAClusterIsNotWrittenTo) {
    const TemporaryDirectory directory;
    Database database(schemaOf(sharedTables), directory.path("db"));
    const std::uint64_t before = database.logPages();
    bool didFollow = true;
    ASSERT_TRUE(database.sharedRows().forget(didFollow).ok());
    EXPECT_FALSE(didFollow);
    EXPECT_EQ(database.logPages(), before);
    store::Connection other(directory.path("db"), SQLITE_OPEN_READONLY);
    EXPECT_EQ(other.number("SELECT count(*) FROM sqlite_schema WHERE name LIKE '\\_Cluster%' ESCAPE '\\'"),
              0);
}

TEST(SharedRows, FailureOfTheDiskLeavesAllAsItWas) {
    const TemporaryDirectory directory;
    ShakyDisk disk;
    Database database(schemaOf(sharedTables), directory.path("db"));
    SharedRows::Memory memory;
    ASSERT_TRUE(database.sharedRows().begin("d", memory).ok());
    (void)applyTo(database, {{planUpdate("u1", 1, "a", "")}, false, false, {"c", "t1", 1}});

    disk.failWrites(1);
    SharedRows::Applied applied;
    const auto result =
        database.sharedRows().apply({{planUpdate("u2", 2, "b", "")}, true, false, {"c", "t2", 2}}, applied);

    EXPECT_FALSE(result.ok());
    EXPECT_THAT(applied.changed, IsEmpty());
    EXPECT_THAT(plansIn(database), ElementsAre("1 a 0 "));
    ASSERT_TRUE(database.sharedRows().begin("d", memory).ok());
    EXPECT_EQ(memory.position.lastTransaction, "t1");
    EXPECT_EQ(rowsOf(database, 0).at(0).uuid, "u1");
    EXPECT_THAT(applyTo(database, {{planUpdate("u2", 2, "b", "")}, true, false, {"c", "t2", 2}}).changed,
                ElementsAre("Plans"));
}

TEST(SharedRows, BeginningThatTheDiskRefusesIsTriedAgainWithSuccess) {
    const TemporaryDirectory directory;
    ShakyDisk disk;
    Database database(schemaOf(sharedTables), directory.path("db"));
    SharedRows::Memory memory;
    disk.failWrites(1);

    EXPECT_EQ(database.sharedRows().begin("d", memory).code(), code::storageFailed);

    ASSERT_TRUE(database.sharedRows().begin("e", memory).ok());
    EXPECT_EQ(memory.device, "e");
}

TEST(SharedRows, ForgettingThatTheDiskRefusesKeepsTheMemory) {
    const TemporaryDirectory directory;
    ShakyDisk disk;
    Database database(schemaOf(sharedTables), directory.path("db"));
    SharedRows::Memory memory;
    ASSERT_TRUE(database.sharedRows().begin("d", memory).ok());
    (void)applyTo(database, {{planUpdate("u1", 1, "a", "")}, false, false, {"c", "t1", 1}});
    bool didFollow = false;
    disk.failWrites(1);

    EXPECT_EQ(database.sharedRows().forget(didFollow).code(), code::storageFailed);

    ASSERT_TRUE(database.sharedRows().begin("d", memory).ok());
    EXPECT_EQ(memory.position.lastTransaction, "t1");
    EXPECT_EQ(rowsOf(database, 0).at(0).uuid, "u1");
}

TEST(SharedRows, DatabaseThatWasOpenedAnewWantsABeginning) {
    const TemporaryDirectory directory;
    const std::string path = directory.path("db");
    Database database(schemaOf(sharedTables), path);
    SharedRows::Memory memory;
    ASSERT_TRUE(database.sharedRows().begin("d", memory).ok());
    (void)applyTo(database, {{planUpdate("u1", 1, "a", "")}, false, false, {"c", "t1", 1}});
    std::filesystem::remove(path + "-wal");
    database.filesTouched();

    SharedRows::Applied applied;
    EXPECT_EQ(database.sharedRows().apply({{removal("u1")}, false, false, {}}, applied).code(),
              code::storageFailed);
    ASSERT_TRUE(database.sharedRows().begin("d", memory).ok());
    EXPECT_THAT(applyTo(database, {{removal("u1")}, false, false, {}}).changed, ElementsAre("Plans"));
}

TEST_F(SharedRowsTest, BackUpIsAWholeDatabaseOfItsOwn) {
    insertLocally(5, "Local", 1);
    std::string first;
    std::string second;
    ASSERT_TRUE(database.sharedRows().backUp(first).ok());
    ASSERT_TRUE(database.sharedRows().backUp(second).ok());
    (void)apply({{}, true, false, {}});

    EXPECT_EQ(first, path + ".before-cluster");
    EXPECT_EQ(second, path + ".before-cluster1");
    struct stat status {};
    ASSERT_EQ(stat(first.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    Database copy(schemaOf(sharedTables), first);
    EXPECT_THAT(plansIn(copy), ElementsAre("5 Local 1 "));
    EXPECT_THAT(plansIn(database), IsEmpty());
}

TEST(SharedRows, OfADatabaseInMemoryThereIsNoBackUp) {
    Database database(schemaOf(sharedTables), "");
    std::string path = "before";
    EXPECT_TRUE(database.sharedRows().backUp(path).ok());
    EXPECT_EQ(path, "");
}

TEST_F(SharedRowsTest, BackUpThatFailsLeavesNoFile) {
    std::string made;
    {
        const FileSizeLimit small(1000);
        EXPECT_FALSE(database.sharedRows().backUp(made).ok());
    }
    EXPECT_EQ(made, "");
    EXPECT_FALSE(std::filesystem::exists(path + ".before-cluster"));
}

TEST_F(SharedRowsTest, BackUpWithoutAFreeDescriptorIsAFailureThatNamesTheFile) {
    std::string made;
    Database::Result result;
    {
        const LoweredLimit none(RLIMIT_NOFILE, 0);
        result = database.sharedRows().backUp(made);
    }

    EXPECT_EQ(result.code(), code::storageFailed);
    EXPECT_THAT(result.strerror(), HasSubstr(path + ".before-cluster: Too many open files"));
    EXPECT_FALSE(std::filesystem::exists(path + ".before-cluster"));
}

} // namespace
