#pragma once

#include "velta/celltype.h"
#include "velta/value.h"

#include <optional>
#include <string>

namespace store {

// What a schema calls a column's type. It says more than the type on the wire and in the file does.
enum class Kind { Switch, Integer, Counter, Text, Time };

struct ColumnKind {
    Kind kind = Kind::Text;
    velta::Range range{0, 0}; // of a kind of numbers

    // "INTEGER(0, 7)"
    std::string text() const;
};

// The kind of a type as a schema has it, "TEXT" or "INTEGER(0, 7)", in any case of letters.
std::optional<ColumnKind> columnKindOf(const std::string& declared);

const char* nameOf(Kind kind);
// On the wire; a file has the column declared with the name of that type.
velta::Value::TypeCode typeOf(Kind kind);
const char* typeName(velta::Value::TypeCode type);
std::optional<velta::Value::TypeCode> typeNamed(const std::string& name);

} // namespace store
