#include "store/storage/databaseformat.h"

#include "store/storage/cells.h"
#include "store/storage/introspection.h"

#include <algorithm>
#include <vector>

namespace store {

namespace {

constexpr std::int64_t applicationId = 0x48524346; // "HRCF", in the header of each database of ours
constexpr std::int64_t formatVersion = 1;
constexpr const char* pageSize = "2048";    // bytes; a commit writes each page that it changed
constexpr const char* walLimit = "4194304"; // bytes of its file that a log keeps when it starts over

void checkOrigin(Connection& connection) {
    const std::int64_t application = connection.number("PRAGMA application_id");
    const std::int64_t version = connection.number("PRAGMA user_version");
    const bool empty = connection.number("SELECT count(*) FROM sqlite_schema") == 0;
    if (application == 0 && version == 0 && empty)
        return;
    if (application != applicationId)
        throw StorageError("belongs to another program");
    if (version != formatVersion)
        throw StorageError("has format " + std::to_string(version) + ", this server knows format " +
                           std::to_string(formatVersion));
    std::string damage = connection.text("PRAGMA quick_check(1)");
    std::replace(damage.begin(), damage.end(), '\n', ' '); // the report has several lines
    if (damage != "ok")
        throw StorageError("is damaged: " + damage);
}

std::string definition(const Column& column) {
    if (column.name == idColumn)
        return quoted(column.name) + " INTEGER PRIMARY KEY";
    return quoted(column.name) + ' ' + typeName(column.type) + " NOT NULL DEFAULT " +
           literal(column.defaultValue);
}

std::string createTable(const Table& table) {
    std::string columns;
    for (const Column& column : table.columns)
        columns += (columns.empty() ? "" : ", ") + definition(column);
    return "CREATE TABLE " + quoted(table.name) + " (" + columns + ")";
}

void checkKnown(const Table& table, const DeclaredColumn& declared) {
    const std::string name = table.name + '.' + declared.name;
    const std::optional<std::size_t> index = table.indexOf(declared.name);
    if (!index)
        throw StorageError("has the column " + name +
                           ", which the schema lacks; is the schema older than it?");
    const Column& column = table.columns[*index];
    if (typeNamed(declared.type) != column.type || declared.primaryKey != (column.name == idColumn))
        throw StorageError("has the column " + name + " as " + declared.type + ", the schema has it as " +
                           typeName(column.type));
}

// The changes that an existing table needs.
void compareTable(const Table& table, const std::vector<DeclaredColumn>& declared,
                  std::vector<std::string>& changes) {
    for (const DeclaredColumn& column : declared)
        checkKnown(table, column);
    for (const Column& column : table.columns) {
        const bool there =
            std::any_of(declared.begin(), declared.end(),
                        [&column](const DeclaredColumn& other) { return other.name == column.name; });
        if (there)
            continue;
        if (column.name == idColumn)
            throw StorageError("has the table " + table.name + " without \"Id\", the schema has it with one");
        changes.push_back("ALTER TABLE " + quoted(table.name) + " ADD COLUMN " + definition(column));
    }
}

std::vector<std::string> changesTo(Connection& connection, const Schema& schema) {
    const std::vector<std::string> present = declaredTables(connection);
    std::vector<std::string> changes;
    for (const Table& table : schema.tables()) {
        if (std::find(present.begin(), present.end(), table.name) != present.end())
            compareTable(table, declaredColumns(connection, table.name), changes);
        else
            changes.push_back(createTable(table));
    }
    return changes;
}

// The changes that make the row of each single-row table that lacks it, new tables included.
std::vector<std::string> rowsToMake(Connection& connection, const Schema& schema) {
    std::vector<std::string> changes;
    for (const Table& table : schema.tables())
        if (table.singleRow() &&
            connection.number("SELECT count(*) FROM " + quoted(table.name) + " WHERE _rowid_ = 1") == 0)
            changes.push_back("INSERT INTO " + quoted(table.name) + " (_rowid_) VALUES (1)");
    return changes;
}

void change(Connection& connection, const Schema& schema) {
    for (const std::string& sql : changesTo(connection, schema))
        connection.execute(sql);
    for (const std::string& sql : rowsToMake(connection, schema))
        connection.execute(sql);
    if (connection.number("PRAGMA application_id") == applicationId)
        return;
    connection.execute("PRAGMA application_id = " + std::to_string(applicationId));
    connection.execute("PRAGMA user_version = " + std::to_string(formatVersion));
}

void changeInOneTransaction(Connection& connection, const Schema& schema) {
    connection.execute("BEGIN IMMEDIATE");
    try {
        change(connection, schema);
        connection.execute("COMMIT");
    } catch (const StorageError&) {
        (void)sqlite3_exec(connection.handle(), "ROLLBACK", nullptr, nullptr,
                           nullptr); // the first error counts
        throw;
    }
}

void prepare(Connection& connection, const Schema& schema) {
    // Until the file proves to be ours it is only read: SQLite must not move a log into it either.
    leaveLogOnClose(connection, true);
    checkOrigin(connection);
    (void)changesTo(connection, schema);
    leaveLogOnClose(connection, false);
    connection.execute(std::string("PRAGMA page_size = ") + pageSize); // of a new file
    if (connection.text("PRAGMA journal_mode = WAL") != "wal")
        throw StorageError("can't keep a write-ahead log where it lies");
    connection.execute("PRAGMA synchronous = FULL");
    connection.execute(std::string("PRAGMA journal_size_limit = ") + walLimit);
    changeInOneTransaction(connection, schema);
}

} // namespace

void rewriteHeader(Connection& connection) {
    connection.execute("PRAGMA user_version = " + std::to_string(formatVersion));
}

void leaveLogOnClose(Connection& connection, bool leave) {
    sqlite3_db_config(connection.handle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, leave ? 1 : 0, nullptr);
}

void prepareDatabase(Connection& connection, const Schema& schema, const std::string& name) {
    try {
        prepare(connection, schema);
    } catch (const StorageError& error) {
        throw StorageError("database " + name + ": " + error.what());
    }
}

} // namespace store
