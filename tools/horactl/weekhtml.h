#pragma once

#include "tools/horactl/week.h"

#include <string>

namespace tools::horactl {

// A week as a page in one file: no script, nothing from elsewhere, in light and dark, for wide screens and
// phones. The same stands in a table for those who can't see the picture.
std::string htmlOf(const WeekPicture& picture);

} // namespace tools::horactl
