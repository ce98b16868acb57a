#include "orv/utf8.h"

namespace orv::utf8 {

namespace {

unsigned byteAt(std::string_view text, std::size_t index) noexcept {
    return static_cast<unsigned char>(text[index]);
}

// A character's size, by its first byte; 0 if no character begins with that byte.
std::size_t sizeFrom(unsigned first) noexcept {
    if (first < 0x80)
        return 1;
    if (first >= 0xC2 && first < 0xE0)
        return 2;
    if (first >= 0xE0 && first < 0xF0)
        return 3;
    return first >= 0xF0 && first < 0xF5 ? 4 : 0;
}

// Overlong forms, halves of surrogate pairs, and codes above U+10FFFF.
bool isForbidden(unsigned first, unsigned second) noexcept {
    return (first == 0xE0 && second < 0xA0) || (first == 0xED && second >= 0xA0) ||
           (first == 0xF0 && second < 0x90) || (first == 0xF4 && second >= 0x90);
}

} // namespace

std::size_t characterSize(std::string_view text) noexcept {
    if (text.empty())
        return 0;
    const unsigned first = byteAt(text, 0);
    const std::size_t size = sizeFrom(first);
    if (size > text.size())
        return 0;
    for (std::size_t i = 1; i < size; ++i)
        if ((byteAt(text, i) & 0xC0) != 0x80)
            return 0;
    return size > 1 && isForbidden(first, byteAt(text, 1)) ? 0 : size;
}

bool isControl(std::string_view character) noexcept {
    const unsigned first = byteAt(character, 0);
    if (character.size() == 1)
        return first < 0x20 || first == 0x7F;
    return character.size() == 2 && first == 0xC2 && byteAt(character, 1) < 0xA0;
}

} // namespace orv::utf8
