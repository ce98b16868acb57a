#include "store/cluster/ovsdbvalue.h"

#include "store/storage/cells.h"
#include "velta/celltype.h"
#include "velta/text.h"

#include <cstdint>
#include <limits>
#include <utility>

namespace store {

using velta::Value;

namespace {

// None if it has over 64 bits, or is no integer.
std::optional<std::int64_t> integerIn(const Json& atom) {
    if (!atom.is_number_integer())
        return std::nullopt;
    if (atom.is_number_unsigned() && atom.get<std::uint64_t>() > std::numeric_limits<std::int64_t>::max())
        return std::nullopt;
    return atom.get<std::int64_t>();
}

std::optional<Value> cellIn(Value::TypeCode type, const Json& atom) {
    if (type == Value::Text) {
        if (!atom.is_string())
            return std::nullopt;
        Value value(type);
        value.setText(atom.get_ref<const std::string&>());
        return value;
    }
    const std::optional<std::int64_t> number = integerIn(atom);
    if (!number || !fits(velta::rangeOf(type), *number))
        return std::nullopt;
    return velta::numberValue(type, *number);
}

// What is wrong with a text that is not acceptable.
std::string complaintOfText(const std::string& text) {
    if (text.size() > textLimit)
        return "a text of " + std::to_string(text.size()) + " bytes, at most " + std::to_string(textLimit) +
               " are possible";
    if (text.find('\0') != std::string::npos)
        return "a text with a zero character";
    return "a text that is not UTF-8";
}

// What takes several values, none, or references is an array in JSON.
std::string shownAtom(const Json& atom) {
    if (atom.is_array() && atom.size() == 2 && atom[0].is_string())
        return "a " + shown(atom[0].get_ref<const std::string&>());
    return shown(atom.dump());
}

} // namespace

const char* ovsdbTypeOf(Value::TypeCode type) {
    return velta::isNumber(type) ? "integer" : "string";
}

std::optional<Json> atomOf(const Value& value, std::string& complaint) {
    if (velta::isNumber(value.type()))
        return Json(velta::numberIn(value));
    const std::string text = value.getText();
    if (value.type() == Value::Text && acceptable(Value::Text, value))
        return Json(text);
    complaint = value.type() == Value::Text ? complaintOfText(text) : "no value";
    return std::nullopt;
}

std::optional<Value> valueOf(const Column& column, const Json& atom, std::string& complaint) {
    std::optional<Value> value = cellIn(column.type, atom);
    if (!value)
        complaint = shownAtom(atom) + " is not " + descriptionOf(column.type);
    else if (!acceptable(column.type, *value))
        complaint = complaintOfText(value->getText());
    else if (!isWithin(column.kind, *value))
        complaint = complaintOf(column.kind, *value);
    else
        return value;
    return std::nullopt;
}

} // namespace store
