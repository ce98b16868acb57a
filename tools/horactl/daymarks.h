#pragma once

#include "tools/horactl/week.h"

#include <cstddef>
#include <ctime>
#include <string>
#include <vector>

namespace tools::horactl {

// A moment of a day that a drawing names above it.
struct DayMark {
    std::time_t at;
    std::string text;
    const char* look; // classes of the style sheet
    const char* textLook;
};

// The changes of the clock, the reboots and the present, as far as they lie in that day.
std::vector<DayMark> marksOf(const WeekPicture& picture, const Span& day);

// Rows for texts beside marks, so that none stands over another.
class MarkRows {
public:
    struct Place {
        std::size_t row;
        bool behind; // the mark; else in front of it
    };

    // No text goes beyond `right`.
    explicit MarkRows(double right) : right_(right) {}

    // For a mark at x with a text of that width: the first row in which there is room.
    Place placeFor(double x, double textWidth);
    std::size_t count() const { return rows_.size(); }

private:
    struct Taken {
        double from;
        double to;
    };

    double right_;
    std::vector<std::vector<Taken>> rows_;
};

} // namespace tools::horactl
