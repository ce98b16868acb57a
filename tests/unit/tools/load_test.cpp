#include "rows.h"
#include "support/loadedtables.h"
#include "tools/cells.h"
#include "tools/cfgctl/dump.h"
#include "tools/cfgctl/load.h"
#include "tools/cfgctl/loadtables.h"
#include "tools/errors.h"
#include "velta/protocol/wire.h"

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace tools::cfgctl {
namespace {

using namespace testing;

LoadCheck checked(const std::string& text, const Table& table) {
    LoadCheck check([&](const std::string&) { return table; });
    LoadText input(fakes::readFrom(text));
    parseLoadFile(input, check);
    return check;
}

orv::cfg::Snapshot snapshotOf(const Rows& rows) {
    std::string cells;
    velta::protocol::Writer writer(cells);
    velta::protocol::RowsPiece piece;
    for (const velta::ValueList& row : rows)
        for (const auto& [column, value] : row) {
            if (&row == &rows.front())
                piece.columns.push_back(column);
            writer.value(value);
        }
    piece.last = true;
    piece.rows = piece.totalRows = static_cast<std::uint32_t>(rows.size());
    piece.cells = cells;
    orv::cfg::Snapshot snapshot;
    EXPECT_EQ(snapshot.append(piece), nullptr);
    return snapshot;
}

// All that makes the table what the file says, but for the rows that have no Id.
std::vector<Write> planned(const std::string& text, const Table& table, const Rows& current) {
    const LoadCheck check = checked(text, table);
    const orv::cfg::Snapshot snapshot = snapshotOf(current);
    std::vector<Write> writes;
    LoadPlan plan(check.tables().at(table.name), snapshot,
                  [&](const Write& write) { writes.push_back(write); });
    plan.removeOthers();
    const fakes::LoadedTables file = fakes::parsed(text);
    for (std::size_t i = 0; i < file.places.size(); ++i) {
        const velta::ValueList row = wantedRow(file.tables.at(0).rows[i], table);
        if (table.singleRow || row.hasValue(idColumn))
            plan.write(row, file.places[i]);
    }
    return writes;
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

    EXPECT_EQ(described(planned(GetParam().file, planTable(), current)), GetParam().writes);
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
        PlanCase{"RowsInAnotherOrder",
                 R"({"WlanTimePlans": [{"Id": 4}, {"TimePlanStatus": 0, "Id": 3}, {"Id": 1}]})",
                 "insert Id=4; update 3 TimePlanStatus=0"},
        PlanCase{"RowWithoutIdWaitsForAnotherReading",
                 R"({"WlanTimePlans": [{"TimePlanName": "new"}, {"Id": 4}, {"Id": 3, "TimePlanStatus": 0}]})",
                 "remove 1; insert Id=4; update 3 TimePlanStatus=0"}),
    [](const auto& suite) { return suite.param.name; });

TEST(SingleRowPlan, WritesTheChangedCell) {
    const std::string file = R"({"WlanGlobals": {"WlanEnable": 1}})";

    EXPECT_EQ(described(planned(file, globalsTable(), {globals(0)})), "write WlanEnable=1");
    EXPECT_EQ(described(planned(file, globalsTable(), {globals(1)})), "");
    EXPECT_EQ(described(planned(file, globalsTable(), {})), "write WlanEnable=1");
}

TEST(Plan, OfWhatWasDumpedWritesNothing) {
    const Rows current = {plan(1, "a \"b\"\n\\\x7f\xc2\x9b", 0), plan(2147483647, "\xc3\xa4", 1)};
    const nlohmann::ordered_json dump = {{"WlanTimePlans", rowsAsJson(false, current)}};

    EXPECT_EQ(described(planned(serialise(dump), planTable(), current)), "");
}

struct BadRows {
    const char* name;
    const char* file;
    const char* error;
};

class BadPlanRows : public ::testing::TestWithParam<BadRows> {};

TEST_P(BadPlanRows, AreRefusedWithThePlace) {
    EXPECT_EQ(errorOf([] { return checked(GetParam().file, planTable()); }), GetParam().error);
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
    EXPECT_EQ(errorOf([] { return checked(R"({"WlanGlobals": [{"WlanEnable": 1}]})", globalsTable()); }),
              "table WlanGlobals: it has a single row, an object is expected, not a list");
}

TEST(SingleRowTable, HasNoId) {
    EXPECT_EQ(errorOf([] { return checked(R"({"WlanGlobals": {"Id": 1}})", globalsTable()); }),
              "table WlanGlobals: unknown column: WlanGlobals.Id");
}

TEST(RowsWithoutId, AreKnownAfterTheFirstReading) {
    EXPECT_TRUE(checked(R"({"WlanTimePlans": [{"Id": 1}, {}]})", planTable()).hasRowsWithoutId());
    EXPECT_FALSE(checked(R"({"WlanTimePlans": [{"Id": 1}]})", planTable()).hasRowsWithoutId());
    EXPECT_FALSE(checked(R"({"WlanGlobals": {}})", globalsTable()).hasRowsWithoutId());
}

TEST(Outcome, SaysWhatWasWrittenAndHowLongItTook) {
    using std::chrono::milliseconds;
    EXPECT_EQ((LoadOutcome{100000, 0, milliseconds(2345)}.text()),
              "100000 rows written, the transaction was open for 2.3 s");
    EXPECT_EQ((LoadOutcome{1, 1, milliseconds(4)}.text()),
              "1 row written, 1 row removed, the transaction was open for 0.0 s");
    EXPECT_EQ((LoadOutcome{0, 2, milliseconds(60)}.text()),
              "2 rows removed, the transaction was open for 0.1 s");
    EXPECT_EQ((LoadOutcome{0, 0, milliseconds(500)}.text()), "");
}

} // namespace
} // namespace tools::cfgctl
