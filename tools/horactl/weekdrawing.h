#pragma once

#include "tools/horactl/week.h"

#include <string>

namespace tools::horactl {

// How a drawing of a week is laid out. Lengths are those of a screen at its usual scale.
struct WeekLayout {
    const char* name; // a word that no other drawing on the page has
    double width;     // of all
    double left;      // of the first hour
    bool datesBeside; // in front of the day; else above it
    int rulerStep;    // hours
    bool titled;      // whether it says which week it is
};

extern const WeekLayout wideLayout;   // for screens, with the dates in front
extern const WeekLayout narrowLayout; // for a phone

// An <svg> element without its style sheet: a day under the other, all on one scale. Each has the WLAN, the
// slots of the plans beneath it, one over the other where they overlap, the time frames, and marks.
std::string drawingOf(const WeekPicture& picture, const WeekLayout& layout);

// The style sheet of all drawings, in light and dark.
extern const char* const drawingStyle;

} // namespace tools::horactl
