#include "store/storage/rowcheck.h"

#include "store/storage/cells.h"
#include "store/storage/tablesizes.h"

#include <algorithm>

namespace store {

namespace code = velta::protocol::code;
using velta::Value;
using velta::ValueList;
using velta::protocol::EResultCode;

namespace {

// "Plans.2", or "Plans" if the row has no Id or its Id is not known.
std::string rowName(const Table& table, std::optional<std::int64_t> rowId, const ValueList& values) {
    if (table.singleRow())
        return table.name;
    if (rowId)
        return table.name + '.' + std::to_string(*rowId);
    return values.hasValue(idColumn) ? table.name + '.' + values.getValue(idColumn).getText() : table.name;
}

EResultCode rowHolds(TableReader& reader, ConnectedTable& table, std::int64_t rowId, std::size_t column,
                     const Value& value, bool& held) {
    Statement::Run present(table.statements.byRowId());
    present.bind(1, rowId);
    const int step = present.step();
    held = step == SQLITE_ROW &&
           holds(table.description.columns[column].type, present, static_cast<int>(column), value);
    return reader.resultOf(step);
}

std::int64_t sizeOf(const Value& value) {
    return cellOverhead +
           (value.type() == Value::Text ? static_cast<std::int64_t>(value.getText().size()) : 0);
}

std::int64_t textSize(const Table& table, const Statement::Run& run, std::size_t column) {
    const bool isText = table.columns[column].type == Value::Text;
    return isText ? static_cast<std::int64_t>(run.text(static_cast<int>(column)).size()) : 0;
}

// The size in front makes sure that different rows have different images.
void append(std::string& image, std::string_view cell) {
    image.append(std::to_string(cell.size())).append(1, ':').append(cell);
}

} // namespace

EResultCode checkKinds(TableReader& reader, ConnectedTable& table, std::optional<std::int64_t> rowId,
                       const ValueList& values) {
    for (const auto& [name, value] : values) {
        const std::size_t column = *table.description.indexOf(name);
        const ColumnKind& kind = table.description.columns[column].kind;
        if (name == idColumn || isWithin(kind, value))
            continue;
        bool held = false;
        if (rowId)
            if (EResultCode result = rowHolds(reader, table, *rowId, column, value, held); !result.ok())
                return result;
        if (!held)
            return {code::wrongKind,
                    rowName(table.description, rowId, values) + ' ' + name + ": " + complaintOf(kind, value)};
    }
    return {};
}

std::int64_t sizeOfNew(const Table& table, const ValueList& values) {
    std::int64_t bytes = 0;
    for (const Column& column : table.columns)
        bytes += sizeOf(values.hasValue(column.name) ? values.getValue(column.name) : column.defaultValue);
    return bytes;
}

EResultCode sizeOf(TableReader& reader, ConnectedTable& table, std::int64_t rowId, std::int64_t& bytes) {
    Statement::Run present(table.statements.byRowId());
    present.bind(1, rowId);
    const int step = present.step();
    bytes = 0;
    for (std::size_t i = 0; step == SQLITE_ROW && i < table.description.columns.size(); ++i)
        bytes += cellOverhead + textSize(table.description, present, i);
    return reader.resultOf(step);
}

EResultCode growthBy(TableReader& reader, ConnectedTable& table, std::int64_t rowId, const ValueList& values,
                     std::int64_t& bytes) {
    bytes = 0;
    const bool anyText = std::any_of(values.begin(), values.end(),
                                     [](const auto& cell) { return cell.second.type() == Value::Text; });
    if (!anyText)
        return {};
    Statement::Run present(table.statements.byRowId());
    present.bind(1, rowId);
    const int step = present.step();
    if (step != SQLITE_ROW)
        return reader.resultOf(step);
    for (const auto& [name, value] : values)
        if (value.type() == Value::Text)
            bytes += sizeOf(value) - cellOverhead -
                     textSize(table.description, present, *table.description.indexOf(name));
    return {};
}

EResultCode differsFrom(TableReader& reader, ConnectedTable& table, std::int64_t rowId,
                        const ValueList& values, bool& differs) {
    Statement::Run present(table.statements.byRowId());
    present.bind(1, rowId);
    const int step = present.step();
    const auto isOther = [&table, &present](const auto& cell) {
        const std::size_t column = *table.description.indexOf(cell.first);
        return !holds(table.description.columns[column].type, present, static_cast<int>(column), cell.second);
    };
    differs = step == SQLITE_ROW && std::any_of(values.begin(), values.end(), isOther);
    return reader.resultOf(step);
}

EResultCode imageOf(TableReader& reader, ConnectedTable& table, std::int64_t rowId, RowImage& image) {
    Statement::Run present(table.statements.byRowId());
    present.bind(1, rowId);
    const int step = present.step();
    image.reset();
    if (step != SQLITE_ROW)
        return reader.resultOf(step);
    image.emplace();
    for (std::size_t i = 0; i < table.description.columns.size(); ++i) {
        const bool isText = table.description.columns[i].type == Value::Text;
        const auto column = static_cast<int>(i);
        append(*image, isText ? present.text(column) : std::to_string(present.number(column)));
    }
    return {};
}

} // namespace store
