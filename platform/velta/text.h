#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// What a text from outside holds: a number, characters, or bytes that are neither.
namespace velta {

// The number of a text of decimal digits, with or without a minus in front, and nothing else. None where it
// has over 64 bits.
std::optional<std::int64_t> wholeNumber(std::string_view text);

// UTF-8 in its strict form: no longer forms than need be, no halves of surrogate pairs, nothing above
// U+10FFFF. A zero byte is a character like any other.
bool isUtf8(std::string_view text);

struct Character {
    char32_t code;
    std::size_t bytes; // that it takes in the text
};

// None where the text is empty, or does not begin with a character in UTF-8.
std::optional<Character> firstCharacter(std::string_view text);

// The text on one line, as a person may see it: control characters become blanks, bytes that are no UTF-8
// question marks.
std::string onOneLine(std::string_view text);

} // namespace velta
