#include "store/storage/cells.h"

#include "velta/text.h"

#include <algorithm>

namespace store {

using velta::Value;

namespace {

std::string_view textAt(const Statement::Run& run, int column) {
    return run.text(column).substr(0, textLimit);
}

std::int64_t numberAt(Value::TypeCode type, const Statement::Run& run, int column) {
    const velta::Range range = velta::rangeOf(type);
    return std::clamp(run.number(column), range.least, range.most);
}

} // namespace

bool fits(const velta::Range& range, std::int64_t number) {
    return number >= range.least && number <= range.most;
}

bool acceptable(Value::TypeCode type, const Value& value) {
    if (value.type() != type)
        return false;
    if (type != Value::Text)
        return fits(velta::rangeOf(type), velta::numberIn(value));
    const std::string text = value.getText();
    return text.size() <= textLimit && text.find('\0') == std::string::npos && velta::isUtf8(text);
}

std::string descriptionOf(Value::TypeCode type) {
    if (velta::isNumber(type))
        return velta::descriptionOf(type);
    return "a text in UTF-8 of at most " + std::to_string(textLimit) + " bytes";
}

bool isWithin(const ColumnKind& kind, const Value& value) {
    switch (kind.kind) {
    case Kind::Switch:
    case Kind::Integer:
    case Kind::Counter:
        return fits(kind.range, velta::numberIn(value));
    case Kind::Text:
        return true;
    case Kind::Time:
        return velta::isTimeOfDay(value.getText());
    }
    return false;
}

std::string complaintOf(const ColumnKind& kind, const Value& value) {
    if (kind.kind == Kind::Time)
        return '"' + shown(value.getText()) + "\" is not a time of day, HH:MM or HH:MM:SS";
    return std::to_string(velta::numberIn(value)) +
           (kind.kind == Kind::Counter ? " is not a counter from " : " is not an integer from ") +
           std::to_string(kind.range.least) + " to " + std::to_string(kind.range.most);
}

void bindValue(Statement::Run& run, int parameter, const Value& value) {
    if (value.type() == Value::Text)
        run.bind(parameter, value.getText());
    else
        run.bind(parameter, velta::numberIn(value));
}

void writeCell(velta::protocol::Writer& writer, Value::TypeCode type, const Statement::Run& run, int column) {
    writer.number8(static_cast<std::uint8_t>(type));
    if (type == Value::Text)
        writer.text(textAt(run, column));
    else
        writer.number32(static_cast<std::uint32_t>(numberAt(type, run, column)));
}

Value valueIn(Value::TypeCode type, const Statement::Run& run, int column) {
    if (type != Value::Text)
        return velta::numberValue(type, numberAt(type, run, column));
    Value value(type);
    value.setText(std::string(textAt(run, column)));
    return value;
}

bool holds(Value::TypeCode type, const Statement::Run& run, int column, const Value& value) {
    if (type == Value::Text)
        return textAt(run, column) == value.getText();
    return numberAt(type, run, column) == velta::numberIn(value);
}

std::string literal(const Value& value) {
    if (value.type() != Value::Text)
        return std::to_string(velta::numberIn(value));
    std::string sql = "'";
    for (const char c : value.getText())
        sql.append(c == '\'' ? 2 : 1, c);
    return sql + '\'';
}

std::string shown(std::string_view text) {
    constexpr std::size_t most = 64;
    std::string out(text.substr(0, most));
    for (char& c : out)
        if (c < ' ' || c > '~')
            c = '?';
    return text.size() > most ? out + "..." : out;
}

} // namespace store
