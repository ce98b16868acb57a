#include "tools/cfgctl/dump.h"

#include "tools/cells.h"
#include "velta/celltype.h"
#include "velta/text.h"

#include <nlohmann/json.hpp>
#include <utility>

namespace tools::cfgctl {

using nlohmann::ordered_json;
using velta::Value;
using velta::ValueList;
using velta::protocol::TableInfo;

namespace {

constexpr std::size_t printedTogether = std::size_t{64} * 1024; // bytes

std::string nameOf(const TableInfo& table, const ValueList& row) {
    return table.singleRow ? table.name : table.name + "." + std::to_string(idOf(row));
}

} // namespace

ordered_json rowAsJson(const ValueList& row) {
    ordered_json object = ordered_json::object();
    for (const auto& [column, value] : row)
        object[column] = toJson(value);
    return object;
}

ordered_json rowsAsJson(bool singleRow, const Rows& rows) {
    if (singleRow)
        return rows.empty() ? ordered_json::object() : rowAsJson(rows.front());
    ordered_json list = ordered_json::array();
    for (const ValueList& row : rows)
        list.push_back(rowAsJson(row));
    return list;
}

void DumpWriter::beginTable(const TableInfo& table) {
    table_ = table;
    text_ += std::exchange(firstTable_, false) ? "" : ",";
    startLine(1);
    text_ += serialise(table.name) + ": " + (table.singleRow ? "" : "[");
    firstRow_ = true;
}

void DumpWriter::row(const ValueList& row) {
    text_ += std::exchange(firstRow_, false) ? "" : ",";
    if (!table_.singleRow)
        startLine(2);
    object(row, table_.singleRow ? 1 : 2);
    if (text_.size() >= printedTogether)
        printPart();
}

void DumpWriter::endTable() {
    if (table_.singleRow) {
        text_ += firstRow_ ? "{}" : "";
        return;
    }
    if (!firstRow_)
        startLine(1);
    text_ += ']';
}

void DumpWriter::end() {
    if (!firstTable_)
        startLine(0);
    text_ += "}\n";
    printPart();
}

void DumpWriter::object(const ValueList& row, std::size_t level) {
    text_ += '{';
    const char* between = "";
    for (const auto& [column, value] : row) {
        text_ += std::exchange(between, ",");
        startLine(level + 1);
        cell(row, column, value);
    }
    if (!row.empty())
        startLine(level);
    text_ += '}';
}

void DumpWriter::cell(const ValueList& row, const std::string& column, const Value& value) {
    text_ += serialise(column) + ": ";
    if (velta::isNumber(value.type())) {
        text_ += value.getText();
        return;
    }
    const std::string content = value.getText();
    if (!velta::isUtf8(content))
        throw Refused(nameOf(table_, row) + " " + column + ": its text is not UTF-8, JSON can't hold it");
    text_ += serialise(content);
}

void DumpWriter::startLine(std::size_t level) {
    text_ += '\n';
    text_.append(level * std::size_t{blanksALevel}, ' ');
}

void DumpWriter::printPart() {
    print_(text_);
    text_.clear();
}

} // namespace tools::cfgctl
