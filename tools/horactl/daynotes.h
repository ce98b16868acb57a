#pragma once

#include "tools/horactl/barline.h"
#include "tools/horactl/week.h"

#include <string>
#include <vector>

namespace tools::horactl {

// The lines beneath a day's bar: what else there is to see, each at its time of day. Where there is much of a
// kind, the last line of it says how much more.
class DayNotes {
public:
    // All of them outlive it.
    DayNotes(const WeekPicture& picture, const BarScale& scale, const BarStyle& style, const Span& day)
        : picture_(picture), scale_(scale), style_(style), day_(day) {}

    using Lines = std::vector<std::string>;

    // The present, changes of the clock, reboots.
    Lines marks() const;
    // Of the plans of a table.
    Lines overlaps(const std::string& table) const;
    // The time frames, with the starts of their services.
    Lines frames() const;

private:
    void mark(Lines& lines, std::time_t moment, const std::string& text) const;
    void tellFrame(Lines& lines, const WeekPicture::Frame& frame, const Span& part) const;
    void tell(Lines& lines, BarLine& line, const Span& about, const std::string& text) const;

    const WeekPicture& picture_;
    const BarScale& scale_;
    const BarStyle& style_;
    const Span& day_;
};

} // namespace tools::horactl
