#pragma once

#include <string>
#include <string_view>

// Text for SVG and HTML.
namespace tools::horactl {

// Made safe for the content of an element and for an attribute between double quotes. What may not stand in
// XML at all becomes U+FFFD; bytes that are no UTF-8 do, too.
std::string escaped(std::string_view text);

// With one digit behind the point, and none where that is 0: "12", "12.5". Whatever the locale.
std::string shortNumber(double number);

// The same: one attribute, with a blank in front.
std::string attribute(const char* name, std::string_view value);
std::string attribute(const char* name, double value);

} // namespace tools::horactl
