#include "tools/cfgctl/diff.h"

#include "tools/cells.h"
#include "tools/text.h"

#include <nlohmann/json.hpp>

namespace tools::cfgctl {

using nlohmann::ordered_json;
using velta::ValueList;
using velta::protocol::TableInfo;

namespace {

Change changeOf(Change::Kind kind, const TableInfo& table, const ValueList& row) {
    Change change;
    change.kind = kind;
    change.table = table.name;
    if (!table.singleRow)
        change.id = idOf(row);
    return change;
}

void addRow(const TableInfo& table, const ValueList& row, std::vector<Change>& changes) {
    Change change = changeOf(Change::Kind::RowAdded, table, row);
    change.row = row;
    changes.push_back(std::move(change));
}

void addCells(const TableInfo& table, const ValueList& before, const ValueList& after,
              std::vector<Change>& changes) {
    for (const auto& [column, value] : after) {
        if (before.getValue(column) == value)
            continue;
        Change change = changeOf(Change::Kind::Cell, table, after);
        change.column = column;
        change.before = before.getValue(column);
        change.after = value;
        changes.push_back(std::move(change));
    }
}

std::string nameOf(const Change& change) {
    return printable(change.table) + (change.id ? "." + std::to_string(*change.id) : "");
}

std::string cellsAsLine(const ValueList& row) {
    std::string text;
    for (const auto& [column, value] : row)
        if (column != idColumn && saysSomething(value))
            text += " " + printable(column) + "=" + asWord(value);
    return text;
}

ordered_json cellsAsJson(const ValueList& row) {
    ordered_json cells = ordered_json::object();
    for (const auto& [column, value] : row)
        if (column != idColumn)
            cells[column] = toJson(value);
    return cells;
}

} // namespace

std::vector<Change> diff(const TableInfo& table, const Rows& before, const Rows& after) {
    std::vector<Change> changes;
    auto old = before.begin();
    auto now = after.begin();
    while (old != before.end() || now != after.end()) {
        if (now == after.end() || (old != before.end() && idOf(*old) < idOf(*now))) {
            changes.push_back(changeOf(Change::Kind::RowRemoved, table, *old++));
        } else if (old == before.end() || idOf(*now) < idOf(*old)) {
            addRow(table, *now++, changes);
        } else {
            addCells(table, *old++, *now++, changes);
        }
    }
    return changes;
}

std::string asLine(const Change& change) {
    const std::string name = nameOf(change) + " ";
    switch (change.kind) {
    case Change::Kind::Cell:
        return name + printable(change.column) + ": " + asWord(change.before) + " -> " + asWord(change.after);
    case Change::Kind::RowAdded:
        return name + "added" + cellsAsLine(change.row);
    case Change::Kind::RowRemoved:
        return name + "removed";
    }
    return name;
}

ordered_json asJson(const Change& change, const std::string& time) {
    ordered_json object = ordered_json::object();
    if (!time.empty())
        object["time"] = time;
    object["table"] = change.table;
    if (change.id)
        object["id"] = *change.id;
    switch (change.kind) {
    case Change::Kind::Cell:
        object["column"] = change.column;
        object["old"] = toJson(change.before);
        object["new"] = toJson(change.after);
        break;
    case Change::Kind::RowAdded:
        object["added"] = cellsAsJson(change.row);
        break;
    case Change::Kind::RowRemoved:
        object["removed"] = true;
        break;
    }
    return object;
}

} // namespace tools::cfgctl
