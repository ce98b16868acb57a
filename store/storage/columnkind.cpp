#include "store/storage/columnkind.h"

#include "store/storage/sqlwords.h"
#include "velta/text.h"

#include <iterator>
#include <string_view>

namespace store {

using velta::Range;
using velta::Value;

namespace {

struct KindEntry {
    Kind kind;
    const char* name;
    Value::TypeCode type;
    const char* nameOfType;
};

constexpr KindEntry kinds[] = {
    {Kind::Switch, "SWITCH", Value::Switch, "SWITCH"},
    {Kind::Integer, "INTEGER", Value::Integer, "INTEGER"},
    {Kind::Counter, "COUNTER", Value::Counter, "COUNTER"},
    {Kind::Text, "TEXT", Value::Text, "TEXT"},
    // SQLite would convert the text "0330" in a column declared as TIME to the number 330.
    {Kind::Time, "TIME", Value::Text, "TEXT"},
};

constexpr bool areInOrder() {
    for (std::size_t i = 0; i < std::size(kinds); ++i)
        if (kinds[i].kind != static_cast<Kind>(i))
            return false;
    return std::size(kinds) == static_cast<std::size_t>(Kind::Time) + 1;
}
static_assert(areInOrder(), "a kind is the index of its entry");

const KindEntry& entryOf(Kind kind) {
    return kinds[static_cast<std::size_t>(kind)];
}

std::string_view trimmed(std::string_view text) {
    constexpr const char* blanks = " \t\r\n\f";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// Reads the text in the brackets: "0, 7".
std::optional<Range> rangeFrom(std::string_view text) {
    const std::size_t comma = text.find(',');
    if (comma == std::string_view::npos)
        return std::nullopt;
    const std::optional<std::int64_t> least = velta::wholeNumber(trimmed(text.substr(0, comma)));
    const std::optional<std::int64_t> most = velta::wholeNumber(trimmed(text.substr(comma + 1)));
    if (!least || !most || *least > *most)
        return std::nullopt;
    return Range{*least, *most};
}

bool hasOwnRange(Kind kind) {
    return kind == Kind::Integer || kind == Kind::Counter;
}

} // namespace

std::string ColumnKind::text() const {
    const Range whole = velta::rangeOf(typeOf(kind));
    if (range.least == whole.least && range.most == whole.most)
        return nameOf(kind);
    return std::string(nameOf(kind)) + '(' + std::to_string(range.least) + ", " + std::to_string(range.most) +
           ')';
}

std::optional<ColumnKind> columnKindOf(const std::string& declared) {
    const std::size_t bracket = declared.find('(');
    const std::string name(trimmed(std::string_view(declared).substr(0, bracket)));
    for (const KindEntry& entry : kinds) {
        if (!sameName(name, entry.name))
            continue;
        const Range whole = velta::rangeOf(entry.type);
        if (bracket == std::string::npos)
            return ColumnKind{entry.kind, whole};
        const std::string_view rest = trimmed(std::string_view(declared).substr(bracket + 1));
        if (!hasOwnRange(entry.kind) || rest.empty() || rest.back() != ')')
            return std::nullopt;
        const std::optional<Range> range = rangeFrom(rest.substr(0, rest.size() - 1));
        if (!range || range->least < whole.least || range->most > whole.most)
            return std::nullopt;
        return ColumnKind{entry.kind, *range};
    }
    return std::nullopt;
}

const char* nameOf(Kind kind) {
    return entryOf(kind).name;
}

Value::TypeCode typeOf(Kind kind) {
    return entryOf(kind).type;
}

const char* typeName(Value::TypeCode type) {
    for (const KindEntry& entry : kinds)
        if (entry.type == type)
            return entry.nameOfType;
    return "";
}

std::optional<Value::TypeCode> typeNamed(const std::string& name) {
    for (const KindEntry& entry : kinds)
        if (sameName(entry.nameOfType, name))
            return entry.type;
    return std::nullopt;
}

} // namespace store
