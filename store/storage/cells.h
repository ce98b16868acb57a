#pragma once

#include "store/storage/columnkind.h"
#include "store/storage/sqlite.h"
#include "velta/celltype.h"
#include "velta/protocol/wire.h"
#include "velta/value.h"

#include <cstdint>
#include <string>
#include <string_view>

// Cells between the wire and SQLite, which holds a counter as an unsigned number.
namespace store {

inline constexpr std::size_t textLimit = 4096; // bytes of one cell

inline constexpr std::int64_t leastId = 1; // that a new row may be given

bool fits(const velta::Range& range, std::int64_t number);
// Empty, or an hour, two digits of a minute, and two of a second where it has one: "8:30", "08:30:00". The
// day ends with 24:00.
bool isTimeOfDay(std::string_view text);

// Whether a cell of that type can hold the value.
bool acceptable(velta::Value::TypeCode type, const velta::Value& value);
// What a cell of that type takes, for a person: "a switch, 0 or 1".
std::string descriptionOf(velta::Value::TypeCode type);

// Whether a value that the column's type can hold is one of its kind: within its range, a time of day.
bool isWithin(const ColumnKind& kind, const velta::Value& value);
// Why it is not: "9 is not an integer from 0 to 7".
std::string complaintOf(const ColumnKind& kind, const velta::Value& value);

// The value must be acceptable.
void bindValue(Statement::Run& run, int parameter, const velta::Value& value);

// Writes the cell in a column of a result. What a foreign hand left there is brought into the type's bounds.
void writeCell(velta::protocol::Writer& writer, velta::Value::TypeCode type, const Statement::Run& run,
               int column);

// Whether writeCell() would write that value.
bool holds(velta::Value::TypeCode type, const Statement::Run& run, int column, const velta::Value& value);

// The value as a literal in SQL.
std::string literal(const velta::Value& value);

// Text from outside, short and printable, for an error text or a log line.
std::string shown(std::string_view text);

} // namespace store
