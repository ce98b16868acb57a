#pragma once

#include <cstddef>
#include <string_view>

namespace orv::utf8 {

// The number of bytes of the text's first character. 0 if the text is empty or does not begin with valid
// UTF-8: an overlong form, half of a surrogate pair, a code above U+10FFFF, or an incomplete character. Safe
// in a signal handler.
std::size_t characterSize(std::string_view text) noexcept;

// Whether that character controls a terminal: U+0000 to U+001F, U+007F, and U+0080 to U+009F.
bool isControl(std::string_view character) noexcept;

} // namespace orv::utf8
