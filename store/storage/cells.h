#pragma once

#include "store/storage/schema.h"
#include "store/storage/sqlite.h"
#include "velta/protocol/wire.h"
#include "velta/value.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Cells between the wire and SQLite, which holds a counter as an unsigned number.
namespace store {

inline constexpr std::size_t textLimit = 4096; // bytes of one cell

// The number of a text of decimal digits with or without a minus in front, and nothing else.
std::optional<std::int64_t> wholeNumber(std::string_view text);
// Whether a number is one of that type.
bool fits(velta::Value::TypeCode type, std::int64_t number);

// Whether a cell of that type can hold the value.
bool acceptable(velta::Value::TypeCode type, const velta::Value& value);
// What a cell of that type takes, for a person: "a switch, 0 or 1".
const char* describe(velta::Value::TypeCode type);

// The value must be acceptable.
void bindValue(Statement::Run& run, int parameter, const velta::Value& value);

// Writes the cell in a column of a result. What a foreign hand left there is brought into the type's bounds.
void writeCell(velta::protocol::Writer& writer, velta::Value::TypeCode type, const Statement::Run& run,
               int column);

// The value as a literal in SQL.
std::string literal(const velta::Value& value);

// Text from outside, short and printable, for an error text or a log line.
std::string shown(std::string_view text);

} // namespace store
