#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tools::horactl {

// Takes a text apart from left to right. What does not match is left where it is.
class Scanner {
public:
    // The text outlives the scanner.
    explicit Scanner(std::string_view text) : rest_(text) {}

    std::string_view rest() const { return rest_; }
    bool atEnd() const { return rest_.empty(); }
    // How many digits come next.
    std::size_t digits() const;

    bool take(char expected);
    // Exactly so many digits, and no more behind them.
    bool takeDigits(std::size_t count, int& number);
    // All digits that come next; nothing where there are none, or more than 15.
    std::optional<std::int64_t> takeNumber();
    // The ASCII letters that come next.
    std::string_view takeWord();

private:
    std::string_view rest_;
};

} // namespace tools::horactl
