#pragma once

#include "simulation/schema.h"
#include "tools/horactl/household.h"
#include "velta/value.h"
#include "velta/valuelist.h"

#include <initializer_list>
#include <string>
#include <utility>

// Households for the tests, in few words.
namespace tools::horactl::testing {

struct Cell {
    const char* column;
    std::string content; // a number where the column has numbers
};

// A new row of that table with these cells in it.
inline velta::ValueList row(const std::string& table, int id, std::initializer_list<Cell> cells) {
    velta::ValueList changed;
    const velta::ValueList fresh = orv::simulation::findShape(table)->newRow(id);
    for (const Cell& cell : cells) {
        velta::Value value(fresh.getValue(cell.column).type());
        if (value.type() == velta::Value::Text)
            value.setText(cell.content);
        else
            value.setInteger(static_cast<int>(std::stoll(cell.content)));
        changed.add(cell.column, value);
    }
    return orv::simulation::with(fresh, changed);
}

// Every table of a new store, and both tables of plans followed.
inline Household newHousehold() {
    Household household;
    for (const orv::simulation::TableShape& shape : orv::simulation::schema())
        household.tables[shape.name] =
            shape.hasManyRows() ? Household::Rows{} : Household::Rows{shape.newRow()};
    household.planTables = {"WlanTimePlans", "TimePlans"};
    return household;
}

inline void add(Household& household, const std::string& table, std::initializer_list<Cell> cells) {
    Household::Rows& rows = household.tables[table];
    rows.push_back(row(table, static_cast<int>(rows.size()) + 1, cells));
}

inline void set(Household& household, const std::string& table, std::initializer_list<Cell> cells) {
    household.tables[table] = {row(table, 0, cells)};
}

} // namespace tools::horactl::testing
