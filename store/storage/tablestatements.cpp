#include "store/storage/tablestatements.h"

#include "store/storage/cells.h"

namespace store {

namespace {

std::string parameter(std::size_t column) {
    return '?' + std::to_string(column + 1);
}

std::string select(const Table& table) {
    std::string columns;
    for (const Column& column : table.columns)
        columns += (columns.empty() ? "" : ", ") + quoted(column.name);
    return "SELECT " + columns + " FROM " + quoted(table.name);
}

std::string updateSql(const Table& table) {
    std::string cells;
    for (std::size_t i = 0; i < table.columns.size(); ++i) {
        const std::string name = quoted(table.columns[i].name);
        if (table.columns[i].name == idColumn && table.columns.size() > 1)
            continue; // SQLite would move the row even if the Id is set to itself
        cells += (cells.empty() ? "" : ", ") + name + " = coalesce(" + parameter(i) + ", " + name + ')';
    }
    return "UPDATE " + quoted(table.name) + " SET " + cells +
           " WHERE _rowid_ = " + parameter(table.columns.size());
}

std::string insertSql(const Table& table) {
    std::string names;
    std::string cells;
    for (std::size_t i = 0; i < table.columns.size(); ++i) {
        const Column& column = table.columns[i];
        const char* const comma = i == 0 ? "" : ", ";
        names += comma + quoted(column.name);
        cells += comma;
        // A primary key that is NULL gets the next free number.
        cells += column.name == idColumn
                     ? parameter(i)
                     : "coalesce(" + parameter(i) + ", " + literal(column.defaultValue) + ')';
    }
    return "INSERT INTO " + quoted(table.name) + " (" + names + ") VALUES (" + cells + ')';
}

} // namespace

TableStatements::TableStatements(Connection& connection, const Table& table)
    : connection_(connection),
      table_(table),
      count_(connection, "SELECT count(*) FROM " + quoted(table.name)),
      all_(connection, select(table) + " ORDER BY _rowid_"),
      byIndex_(connection, select(table) + " ORDER BY _rowid_ LIMIT 1 OFFSET ?1"),
      byRowId_(connection, select(table) + " WHERE _rowid_ = ?1"),
      update_(connection, updateSql(table)),
      insert_(connection, insertSql(table)),
      remove_(connection, "DELETE FROM " + quoted(table.name) + " WHERE _rowid_ = ?1"),
      highestRowId_(connection, "SELECT max(_rowid_) FROM " + quoted(table.name)),
      find_(table.columns.size()) {}

Statement& TableStatements::find(std::size_t column) {
    std::unique_ptr<Statement>& statement = find_[column];
    if (!statement)
        statement = std::make_unique<Statement>(
            connection_, "SELECT _rowid_ FROM " + quoted(table_.name) + " WHERE " +
                             quoted(table_.columns[column].name) + " = ?1 ORDER BY _rowid_ LIMIT 1");
    return *statement;
}

} // namespace store
