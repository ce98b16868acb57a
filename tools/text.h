#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Text from the store or a file, for a person's terminal.
namespace tools {

// The text with everything that could drive a terminal spelled out: control characters, bytes that are no
// UTF-8, marks that turn the direction of writing, and, so that no two texts look the same, the backslash.
std::string printable(std::string_view text);

// How many columns a printable text takes, one a character.
std::size_t width(std::string_view text);

// A printable text in so many columns: the end of a longer one becomes "...".
std::string cut(std::string_view text, std::size_t columns);

// Text in JSON with delete and C1 control characters, which JSON may hold as they are, spelled out as \u0080.
std::string withoutControls(std::string json);

// Printable, and between quotes where it would not be read as one word: "" or "two words".
std::string asWord(std::string_view text);

// Between quotes, for an error text: as it stands, cut where it is long.
std::string inQuotes(std::string_view text);

} // namespace tools
