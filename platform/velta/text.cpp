#include "velta/text.h"

#include "orv/utf8.h"

#include <algorithm>
#include <charconv>
#include <system_error>

namespace velta {

namespace {

constexpr std::int64_t lastHour = 23;

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// Takes ":00" to ":59" off the front of the text. False if it does not begin so.
bool takeSixtieth(std::string_view& text) {
    if (text.size() < 3 || text[0] != ':' || text[1] < '0' || text[1] > '5' || !isDigit(text[2]))
        return false;
    text.remove_prefix(3);
    return true;
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

bool isTimeOfDay(std::string_view text) {
    if (text.empty() || text == "24:00" || text == "24:00:00")
        return true;
    const std::size_t digits = text.find(':');
    if (digits == 0 || digits > 2 ||
        !std::all_of(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(digits), isDigit))
        return false;
    if (wholeNumber(text.substr(0, digits)).value_or(lastHour + 1) > lastHour)
        return false;
    text.remove_prefix(digits);
    return takeSixtieth(text) && (text.empty() || takeSixtieth(text)) && text.empty();
}

std::optional<Character> firstCharacter(std::string_view text) {
    const std::size_t size = orv::utf8::characterSize(text);
    if (size == 0)
        return std::nullopt;
    char32_t code = static_cast<std::uint8_t>(text[0]);
    if (size > 1)
        code &= 0xffU >> (size + 1); // without the bits that tell the size
    for (const char byte : text.substr(1, size - 1))
        code = (code << 6) | (static_cast<std::uint8_t>(byte) & 0x3fU);
    return Character{code, size};
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

std::string onOneLine(std::string_view text) {
    std::string line;
    while (!text.empty()) {
        const std::optional<Character> character = firstCharacter(text);
        const std::size_t bytes = character ? character->bytes : 1;
        if (!character)
            line += '?';
        else if (orv::utf8::isControl(text.substr(0, bytes)))
            line += ' ';
        else
            line += text.substr(0, bytes);
        text.remove_prefix(bytes);
    }
    return line;
}

} // namespace velta
