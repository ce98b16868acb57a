#pragma once

#include "simulation/schema.h"

#include <string>

namespace sim {

using Row = velta::ValueList;
using Rows = orv::simulation::Tables::Rows;

using orv::simulation::schema;
using orv::simulation::TableShape;
using orv::simulation::weekDays;

// A new row of one of the schema's tables. The Id counts where the table has one.
Row newRow(const std::string& table, int id = 0);
void set(Row& row, const std::string& column, int number);
void set(Row& row, const std::string& column, const std::string& text);

// `day` is one of weekDays.
void setSlot(Row& plan, const std::string& day, const std::string& start, const std::string& stop);
// A plan with the same slot on each day.
Row dailyPlan(const std::string& table, int id, const std::string& start, const std::string& stop,
              bool activate = true);

} // namespace sim
