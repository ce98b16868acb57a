#pragma once

#include <string>

namespace tools {

// Nobody reads standard output any more: no failure, whoever stopped has what he wanted.
struct ReaderGone {};

// Writes the text to standard output at once. Throws Refused with the reason where that fails, ReaderGone.
void print(const std::string& text);

} // namespace tools
