#include "tools/cfgctl/commands.h"

#include "cfg/requests.h"
#include "tools/cells.h"
#include "tools/cfgctl/columns.h"
#include "tools/cfgctl/dump.h"
#include "tools/cfgctl/loadtables.h"
#include "tools/output.h"
#include "tools/storetables.h"
#include "tools/table.h"
#include "tools/terminal.h"
#include "tools/text.h"

#include <algorithm>
#include <charconv>
#include <iostream>
#include <nlohmann/json.hpp>

#include <unistd.h>

namespace tools::cfgctl {

using nlohmann::ordered_json;
using orv::cfg::ConfigClient;
using velta::Value;
using velta::ValueList;
using velta::protocol::ColumnInfo;
using velta::protocol::EResultCode;
using velta::protocol::TableInfo;
namespace code = velta::protocol::code;
namespace requests = orv::cfg::requests;

namespace {

// The table of a target that means one row, which must be there for a table with many and only there.
Table describeRowOf(ConfigClient& client, const Target& target) {
    Table table = describeTable(client, target.table);
    if (table.singleRow && target.id)
        throw Refused("table " + table.name + " has a single row: it is named without an Id");
    if (!table.singleRow && !target.id)
        throw Refused("table " + table.name + " has many rows: name one by its Id, as in " + table.name +
                      ".1");
    return table;
}

ValueList typedCells(const Table& table, const std::vector<CellText>& cells) {
    ValueList values;
    for (const auto& [column, text] : cells)
        values.add(column, cellFromText(table.column(column), text));
    return values;
}

std::string asLines(const Table& table, const ValueList& row) {
    std::vector<TextRow> lines;
    for (const ColumnInfo& column : table.columns)
        lines.push_back({column.name, row.getValue(column.name).getText()});
    return aligned(lines, terminalWidth());
}

std::string showManyRows(const Table& table, const Rows& rows) {
    TextRow header;
    for (const ColumnInfo& column : table.columns)
        header.push_back(column.name);
    std::vector<TextRow> lines = {header};
    for (const ValueList& row : rows) {
        TextRow line;
        for (const ColumnInfo& column : table.columns)
            line.push_back(row.getValue(column.name).getText());
        lines.push_back(std::move(line));
    }
    return aligned(lines, terminalWidth());
}

ValueList readRow(ConfigClient& client, const Target& target) {
    ValueList row;
    if (target.id)
        require(client.selectRowByKey(target.table, idColumn, std::to_string(*target.id), row));
    else
        require(client.selectRow(target.table, 0, row, {}));
    return row;
}

// None of a store that is older and does not know the question: it closes the connection.
Names sharedColumns(ConfigClient& client, const std::string& table) {
    std::vector<ColumnInfo> columns;
    const EResultCode result = client.sharedColumns(table, columns);
    if (result.code() != code::notConnected && result.code() != code::badMessage)
        require(result);
    Names names;
    for (const ColumnInfo& column : columns)
        names.insert(column.name);
    return names;
}

std::string asDocument(const ordered_json& document) {
    return serialise(document, blanksALevel) + '\n';
}

// The bare value for a program; a person's terminal is not driven by it.
std::string bare(const Value& value) {
    return isatty(STDOUT_FILENO) == 1 ? printable(value.getText()) : value.getText();
}

} // namespace

Target parseTarget(const std::string& text) {
    const std::size_t dot = text.find('.');
    Target target{text.substr(0, dot), std::nullopt};
    if (dot == std::string::npos)
        return target;
    std::uint32_t id = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data() + dot + 1, end, id);
    if (error != std::errc() || rest != end)
        throw WrongUse(inQuotes(text) + ": what stands behind the dot is not an Id");
    target.id = id;
    return target;
}

Target parseRowTarget(const std::string& text) {
    const Target target = parseTarget(text);
    if (!target.id)
        throw WrongUse(inQuotes(text) + " is not TABLE.ID");
    return target;
}

std::vector<CellText> parseCells(const std::vector<std::string>& texts) {
    std::vector<CellText> cells;
    for (const std::string& text : texts) {
        const std::size_t sign = text.find('=');
        if (sign == std::string::npos || sign == 0)
            throw WrongUse(inQuotes(text) + " is not COLUMN=VALUE");
        const std::string column = text.substr(0, sign);
        if (std::any_of(cells.begin(), cells.end(),
                        [&](const CellText& cell) { return cell.first == column; }))
            throw WrongUse("column " + inQuotes(column) + " is given twice");
        cells.emplace_back(column, text.substr(sign + 1));
    }
    return cells;
}

std::string listCommand(ConfigClient& client, const Arguments& arguments) {
    ordered_json list = ordered_json::array();
    std::vector<TextRow> lines = {{"TABLE", "ROWS"}};
    for (const TableInfo& table : listTables(client)) {
        unsigned rows = 0;
        require(client.size(table.name, rows));
        client.dropSnapshots(); // one at a time
        list.push_back({{"table", table.name}, {"singleRow", table.singleRow}, {"rows", rows}});
        lines.push_back({table.name, table.singleRow ? "single" : std::to_string(rows)});
    }
    return arguments.json ? asDocument(list) : aligned(lines, terminalWidth());
}

std::string showCommand(ConfigClient& client, const Arguments& arguments) {
    const Target& target = arguments.target;
    if (target.id) {
        const Table table = describeRowOf(client, target);
        const ValueList row = readRow(client, target);
        return arguments.json ? asDocument(rowAsJson(row)) : asLines(table, row);
    }
    const Table table = describeTable(client, target.table);
    const Rows rows = readRows(client, table.name);
    if (arguments.json)
        return asDocument(rowsAsJson(table.singleRow, rows));
    if (table.singleRow)
        return asLines(table, rows.empty() ? ValueList() : rows.front());
    return showManyRows(table, rows);
}

std::string columnsCommand(ConfigClient& client, const Arguments& arguments) {
    Descriptions columns;
    const EResultCode result = client.describe(arguments.target.table, columns);
    if (result.code() == code::notConnected)
        throw Refused("the configuration store closed the connection: one that is older than this " +
                      std::string(programName) + " can't describe its columns");
    require(result);
    const Names shared = sharedColumns(client, arguments.target.table);
    return arguments.json ? asDocument(columnsAsJson(columns, shared))
                          : aligned(columnsAsText(columns, shared), terminalWidth());
}

std::string getCommand(ConfigClient& client, const Arguments& arguments) {
    const Target& target = arguments.target;
    const Table table = describeRowOf(client, target);
    const std::string column = table.column(arguments.column).name;
    const Value value = readRow(client, target).getValue(column);
    return (arguments.json ? serialise(toJson(value)) : bare(value)) + '\n';
}

std::string setCommand(ConfigClient& client, const Arguments& arguments) {
    const Target& target = arguments.target;
    const ValueList values = typedCells(describeRowOf(client, target), arguments.cells);
    require(client.commitWrite(
        target.id ? requests::update(target.table, idColumn, std::to_string(*target.id), values)
                  : requests::writeSingle(target.table, 0, values)));
    return {};
}

std::string addCommand(ConfigClient& client, const Arguments& arguments) {
    const ValueList values = typedCells(describeTable(client, arguments.target.table), arguments.cells);
    std::uint32_t id = 0;
    Transaction transaction(client);
    require(client.insertRow(arguments.target.table, values, id));
    transaction.commit();
    return (arguments.json ? serialise({{idColumn, id}}) : std::to_string(id)) + '\n';
}

std::string removeCommand(ConfigClient& client, const Arguments& arguments) {
    const auto& [table, id] = arguments.target;
    require(client.commitWrite(requests::remove(table, idColumn, std::to_string(id.value()))));
    return {};
}

std::string loadCommand(ConfigClient& client, const Arguments& arguments) {
    try {
        const std::string outcome = loadTables(client, arguments.file).text();
        if (!outcome.empty())
            std::cerr << programName << ": " << outcome << std::endl;
    } catch (const Refused& refused) {
        const std::string name = arguments.file == "-" ? "standard input" : arguments.file;
        throw Refused(name + ": " + refused.what());
    }
    return {};
}

std::string dumpCommand(ConfigClient& client, const Arguments& arguments) {
    DumpWriter writer(print);
    for (const TableInfo& table : selectTables(client, arguments.tables)) {
        orv::cfg::Snapshot rows;
        require(client.readTable(table.name, rows));
        writer.beginTable(table);
        ValueList row;
        for (std::size_t i = 0; i < rows.rows(); ++i) {
            rows.row(i, {}, row);
            writer.row(row);
        }
        writer.endTable();
    }
    writer.end();
    return {};
}

} // namespace tools::cfgctl
