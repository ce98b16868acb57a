#include "store/storage/columnkind.h"
#include "store/storage/database.h"
#include "support/temporarydirectory.h"
#include "unit/storage/testtables.h"

#include <gmock/gmock.h>

namespace {

using store::Database;
using store::Kind;
using testing::IsEmpty;
using velta::ValueList;
namespace code = velta::protocol::code;

TEST(ColumnKind, IsReadFromTheDeclaredType) {
    const std::pair<const char*, const char*> cases[] = {
        {"TEXT", "TEXT"},
        {"time", "TIME"},
        {"Switch", "SWITCH"},
        {"INTEGER", "INTEGER"},
        {"INTEGER(0, 7)", "INTEGER(0, 7)"},
        {"integer ( -5 ,5 )", "INTEGER(-5, 5)"},
        {"INTEGER(-2147483648, 2147483647)", "INTEGER"},
        {"COUNTER(1,4294967295)", "COUNTER(1, 4294967295)"},
        {"COUNTER(0, 4294967295)", "COUNTER"},
    };
    for (const auto& [declared, text] : cases) {
        const auto kind = store::columnKindOf(declared);
        EXPECT_EQ(kind ? kind->text() : "none", text) << declared;
    }
    for (const char* declared :
         {"", "BLOB", "INTEGER()", "INTEGER(5)", "INTEGER(7, 0)", "INTEGER(0, 2147483648)", "COUNTER(-1, 5)",
          "TEXT(0, 7)", "TIME(0, 7)", "SWITCH(0, 1)", "INTEGER(0, 7", "INTEGER(a, b)", "INTEGER(1, 2, 3)",
          "INTEGER(1.5, 2)"})
        EXPECT_FALSE(store::columnKindOf(declared).has_value()) << declared;
}

TEST(ColumnKind, TimeIsATextOnTheWireAndInTheFile) {
    EXPECT_EQ(store::typeOf(Kind::Time), velta::Value::Text);
    EXPECT_EQ(store::typeNamed("TEXT"), velta::Value::Text);
    EXPECT_FALSE(store::typeNamed("TIME").has_value());
}

constexpr const char* kindTables =
    "CREATE TABLE Slots (Id INTEGER PRIMARY KEY, Start TIME NOT NULL DEFAULT '8:30',"
    " WeekDay INTEGER(0, 7) NOT NULL DEFAULT 0, Runs COUNTER(1, 9) NOT NULL DEFAULT 1);"
    "CREATE TABLE Night (Begin TIME NOT NULL DEFAULT '');";

class KindTest : public testing::Test {
protected:
    KindTest() {
        std::uint32_t id = 0;
        EXPECT_TRUE(database.transaction().insert("Slots", cell("Id", integerValue(2)), id).ok());
        (void)commit(database);
    }
    std::string update(const std::string& column, const velta::Value& value) {
        return database.transaction().update("Slots", "Id", "2", cell(column, value)).strerror();
    }

    Database database{schemaOf(kindTables), ""};
};

TEST_F(KindTest, RefusalNamesTheRowTheColumnAndWhatItTakes) {
    EXPECT_EQ(update("Start", textValue("2230")),
              "value of the wrong kind: Slots.2 Start: \"2230\" is not a time of day, HH:MM or HH:MM:SS");
    EXPECT_EQ(update("WeekDay", integerValue(9)),
              "value of the wrong kind: Slots.2 WeekDay: 9 is not an integer from 0 to 7");
    EXPECT_EQ(update("Runs", counterValue(0)),
              "value of the wrong kind: Slots.2 Runs: 0 is not a counter from 1 to 9");
    EXPECT_EQ(
        database.transaction().writeSingle("Night", 0, cell("Begin", textValue("x\n\xc2\x85"))).strerror(),
        "value of the wrong kind: Night Begin: \"x???\" is not a time of day, HH:MM or HH:MM:SS");
    database.transaction().rollBack();
}

TEST_F(KindTest, RefusedInsertionNamesTheIdThatItGives) {
    ValueList row = cell("WeekDay", integerValue(-1));
    std::uint32_t id = 0;
    EXPECT_EQ(database.transaction().insert("Slots", row, id).strerror(),
              "value of the wrong kind: Slots WeekDay: -1 is not an integer from 0 to 7");
    row.add("Id", integerValue(7));
    EXPECT_EQ(database.transaction().insert("Slots", row, id).strerror(),
              "value of the wrong kind: Slots.7 WeekDay: -1 is not an integer from 0 to 7");
    EXPECT_THAT(commit(database), IsEmpty());
}

TEST_F(KindTest, GoodValuesAreTaken) {
    EXPECT_EQ(update("Start", textValue("24:00")), "success");
    EXPECT_EQ(update("Start", textValue("")), "success");
    EXPECT_EQ(update("WeekDay", integerValue(7)), "success");
    EXPECT_EQ(commit(database), velta::NameList{"Slots"});
}

TEST_F(KindTest, DescriptionTellsKindRangeAndDefault) {
    const auto columns = store::describe(database.schema().tables()[0]);

    ASSERT_EQ(columns.size(), 4U);
    EXPECT_EQ(columns[0].kind, "INTEGER");
    EXPECT_EQ(columns[0].least, integerValue(1));
    EXPECT_EQ(columns[0].most, integerValue(INT32_MAX));
    EXPECT_EQ(columns[0].defaultValue, velta::Value());
    EXPECT_EQ(columns[1].name, "Start");
    EXPECT_EQ(columns[1].type, velta::Value::Text);
    EXPECT_EQ(columns[1].kind, "TIME");
    EXPECT_EQ(columns[1].least, velta::Value());
    EXPECT_EQ(columns[1].defaultValue, textValue("8:30"));
    EXPECT_EQ(columns[2].kind, "INTEGER");
    EXPECT_EQ(columns[2].least, integerValue(0));
    EXPECT_EQ(columns[2].most, integerValue(7));
    EXPECT_EQ(columns[3].least, counterValue(1));
    EXPECT_EQ(columns[3].most, counterValue(9));
}

// A file from before the kinds, with cells that they would refuse.
TEST(OldCells, CanBeWrittenOverThemselvesAndOverNothingElse) {
    const TemporaryDirectory directory;
    const std::string path = directory.path("db");
    {
        Database old(schemaOf("CREATE TABLE Slots (Id INTEGER PRIMARY KEY, Start TEXT NOT NULL DEFAULT '',"
                              " WeekDay INTEGER NOT NULL DEFAULT 0, Runs COUNTER NOT NULL DEFAULT 0);"),
                     path);
        ValueList row = cell("Start", textValue("0330"));
        row.add("WeekDay", integerValue(9));
        std::uint32_t id = 0;
        ASSERT_TRUE(old.transaction().insert("Slots", row, id).ok());
        ASSERT_EQ(commit(old), velta::NameList{"Slots"});
    }
    Database database(schemaOf(kindTables), path);
    const ValueList row = tableOf(database, "Slots").at(0);
    EXPECT_EQ(row.getValue("Start"), textValue("0330"));
    ValueList same;
    for (const auto& [name, value] : row)
        if (name != "Id")
            same.add(name, value);

    EXPECT_TRUE(database.transaction().update("Slots", "Id", "1", same).ok());
    EXPECT_THAT(commit(database), IsEmpty());
    EXPECT_EQ(database.transaction().update("Slots", "Id", "1", cell("WeekDay", integerValue(8))).code(),
              code::wrongKind);
    EXPECT_TRUE(database.transaction().update("Slots", "Id", "1", cell("WeekDay", integerValue(7))).ok());
    EXPECT_EQ(commit(database), velta::NameList{"Slots"});
    EXPECT_EQ(database.transaction().update("Slots", "Id", "1", cell("WeekDay", integerValue(9))).code(),
              code::wrongKind);
}

} // namespace
