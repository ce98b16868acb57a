#pragma once

#include <optional>
#include <string>
#include <vector>

namespace store {

// Whether two names are the same in SQL, which does not distinguish capital and small letters.
bool sameName(const std::string& a, const std::string& b);

// The words of an SQL text outside of quotes and comments. None if a comment is not closed.
std::optional<std::vector<std::string>> wordsOf(const std::string& sql);

} // namespace store
