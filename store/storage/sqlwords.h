#pragma once

#include <optional>
#include <string>
#include <vector>

namespace store {

// Names in SQL are the same in capital and small letters.
bool sameName(const std::string& a, const std::string& b);

// The words of a text in SQL that stand outside of quotes and comments. Nothing when a comment is not closed.
std::optional<std::vector<std::string>> wordsOf(const std::string& sql);

} // namespace store
