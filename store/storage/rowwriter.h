#pragma once

#include "store/storage/rows.h"
#include "store/storage/schema.h"
#include "store/storage/sqlite.h"

namespace store {

// Appends the run's current row, with the table's columns in their order.
void appendRow(Rows& rows, const Table& table, const Statement::Run& run);

} // namespace store
