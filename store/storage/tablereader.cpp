#include "store/storage/tablereader.h"

#include "store/storage/cells.h"
#include "store/storage/rowwriter.h"
#include "velta/text.h"

namespace store {

namespace code = velta::protocol::code;
using Result = TableReader::Result;

TableReader::TableReader(const Schema& schema, Connection& connection) : connection_(connection) {
    for (const Table& table : schema.tables()) {
        tables_.emplace_back(table, tables_.size(), connection);
        byName_.emplace(table.name, &tables_.back());
    }
}

Result TableReader::find(const std::string& table, ConnectedTable*& found) {
    const auto place = byName_.find(table);
    if (place == byName_.end())
        return {code::unknownTable, shown(table)};
    found = place->second;
    return {};
}

Result TableReader::findRow(ConnectedTable& table, const std::string& keyColumn, const std::string& key,
                            std::int64_t& rowId) {
    const std::optional<std::size_t> column = table.description.indexOf(keyColumn);
    if (!column)
        return {code::unknownColumn, table.description.name + '.' + shown(keyColumn)};
    const Result missing(code::noSuchRow,
                         table.description.name + " with " + keyColumn + " \"" + shown(key) + '"');
    Statement::Run run(table.statements.find(*column));
    if (table.description.columns[*column].type == velta::Value::Text) {
        run.bind(1, key);
    } else {
        const std::optional<std::int64_t> number = velta::wholeNumber(key);
        if (!number)
            return missing;
        run.bind(1, *number);
    }
    const int step = run.step();
    if (step == SQLITE_DONE)
        return missing;
    if (step == SQLITE_ROW)
        rowId = run.number(0);
    return resultOf(step);
}

Result TableReader::readOne(ConnectedTable& table, Statement& statement, std::int64_t parameter,
                            const std::string& row, Rows& rows) {
    Statement::Run run(statement);
    run.bind(1, parameter);
    const int step = run.step();
    if (step == SQLITE_DONE)
        return {code::noSuchRow, table.description.name + ' ' + row};
    if (step != SQLITE_ROW)
        return resultOf(step);
    rows.columns = table.description.columnNames();
    appendRow(rows, table.description, run);
    return {};
}

Result TableReader::readRow(const std::string& table, std::uint32_t index, Rows& rows) {
    ConnectedTable* found = nullptr;
    if (Result result = find(table, found); !result.ok())
        return result;
    return readOne(*found, found->statements.byIndex(), index, "at " + std::to_string(index), rows);
}

Result TableReader::readKey(const std::string& table, const std::string& keyColumn, const std::string& key,
                            Rows& rows) {
    ConnectedTable* found = nullptr;
    if (Result result = find(table, found); !result.ok())
        return result;
    std::int64_t rowId = 0;
    if (Result result = findRow(*found, keyColumn, key, rowId); !result.ok())
        return result;
    return readOne(*found, found->statements.byRowId(), rowId, "with that key", rows);
}

} // namespace store
