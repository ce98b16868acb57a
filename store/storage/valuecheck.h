#pragma once

#include "store/storage/cells.h"
#include "store/storage/schema.h"
#include "store/storage/sqlite.h"
#include "velta/protocol/resultcode.h"
#include "velta/valuelist.h"

namespace store {

enum class Id { Fixed, Given };

// Whether these cells can be written to a row of the table: known columns, each once, with values of their
// kind.
velta::protocol::EResultCode checkCells(const Table& table, const velta::ValueList& values, Id id);

// Binds checked cells to the parameters that count as the columns do, from 1.
void bindCells(Statement::Run& run, const Table& table, const velta::ValueList& values);

} // namespace store
