#pragma once

#include "tools/horactl/week.h"

#include <cstddef>
#include <string>

namespace tools::horactl {

// What a terminal can show.
struct BarStyle {
    std::size_t width = 80; // characters on a line; fewer than 40 are taken as 40
    bool utf8 = false;      // block characters, and names that are not ASCII
    bool colours = false;
};

// That of standard output. Colours are for a terminal only, and for nobody who set NO_COLOR; characters are
// those of the user's locale.
BarStyle styleOfStandardOutput();

// A week as bars, one line a day: when the WLAN is on, and which plan makes it so; beneath each day what else
// there is to see. A table of plans that have nothing to do with the WLAN is shown the same way behind it.
std::string barsOf(const WeekPicture& picture, const BarStyle& style);

} // namespace tools::horactl
