#include "tools/cells.h"

#include "tools/errors.h"
#include "tools/text.h"

#include <charconv>
#include <optional>

namespace cfgctl {

using velta::Value;
using velta::protocol::ColumnInfo;

namespace {

struct Kind {
    unsigned typeCode;
    const char* text;
    bool isNumber;
    std::int64_t least;
    std::int64_t most;
};

constexpr Kind kinds[] = {
    {Value::Switch, "a switch, 0 or 1", true, 0, 1},
    {Value::Integer, "an integer, -2147483648 to 2147483647", true, INT32_MIN, INT32_MAX},
    {Value::Counter, "a counter, 0 to 4294967295", true, 0, UINT32_MAX},
    {Value::Text, "a text", false, 0, 0},
};
constexpr Kind unknownKind = {Value::None, "of a kind known here", false, 0, 0};

const Kind& kind(unsigned typeCode) {
    for (const Kind& entry : kinds)
        if (entry.typeCode == typeCode)
            return entry;
    return unknownKind;
}

Refused notOfKind(const ColumnInfo& column, const std::string& what) {
    return Refused(column.name + ": " + what + " is not " + kindOf(column.type));
}

std::optional<std::int64_t> wholeNumber(const std::string& text) {
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || rest != end)
        return std::nullopt;
    return number;
}

std::optional<Value> numberCell(const ColumnInfo& column, std::int64_t number) {
    const Kind& limits = kind(column.type);
    if (!limits.isNumber || number < limits.least || number > limits.most)
        return std::nullopt;
    Value value(column.type);
    value.setInteger(static_cast<std::int32_t>(static_cast<std::uint32_t>(number)));
    return value;
}

Value textCell(const std::string& text) {
    Value value(Value::Text);
    value.setText(text);
    return value;
}

} // namespace

const char* kindOf(unsigned typeCode) {
    return kind(typeCode).text;
}

Value cellFromText(const ColumnInfo& column, const std::string& text) {
    if (column.type == Value::Text)
        return textCell(text);
    const std::optional<std::int64_t> number = wholeNumber(text);
    const std::optional<Value> value = number ? numberCell(column, *number) : std::nullopt;
    if (!value)
        throw notOfKind(column, inQuotes(text));
    return *value;
}

Value cellFromNumber(const ColumnInfo& column, std::int64_t number) {
    const std::optional<Value> value = numberCell(column, number);
    if (!value)
        throw notOfKind(column, "the number " + std::to_string(number));
    return *value;
}

Value cellFromQuotedText(const ColumnInfo& column, const std::string& text) {
    if (column.type != Value::Text)
        throw notOfKind(column, "the text " + inQuotes(text));
    return textCell(text);
}

nlohmann::ordered_json toJson(const Value& value) {
    if (!kind(value.type()).isNumber)
        return value.getText();
    if (value.type() == Value::Counter)
        return static_cast<std::uint32_t>(value.getInteger());
    return value.getInteger();
}

std::string asWord(const Value& value) {
    return kind(value.type()).isNumber ? value.getText() : asWord(value.getText());
}

bool saysSomething(const Value& value) {
    return kind(value.type()).isNumber ? value.getInteger() != 0 : !value.getText().empty();
}

std::string serialise(const nlohmann::ordered_json& document, int indent) {
    return document.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

} // namespace cfgctl
