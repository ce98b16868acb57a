#include "tools/text.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <optional>

namespace cfgctl {

namespace {

constexpr std::size_t quotedLimit = 80; // bytes

struct Character {
    char32_t code;
    std::size_t bytes;
};

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

// The first character of a text that is not empty; none where its bytes are no UTF-8.
std::optional<Character> firstCharacter(std::string_view text) {
    for (const Lead& lead : leads)
        if ((byteAt(text, 0) & lead.mask) == lead.bits)
            return decodeAfter(lead, text);
    return std::nullopt;
}

bool isControl(char32_t code) {
    return code < 0x20 || (code >= 0x7f && code <= 0x9f);
}

bool turnsDirection(char32_t code) {
    return code == 0x061c || code == 0x200e || code == 0x200f || (code >= 0x2028 && code <= 0x202e) ||
           (code >= 0x2066 && code <= 0x2069);
}

std::string hex(const char* format, unsigned number) {
    std::array<char, 16> text;
    (void)std::snprintf(text.data(), text.size(), format, number); // as long as the formats here make it
    return text.data();
}

std::string spelledOut(char32_t code) {
    switch (code) {
    case U'\n':
        return "\\n";
    case U'\r':
        return "\\r";
    case U'\t':
        return "\\t";
    case U'\\':
        return "\\\\";
    default:
        return hex(code < 0x80 ? "\\x%02x" : "\\u%04x", static_cast<unsigned>(code));
    }
}

} // namespace

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::optional<Character> character = firstCharacter(text);
        if (!character)
            return false;
        text.remove_prefix(character->bytes);
    }
    return true;
}

std::string printable(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const std::optional<Character> character = firstCharacter(text);
        if (!character)
            result += hex("\\x%02x", byteAt(text, 0));
        else if (isControl(character->code) || turnsDirection(character->code) || character->code == U'\\')
            result += spelledOut(character->code);
        else
            result += text.substr(0, character->bytes);
        text.remove_prefix(character ? character->bytes : 1);
    }
    return result;
}

std::size_t width(std::string_view text) {
    std::size_t columns = 0;
    for (const char byte : text)
        if ((static_cast<std::uint8_t>(byte) & 0xc0) != 0x80)
            ++columns;
    return columns;
}

std::string asWord(std::string_view text) {
    if (!text.empty() && text.find_first_of(" \"") == std::string_view::npos)
        return printable(text);
    std::string result = "\"";
    for (const char byte : printable(text)) {
        if (byte == '"')
            result += '\\';
        result += byte;
    }
    return result + '"';
}

std::string inQuotes(std::string_view text) {
    const bool cut = text.size() > quotedLimit;
    return '"' + std::string(text.substr(0, quotedLimit)) + (cut ? "...\"" : "\"");
}

} // namespace cfgctl
