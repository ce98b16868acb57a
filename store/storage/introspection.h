#pragma once

#include "store/storage/sqlite.h"

#include <optional>
#include <string>
#include <vector>

// The tables and columns of a database, as SQLite describes them.
namespace store {

struct DeclaredColumn {
    std::string name;
    std::string type;
    bool notNull = false;
    std::optional<std::string> defaultSql;
    bool primaryKey = false;
    bool generated = false;
};

// In the order in which they were made, without SQLite's own tables. All functions throw StorageError.
std::vector<std::string> declaredTables(Connection& connection);
std::vector<DeclaredColumn> declaredColumns(Connection& connection, const std::string& table);
bool isStrict(Connection& connection, const std::string& table);

} // namespace store
