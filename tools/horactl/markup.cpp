#include "tools/horactl/markup.h"

#include "velta/text.h"

#include <cmath>
#include <cstdlib>
#include <optional>

namespace tools::horactl {

namespace {

constexpr const char* replacement = "\xef\xbf\xbd"; // U+FFFD

bool isXml(char32_t code) {
    return (code >= 0x20 || code == U'\n' || code == U'\t') && code != 0xfffe && code != 0xffff;
}

// Null for a character that stands for itself.
const char* entityOf(char32_t code) {
    switch (code) {
    case U'&':
        return "&amp;";
    case U'<':
        return "&lt;";
    case U'>':
        return "&gt;";
    case U'"':
        return "&quot;";
    case U'\'':
        return "&#39;";
    default:
        return nullptr;
    }
}

} // namespace

std::string escaped(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const std::optional<velta::Character> next = velta::firstCharacter(text);
        const std::size_t bytes = next ? next->bytes : 1;
        const char* const entity = next ? entityOf(next->code) : nullptr;
        if (!next || !isXml(next->code))
            result += replacement;
        else if (entity != nullptr)
            result += entity;
        else
            result += text.substr(0, bytes);
        text.remove_prefix(bytes);
    }
    return result;
}

std::string shortNumber(double number) {
    const long long tenths = std::llround(number * 10);
    std::string text = (tenths < 0 ? "-" : "") + std::to_string(std::abs(tenths / 10));
    if (tenths % 10 != 0)
        text += "." + std::to_string(std::abs(tenths % 10));
    return text;
}

std::string attribute(const char* name, std::string_view value) {
    return std::string(" ") + name + "=\"" + escaped(value) + "\"";
}

std::string attribute(const char* name, double value) {
    return attribute(name, shortNumber(value));
}

} // namespace tools::horactl
