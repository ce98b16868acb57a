#pragma once

#include "tools/horactl/week.h"

#include <string>
#include <vector>

namespace tools::horactl {

// One thing that a picture of a day shows, in words.
struct WeekFact {
    std::time_t begin;
    std::string time; // "21:00-24:00", or "about 03:30" for a moment
    std::string what;
    std::string detail; // which row it is, and why
};

// All of a day, in the order in which they begin.
std::vector<WeekFact> factsOf(const WeekPicture& picture, const Span& day);

} // namespace tools::horactl
