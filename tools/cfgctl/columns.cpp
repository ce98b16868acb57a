#include "tools/cfgctl/columns.h"

#include "tools/cells.h"
#include "velta/celltype.h"

#include <nlohmann/json.hpp>

namespace tools::cfgctl {

using nlohmann::ordered_json;
using velta::Value;
using velta::protocol::ColumnDescription;

namespace {

std::string rangeOf(const ColumnDescription& column) {
    return velta::isNumber(column.type) ? column.least.getText() + " to " + column.most.getText() : "";
}

// An empty text is told from no default at all.
std::string defaultOf(const ColumnDescription& column) {
    const Value& value = column.defaultValue;
    return value.type() == Value::Text && value.getText().empty() ? "\"\"" : value.getText();
}

} // namespace

std::vector<TextRow> columnsAsText(const Descriptions& columns, const Names& shared) {
    std::vector<TextRow> rows = {{"COLUMN", "TYPE", "RANGE", "DEFAULT", "SHARED"}};
    for (const ColumnDescription& column : columns)
        rows.push_back({column.name, column.kind, rangeOf(column), defaultOf(column),
                        shared.count(column.name) != 0 ? "yes" : ""});
    return rows;
}

ordered_json columnsAsJson(const Descriptions& columns, const Names& shared) {
    ordered_json list = ordered_json::array();
    for (const ColumnDescription& column : columns) {
        ordered_json object = {{"column", column.name}, {"type", column.kind}};
        if (velta::isNumber(column.type)) {
            object["least"] = toJson(column.least);
            object["most"] = toJson(column.most);
        }
        if (column.defaultValue.type() != Value::None)
            object["default"] = toJson(column.defaultValue);
        object["shared"] = shared.count(column.name) != 0;
        list.push_back(std::move(object));
    }
    return list;
}

} // namespace tools::cfgctl
