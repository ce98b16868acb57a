#include "velta/celltype.h"

#include <limits>

namespace velta {

namespace {

struct NumberType {
    unsigned typeCode;
    Range range;
};

constexpr NumberType numberTypes[] = {
    {Value::Switch, {0, 1}},
    {Value::Integer, {std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()}},
    {Value::Counter, {0, std::numeric_limits<std::uint32_t>::max()}},
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
