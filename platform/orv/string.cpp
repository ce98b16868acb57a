#include "orv/string.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace orv::string {

namespace {

constexpr char whiteSpace[] = " \t\n\v\f\r";
constexpr std::int64_t lowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int64_t highest = std::numeric_limits<std::int32_t>::max();

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

} // namespace

int toInteger(std::string_view text) {
    std::size_t at = std::min(text.find_first_not_of(whiteSpace), text.size());
    const bool negative = at < text.size() && text[at] == '-';
    if (at < text.size() && (text[at] == '-' || text[at] == '+'))
        ++at;
    std::int64_t number = 0;
    for (; at < text.size() && isDigit(text[at]); ++at)
        number = std::min(number * 10 + (text[at] - '0'), -lowest);
    return static_cast<int>(std::clamp(negative ? -number : number, lowest, highest));
}

void SeparatedStringtoList(const std::string& text, std::list<std::string>& parts, char separator) {
    if (text.empty())
        return;
    std::size_t begin = 0;
    std::size_t end = text.find(separator);
    while (end != std::string::npos) {
        parts.push_back(text.substr(begin, end - begin));
        begin = end + 1;
        end = text.find(separator, begin);
    }
    parts.push_back(text.substr(begin));
}

void SeparatedStringtoMap(const std::string& text, std::map<std::string, std::string>& pairs,
                          char keyValueSeparator, char pairSeparator) {
    std::list<std::string> parts;
    SeparatedStringtoList(text, parts, pairSeparator);
    for (const std::string& part : parts) {
        const std::size_t middle = std::min(part.find(keyValueSeparator), part.size());
        if (!part.empty())
            pairs[part.substr(0, middle)] = middle < part.size() ? part.substr(middle + 1) : std::string();
    }
}

} // namespace orv::string
