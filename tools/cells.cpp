#include "tools/cells.h"

#include "tools/errors.h"
#include "tools/text.h"
#include "velta/celltype.h"
#include "velta/text.h"

#include <nlohmann/json.hpp>
#include <optional>

namespace tools {

using velta::Value;
using velta::protocol::ColumnInfo;

namespace {

Refused notOfKind(const ColumnInfo& column, const std::string& what) {
    return Refused(column.name + ": " + what + " is not " + kindOf(column.type));
}

std::optional<Value> numberCell(const ColumnInfo& column, std::int64_t number) {
    const velta::Range range = velta::rangeOf(column.type);
    if (!velta::isNumber(column.type) || number < range.least || number > range.most)
        return std::nullopt;
    return velta::numberValue(column.type, number);
}

Value textCell(const std::string& text) {
    Value value(Value::Text);
    value.setText(text);
    return value;
}

} // namespace

std::string kindOf(unsigned typeCode) {
    if (velta::isNumber(typeCode))
        return velta::descriptionOf(typeCode);
    return typeCode == Value::Text ? "a text" : "of a kind known here";
}

Value cellFromText(const ColumnInfo& column, const std::string& text) {
    if (column.type == Value::Text)
        return textCell(text);
    const std::optional<std::int64_t> number = velta::wholeNumber(text);
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
    if (!velta::isNumber(value.type()))
        return value.getText();
    return velta::numberIn(value);
}

std::string asWord(const Value& value) {
    return velta::isNumber(value.type()) ? value.getText() : asWord(value.getText());
}

bool saysSomething(const Value& value) {
    return velta::isNumber(value.type()) ? value.getInteger() != 0 : !value.getText().empty();
}

std::string serialise(const nlohmann::ordered_json& document, int indent) {
    return withoutControls(
        document.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}

} // namespace tools
