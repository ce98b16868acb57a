#include "store/storage/introspection.h"

namespace store {

namespace {

// Steps to the next row; false after the last.
bool nextRow(Statement::Run& run, Connection& connection) {
    const int code = run.step();
    if (code != SQLITE_ROW && code != SQLITE_DONE)
        throw StorageError(connection.textOf(code));
    return code == SQLITE_ROW;
}

} // namespace

std::vector<std::string> declaredTables(Connection& connection) {
    Statement statement(
        connection,
        "SELECT name FROM sqlite_schema WHERE type = 'table' AND name NOT LIKE 'sqlite\\_%' ESCAPE '\\' "
        "ORDER BY _rowid_");
    Statement::Run run(statement);
    std::vector<std::string> names;
    while (nextRow(run, connection))
        names.emplace_back(run.text(0));
    return names;
}

std::vector<DeclaredColumn> declaredColumns(Connection& connection, const std::string& table) {
    Statement statement(connection,
                        "SELECT name, type, \"notnull\", dflt_value IS NOT NULL, dflt_value, pk, hidden "
                        "FROM pragma_table_xinfo(?1) ORDER BY cid");
    Statement::Run run(statement);
    run.bind(1, table);
    std::vector<DeclaredColumn> columns;
    while (nextRow(run, connection)) {
        DeclaredColumn column;
        column.name = run.text(0);
        column.type = run.text(1);
        column.notNull = run.number(2) != 0;
        if (run.number(3) != 0)
            column.defaultSql = run.text(4);
        column.primaryKey = run.number(5) != 0;
        column.generated = run.number(6) != 0;
        columns.push_back(std::move(column));
    }
    return columns;
}

bool isStrict(Connection& connection, const std::string& table) {
    Statement statement(connection,
                        "SELECT strict FROM pragma_table_list WHERE schema = 'main' AND name = ?1");
    Statement::Run run(statement);
    run.bind(1, table);
    return nextRow(run, connection) && run.number(0) != 0;
}

} // namespace store
