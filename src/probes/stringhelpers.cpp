#include "probes/stringhelpers.h"

#include <algorithm>
#include <cctype>

namespace orv {

namespace {

bool isNoSpace(unsigned char character) {
    return std::isspace(character) == 0;
}

} // namespace

void replaceDoubleSpaces(std::string& text) {
    std::replace(text.begin(), text.end(), '\t', ' ');
    const auto bothBlank = [](char left, char right) { return left == ' ' && right == ' '; };
    text.erase(std::unique(text.begin(), text.end(), bothBlank), text.end());
}

void string::ltrim(std::string& text) {
    text.erase(text.begin(), std::find_if(text.begin(), text.end(), isNoSpace));
}

void string::rtrim(std::string& text) {
    text.erase(std::find_if(text.rbegin(), text.rend(), isNoSpace).base(), text.end());
}

} // namespace orv
