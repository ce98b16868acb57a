#pragma once

#include "velta/value.h"

#include <cstdint>
#include <string>

// The numbers that a cell may hold, by its type code. A counter is unsigned here; on the wire its bits are
// sent as a signed integer.
namespace velta {

struct Range {
    std::int64_t least;
    std::int64_t most;
};

// Whether cells of that type are numbers.
bool isNumber(unsigned typeCode);
// The range of a numeric type; of any other type, 0 to 0.
Range rangeOf(unsigned typeCode);
// Describes a numeric type for people: "a switch, 0 or 1".
std::string descriptionOf(unsigned typeCode);

// The number in a value of a numeric type.
std::int64_t numberIn(const Value& value);
// A value of that type, which must be numeric. The number must be within its range.
Value numberValue(unsigned typeCode, std::int64_t number);

} // namespace velta
