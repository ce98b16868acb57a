#include "rows.h"
#include "tools/cells.h"
#include "tools/errors.h"

#include <nlohmann/json.hpp>
#include <string>

#include <gtest/gtest.h>

namespace tools {
namespace {

using testing::errorOf;
using testing::number;
using testing::text;
using velta::Value;
using velta::protocol::ColumnInfo;

const std::string switchText = "a switch, 0 or 1";
const std::string integerText = "an integer, -2147483648 to 2147483647";
const std::string counterText = "a counter, 0 to 4294967295";

struct GoodCell {
    unsigned type;
    const char* text;
    std::int64_t number;
};

class GoodCells : public ::testing::TestWithParam<GoodCell> {};

TEST_P(GoodCells, AreReadByTheColumnsType) {
    const auto& [type, given, content] = GetParam();
    EXPECT_EQ(cellFromText(ColumnInfo{"Column", type}, given), number(type, content));
}

TEST_P(GoodCells, ReadBackAsTheSameNumberInJson) {
    const auto& [type, given, content] = GetParam();
    EXPECT_EQ(toJson(cellFromNumber(ColumnInfo{"Column", type}, content)).dump(), std::to_string(content));
}

INSTANTIATE_TEST_SUITE_P(Cells, GoodCells,
                         ::testing::Values(GoodCell{Value::Switch, "0", 0}, GoodCell{Value::Switch, "1", 1},
                                           GoodCell{Value::Integer, "-2147483648", INT32_MIN},
                                           GoodCell{Value::Integer, "2147483647", INT32_MAX},
                                           GoodCell{Value::Integer, "-1", -1},
                                           GoodCell{Value::Counter, "0", 0},
                                           GoodCell{Value::Counter, "2147483648", 2147483648},
                                           GoodCell{Value::Counter, "4294967295", 4294967295}));

struct BadCell {
    unsigned type;
    const char* text;
    std::string kind;
};

class BadCells : public ::testing::TestWithParam<BadCell> {};

TEST_P(BadCells, AreRefusedWithTheColumnAndItsKind) {
    const auto& [type, given, kind] = GetParam();
    const ColumnInfo column{"Column", type};

    const std::string error = errorOf([&, given = given] { return cellFromText(column, given); });

    EXPECT_EQ(error, "Column: \"" + std::string(given) + "\" is not " + kind);
}

INSTANTIATE_TEST_SUITE_P(
    Cells, BadCells,
    ::testing::Values(BadCell{Value::Switch, "2", switchText}, BadCell{Value::Switch, "-1", switchText},
                      BadCell{Value::Switch, "on", switchText}, BadCell{Value::Switch, "", switchText},
                      BadCell{Value::Integer, "2147483648", integerText},
                      BadCell{Value::Integer, "-2147483649", integerText},
                      BadCell{Value::Integer, "99999999999999999999", integerText},
                      BadCell{Value::Integer, "1.5", integerText},
                      BadCell{Value::Integer, "0x10", integerText},
                      BadCell{Value::Integer, " 1", integerText}, BadCell{Value::Integer, "1 ", integerText},
                      BadCell{Value::Integer, "+1", integerText}, BadCell{Value::Counter, "-1", counterText},
                      BadCell{Value::Counter, "4294967296", counterText},
                      BadCell{Value::None, "1", "of a kind known here"}));

TEST(TextCell, IsTakenAsItStands) {
    const ColumnInfo column{"Column", Value::Text};
    for (const char* given : {"", "5", " = ", "a\nb"})
        EXPECT_EQ(cellFromText(column, given), text(given));
}

TEST(TextCell, IsNotMadeOfANumber) {
    const ColumnInfo column{"Column", Value::Text};
    EXPECT_EQ(errorOf([&] { return cellFromNumber(column, 5); }), "Column: the number 5 is not a text");
}

TEST(NumberCell, IsNotMadeOfAQuotedText) {
    const ColumnInfo column{"Column", Value::Switch};
    EXPECT_EQ(errorOf([&] { return cellFromQuotedText(column, "1"); }),
              "Column: the text \"1\" is not " + switchText);
}

TEST(Json, ReplacesWhatIsNoUtf8) {
    EXPECT_EQ(serialise(toJson(text("caf\xe9"))), "\"caf\xef\xbf\xbd\"");
}

} // namespace
} // namespace tools
