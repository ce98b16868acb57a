#include "rows.h"
#include "support/loadedtables.h"
#include "tools/errors.h"
#include "tools/loadfile.h"

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tools {
namespace {

using fakes::parsed;
using testing::errorOf;
using ::testing::HasSubstr;

TEST(LoadFile, HoldsRowsOfBothKindsOfTables) {
    const auto tables = parsed(R"({"WlanGlobals": {"WlanEnable": 1},
                                          "WlanTimePlans": [{"Id": 1, "TimePlanName": "a"}, {}]})")
                            .tables;

    ASSERT_EQ(tables.size(), 2U);
    EXPECT_EQ(tables[0].name, "WlanGlobals");
    EXPECT_FALSE(tables[0].list);
    ASSERT_EQ(tables[0].rows.size(), 1U);
    EXPECT_EQ(tables[0].rows[0].cells.at(0), std::make_pair(std::string("WlanEnable"), LoadCell(1)));
    EXPECT_TRUE(tables[1].list);
    ASSERT_EQ(tables[1].rows.size(), 2U);
    EXPECT_EQ(tables[1].rows[0].cells.at(1), std::make_pair(std::string("TimePlanName"), LoadCell("a")));
    EXPECT_TRUE(tables[1].rows[1].cells.empty());
}

TEST(LoadFile, MayHoldEmptyTablesOrNone) {
    EXPECT_TRUE(parsed("{}").tables.empty());
    EXPECT_TRUE(parsed(R"({"T": []})").tables.at(0).rows.empty());
}

struct BadFile {
    const char* name;
    std::string text;
    const char* error;
};

class BadFiles : public ::testing::TestWithParam<BadFile> {};

TEST_P(BadFiles, AreRefusedWithThePlace) {
    EXPECT_THAT(errorOf([] { return parsed(GetParam().text); }), HasSubstr(GetParam().error));
}

std::string repeated(const std::string& text, std::size_t times) {
    std::string result;
    for (std::size_t i = 0; i < times; ++i)
        result += text;
    return result;
}

std::string manyTables(int count) {
    std::string text;
    for (int i = 0; i < count; ++i)
        text += ",\"" + std::to_string(i) + "\":{}";
    return text;
}

std::string manyColumns(int count) {
    std::string text;
    for (int i = 0; i < count; ++i)
        text += ",\"" + std::to_string(i) + "\":1";
    return text;
}

INSTANTIATE_TEST_SUITE_P(
    Texts, BadFiles,
    ::testing::Values(
        BadFile{"Empty", "", "parse error at line 1, column 1"},
        BadFile{"NoJson", "{\n  nonsense", "parse error at line 2, column"},
        BadFile{"CutShort", R"({"T": [{"a": 1)", "parse error at line 1, column"},
        BadFile{"TextBehindTheEnd", "{} {}", "parse error at line 1, column 4"},
        BadFile{"InvalidUtf8", "{\"T\": {\"a\": \"caf\xe9\"}}",
                "column 18: syntax error while parsing value - invalid string: ill-formed UTF-8 byte"},
        BadFile{"NumberBeyondADouble", R"({"T": {"a": 1e999}})", "number overflow"},
        BadFile{"ListOfTables", "[]", "an object with the tables is expected, not a list"},
        BadFile{"Null", "null", "an object with the tables is expected, not null"},
        BadFile{"NumberAsFile", "7", "an object with the tables is expected, not the number"},
        BadFile{"NumberAsTable", R"({"T": 5})",
                R"(table "T": a row or a list of rows is expected, not the number)"},
        BadFile{"NullAsTable", R"({"T": null})",
                R"(table "T": a row or a list of rows is expected, not null)"},
        BadFile{"TextAsRow", R"({"T": [{}, "x"]})",
                R"(table "T", row 2: an object with the columns is expected, not the text)"},
        BadFile{"ListAsRow", R"({"T": [[]]})",
                R"(table "T", row 1: an object with the columns is expected, not a list)"},
        BadFile{"NullAsCell", R"({"T": [{"a": null}]})",
                R"(table "T", row 1, column "a": a whole number or a text is expected, not null)"},
        BadFile{"TruthAsCell", R"({"T": {"a": true}})",
                R"(table "T", column "a": a whole number or a text is expected, not true or false)"},
        BadFile{"FractionAsCell", R"({"T": {"a": 1.5}})", "not the number \"1.5\""},
        BadFile{"HugeNumberAsCell", R"({"T": {"a": 18446744073709551615}})",
                "not the number 18446744073709551615"},
        BadFile{"MoreThan64Bits", R"({"T": {"a": 99999999999999999999999}})",
                "not the number \"99999999999999999999999\""},
        BadFile{"ObjectAsCell", R"({"T": {"a": {}}})", "column \"a\": a whole number or a text is expected"},
        BadFile{"ListAsCell", R"({"T": {"a": []}})", "column \"a\": a whole number or a text is expected"},
        BadFile{"TableTwice", R"({"T": {}, "T": {}})", "table \"T\" stands there twice"},
        BadFile{"ColumnTwice", R"({"T": [{"a": 1, "a": 1}]})",
                R"(table "T", row 1: column "a" stands there twice)"},
        BadFile{"DeepNesting", repeated("[", 1000000), "an object with the tables is expected"},
        BadFile{"DeepObjects", repeated("{\"a\":", 1000000), "a whole number or a text is expected"},
        BadFile{"NulBehindTheEnd", std::string("{}\n\n \0 nonsense", 14), "line 3, column 2: a NUL byte"},
        BadFile{"NulInAText", std::string("{\"T\": {\"a\": \"\0\"}}", 17), "line 1, column 14: a NUL byte"},
        BadFile{"TooManyTables", "{\"T\": {}" + manyTables(1000) + "}", "more than 1000 tables"},
        BadFile{"TooManyColumns", "{\"T\": {\"a\": 0" + manyColumns(1000) + "}}",
                "table \"T\": more than 1000 columns"},
        BadFile{"LargeRow",
                "{\"T\": {\"a\": \"" + repeated("x", 1500000) + "\", \"b\": \"" + repeated("x", 1500000) +
                    "\"}}",
                "table \"T\": larger than 2097152 bytes"},
        BadFile{"LongText", "{\"T\":\n {\"a\": \"" + repeated("x", 3000000) + "\"}}",
                "line 2: a value of more than 2097152 bytes"},
        BadFile{"BlanksWithoutEnd", "{\"T\": [" + repeated(" ", 3000000) + "]}",
                "line 1: a value of more than 2097152 bytes"}),
    [](const auto& suite) { return suite.param.name; });

TEST(LoadFile, WithALongTextThatIsBrokenIsRefusedInAShortOne) {
    const std::string error = errorOf([] { return parsed("{\"T\": \"" + repeated("x", 1000000)); });

    EXPECT_THAT(error, HasSubstr("parse error at line 1, column 1000008"));
    EXPECT_LT(error.size(), 400U);
}

TEST(LoadFile, ArrivesInPiecesOfAnySize) {
    const std::string text = R"({"T": [{"Id": 12, "a": "\u00e4b"}, {}]})";
    for (const std::size_t piece : {1U, 2U, 7U})
        EXPECT_EQ(parsed(text, piece).tables.at(0).rows.at(0).cells,
                  parsed(text).tables.at(0).rows.at(0).cells);
}

TEST(LoadFile, SaysWhereARowStands) {
    EXPECT_EQ(parsed(R"({"T": [{}, {}], "S": {}})").places,
              (std::vector<std::string>{"table T, row 1", "table T, row 2", "table S"}));
}

TEST(LoadFile, MayHaveMoreRowsThanATableUsuallyHas) {
    EXPECT_EQ(parsed("{\"T\": [{}" + repeated(",{}", 200000) + "]}").tables.at(0).rows.size(), 200001U);
}

} // namespace
} // namespace tools
