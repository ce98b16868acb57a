#pragma once

#include "store/storage/schema.h"
#include "store/storage/sqlite.h"

#include <string>

namespace store {

// Makes a database hold what the schema says: a new one gets all of it, an existing one the tables and
// columns that it lacks. Throws StorageError and leaves the file as it was where that can't be: a damaged
// file, another program's, a newer one's, or one whose tables differ from the schema. `name` names it in
// errors.
void prepareDatabase(Connection& connection, const Schema& schema, const std::string& name);

// Commits the page with the header of the file as it is. Throws StorageError.
void rewriteHeader(Connection& connection);

// Whether the log stays beside the database when the last connection closes.
void leaveLogOnClose(Connection& connection, bool leave);

} // namespace store
