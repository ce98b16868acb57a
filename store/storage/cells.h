#pragma once

#include "store/storage/columnkind.h"
#include "store/storage/sqlite.h"
#include "velta/celltype.h"
#include "velta/protocol/wire.h"
#include "velta/value.h"

#include <cstdint>
#include <string>
#include <string_view>

// Checks cells and converts them between the wire and SQLite, which holds a counter as an unsigned number.
namespace store {

inline constexpr std::size_t textLimit = 4096; // bytes of one cell

inline constexpr std::int64_t leastId = 1; // of a new row

bool fits(const velta::Range& range, std::int64_t number);

// Whether a cell of that type can hold the value.
bool acceptable(velta::Value::TypeCode type, const velta::Value& value);
// What a cell of that type can hold, as a text for people: "a switch, 0 or 1".
std::string descriptionOf(velta::Value::TypeCode type);

// Whether a value that the column's type can hold also fits its kind: it is within the range, or a time of
// day.
bool isWithin(const ColumnKind& kind, const velta::Value& value);
// Why it is not: "9 is not an integer from 0 to 7".
std::string complaintOf(const ColumnKind& kind, const velta::Value& value);

// The value must be acceptable.
void bindValue(Statement::Run& run, int parameter, const velta::Value& value);

// Writes a column of the result's row as a cell. A value out of the type's bounds, which only another program
// can have stored, is brought within them.
void writeCell(velta::protocol::Writer& writer, velta::Value::TypeCode type, const Statement::Run& run,
               int column);

// The value that writeCell() would write.
velta::Value valueIn(velta::Value::TypeCode type, const Statement::Run& run, int column);

// Whether writeCell() would write that value.
bool holds(velta::Value::TypeCode type, const Statement::Run& run, int column, const velta::Value& value);

// The value as a literal in SQL.
std::string literal(const velta::Value& value);

// Text from outside, short and printable, for an error text or a log line.
std::string shown(std::string_view text);

} // namespace store
