#pragma once

#include "store/storage/sqlite.h"

#include <optional>
#include <string>
#include <vector>

// What tables a connection has, as SQLite tells it.
namespace store {

struct DeclaredColumn {
    std::string name;
    std::string type;
    bool notNull = false;
    std::optional<std::string> defaultSql;
    bool primaryKey = false;
    bool generated = false;
};

// In the order in which they were made, SQLite's own tables left out. All throw StorageError.
std::vector<std::string> declaredTables(Connection& connection);
std::vector<DeclaredColumn> declaredColumns(Connection& connection, const std::string& table);
bool isStrict(Connection& connection, const std::string& table);

} // namespace store
