#include "sim/schema.h"

#include <algorithm>

namespace sim {

using velta::Value;

namespace {

std::vector<Column> planColumns() {
    std::vector<Column> columns = {{"Id", Value::Integer, 0, ""},
                                   {"TimePlanName", Value::Text, 0, ""},
                                   {"TimePlanStatus", Value::Switch, 0, ""},
                                   {"Activate", Value::Switch, 1, ""}};
    for (const std::string day : weekDays) {
        columns.push_back({"Start" + day, Value::Text, 0, ""});
        columns.push_back({"Stop" + day, Value::Text, 0, ""});
    }
    return columns;
}

std::vector<Table> makeSchema() {
    return {
        {"WlanGlobals", {{"WlanEnable", Value::Switch, 0, ""}, {"AlwaysEnable", Value::Switch, 0, ""}}},
        {"WlanTimePlans", planColumns()},
        {"TimePlans", planColumns()},
        {"TimeFrame",
         {{"Id", Value::Integer, 0, ""},
          {"WindowMode", Value::Integer, 1, ""},
          {"Servicetable", Value::Text, 0, "FileTransfer"},
          {"ServicetableId", Value::Integer, 0, ""},
          {"TimeFrameStart", Value::Counter, 0, ""},
          {"TimeFrameEnd", Value::Counter, 0, ""},
          {"UserMessage", Value::Text, 0, ""},
          {"MaxRetries", Value::Integer, 0, ""},
          {"RunCounter", Value::Counter, 0, ""}}},
        {"FileTransfer",
         {{"Id", Value::Integer, 0, ""},
          {"Status", Value::Integer, 0, ""},
          {"Result", Value::Integer, 0, ""}}},
        {"FirmwareUpdateTimePlan",
         {{"Id", Value::Integer, 0, ""},
          {"Enable", Value::Switch, 0, ""},
          {"WeekDay", Value::Integer, 0, ""},
          {"StartTimeHour", Value::Integer, 0, ""},
          {"StartTimeMinute", Value::Integer, 0, ""},
          {"EndTimeHour", Value::Integer, 0, ""},
          {"EndTimeMinute", Value::Integer, 0, ""}}},
        {"wexd", {{"Enable", Value::Integer, 0, ""}}},
        {"AutoReboot",
         {{"Enable", Value::Switch, 0, ""},
          {"WeekDay", Value::Integer, 0, ""},
          {"Time", Value::Text, 0, ""},
          {"LastReboot", Value::Text, 0, ""},
          {"MinimumRuntime", Value::Integer, 5400, ""}}},
        {"Reboot", {{"Trigger", Value::Integer, 0, ""}}},
    };
}

Row rowOf(const Table& table) {
    Row row;
    row.reserve(table.columns.size());
    for (const Column& column : table.columns) {
        Value value(column.type);
        if (column.type == Value::Text)
            value.setText(column.text);
        else
            value.setInteger(column.number);
        row.add(column.name, value);
    }
    return row;
}

} // namespace

const std::vector<Table>& schema() {
    static const std::vector<Table> tables = makeSchema();
    return tables;
}

Row newRow(const std::string& table, int id) {
    const auto found = std::find_if(schema().begin(), schema().end(),
                                    [&](const Table& candidate) { return candidate.name == table; });
    Row row = rowOf(*found);
    if (row.hasValue("Id"))
        set(row, "Id", id);
    return row;
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
