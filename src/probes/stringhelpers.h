#pragma once

#include <string>

namespace orv {

// Leaves one blank of every run of blanks and tabs.
void replaceDoubleSpaces(std::string& text);

namespace string {

// White space is what isspace() says.
void ltrim(std::string& text);
void rtrim(std::string& text);

} // namespace string

} // namespace orv
