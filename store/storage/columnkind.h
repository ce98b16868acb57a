#pragma once

#include "velta/celltype.h"
#include "velta/value.h"

#include <optional>
#include <string>

namespace store {

// A column's type as the schema names it. It is finer than the types on the wire and in the file.
enum class Kind { Switch, Integer, Counter, Text, Time };

struct ColumnKind {
    Kind kind = Kind::Text;
    velta::Range range{0, 0}; // if the kind is a number

    // "INTEGER(0, 7)"
    std::string text() const;
};

// The kind of a type as a schema declares it, "TEXT" or "INTEGER(0, 7)", in capital or small letters.
std::optional<ColumnKind> columnKindOf(const std::string& declared);

const char* nameOf(Kind kind);
// The type on the wire. The file declares the column with that type's name.
velta::Value::TypeCode typeOf(Kind kind);
const char* typeName(velta::Value::TypeCode type);
std::optional<velta::Value::TypeCode> typeNamed(const std::string& name);

} // namespace store
