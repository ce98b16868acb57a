#include "velta/text.h"

#include <charconv>
#include <system_error>

namespace velta {

namespace {

// A leading byte by its fixed bits, how many bytes follow, and the least character that needs so many.
struct Lead {
    std::uint8_t mask;
    std::uint8_t bits;
    std::size_t following;
    char32_t least;
};

constexpr Lead leads[] = {
    {0x80, 0x00, 0, 0},
    {0xe0, 0xc0, 1, 0x80},
    {0xf0, 0xe0, 2, 0x800},
    {0xf8, 0xf0, 3, 0x10000},
};

std::uint8_t byteAt(std::string_view text, std::size_t index) {
    return static_cast<std::uint8_t>(text[index]);
}

std::optional<Character> decodeAfter(const Lead& lead, std::string_view text) {
    if (text.size() <= lead.following)
        return std::nullopt;
    char32_t code = byteAt(text, 0) & static_cast<std::uint8_t>(~lead.mask);
    for (std::size_t i = 1; i <= lead.following; ++i) {
        if ((byteAt(text, i) & 0xc0) != 0x80)
            return std::nullopt;
        code = (code << 6) | (byteAt(text, i) & 0x3fU);
    }
    const bool surrogate = code >= 0xd800 && code <= 0xdfff;
    if (code < lead.least || code > 0x10ffff || surrogate)
        return std::nullopt;
    return Character{code, lead.following + 1};
}

} // namespace

std::optional<std::int64_t> wholeNumber(std::string_view text) {
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || rest != end)
        return std::nullopt;
    return number;
}

std::optional<Character> firstCharacter(std::string_view text) {
    if (text.empty())
        return std::nullopt;
    for (const Lead& lead : leads)
        if ((byteAt(text, 0) & lead.mask) == lead.bits)
            return decodeAfter(lead, text);
    return std::nullopt;
}

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::optional<Character> character = firstCharacter(text);
        if (!character)
            return false;
        text.remove_prefix(character->bytes);
    }
    return true;
}

bool isControl(char32_t code) {
    return code < 0x20 || (code >= 0x7f && code <= 0x9f);
}

} // namespace velta
