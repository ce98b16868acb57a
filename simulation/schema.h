#pragma once

#include "simulation/tables.h"

#include <string>
#include <vector>

// What a new store makes its tables of.
namespace orv::simulation {

struct Column {
    std::string name;
    velta::Value::TypeCode type;
    int number;       // what a new row has in it
    std::string text; // the same for a text
};

struct TableShape {
    std::string name;
    std::vector<Column> columns;

    bool hasManyRows() const { return columns.front().name == "Id"; }
    // A new row, with the store's defaults. The Id counts where the table has one.
    velta::ValueList newRow(int id = 0) const;
};

// The store's tables, their columns in order.
const std::vector<TableShape>& schema();
// Null for a table that a new store does not have.
const TableShape* findShape(const std::string& table);
// "Mon" to "Sun", as the columns of plans end.
inline constexpr const char* weekDays[] = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};

} // namespace orv::simulation
