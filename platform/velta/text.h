#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Reads texts from outside: numbers, UTF-8 characters, and what to show of other bytes.
namespace velta {

// The number in a text that has only decimal digits and perhaps a minus in front. None if it is any other
// text, or the number has over 64 bits.
std::optional<std::int64_t> wholeNumber(std::string_view text);

// Whether the text is empty or a time of day: an hour, two digits of a minute and, if there is a second, two
// digits of it ("8:30", "08:30:00"). The latest time is 24:00.
bool isTimeOfDay(std::string_view text);

// Whether the text is strict UTF-8: no overlong forms, no halves of surrogate pairs, nothing above U+10FFFF.
// A zero byte is a character like any other.
bool isUtf8(std::string_view text);

struct Character {
    char32_t code;
    std::size_t bytes; // that it takes in the text
};

// None if the text is empty or does not begin with valid UTF-8.
std::optional<Character> firstCharacter(std::string_view text);

// The text on one line, safe to show: control characters become blanks, and bytes that are not UTF-8 become
// question marks.
std::string onOneLine(std::string_view text);

} // namespace velta
