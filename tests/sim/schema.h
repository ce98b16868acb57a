#pragma once

#include "simulation/tables.h"

#include <string>
#include <vector>

namespace sim {

using Row = velta::ValueList;
using Rows = orv::simulation::Tables::Rows;

struct Column {
    std::string name;
    velta::Value::TypeCode type;
    int number;       // what a new row has in it
    std::string text; // the same for a text
};

struct Table {
    std::string name;
    std::vector<Column> columns;
};

// The store's tables, their columns in order. Those without "Id" have one row.
const std::vector<Table>& schema();

// A new row of that table, with the store's defaults. The Id counts where the table has one.
Row newRow(const std::string& table, int id = 0);
void set(Row& row, const std::string& column, int number);
void set(Row& row, const std::string& column, const std::string& text);

// "Mon" to "Sun", as the columns of plans end.
inline constexpr const char* weekDays[] = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};
// `day` is one of them.
void setSlot(Row& plan, const std::string& day, const std::string& start, const std::string& stop);
// A plan with the same slot on each day.
Row dailyPlan(const std::string& table, int id, const std::string& start, const std::string& stop,
              bool activate = true);

} // namespace sim
