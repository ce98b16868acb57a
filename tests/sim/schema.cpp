#include "sim/schema.h"

namespace sim {

using velta::Value;

Row newRow(const std::string& table, int id) {
    return orv::simulation::findShape(table)->newRow(id);
}

void set(Row& row, const std::string& column, int number) {
    Value value(Value::Integer);
    value.setInteger(number);
    Row cell;
    cell.add(column, value);
    row = orv::simulation::with(row, cell);
}

void set(Row& row, const std::string& column, const std::string& text) {
    Value value;
    value.setText(text);
    Row cell;
    cell.add(column, value);
    row = orv::simulation::with(row, cell);
}

void setSlot(Row& plan, const std::string& day, const std::string& start, const std::string& stop) {
    set(plan, "Start" + day, start);
    set(plan, "Stop" + day, stop);
}

Row dailyPlan(const std::string& table, int id, const std::string& start, const std::string& stop,
              bool activate) {
    Row plan = newRow(table, id);
    set(plan, "TimePlanName", "plan " + std::to_string(id));
    set(plan, "Activate", activate ? 1 : 0);
    for (const char* const day : weekDays)
        setSlot(plan, day, start, stop);
    return plan;
}

} // namespace sim
