#pragma once

#include <cstddef>
#include <string_view>

namespace orv::utf8 {

// How many bytes the character takes that a text begins with. 0 where the text is empty or begins with bytes
// that are no UTF-8: a form that is longer than need be, half of a surrogate pair, more than U+10FFFF, or a
// character cut short. Safe in a signal handler.
std::size_t characterSize(std::string_view text) noexcept;

// Whether that character controls a terminal: U+0000 to U+001F, U+007F, and U+0080 to U+009F.
bool isControl(std::string_view character) noexcept;

} // namespace orv::utf8
