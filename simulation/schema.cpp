#include "simulation/schema.h"

#include <algorithm>

namespace orv::simulation {

using velta::Value;
using velta::ValueList;

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

std::vector<TableShape> makeSchema() {
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

} // namespace

ValueList TableShape::newRow(int id) const {
    ValueList row;
    row.reserve(columns.size());
    for (const Column& column : columns) {
        Value value(column.type);
        if (column.type == Value::Text)
            value.setText(column.text);
        else
            value.setInteger(&column == &columns.front() && hasManyRows() ? id : column.number);
        row.add(column.name, value);
    }
    return row;
}

const std::vector<TableShape>& schema() {
    static const std::vector<TableShape> tables = makeSchema();
    return tables;
}

const TableShape* findShape(const std::string& table) {
    const auto found = std::find_if(schema().begin(), schema().end(),
                                    [&](const TableShape& shape) { return shape.name == table; });
    return found != schema().end() ? &*found : nullptr;
}

} // namespace orv::simulation
