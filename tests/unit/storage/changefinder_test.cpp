#include "store/storage/changefinder.h"
#include "unit/storage/sharedtables.h"

#include <gmock/gmock.h>

namespace {

using store::Database;
using store::SharedChange;
using store::SharedReads;
using testing::ElementsAre;
using testing::IsEmpty;
namespace code = velta::protocol::code;

std::string textOf(const store::SharedCells& cells) {
    std::string text;
    for (const velta::Value& cell : cells)
        text += (text.empty() ? "" : ",") + cell.getText();
    return '(' + text + ')';
}

// "1 u1 (a,) -> (b,)", with "new" and "gone" where there is no row.
std::vector<std::string> rowsIn(const SharedChange& change) {
    std::vector<std::string> rows;
    for (const SharedChange::Row& row : change.rows)
        rows.push_back(std::to_string(row.row.id) + ' ' + row.row.uuid + ' ' +
                       (row.isNew ? "new" : textOf(row.row.cells)) + " -> " +
                       (row.after ? textOf(*row.after) : "gone"));
    return rows;
}

class ChangeFinderTest : public testing::Test {
protected:
    ChangeFinderTest() {
        store::SharedRows::Memory memory;
        EXPECT_TRUE(database.sharedRows().begin("d", memory).ok());
        (void)applyTo(database, {{planUpdate("u1", 1, "a", ""), planUpdate("u2", 2, "b", "8:00"),
                                  globalsUpdate("g", 0)},
                                 true,
                                 false,
                                 {}});
    }
    ~ChangeFinderTest() override { transaction.rollBack(); }

    void update(int id, const velta::ValueList& values) {
        EXPECT_TRUE(transaction.update("Plans", "Id", std::to_string(id), values).ok());
    }
    void insert(const velta::ValueList& values) {
        std::uint32_t id = 0;
        EXPECT_TRUE(transaction.insert("Plans", values, id).ok());
    }
    SharedChange found() {
        SharedChange change;
        const auto result = transaction.sharedChange(reads, change);
        EXPECT_TRUE(result.ok()) << result.strerror();
        return change;
    }
    std::string refusal() {
        SharedChange change;
        const auto result = transaction.sharedChange(reads, change);
        EXPECT_EQ(result.code(), code::mixedChange);
        return result.detail();
    }

    Database database{schemaOf(sharedTables), ""};
    store::Transaction& transaction = database.transaction();
    SharedReads reads;
};

TEST_F(ChangeFinderTest, CellsThatAreNotSharedMakeNoChange) {
    reads.noteWhole(0);
    update(1, cell("Status", switchValue(1)));
    ASSERT_TRUE(transaction.writeSingle("Other", 0, cell("Enable", switchValue(1))).ok());

    const SharedChange change = found();

    EXPECT_THAT(change.rows, IsEmpty());
    EXPECT_THAT(change.tables, IsEmpty());
}

TEST_F(ChangeFinderTest, ChangedRowHasItsCellsBeforeAndAfter) {
    update(2, cell("Name", textValue("c")));
    update(2, cell("Start", textValue("9:00")));
    EXPECT_THAT(rowsIn(found()), ElementsAre("2 u2 (b,8:00) -> (c,9:00)"));
}

TEST_F(ChangeFinderTest, ValueThatIsWrittenAgainIsNoChange) {
    update(2, cell("Name", textValue("b")));
    update(1, cell("Name", textValue("c")));
    update(1, cell("Name", textValue("a")));
    EXPECT_THAT(found().rows, IsEmpty());
}

TEST_F(ChangeFinderTest, RowThatWasWrittenWithoutAChangeComesBesideOneThatChanged) {
    update(1, cell("Name", textValue("c")));
    update(2, cell("Name", textValue("b")));
    EXPECT_THAT(rowsIn(found()), ElementsAre("1 u1 (a,) -> (c,)", "2 u2 (b,8:00) -> (b,8:00)"));
}

TEST_F(ChangeFinderTest, RowsComeAndGo) {
    setStatus(database, 2, 1);
    insert(cell("Name", textValue("c")));
    ASSERT_TRUE(transaction.remove("Plans", "Id", "2").ok());
    EXPECT_THAT(rowsIn(found()), ElementsAre("2 u2 (b,8:00) -> gone", "3  new -> (c,)"));
}

TEST_F(ChangeFinderTest, RowThatCameAndWentIsNoChange) {
    insert({});
    ASSERT_TRUE(transaction.remove("Plans", "Id", "3").ok());
    EXPECT_THAT(found().rows, IsEmpty());
}

TEST_F(ChangeFinderTest, SingleRowHasTheIdOne) {
    ASSERT_TRUE(transaction.writeSingle("Globals", 0, cell("Always", switchValue(1))).ok());
    EXPECT_THAT(rowsIn(found()), ElementsAre("1 g (0) -> (1)"));
}

TEST_F(ChangeFinderTest, BothKindsAreRefusedWithTheirNames) {
    update(1, cell("Name", textValue("c")));
    update(1, cell("Status", switchValue(1)));
    EXPECT_EQ(refusal(), "Plans.Name is shared, Plans.Status is not");
}

TEST_F(ChangeFinderTest, BothKindsInDifferentTablesAreRefused) {
    update(1, cell("Name", textValue("c")));
    update(1, cell("Start", textValue("7:00")));
    ASSERT_TRUE(transaction.writeSingle("Other", 0, cell("Enable", switchValue(1))).ok());
    EXPECT_EQ(refusal(), "Plans.Name, Plans.Start are shared, Other.Enable is not");
}

TEST_F(ChangeFinderTest, StateOfANewRowCountsIfItIsNotTheDefault) {
    velta::ValueList values = cell("Name", textValue("c"));
    values.add("Status", switchValue(1));
    insert(values);
    EXPECT_EQ(refusal(), "Plans.3 is shared, Plans.Status is not");
}

TEST_F(ChangeFinderTest, ManyNamesAreCutShort) {
    for (int id = 11; id <= 16; ++id)
        insert(cell("Id", integerValue(id)));
    update(1, cell("Status", switchValue(1)));
    EXPECT_EQ(refusal(), "Plans.11, Plans.12, Plans.13, Plans.14 and others are shared, Plans.Status is not");
}

TEST_F(ChangeFinderTest, RowsThatWereReadComeAsTheyAre) {
    reads.noteRow(0, 2);
    reads.noteRow(0, 1); // written as well
    reads.noteRow(1, 1);
    update(1, cell("Name", textValue("c")));
    EXPECT_THAT(rowsIn(found()),
                ElementsAre("1 u1 (a,) -> (c,)", "2 u2 (b,8:00) -> (b,8:00)", "1 g (0) -> (0)"));
}

TEST_F(ChangeFinderTest, TableThatWasReadComesWithAllRowsAsTheyWere) {
    reads.noteRow(0, 1);
    reads.noteWhole(0);
    reads.noteWhole(2); // not shared
    update(1, cell("Name", textValue("c")));

    const SharedChange change = found();

    EXPECT_THAT(rowsIn(change), ElementsAre("1 u1 (a,) -> (c,)"));
    ASSERT_EQ(change.tables.size(), 1U);
    ASSERT_EQ(change.tables[0].second.size(), 2U);
    EXPECT_EQ(change.tables[0].second[0].uuid, "u1");
    EXPECT_EQ(textOf(change.tables[0].second[0].cells), "(a,)");
}

TEST_F(ChangeFinderTest, RowThatWasNotThereCountsAsTheWholeTable) {
    reads.noteRow(0, 7);
    update(1, cell("Name", textValue("c")));
    EXPECT_EQ(found().tables.size(), 1U);
}

TEST_F(ChangeFinderTest, ManyRowsThatWereReadCountAsTheWholeTable) {
    for (int id = 1; id <= 1001; ++id)
        reads.noteRow(0, id);
    EXPECT_TRUE(reads.tables().at(0).whole);
    EXPECT_THAT(reads.tables().at(0).ids, IsEmpty());
}

TEST_F(ChangeFinderTest, TooManyRowsOfASharedTableAreRefused) {
    for (int id = 1; id <= 10001; ++id)
        insert(cell("Id", integerValue(id + 10)));
    SharedChange change;
    const auto result = transaction.sharedChange(reads, change);
    EXPECT_EQ(result.code(), code::tooLarge);
    EXPECT_EQ(result.detail(), "Plans: too many rows of a shared table for one transaction");
}

TEST(ChangeFinder, ManyRowsOfALocalTableAreNamedBesideASharedChange) {
    Database database(schemaOf(std::string(sharedTables) + "CREATE TABLE Notes (Id INTEGER PRIMARY KEY)"),
                      "");
    std::uint32_t id = 0;
    for (int i = 0; i < 10001; ++i)
        ASSERT_TRUE(database.transaction().insert("Notes", {}, id).ok());
    SharedReads reads;
    SharedChange change;
    EXPECT_TRUE(database.transaction().sharedChange(reads, change).ok());
    EXPECT_THAT(change.rows, IsEmpty());

    ASSERT_TRUE(database.transaction().writeSingle("Globals", 0, cell("Always", switchValue(1))).ok());

    const auto result = database.transaction().sharedChange(reads, change);
    EXPECT_EQ(result.code(), code::mixedChange);
    EXPECT_THAT(result.detail(), testing::HasSubstr("Notes"));
    database.transaction().rollBack();
}

TEST(ChangeFinder, WithoutAMemoryRowsHaveNoNames) {
    Database database(schemaOf(sharedTables), "");
    insertPlan(database, 1, "a");
    ASSERT_TRUE(database.transaction().update("Plans", "Id", "1", cell("Name", textValue("b"))).ok());
    SharedReads reads;
    reads.noteWhole(0);
    SharedChange change;
    ASSERT_TRUE(database.transaction().sharedChange(reads, change).ok());
    EXPECT_THAT(rowsIn(change), ElementsAre("1  (a,) -> (b,)"));
    database.transaction().rollBack();
}

} // namespace
