#include "rows.h"
#include "tools/cfgctl/dump.h"
#include "tools/errors.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace tools::cfgctl {
namespace {

using namespace testing;

TEST(Dump, OfASingleRowTableIsAnObject) {
    EXPECT_EQ(rowsAsJson(true, {globals(1)}).dump(), R"({"WlanEnable":1})");
}

TEST(Dump, OfManyRowsIsAListWithTheColumnsInOrder) {
    EXPECT_EQ(rowsAsJson(false, {plan(2, "b", 0)}).dump(),
              R"([{"Id":2,"TimePlanName":"b","TimePlanStatus":0}])");
}

TEST(Dump, OfAnEmptyTableIsAnEmptyList) {
    EXPECT_EQ(rowsAsJson(false, {}).dump(), "[]");
}

using Tables = std::vector<std::pair<velta::protocol::TableInfo, Rows>>;

// Row by row.
std::string written(const Tables& tables) {
    std::string text;
    DumpWriter writer([&](const std::string& part) { text += part; });
    for (const auto& [table, rows] : tables) {
        writer.beginTable(table);
        for (const velta::ValueList& row : rows)
            writer.row(row);
        writer.endTable();
    }
    writer.end();
    return text;
}

// As one document.
std::string whole(const Tables& tables) {
    nlohmann::ordered_json document = nlohmann::ordered_json::object();
    for (const auto& [table, rows] : tables)
        document[table.name] = rowsAsJson(table.singleRow, rows);
    return document.dump(2) + '\n';
}

TEST(Dump, RowByRowIsTheSameAsTheDocument) {
    const Tables tables[] = {
        {},
        {{{"Empty", false}, {}}},
        {{{"Single", true}, {globals(1)}}},
        {{{"Single", true}, {}}},
        {{{"None", false}, {velta::ValueList()}}},
        {{{"Many", false}, {plan(1, "a \"b\"\n\\", 0), plan(2, "\xc3\xa4", 1)}},
         {{"Empty", false}, {}},
         {{"Single", true}, {globals(0)}}},
    };
    for (const Tables& each : tables)
        EXPECT_EQ(written(each), whole(each));
}

TEST(Dump, HoldsNoMoreThanAPart) {
    std::size_t largest = 0;
    std::size_t total = 0;
    DumpWriter writer([&](const std::string& part) {
        largest = std::max(largest, part.size());
        total += part.size();
    });
    writer.beginTable({"Many", false});
    for (int id = 1; id <= 10000; ++id)
        writer.row(plan(id, "name", 0));
    writer.endTable();
    writer.end();
    EXPECT_GT(total, 500000U);
    EXPECT_LT(largest, 100000U);
}

TEST(Dump, SpellsOutDeleteAndC1ControlCharacters) {
    const Tables tables = {{{"T\x7f", false}, {plan(1, "\x7f \xc2\x80 \xc2\x9b \xc2\x9f \xc2\xa0", 0)}}};
    const std::string text = written(tables);
    EXPECT_NE(text.find(R"("T\u007f")"), std::string::npos) << text;
    EXPECT_NE(text.find("\"\\u007f \\u0080 \\u009b \\u009f \xc2\xa0\""), std::string::npos) << text;
    EXPECT_EQ(nlohmann::ordered_json::parse(text), nlohmann::ordered_json::parse(whole(tables)));
}

TEST(Dump, RefusesATextThatJsonCannotHold) {
    const Tables tables = {{{"WlanTimePlans", false}, {plan(1, "fine", 0), plan(2, "caf\xe9", 0)}}};
    EXPECT_EQ(errorOf([&] { return written(tables); }),
              "WlanTimePlans.2 TimePlanName: its text is not UTF-8, JSON can't hold it");
}

} // namespace
} // namespace tools::cfgctl
