#pragma once

#include "store/storage/schema.h"
#include "store/storage/sqlite.h"

#include <string>

namespace store {

// Makes the database match the schema: a new one gets all tables, an existing one the tables and columns that
// it lacks. Throws StorageError and leaves the file as it was if it is damaged, belongs to another program or
// to a newer version, or has tables that differ from the schema. `name` names it in errors.
void prepareDatabase(Connection& connection, const Schema& schema, const std::string& name);

// Commits the page with the file's header, without changing it. Throws StorageError.
void rewriteHeader(Connection& connection);

// Sets whether the log stays beside the database when the last connection closes.
void leaveLogOnClose(Connection& connection, bool leave);

} // namespace store
