#pragma once

#include "velta/value.h"

#include <cstdint>
#include <string>

// The numbers that a cell may hold, by its type code. A counter is unsigned here, though its bits travel in a
// signed integer.
namespace velta {

struct Range {
    std::int64_t least;
    std::int64_t most;
};

// Whether cells of that type are numbers.
bool isNumber(unsigned typeCode);
// Of a type that is a number; every other holds 0 alone.
Range rangeOf(unsigned typeCode);
// For a person, of a type that is a number: "a switch, 0 or 1".
std::string descriptionOf(unsigned typeCode);

// The number in a value of a type that is one.
std::int64_t numberIn(const Value& value);
// The value of that type, which must be one of numbers; the number is within its range.
Value numberValue(unsigned typeCode, std::int64_t number);

} // namespace velta
