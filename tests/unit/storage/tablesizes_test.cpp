#include "store/storage/database.h"
#include "support/temporarydirectory.h"
#include "unit/storage/testtables.h"

#include <gmock/gmock.h>

namespace {

using store::Database;
using testing::HasSubstr;
namespace code = velta::protocol::code;

// A row of Plans takes 25 bytes and its name.
constexpr std::int64_t limit = 10000;
const velta::Value longName = textValue(std::string(975, 'x')); // a row of 1000 bytes

store::DatabaseOptions options(std::int64_t limitOfTable = limit) {
    store::DatabaseOptions made;
    made.limitOfTable = limitOfTable;
    return made;
}

class TableSizesTest : public testing::Test {
protected:
    Database::Result insert(const velta::Value& name) {
        std::uint32_t id = 0;
        return database->transaction().insert("Plans", cell("Name", name), id);
    }
    Database::Result rename(int id, const std::string& name) {
        return database->transaction().update("Plans", "Id", std::to_string(id),
                                              cell("Name", textValue(name)));
    }
    void fill() {
        for (int i = 0; i < 10; ++i)
            ASSERT_TRUE(insert(longName).ok()) << i;
    }
    void reopen(std::int64_t limitOfTable) {
        database.reset();
        database = std::make_unique<Database>(schemaOf(testTables), path, options(limitOfTable));
    }

    const TemporaryDirectory directory;
    const std::string path = directory.path("db");
    std::unique_ptr<Database> database = std::make_unique<Database>(schemaOf(testTables), path, options());
};

TEST_F(TableSizesTest, InsertionBeyondTheLimitIsRefusedWithIt) {
    fill();

    const Database::Result refused = insert(textValue(""));

    EXPECT_EQ(refused.code(), code::tooLarge);
    EXPECT_THAT(refused.strerror(), HasSubstr("Plans: a table holds at most 10000 bytes of cells"));
    EXPECT_EQ(commit(*database), velta::NameList{"Plans"});
    EXPECT_EQ(tableOf(*database, "Plans").size(), 10U);
}

TEST_F(TableSizesTest, LimitIsTheTablesOwn) {
    fill();

    EXPECT_TRUE(database->transaction().writeSingle("Globals", 0, cell("Text", textValue("more"))).ok());
}

TEST_F(TableSizesTest, UpdateMayNotGrowATableBeyondIt) {
    fill();

    EXPECT_EQ(rename(1, std::string(976, 'y')).code(), code::tooLarge);
    EXPECT_TRUE(rename(1, std::string(975, 'y')).ok());
    EXPECT_TRUE(rename(1, std::string(974, 'y')).ok());
    EXPECT_TRUE(rename(2, std::string(976, 'y')).ok());
    EXPECT_EQ(rename(2, std::string(977, 'y')).code(), code::tooLarge);
}

TEST_F(TableSizesTest, RemovedRowsMakeRoom) {
    fill();
    ASSERT_TRUE(database->transaction().remove("Plans", "Id", "3").ok());

    EXPECT_TRUE(insert(longName).ok());
    EXPECT_EQ(insert(longName).code(), code::tooLarge);
}

TEST_F(TableSizesTest, RollbackUndoesTheCount) {
    fill();
    database->transaction().rollBack();

    fill();
    ASSERT_EQ(commit(*database), velta::NameList{"Plans"});
    ASSERT_TRUE(database->transaction().remove("Plans", "Id", "1").ok());
    database->transaction().rollBack();
    EXPECT_EQ(insert(textValue("")).code(), code::tooLarge);
}

TEST_F(TableSizesTest, ReopenedDatabaseIsCountedAnew) {
    fill();
    ASSERT_EQ(commit(*database), velta::NameList{"Plans"});

    reopen(limit);
    EXPECT_EQ(insert(textValue("")).code(), code::tooLarge);
    reopen(limit + 25);
    EXPECT_TRUE(insert(textValue("")).ok());
}

TEST_F(TableSizesTest, TableThatIsLargerAlreadyIsReadAndMayOnlyShrink) {
    fill();
    ASSERT_EQ(commit(*database), velta::NameList{"Plans"});
    reopen(5000);

    EXPECT_EQ(tableOf(*database, "Plans").size(), 10U);
    EXPECT_EQ(rename(1, std::string(976, 'y')).code(), code::tooLarge);
    EXPECT_TRUE(rename(1, std::string(975, 'y')).ok());
    EXPECT_TRUE(database->transaction().update("Plans", "Id", "1", cell("Level", integerValue(5))).ok());
    EXPECT_TRUE(database->transaction().remove("Plans", "Id", "2").ok());
    EXPECT_EQ(insert(textValue("")).code(), code::tooLarge);
    EXPECT_EQ(commit(*database), velta::NameList{"Plans"});
}

TEST_F(TableSizesTest, CharactersCountWithTheirBytes) {
    reopen(25 + 4);

    EXPECT_EQ(insert(textValue("\xc3\xa4\xc3\xa4\xc3\xa4")).code(), code::tooLarge);
    EXPECT_TRUE(insert(textValue("\xc3\xa4\xc3\xa4")).ok());
    ASSERT_EQ(commit(*database), velta::NameList{"Plans"});
    reopen(25 + 4);
    EXPECT_EQ(rename(1, "\xc3\xa4\xc3\xa4!").code(), code::tooLarge);
}

TEST_F(TableSizesTest, LimitIs64MiB) {
    EXPECT_EQ(store::DatabaseOptions().limitOfTable, 64 * 1024 * 1024);
    EXPECT_EQ(store::TableSizes(store::tableLimit).limitText(), "64 MiB");
}

} // namespace
