#pragma once

#include "tools/horactl/week.h"

#include <string>

namespace tools::horactl {

// A week as an SVG file of its own, in light and dark.
std::string svgOf(const WeekPicture& picture);

} // namespace tools::horactl
