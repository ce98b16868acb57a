#include "rows.h"
#include "tools/dump.h"
#include "tools/errors.h"
#include "tools/load.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace cfgctl {
namespace {

using namespace testing;

std::vector<WantedRow> wanted(const std::string& text, const Table& table) {
    return wantedRows(parseLoadFile(text).at(0), table);
}

// A plan in one line: "remove 3; update 1 TimePlanName=b".
std::string described(const std::vector<Write>& writes) {
    std::string text;
    for (const Write& write : writes) {
        if (!text.empty())
            text += "; ";
        switch (write.kind) {
        case Write::Kind::WriteSingle:
            text += "write";
            break;
        case Write::Kind::Update:
            text += "update " + std::to_string(write.id);
            break;
        case Write::Kind::Remove:
            text += "remove " + std::to_string(write.id);
            break;
        case Write::Kind::Insert:
            text += "insert";
            break;
        }
        for (const auto& [column, value] : write.cells)
            text += " " + column + "=" + value.getText();
    }
    return text;
}

struct PlanCase {
    const char* name;
    const char* file;
    const char* writes;
};

class Plans : public ::testing::TestWithParam<PlanCase> {};

TEST_P(Plans, WriteOnlyWhatDiffers) {
    const Rows current = {plan(1, "a", 0), plan(3, "c", 1)};

    const auto writes = planWrites(planTable(), current, wanted(GetParam().file, planTable()));

    EXPECT_EQ(described(writes), GetParam().writes);
}

INSTANTIATE_TEST_SUITE_P(
    Files, Plans,
    ::testing::Values(
        PlanCase{"SameRows",
                 R"({"WlanTimePlans": [{"Id": 3, "TimePlanName": "c", "TimePlanStatus": 1},
                                       {"Id": 1, "TimePlanName": "a", "TimePlanStatus": 0}]})",
                 ""},
        PlanCase{"ColumnsNotNamedKeepTheirValue", R"({"WlanTimePlans": [{"Id": 1}, {"Id": 3}]})", ""},
        PlanCase{"ChangedCell",
                 R"({"WlanTimePlans": [{"Id": 1, "TimePlanName": "b", "TimePlanStatus": 0}, {"Id": 3}]})",
                 "update 1 TimePlanName=b"},
        PlanCase{"RowNotInTheFile", R"({"WlanTimePlans": [{"Id": 3}]})", "remove 1"},
        PlanCase{"EmptyList", R"({"WlanTimePlans": []})", "remove 1; remove 3"},
        PlanCase{"RowWithANewId",
                 R"({"WlanTimePlans": [{"Id": 1}, {"Id": 2, "TimePlanName": "b"}, {"Id": 3}]})",
                 "insert Id=2 TimePlanName=b"},
        PlanCase{"RowWithoutIdComesLast",
                 R"({"WlanTimePlans": [{"TimePlanName": "new"}, {"Id": 4}, {"Id": 3, "TimePlanStatus": 0}]})",
                 "remove 1; update 3 TimePlanStatus=0; insert Id=4; insert TimePlanName=new"}),
    [](const auto& suite) { return suite.param.name; });

TEST(SingleRowPlan, WritesTheChangedCell) {
    const auto rows = wanted(R"({"WlanGlobals": {"WlanEnable": 1}})", globalsTable());

    EXPECT_EQ(described(planWrites(globalsTable(), {globals(0)}, rows)), "write WlanEnable=1");
    EXPECT_EQ(described(planWrites(globalsTable(), {globals(1)}, rows)), "");
}

TEST(Plan, OfWhatWasDumpedWritesNothing) {
    const Rows current = {plan(1, "a \"b\"\n\\", 0), plan(2147483647, "\xc3\xa4", 1)};
    const nlohmann::ordered_json dump = {{"WlanTimePlans", rowsAsJson(false, current)}};

    const auto writes = planWrites(planTable(), current, wanted(dump.dump(), planTable()));

    EXPECT_EQ(described(writes), "");
}

struct BadRows {
    const char* name;
    const char* file;
    const char* error;
};

class BadPlanRows : public ::testing::TestWithParam<BadRows> {};

TEST_P(BadPlanRows, AreRefusedWithThePlace) {
    EXPECT_EQ(errorOf([] { return wanted(GetParam().file, planTable()); }), GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    Files, BadPlanRows,
    ::testing::Values(
        BadRows{"UnknownColumn", R"({"WlanTimePlans": [{"Id": 1}, {"Foo": 1}]})",
                "table WlanTimePlans, row 2: unknown column: WlanTimePlans.Foo"},
        BadRows{"WrongKind", R"({"WlanTimePlans": [{"TimePlanStatus": 2}]})",
                "table WlanTimePlans, row 1: TimePlanStatus: the number 2 is not a switch, 0 or 1"},
        BadRows{
            "TextForANumber", R"({"WlanTimePlans": [{"Id": "1"}]})",
            "table WlanTimePlans, row 1: Id: the text \"1\" is not an integer, -2147483648 to 2147483647"},
        BadRows{"CounterTooLarge", R"({"WlanTimePlans": [{"Uses": 4294967296}]})",
                "table WlanTimePlans, row 1: Uses: the number 4294967296 is not a counter, 0 to 4294967295"},
        BadRows{"IdTwice", R"({"WlanTimePlans": [{"Id": 7}, {"Id": 7}]})",
                "table WlanTimePlans, row 2: Id 7 stands there twice"},
        BadRows{"ObjectForManyRows", R"({"WlanTimePlans": {"Id": 7}})",
                "table WlanTimePlans: it has many rows, a list is expected, not an object"}),
    [](const auto& suite) { return suite.param.name; });

TEST(SingleRowTable, RefusesAListOfRows) {
    EXPECT_EQ(errorOf([] { return wanted(R"({"WlanGlobals": [{"WlanEnable": 1}]})", globalsTable()); }),
              "table WlanGlobals: it has a single row, an object is expected, not a list");
}

TEST(SingleRowTable, HasNoId) {
    EXPECT_EQ(errorOf([] { return wanted(R"({"WlanGlobals": {"Id": 1}})", globalsTable()); }),
              "table WlanGlobals: unknown column: WlanGlobals.Id");
}

} // namespace
} // namespace cfgctl
