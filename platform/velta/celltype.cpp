#include "velta/celltype.h"

#include <limits>

namespace velta {

namespace {

struct NumberType {
    unsigned typeCode;
    Range range;
    const char* name;
    const char* between; // what stands between the least and the most
};

using Integers = std::numeric_limits<std::int32_t>;
using Counters = std::numeric_limits<std::uint32_t>;

constexpr NumberType numberTypes[] = {
    {Value::Switch, {0, 1}, "a switch", " or "},
    {Value::Integer, {Integers::min(), Integers::max()}, "an integer", " to "},
    {Value::Counter, {Counters::min(), Counters::max()}, "a counter", " to "},
};

const NumberType* find(unsigned typeCode) {
    for (const NumberType& type : numberTypes)
        if (type.typeCode == typeCode)
            return &type;
    return nullptr;
}

} // namespace

bool isNumber(unsigned typeCode) {
    return find(typeCode) != nullptr;
}

Range rangeOf(unsigned typeCode) {
    const NumberType* const type = find(typeCode);
    return type != nullptr ? type->range : Range{0, 0};
}

std::string descriptionOf(unsigned typeCode) {
    const NumberType* const type = find(typeCode);
    if (type == nullptr)
        return "no number";
    return std::string(type->name) + ", " + std::to_string(type->range.least) + type->between +
           std::to_string(type->range.most);
}

std::int64_t numberIn(const Value& value) {
    const std::int32_t number = value.getInteger();
    return value.type() == Value::Counter ? std::int64_t{static_cast<std::uint32_t>(number)} : number;
}

Value numberValue(unsigned typeCode, std::int64_t number) {
    Value value(typeCode);
    value.setInteger(static_cast<std::int32_t>(static_cast<std::uint32_t>(number)));
    return value;
}

} // namespace velta
