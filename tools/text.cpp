#include "tools/text.h"

#include "orv/utf8.h"
#include "velta/text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <optional>

namespace tools {

namespace {

constexpr std::size_t quotedLimit = 80; // bytes

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

std::string printable(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const std::optional<velta::Character> character = velta::firstCharacter(text);
        if (!character)
            result += hex("\\x%02x", static_cast<std::uint8_t>(text.front()));
        else if (orv::utf8::isControl(text.substr(0, character->bytes)) || turnsDirection(character->code) ||
                 character->code == U'\\')
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

std::string cut(std::string_view text, std::size_t columns) {
    constexpr std::string_view dots = "...";
    if (width(text) <= columns)
        return std::string(text);
    std::size_t bytes = 0;
    for (std::size_t left = columns > dots.size() ? columns - dots.size() : 0; left > 0; --left)
        bytes += velta::firstCharacter(text.substr(bytes)).value_or(velta::Character{0, 1}).bytes;
    return std::string(text.substr(0, bytes)) + std::string(dots);
}

std::string withoutControls(std::string json) {
    const auto isSuspect = [](char byte) { return byte == '\x7f' || byte == '\xc2'; };
    auto from = std::find_if(json.begin(), json.end(), isSuspect);
    if (from == json.end())
        return json;
    std::string result(json.begin(), from);
    for (std::string_view rest = std::string_view(json).substr(result.size()); !rest.empty();) {
        const velta::Character first = velta::firstCharacter(rest).value_or(velta::Character{U' ', 1});
        if (first.code >= 0x7f && orv::utf8::isControl(rest.substr(0, first.bytes)))
            result += hex("\\u%04x", static_cast<unsigned>(first.code));
        else
            result += rest.substr(0, first.bytes);
        rest.remove_prefix(first.bytes);
    }
    return result;
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

} // namespace tools
