#include "tools/horactl/scanner.h"

#include <algorithm>

namespace tools::horactl {

namespace {

constexpr std::size_t mostDigits = 15; // no number of them overflows

bool isDigit(char byte) {
    return byte >= '0' && byte <= '9';
}

bool isLetter(char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
}

template <typename Predicate>
std::size_t lengthOf(std::string_view text, Predicate predicate) {
    return static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), predicate) - text.begin());
}

} // namespace

std::size_t Scanner::digits() const {
    return lengthOf(rest_, isDigit);
}

bool Scanner::take(char expected) {
    if (rest_.empty() || rest_.front() != expected)
        return false;
    rest_.remove_prefix(1);
    return true;
}

bool Scanner::takeDigits(std::size_t count, int& number) {
    constexpr std::size_t mostDigitsOfInt = 9;
    if (count > mostDigitsOfInt || digits() != count)
        return false;
    number = static_cast<int>(takeNumber().value_or(0));
    return true;
}

std::optional<std::int64_t> Scanner::takeNumber() {
    const std::size_t count = digits();
    if (count == 0 || count > mostDigits)
        return std::nullopt;
    std::int64_t number = 0;
    for (const char digit : rest_.substr(0, count))
        number = number * 10 + (digit - '0');
    rest_.remove_prefix(count);
    return number;
}

std::string_view Scanner::takeWord() {
    const std::string_view word = rest_.substr(0, lengthOf(rest_, isLetter));
    rest_.remove_prefix(word.size());
    return word;
}

} // namespace tools::horactl
