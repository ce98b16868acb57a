#pragma once

#include "tools/horactl/week.h"

#include <cstddef>
#include <string>
#include <vector>

namespace tools::horactl {

// A slot's part of a day, and the lane in which it is drawn.
struct PlacedSlot {
    std::size_t plan; // its place among the picture's plans
    Span span;
    std::size_t lane;
};

// The slots of a table in a day, in as few lanes as it takes to have none over another.
std::vector<PlacedSlot> placedSlots(const WeekPicture& picture, const std::string& table, const Span& day);

// How many lanes they take.
std::size_t laneCount(const std::vector<PlacedSlot>& slots);

} // namespace tools::horactl
