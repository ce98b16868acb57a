#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace store {

// Whether two names are the same in SQL, which does not distinguish capital and small letters.
bool sameName(const std::string& a, const std::string& b);

// A piece of an SQL text outside of comments. A text or name in quotes is one piece; where quotes in it are
// doubled, it is several.
struct SqlToken {
    enum class Kind { Word, Quoted, Sign };
    Kind kind;
    std::size_t begin;
    std::size_t end;
};

// The pieces of an SQL text in their order. None if a comment is not closed.
std::optional<std::vector<SqlToken>> tokensOf(const std::string& sql);
// The words of an SQL text outside of quotes and comments. None if a comment is not closed.
std::optional<std::vector<std::string>> wordsOf(const std::string& sql);

} // namespace store
