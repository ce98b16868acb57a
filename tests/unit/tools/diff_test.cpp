#include "rows.h"
#include "tools/cfgctl/diff.h"

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tools::cfgctl {
namespace {

using namespace testing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using velta::protocol::TableInfo;

const TableInfo plans{"WlanTimePlans", false};
const TableInfo global{"WlanGlobals", true};

std::vector<std::string> lines(const TableInfo& table, const Rows& before, const Rows& after) {
    std::vector<std::string> result;
    for (const Change& change : diff(table, before, after))
        result.push_back(asLine(change));
    return result;
}

std::vector<std::string> objects(const TableInfo& table, const Rows& before, const Rows& after) {
    std::vector<std::string> result;
    for (const Change& change : diff(table, before, after))
        result.push_back(asJson(change).dump());
    return result;
}

TEST(Diff, OfEqualRowsIsEmpty) {
    EXPECT_THAT(lines(plans, {plan(1, "a", 0)}, {plan(1, "a", 0)}), IsEmpty());
}

TEST(Diff, NamesACellOfASingleRowTableWithoutId) {
    EXPECT_THAT(lines(global, {globals(0)}, {globals(1)}), ElementsAre("WlanGlobals WlanEnable: 0 -> 1"));
}

TEST(Diff, NamesACellByTheIdOfItsRow) {
    EXPECT_THAT(lines(plans, {plan(3, "a", 0)}, {plan(3, "a", 1)}),
                ElementsAre("WlanTimePlans.3 TimePlanStatus: 0 -> 1"));
}

TEST(Diff, HasALineForEachCell) {
    EXPECT_THAT(lines(plans, {plan(3, "", 0)}, {plan(3, "two words", 1)}),
                ElementsAre("WlanTimePlans.3 TimePlanName: \"\" -> \"two words\"",
                            "WlanTimePlans.3 TimePlanStatus: 0 -> 1"));
}

TEST(Diff, ShowsAnAddedRowWithTheCellsThatSaySomething) {
    EXPECT_THAT(lines(plans, {}, {plan(4, "a", 0)}), ElementsAre("WlanTimePlans.4 added TimePlanName=a"));
}

TEST(Diff, ShowsARemovedRow) {
    EXPECT_THAT(lines(plans, {plan(4, "a", 0)}, {}), ElementsAre("WlanTimePlans.4 removed"));
}

TEST(Diff, GoesInIdOrder) {
    const Rows before = {plan(1, "a", 0), plan(3, "c", 0), plan(4, "d", 0)};
    const Rows after = {plan(2, "b", 0), plan(3, "c", 1), plan(5, "e", 0)};
    EXPECT_THAT(lines(plans, before, after),
                ElementsAre("WlanTimePlans.1 removed", "WlanTimePlans.2 added TimePlanName=b",
                            "WlanTimePlans.3 TimePlanStatus: 0 -> 1", "WlanTimePlans.4 removed",
                            "WlanTimePlans.5 added TimePlanName=e"));
}

TEST(Diff, KeepsALineOneLine) {
    EXPECT_THAT(lines(plans, {plan(1, "a", 0)}, {plan(1, "b\n\x1b[2J", 0)}),
                ElementsAre("WlanTimePlans.1 TimePlanName: a -> b\\n\\x1b[2J"));
}

TEST(DiffAsJson, HoldsTheCellsOldAndNewValue) {
    EXPECT_THAT(objects(global, {globals(0)}, {globals(1)}),
                ElementsAre(R"({"table":"WlanGlobals","column":"WlanEnable","old":0,"new":1})"));
}

TEST(DiffAsJson, HoldsTheIdOfARow) {
    EXPECT_THAT(
        objects(plans, {plan(3, "a", 0)}, {plan(3, "", 0)}),
        ElementsAre(R"({"table":"WlanTimePlans","id":3,"column":"TimePlanName","old":"a","new":""})"));
}

TEST(DiffAsJson, HoldsAllCellsOfAnAddedRow) {
    EXPECT_THAT(
        objects(plans, {}, {plan(3, "a", 0)}),
        ElementsAre(R"({"table":"WlanTimePlans","id":3,"added":{"TimePlanName":"a","TimePlanStatus":0}})"));
}

TEST(DiffAsJson, HoldsTheIdOfARemovedRow) {
    EXPECT_THAT(objects(plans, {plan(3, "a", 0)}, {}),
                ElementsAre(R"({"table":"WlanTimePlans","id":3,"removed":true})"));
}

TEST(JsonChange, BeginsWithItsTime) {
    Change change;
    change.kind = Change::Kind::RowRemoved;
    change.table = "T";
    change.id = 3;
    EXPECT_EQ(asJson(change, "2026-11-21T08:41:51+01:00").dump(),
              R"({"time":"2026-11-21T08:41:51+01:00","table":"T","id":3,"removed":true})");
}

} // namespace
} // namespace tools::cfgctl
