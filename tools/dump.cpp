#include "tools/dump.h"

#include "tools/cells.h"
#include "velta/text.h"

namespace cfgctl {

using nlohmann::ordered_json;
using velta::ValueList;
using velta::protocol::TableInfo;

namespace {

ordered_json rowAsJson(const ValueList& row) {
    ordered_json object = ordered_json::object();
    for (const auto& [column, value] : row)
        object[column] = toJson(value);
    return object;
}

std::string nameOf(const TableInfo& table, const ValueList& row) {
    return table.singleRow ? table.name : table.name + "." + std::to_string(idOf(row));
}

} // namespace

ordered_json rowsAsJson(bool singleRow, const Rows& rows) {
    if (singleRow)
        return rows.empty() ? ordered_json::object() : rowAsJson(rows.front());
    ordered_json list = ordered_json::array();
    for (const ValueList& row : rows)
        list.push_back(rowAsJson(row));
    return list;
}

void requireUtf8(const TableInfo& table, const Rows& rows) {
    for (const ValueList& row : rows)
        for (const auto& [column, value] : row)
            if (!velta::isUtf8(value.getText()))
                throw Refused(nameOf(table, row) + " " + column +
                              ": its text is not UTF-8, JSON can't hold it");
}

} // namespace cfgctl
