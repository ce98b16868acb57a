#pragma once

#include "simulation/schema.h"
#include "tools/horactl/check.h"

#include <cstdlib>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <gtest/gtest.h>

// Households for the tests of check(), in few words.
namespace tools::horactl::testing {

constexpr std::time_t present = 1795303800; // Sun 2026-11-22 00:30:00 CET
constexpr std::time_t hour = 3600;
constexpr std::time_t day = 24 * hour;

using Cells = std::vector<std::pair<std::string, std::variant<int, std::string>>>;

// A new row with these cells; of a column that is there twice the last one counts.
inline velta::ValueList rowOf(const std::string& table, int id, const Cells& cells) {
    velta::ValueList row = orv::simulation::findShape(table)->newRow(id);
    for (const auto& [column, content] : cells) {
        velta::Value value(row.getValue(column).type());
        if (const auto* const number = std::get_if<int>(&content))
            value.setInteger(*number);
        else
            value.setText(std::get<std::string>(content));
        velta::ValueList change;
        change.add(column, value);
        row = orv::simulation::with(row, change);
    }
    return row;
}

// A new store in Berlin, and what is put into it.
class CheckTest : public ::testing::Test {
protected:
    CheckTest() {
        inZone("Europe/Berlin");
        for (const orv::simulation::TableShape& shape : orv::simulation::schema())
            household.tables[shape.name] =
                shape.hasManyRows() ? Household::Rows{} : Household::Rows{shape.newRow()};
        household.planTables = {"WlanTimePlans", "TimePlans"};
    }
    ~CheckTest() override { inZone("UTC"); }

    static void inZone(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }

    void add(const std::string& table, int id, const Cells& cells) {
        household.tables[table].push_back(rowOf(table, id, cells));
    }
    void set(const std::string& table, const Cells& cells) {
        household.tables[table] = {rowOf(table, 0, cells)};
    }
    // The same slot on each day.
    void addDaily(const std::string& table, int id, int activate, const std::string& start,
                  const std::string& stop) {
        Cells cells = {{"Activate", activate}};
        for (const std::string weekDay : orv::simulation::weekDays) {
            cells.emplace_back("Start" + weekDay, start);
            cells.emplace_back("Stop" + weekDay, stop);
        }
        add(table, id, cells);
    }

    std::vector<Finding> findings() const { return check(household, input); }

    // "WlanTimePlans.1 StartMon" of each, in order.
    std::vector<std::string> places() const {
        std::vector<std::string> places;
        for (const Finding& finding : findings())
            places.push_back(finding.row + ' ' + finding.column);
        return places;
    }
    // The only one; the test fails where there are none or several.
    Finding only() const {
        const std::vector<Finding> all = findings();
        EXPECT_EQ(all.size(), 1U) << findingsAsText(all);
        return all.size() == 1 ? all.front() : Finding();
    }

    Household household;
    CheckInput input{present, 0};
};

} // namespace tools::horactl::testing
