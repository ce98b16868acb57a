#include "store/storage/schema.h"
#include "store/storage/sqlite.h"
#include "support/temporarydirectory.h"
#include "unit/storage/testtables.h"

#include <gmock/gmock.h>

namespace {

using testing::HasSubstr;
using velta::Value;

std::string errorOf(const std::string& sql) {
    try {
        (void)schemaOf(sql);
    } catch (const store::StorageError& error) {
        return error.what();
    }
    return "";
}

std::string columns(int count) {
    std::string sql = "CREATE TABLE T (c0 TEXT NOT NULL DEFAULT ''";
    for (int i = 1; i < count; ++i)
        sql += ", c" + std::to_string(i) + " TEXT NOT NULL DEFAULT ''";
    return sql + ")";
}

TEST(Schema, ReadsNamesTypesAndDefaults) {
    const store::Schema schema = schemaOf(testTables);

    ASSERT_EQ(schema.tables().size(), 3U);
    const store::Table& plans = schema.tables()[0];
    EXPECT_EQ(plans.name, "Plans");
    ASSERT_EQ(plans.columns.size(), 5U);
    EXPECT_EQ(plans.columns[0].type, Value::Integer);
    EXPECT_EQ(plans.columns[1].defaultValue, textValue("none"));
    EXPECT_EQ(plans.columns[2].type, Value::Switch);
    EXPECT_EQ(plans.columns[3].defaultValue, integerValue(-1));
    EXPECT_EQ(plans.columns[4].defaultValue, counterValue(7));
}

TEST(Schema, TableWithoutIdHasASingleRow) {
    const store::Schema schema = schemaOf(testTables);

    EXPECT_FALSE(schema.tables()[0].singleRow());
    EXPECT_TRUE(schema.tables()[1].singleRow());
}

TEST(Schema, QuoteInADefaultIsUndoubled) {
    EXPECT_EQ(schemaOf(testTables).tables()[1].columns[1].defaultValue, textValue("it's"));
}

TEST(Schema, BuiltInOneHasTheDaemonsTables) {
    const store::Schema schema = schemaOf(store::defaultSchema());

    std::vector<std::string> names;
    for (const store::Table& table : schema.tables())
        names.push_back(table.name);
    EXPECT_THAT(names,
                testing::ElementsAre("WlanGlobals", "WlanTimePlans", "TimePlans", "TimeFrame", "FileTransfer",
                                     "FirmwareUpdateTimePlan", "wexd", "AutoReboot", "Reboot"));
}

TEST(Schema, MarkBehindAColumnMakesItShared) {
    const store::Schema schema =
        schemaOf("CREATE TABLE \"P\" (Id INTEGER PRIMARY KEY, [a] TEXT NOT NULL DEFAULT '' /* ' */ Shared,"
                 " b INTEGER(0, 7) NOT NULL DEFAULT 0, c TIME NOT NULL DEFAULT ''SHARED);"
                 "CREATE TABLE O (d SWITCH NOT NULL DEFAULT 0)");
    EXPECT_THAT(schema.tables()[0].sharedColumns(), testing::ElementsAre("a", "c"));
    EXPECT_TRUE(schema.tables()[0].isShared());
    EXPECT_FALSE(schema.tables()[1].isShared());
}

TEST(Schema, WordOfTheMarkMayBeANameATextOrAComment) {
    const store::Schema schema =
        schemaOf("CREATE TABLE Shared (Shared TEXT NOT NULL DEFAULT 'SHARED', -- SHARED\n"
                 " \"SHARED2\" TEXT /* SHARED */ NOT NULL DEFAULT ', SHARED,')");
    EXPECT_THAT(schema.tables()[0].columnNames(), testing::ElementsAre("Shared", "SHARED2"));
    EXPECT_FALSE(schema.tables()[0].isShared());
}

TEST(Schema, BuiltInOneSharesWhatPeopleConfigure) {
    const store::Schema schema = schemaOf(store::defaultSchema());
    std::vector<std::string> shared;
    for (const store::Table& table : schema.tables())
        for (const std::string& column : table.sharedColumns())
            if (column.substr(0, 2) != "St" || table.name == "FirmwareUpdateTimePlan") // the days of plans
                shared.push_back(table.name + '.' + column);
    EXPECT_THAT(shared,
                testing::ElementsAre(
                    "WlanGlobals.AlwaysEnable", "WlanTimePlans.TimePlanName", "WlanTimePlans.Activate",
                    "TimePlans.TimePlanName", "TimePlans.Activate", "FirmwareUpdateTimePlan.Enable",
                    "FirmwareUpdateTimePlan.WeekDay", "FirmwareUpdateTimePlan.StartTimeHour",
                    "FirmwareUpdateTimePlan.StartTimeMinute", "FirmwareUpdateTimePlan.EndTimeHour",
                    "FirmwareUpdateTimePlan.EndTimeMinute", "AutoReboot.Enable", "AutoReboot.WeekDay",
                    "AutoReboot.Time", "AutoReboot.MinimumRuntime"));
    EXPECT_EQ(schema.tables()[1].sharedColumns().size(), 16U);
}

TEST(Schema, TakesAsManyColumnsAsTheLimit) {
    EXPECT_EQ(errorOf(columns(128)), "");
}

struct BadSchema {
    const char* name;
    std::string sql;
    const char* reason;
};

class BadSchemaTest : public testing::TestWithParam<BadSchema> {};

TEST_P(BadSchemaTest, IsRefusedWithTheReason) {
    EXPECT_THAT(errorOf(GetParam().sql), HasSubstr(GetParam().reason));
}

const char* const onlyCreateTable = "only plain CREATE TABLE";

const BadSchema badSchemas[] = {
    {"Empty", "", "no table in it"},
    {"Syntax", "CREATE TABLE", "schema test: "},
    {"ZeroByte", std::string("CREATE TABLE T (a)\0", 19), "zero byte"},
    {"TooLarge", std::string(1024 * 1024 + 1, ' '), "larger than 1 MiB"},
    {"Trigger",
     "CREATE TABLE T (Id INTEGER PRIMARY KEY); CREATE TRIGGER g AFTER INSERT ON T BEGIN DELETE FROM T; END",
     onlyCreateTable},
    {"View", "CREATE VIEW v AS SELECT 1", onlyCreateTable},
    {"Select", "SELECT 1", onlyCreateTable},
    {"Attach", "ATTACH '/tmp/unit_store_attached' AS a", onlyCreateTable},
    {"Pragma", "PRAGMA user_version = 3", onlyCreateTable},
    {"Insert", "CREATE TABLE T (Id INTEGER PRIMARY KEY); INSERT INTO T VALUES (1)", onlyCreateTable},
    {"AsSelect", "CREATE TABLE T AS SELECT 1 AS a", onlyCreateTable},
    {"Temporary", "CREATE TEMP TABLE T (Id INTEGER PRIMARY KEY)", onlyCreateTable},
    {"Virtual", "CREATE VIRTUAL TABLE T USING fts5(a)", onlyCreateTable},
    {"TableName", "CREATE TABLE \"a b\" (Id INTEGER PRIMARY KEY)", "table a b: a name"},
    {"LongName", "CREATE TABLE T (" + std::string(64, 'a') + " TEXT NOT NULL DEFAULT '')", "a name has"},
    {"ReservedName", "CREATE TABLE T (sqlite_a TEXT NOT NULL DEFAULT '')", "column sqlite_a: a name"},
    {"ColumnName", "CREATE TABLE T (_a TEXT NOT NULL DEFAULT '')", "table T, column _a: a name"},
    {"Type", "CREATE TABLE T (a BLOB NOT NULL DEFAULT '')", "column a: the type \"BLOB\""},
    {"NoType", "CREATE TABLE T (a NOT NULL DEFAULT 0)", "the type \"\""},
    {"Nullable", "CREATE TABLE T (a TEXT DEFAULT '')", "NOT NULL and DEFAULT"},
    {"NoDefault", "CREATE TABLE T (a TEXT NOT NULL)", "NOT NULL and DEFAULT"},
    {"Expression", "CREATE TABLE T (a INTEGER NOT NULL DEFAULT (random()))", "no plain value"},
    {"BigSwitch", "CREATE TABLE T (a SWITCH NOT NULL DEFAULT 2)", "default 2"},
    {"BigInteger", "CREATE TABLE T (a INTEGER NOT NULL DEFAULT 2147483648)", "no plain value"},
    {"NegativeCounter", "CREATE TABLE T (a COUNTER NOT NULL DEFAULT -1)", "no plain value"},
    {"DefaultOutOfRange", "CREATE TABLE T (a INTEGER(1, 3) NOT NULL DEFAULT 0)",
     "the default 0 is not an integer from 1 to 3"},
    {"DefaultIsNoTime", "CREATE TABLE T (a TIME NOT NULL DEFAULT '2230')",
     "the default \"2230\" is not a time of day, HH:MM or HH:MM:SS"},
    {"BadRange", "CREATE TABLE T (a INTEGER(3, 1) NOT NULL DEFAULT 1)",
     "its range is none: INTEGER(least, most)"},
    {"RangeOfAText", "CREATE TABLE T (a TEXT(0, 7) NOT NULL DEFAULT '')", "the type \"TEXT(0, 7)\""},
    {"TextForNumber", "CREATE TABLE T (a INTEGER NOT NULL DEFAULT '1')", "no plain value"},
    {"NumberForText", "CREATE TABLE T (a TEXT NOT NULL DEFAULT 1)", "no plain value"},
    {"IdNoKey", "CREATE TABLE T (Id INTEGER NOT NULL DEFAULT 0)", "column Id: must be INTEGER PRIMARY KEY"},
    {"IdText", "CREATE TABLE T (Id TEXT PRIMARY KEY)", onlyCreateTable},
    {"Unique", "CREATE TABLE T (a INTEGER NOT NULL DEFAULT 0 UNIQUE)", onlyCreateTable},
    {"Check", "CREATE TABLE T (a INTEGER NOT NULL DEFAULT 0 CHECK (a > 0))", onlyCreateTable},
    {"OtherKey", "CREATE TABLE T (k INTEGER PRIMARY KEY NOT NULL DEFAULT 0)", "only the column \"Id\""},
    {"Generated", "CREATE TABLE T (a INTEGER NOT NULL DEFAULT 0, b INTEGER AS (1))", "generated"},
    {"Collate", "CREATE TABLE T (a TEXT NOT NULL DEFAULT '' collate NOCASE)", "COLLATE is not possible"},
    {"References",
     "CREATE TABLE P (Id INTEGER PRIMARY KEY); CREATE TABLE T (a INTEGER NOT NULL DEFAULT 0 REFERENCES P)",
     "REFERENCES is not possible"},
    {"OnConflict", "CREATE TABLE T (a INTEGER NOT NULL ON CONFLICT REPLACE DEFAULT 0)",
     "ON CONFLICT is not possible"},
    {"Autoincrement", "CREATE TABLE T (Id INTEGER PRIMARY KEY AUTOINCREMENT)",
     "AUTOINCREMENT is not possible"},
    {"Constraint", "CREATE TABLE T (a TEXT CONSTRAINT c NOT NULL DEFAULT '')", "CONSTRAINT is not possible"},
    {"IfNotExists", "CREATE TABLE IF NOT/**/EXISTS T (Id INTEGER PRIMARY KEY)", "NOT EXISTS is not possible"},
    {"Strict", "CREATE TABLE T (Id INTEGER PRIMARY KEY) STRICT", "table T: STRICT is not possible"},
    {"WithoutRowId", "CREATE TABLE T (Id INTEGER PRIMARY KEY) WITHOUT ROWID",
     "WITHOUT ROWID is not possible"},
    {"SharedInTheMiddle", "CREATE TABLE T (Id INTEGER PRIMARY KEY, a TEXT SHARED NOT NULL DEFAULT '')",
     "test: table T, column a: SHARED stands behind all else"},
    {"SharedTwice", "CREATE TABLE T (a TEXT NOT NULL DEFAULT '' SHARED SHARED)", "column a: SHARED stands"},
    {"SharedId", "CREATE TABLE T (Id INTEGER PRIMARY KEY SHARED, a TEXT NOT NULL DEFAULT '')",
     "table T, column Id: can't be SHARED"},
    {"SharedNoColumn", "CREATE TABLE T (Id INTEGER, a TEXT NOT NULL DEFAULT '', PRIMARY KEY (Id) SHARED)",
     "table T: SHARED stands behind what is no column"},
    {"SharedAsType", "CREATE TABLE T (a SHARED)", "column a: the type \"\""},
    {"SharedTable", "CREATE TABLE T (a TEXT NOT NULL DEFAULT '') SHARED", "SHARED"},
    {"OpenComment", "CREATE TABLE T (Id INTEGER PRIMARY KEY); /* CREATE TABLE U (", "comment is not closed"},
    {"Columns", columns(129), "more than 128 columns"},
    {"Twice", "CREATE TABLE T (Id INTEGER PRIMARY KEY); CREATE TABLE t (Id INTEGER PRIMARY KEY)",
     "already exists"},
};

INSTANTIATE_TEST_SUITE_P(Schema, BadSchemaTest, testing::ValuesIn(badSchemas),
                         [](const auto& test) { return std::string(test.param.name); });

struct GoodSchema {
    const char* name;
    const char* sql;
};

class GoodSchemaTest : public testing::TestWithParam<GoodSchema> {};

TEST_P(GoodSchemaTest, IsTaken) {
    EXPECT_EQ(errorOf(GetParam().sql), "");
}

const GoodSchema goodSchemas[] = {
    {"WordInText", "CREATE TABLE T (a TEXT NOT NULL DEFAULT 'it''s COLLATE /* -- ')"},
    {"WordInName",
     "CREATE TABLE T (\"Collate\" TEXT NOT NULL DEFAULT '', [References] SWITCH NOT NULL DEFAULT 0,"
     " `Constraint` SWITCH NOT NULL DEFAULT 0)"},
    {"WordInComment", "CREATE TABLE T -- no REFERENCES '\n(/* no COLLATE \" */ Id INTEGER PRIMARY KEY)"},
    {"WordAsName",
     "CREATE TABLE Conflict (Strict SWITCH NOT NULL DEFAULT 0, Without SWITCH NOT NULL DEFAULT 0)"},
};

INSTANTIATE_TEST_SUITE_P(Schema, GoodSchemaTest, testing::ValuesIn(goodSchemas),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(Schema, TableOfAnEarlierTextIsRefusedInAnyCase) {
    store::Schema schema = schemaOf("CREATE TABLE Plans (Id INTEGER PRIMARY KEY)");

    EXPECT_THROW(schema.add("CREATE TABLE plans (Id INTEGER PRIMARY KEY)", "second"), store::StorageError);
}

TEST(Schema, HasAThousandTablesAtMost) {
    std::string sql;
    for (int i = 0; i < 1000; ++i)
        sql += "CREATE TABLE T" + std::to_string(i) + " (Id INTEGER PRIMARY KEY);";
    store::Schema schema = schemaOf(sql);
    try {
        schema.add("CREATE TABLE OneMore (Id INTEGER PRIMARY KEY)", "more.sql");
        FAIL() << "no error";
    } catch (const store::StorageError& error) {
        EXPECT_STREQ(error.what(), "schema more.sql: more than 1000 tables");
    }
    EXPECT_EQ(schema.tables().size(), 1000U);
}

TEST(Schema, FileThatCanNotBeReadIsNamed) {
    store::Schema schema;
    const std::string path = "/proc/self/mem"; // a regular file whose first bytes nobody can read
    try {
        schema.addFile(path);
        FAIL() << "no error";
    } catch (const store::StorageError& error) {
        EXPECT_EQ(error.what(), "schema " + path + ": can't be read");
    }
}

TEST(Schema, FileThatIsMissingIsNamed) {
    store::Schema schema;
    try {
        schema.addFile("/nonexistent/tables.sql");
        FAIL() << "no error";
    } catch (const store::StorageError& error) {
        EXPECT_STREQ(error.what(), "schema /nonexistent/tables.sql: No such file or directory");
    }
}

TEST(Schema, FileAddsItsTables) {
    const TemporaryDirectory directory;
    writeFile(directory.path("more.sql"), "CREATE TABLE More (Id INTEGER PRIMARY KEY);");
    store::Schema schema = schemaOf(testTables);

    schema.addFile(directory.path("more.sql"));

    EXPECT_EQ(schema.tables().back().name, "More");
}

} // namespace
