#include "store/storage/database.h"
#include "unit/storage/testtables.h"

#include <gmock/gmock.h>

namespace {

using store::Database;
using testing::ElementsAre;
using testing::IsEmpty;
using velta::ValueList;
namespace code = velta::protocol::code;

class DatabaseTest : public testing::Test {
protected:
    std::uint32_t insert(const ValueList& values) {
        std::uint32_t id = 0;
        EXPECT_EQ(database.transaction().insert("Plans", values, id).strerror(), "success");
        return id;
    }

    ValueList rowWithKey(const std::string& column, const std::string& key,
                         Database::View view = Database::View::LastCommit) {
        store::Rows rows;
        return database.reader(view).readKey("Plans", column, key, rows).ok() ? valuesOf(rows).at(0)
                                                                              : ValueList();
    }

    Database database{schemaOf(testTables), ""};
};

TEST_F(DatabaseTest, SingleRowTableHasItsRowFromTheStart) {
    const auto rows = tableOf(database, "Globals");

    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0].getValue("Enable"), switchValue(1));
    EXPECT_EQ(rows[0].getValue("Text"), textValue("it's"));
}

TEST_F(DatabaseTest, TableWithoutRowsStillNamesItsColumns) {
    store::Rows rows;
    bool complete = false;

    ASSERT_TRUE(database.readSmall("Plans", Database::View::LastCommit, 1000, rows, complete).ok());

    EXPECT_TRUE(complete);
    EXPECT_EQ(rows.count, 0U);
    EXPECT_THAT(rows.columns, ElementsAre("Id", "Name", "Status", "Level", "Runs"));
}

TEST_F(DatabaseTest, InsertedRowTakesDefaultsForWhatIsNotGiven) {
    const std::uint32_t id = insert(cell("Status", switchValue(1)));
    (void)commit(database);

    EXPECT_EQ(id, 1U);
    const ValueList row = tableOf(database, "Plans").at(0);
    EXPECT_EQ(row.getValue("Id"), integerValue(1));
    EXPECT_EQ(row.getValue("Name"), textValue("none"));
    EXPECT_EQ(row.getValue("Status"), switchValue(1));
    EXPECT_EQ(row.getValue("Level"), integerValue(-1));
    EXPECT_EQ(row.getValue("Runs"), counterValue(7));
}

TEST_F(DatabaseTest, CellsOfEachKindComeBackAsTheyWere) {
    ValueList values;
    values.add("Name", textValue("Gr\xc3\xbc\xc3\x9f\x65 \"'; --"));
    values.add("Status", switchValue(1));
    values.add("Level", integerValue(INT32_MIN));
    values.add("Runs", counterValue(-1));
    insert(values);
    (void)commit(database);

    const ValueList row = tableOf(database, "Plans").at(0);
    for (const auto& [name, value] : values)
        EXPECT_EQ(row.getValue(name), value) << name;
}

TEST_F(DatabaseTest, RowsComeInIdOrder) {
    for (const int id : {30, 10, 20})
        insert(cell("Id", integerValue(id)));
    (void)commit(database);

    std::vector<int> ids;
    for (const ValueList& row : tableOf(database, "Plans"))
        ids.push_back(row.getValue("Id").getInteger());
    EXPECT_THAT(ids, ElementsAre(10, 20, 30));
    store::Rows rows;
    ASSERT_TRUE(database.reader(Database::View::LastCommit).readRow("Plans", 1, rows).ok());
    EXPECT_EQ(valuesOf(rows).at(0).getValue("Id").getInteger(), 20);
}

TEST_F(DatabaseTest, KeyFindsTheFirstRowThatHoldsIt) {
    insert(cell("Name", textValue("a")));
    insert(cell("Name", textValue("b")));
    insert(cell("Name", textValue("b")));
    (void)commit(database);

    EXPECT_EQ(rowWithKey("Name", "b").getValue("Id").getInteger(), 2);
    EXPECT_EQ(rowWithKey("Id", "3").getValue("Id").getInteger(), 3);
    EXPECT_EQ(rowWithKey("Level", "-1").getValue("Id").getInteger(), 1);
}

TEST_F(DatabaseTest, CounterKeyIsUnsigned) {
    insert(cell("Runs", counterValue(-1)));
    (void)commit(database);

    EXPECT_EQ(rowWithKey("Runs", "4294967295").size(), 5U);
    EXPECT_EQ(rowWithKey("Runs", "-1").size(), 0U);
}

TEST_F(DatabaseTest, NumericKeyMustBeAWholeNumber) {
    insert({});
    (void)commit(database);

    for (const char* key : {"", "1x", " 1", "1 OR 1=1"})
        EXPECT_EQ(rowWithKey("Id", key).size(), 0U) << key;
}

TEST_F(DatabaseTest, OwnerReadsItsWritesOthersTheLastCommit) {
    insert({});
    (void)commit(database);

    ASSERT_TRUE(database.transaction().update("Plans", "Id", "1", cell("Status", switchValue(1))).ok());

    EXPECT_EQ(rowWithKey("Id", "1", Database::View::OpenTransaction).getValue("Status").getInteger(), 1);
    EXPECT_EQ(rowWithKey("Id", "1").getValue("Status").getInteger(), 0);
}

TEST_F(DatabaseTest, CommitNamesTheTablesThatItChanged) {
    insert({});
    ASSERT_TRUE(database.transaction().writeSingle("Globals", 0, cell("Enable", switchValue(0))).ok());

    EXPECT_THAT(commit(database), ElementsAre("Plans", "Globals"));
}

TEST_F(DatabaseTest, CommitWithoutAChangedCellChangesNothing) {
    ASSERT_TRUE(database.transaction().writeSingle("Globals", 0, cell("Enable", switchValue(1))).ok());

    EXPECT_THAT(commit(database), IsEmpty());
}

TEST_F(DatabaseTest, WritesThatCancelOutChangeNothing) {
    const std::uint32_t id = insert({});
    ASSERT_TRUE(database.transaction().remove("Plans", "Id", std::to_string(id)).ok());
    ASSERT_TRUE(database.transaction().writeSingle("Globals", 0, cell("Enable", switchValue(0))).ok());
    ASSERT_TRUE(database.transaction().writeSingle("Globals", 0, cell("Enable", switchValue(1))).ok());

    EXPECT_THAT(commit(database), IsEmpty());
    EXPECT_THAT(tableOf(database, "Plans"), IsEmpty());
}

TEST_F(DatabaseTest, WritesOfWhatTheRowsHoldChangeNothing) {
    constexpr int rowCount = 400;
    const ValueList name = cell("Name", textValue(std::string(4000, 'x')));
    for (int i = 0; i < rowCount; ++i)
        insert(name);
    (void)commit(database);

    for (int i = 1; i <= rowCount; ++i)
        ASSERT_TRUE(database.transaction().update("Plans", "Id", std::to_string(i), name).ok());
    EXPECT_THAT(commit(database), IsEmpty());

    for (int i = 1; i <= rowCount; ++i)
        ASSERT_TRUE(database.transaction().update("Plans", "Id", std::to_string(i), name).ok());
    ASSERT_TRUE(database.transaction().update("Plans", "Id", "400", cell("Level", integerValue(5))).ok());
    EXPECT_THAT(commit(database), ElementsAre("Plans"));
}

TEST_F(DatabaseTest, RowWrittenTwiceDiffersByWhatItHoldsInTheEnd) {
    insert(cell("Name", textValue("a")));
    (void)commit(database);
    const auto write = [this](const ValueList& values) {
        ASSERT_TRUE(database.transaction().update("Plans", "Id", "1", values).ok());
    };

    write(cell("Level", integerValue(5)));
    write(cell("Name", textValue("a"))); // this one alone changes nothing
    EXPECT_THAT(commit(database), ElementsAre("Plans"));

    write(cell("Level", integerValue(6)));
    write(cell("Level", integerValue(5)));
    EXPECT_THAT(commit(database), IsEmpty());
}

TEST_F(DatabaseTest, RowThatIsRemovedAndMadeAgainWithOtherCellsIsAChange) {
    insert(cell("Name", textValue("a")));
    (void)commit(database);
    ASSERT_TRUE(database.transaction().remove("Plans", "Id", "1").ok());
    ValueList again = cell("Id", integerValue(1));
    again.add("Name", textValue("a"));
    insert(again);
    EXPECT_THAT(commit(database), IsEmpty());

    ASSERT_TRUE(database.transaction().remove("Plans", "Id", "1").ok());
    again.add("Level", integerValue(5));
    insert(again);
    EXPECT_THAT(commit(database), ElementsAre("Plans"));
}

TEST_F(DatabaseTest, RemovedRowIsGone) {
    insert({});
    insert({});
    (void)commit(database);

    ASSERT_TRUE(database.transaction().remove("Plans", "Id", "1").ok());

    EXPECT_THAT(commit(database), ElementsAre("Plans"));
    ASSERT_EQ(tableOf(database, "Plans").size(), 1U);
    EXPECT_EQ(tableOf(database, "Plans")[0].getValue("Id").getInteger(), 2);
}

TEST_F(DatabaseTest, RolledBackWritesAreGone) {
    insert({});
    database.transaction().rollBack();

    EXPECT_THAT(tableOf(database, "Plans", Database::View::OpenTransaction), IsEmpty());
    EXPECT_THAT(commit(database), IsEmpty());
}

TEST_F(DatabaseTest, TableWithVeryManyWritesCountsAsChanged) {
    for (int i = 0; i < 10001; ++i)
        insert({});
    EXPECT_THAT(commit(database), ElementsAre("Plans"));
    EXPECT_EQ(tableOf(database, "Plans").size(), 10001U);
}

TEST_F(DatabaseTest, LargeTableIsNotReadAsASmallOne) {
    for (int i = 0; i < 10; ++i)
        insert(cell("Name", textValue(std::string(4096, 'x'))));
    (void)commit(database);

    store::Rows rows;
    bool complete = true;
    ASSERT_TRUE(database.readSmall("Plans", Database::View::LastCommit, 20000, rows, complete).ok());

    EXPECT_FALSE(complete);
    EXPECT_LT(rows.cells.size(), 30000U);
}

TEST_F(DatabaseTest, OnlySoManyReadingsHaveASnapshotAtATime) {
    std::vector<std::unique_ptr<store::TableReading>> readings;
    while (database.canBeginReading())
        ASSERT_TRUE(database.beginReading("Plans", Database::View::LastCommit, readings.emplace_back()).ok());
    EXPECT_EQ(readings.size(), 4U);

    std::unique_ptr<store::TableReading> oneMore;
    EXPECT_EQ(database.beginReading("Plans", Database::View::LastCommit, oneMore).code(), code::busy);

    readings.pop_back();
    EXPECT_TRUE(database.beginReading("Plans", Database::View::LastCommit, oneMore).ok());
}

TEST_F(DatabaseTest, WriteOfNoCellIsNoChange) {
    EXPECT_TRUE(database.transaction().writeSingle("Globals", 0, {}).ok());
    EXPECT_EQ(commit(database), velta::NameList{});
}

TEST_F(DatabaseTest, HighestIdLeavesNoFurther) {
    insert(cell("Id", integerValue(INT32_MAX)));

    std::uint32_t id = 0;
    EXPECT_EQ(database.transaction().insert("Plans", {}, id).code(), code::tooLarge);
}

ValueList twice() {
    ValueList values = cell("Level", integerValue(1));
    values.add("Level", integerValue(2));
    return values;
}

TEST_F(DatabaseTest, RefusalsNameWhatWasWrong) {
    insert({});
    std::uint32_t id = 0;
    store::Rows rows;
    std::vector<ValueList> values;
    const auto last = Database::View::LastCommit;
    const std::pair<Database::Result, Database::Result> refusals[] = {
        {readTable(database, "Foo", last, values), {code::unknownTable, "Foo"}},
        {readTable(database, "plans", last, values), {code::unknownTable, "plans"}},
        {readTable(database, "sqlite_schema", last, values), {code::unknownTable, "sqlite_schema"}},
        {database.reader(last).readRow("Plans", 5, rows), {code::noSuchRow, "Plans at 5"}},
        {database.reader(last).readKey("Plans", "Foo", "1", rows), {code::unknownColumn, "Plans.Foo"}},
        {database.reader(last).readKey("Plans", "Id", "9", rows), {code::noSuchRow, "Plans with Id \"9\""}},
        {database.transaction().update("Plans", "Id", "9", cell("Level", integerValue(1))),
         {code::noSuchRow, "Plans with Id \"9\""}},
        {database.transaction().update("Plans", "Id", "1", cell("Foo", integerValue(1))),
         {code::unknownColumn, "Plans.Foo"}},
        {database.transaction().update("Plans", "Id", "1", cell("Status", integerValue(1))),
         {code::wrongKind, "Plans.Status takes a switch, 0 or 1"}},
        {database.transaction().update("Plans", "Id", "1", cell("Id", integerValue(2))),
         {code::wrongKind, "Plans.Id can't be changed"}},
        {database.transaction().update("Plans", "Id", "1", twice()),
         {code::badMessage, "Plans.Level is given twice"}},
        {database.transaction().writeSingle("Plans", 0, cell("Level", integerValue(1))),
         {code::notSingleRow, "Plans"}},
        {database.transaction().writeSingle("Globals", 1, cell("Enable", switchValue(1))),
         {code::noSuchRow, "Globals at 1"}},
        {database.transaction().insert("Globals", {}, id), {code::singleRow, "Globals takes no further row"}},
        {database.transaction().remove("Globals", "Enable", "1"), {code::singleRow, "Globals keeps its row"}},
        {database.transaction().insert("Plans", cell("Id", integerValue(1)), id),
         {code::duplicateId, "Plans 1"}},
        {database.transaction().insert("Plans", cell("Id", integerValue(0)), id),
         {code::wrongKind, "Plans.Id takes an integer from 1"}},
        {database.transaction().remove("Plans", "Id", "9"), {code::noSuchRow, "Plans with Id \"9\""}},
    };
    for (const auto& [result, expected] : refusals)
        EXPECT_EQ(result.strerror(), expected.strerror());
}

} // namespace
