#include "store/storage/valuecheck.h"

#include <vector>

namespace store {

namespace code = velta::protocol::code;
using velta::Value;
using velta::protocol::EResultCode;

namespace {

EResultCode checkId(const std::string& name, const Value& value, Id id) {
    if (id == Id::Fixed)
        return {code::wrongKind, name + " can't be changed"};
    if (value.type() != Value::Integer || value.getInteger() < 1)
        return {code::wrongKind, name + " takes an integer from 1"};
    return {};
}

EResultCode checkCell(const Table& table, const Column& column, const Value& value, Id id) {
    const std::string name = table.name + '.' + column.name;
    if (column.name == idColumn)
        return checkId(name, value, id);
    if (!acceptable(column.type, value))
        return {code::wrongKind, name + " takes " + descriptionOf(column.type)};
    return {};
}

} // namespace

EResultCode checkCells(const Table& table, const velta::ValueList& values, Id id) {
    std::vector<bool> seen(table.columns.size());
    for (const auto& [name, value] : values) {
        const std::optional<std::size_t> column = table.indexOf(name);
        if (!column)
            return {code::unknownColumn, table.name + '.' + shown(name)};
        if (seen[*column])
            return {code::badMessage, table.name + '.' + name + " is given twice"};
        seen[*column] = true;
        if (EResultCode result = checkCell(table, table.columns[*column], value, id); !result.ok())
            return result;
    }
    return {};
}

void bindCells(Statement::Run& run, const Table& table, const velta::ValueList& values) {
    for (const auto& [name, value] : values)
        bindValue(run, static_cast<int>(*table.indexOf(name)) + 1, value);
}

} // namespace store
