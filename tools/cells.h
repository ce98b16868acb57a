#pragma once

#include "velta/protocol/message.h"
#include "velta/value.h"

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>

// Cells between the store and what a person or a program writes.
namespace tools {

// What a column's cells are: "a switch, 0 or 1".
std::string kindOf(unsigned typeCode);

// All throw Refused with the column's name and kind for what is no such value.
velta::Value cellFromText(const velta::protocol::ColumnInfo& column, const std::string& text);
velta::Value cellFromNumber(const velta::protocol::ColumnInfo& column, std::int64_t number);
// The column must be of texts; a number between quotes is none.
velta::Value cellFromQuotedText(const velta::protocol::ColumnInfo& column, const std::string& text);

// A text or a number.
nlohmann::ordered_json toJson(const velta::Value& value);
// One word for a line: a number, or a text, between quotes where it needs them.
std::string asWord(const velta::Value& value);
// Neither 0 nor the empty text.
bool saysSomething(const velta::Value& value);

constexpr int blanksALevel = 2; // of a document for a person

// The document on one line or, with `indent` blanks a level, on several. What is no UTF-8 is replaced, and no
// control character stands in it as it is.
std::string serialise(const nlohmann::ordered_json& document, int indent = -1);

} // namespace tools
