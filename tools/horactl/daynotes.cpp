#include "tools/horactl/daynotes.h"

#include "tools/horactl/weekdays.h"
#include "tools/horactl/weektext.h"
#include "tools/text.h"

namespace tools::horactl {

namespace {

constexpr std::size_t mostOfAKind = 6;

void tellRest(DayNotes::Lines& lines, std::size_t count, const char* what) {
    if (count > mostOfAKind)
        lines.push_back("and " + std::to_string(count - mostOfAKind) + " more " + what);
}

} // namespace

void DayNotes::mark(Lines& lines, std::time_t moment, const std::string& text) const {
    BarLine line(scale_, day_, style_);
    line.mark(moment, Ink::Mark);
    tell(lines, line, {moment, moment}, text);
}

DayNotes::Lines DayNotes::marks() const {
    Lines lines;
    if (picture_.present && contains(day_, *picture_.present))
        mark(lines, *picture_.present, "now, " + clockText(day_, *picture_.present));
    for (const WeekPicture::ClockChange& change : picture_.clockChanges)
        if (contains(day_, change.at))
            mark(lines, change.at, change.text);
    std::size_t count = 0;
    for (const std::time_t reboot : picture_.reboots)
        if (contains(day_, reboot) && ++count <= mostOfAKind)
            mark(lines, reboot, rebootText(day_, reboot));
    tellRest(lines, count, "reboots");
    return lines;
}

DayNotes::Lines DayNotes::overlaps(const std::string& table) const {
    Lines lines;
    std::size_t count = 0;
    for (const WeekPicture::Overlap& overlap : picture_.overlaps) {
        const auto part = overlap.table == table ? clipped(overlap.span, day_) : std::nullopt;
        if (!part || ++count > mostOfAKind)
            continue;
        BarLine line(scale_, day_, style_);
        line.draw({*part, Ink::Overlap, {}});
        tell(lines, line, *part, overlapText(picture_, overlap));
    }
    tellRest(lines, count, "overlaps");
    return lines;
}

DayNotes::Lines DayNotes::frames() const {
    Lines lines;
    std::size_t count = 0;
    for (const WeekPicture::Frame& frame : picture_.frames) {
        const auto part = clipped(frame.span, day_);
        if (part && ++count <= mostOfAKind)
            tellFrame(lines, frame, *part);
    }
    tellRest(lines, count, "time frames");
    return lines;
}

void DayNotes::tellFrame(Lines& lines, const WeekPicture::Frame& frame, const Span& part) const {
    BarLine line(scale_, day_, style_);
    line.draw({part, Ink::Closed, {}});
    for (const Span& open : frame.open)
        if (const auto piece = clipped(open, day_))
            line.draw({*piece, Ink::Frame, {}});
    const std::string text = frameText(frame);
    const bool inside =
        line.label(longestBetween(part, frame.starts), {text, "frame " + std::to_string(frame.id)});
    for (const std::time_t start : frame.starts)
        if (contains(day_, start))
            line.mark(start, Ink::Start);
    if (inside)
        lines.push_back(line.text());
    else
        tell(lines, line, part, text);
}

// On a line of its own where there is no room beside what it is about.
void DayNotes::tell(Lines& lines, BarLine& line, const Span& about, const std::string& text) const {
    const bool beside = line.note(about, text);
    lines.push_back(line.text());
    if (!beside)
        lines.push_back(cut(shownIn(style_, text), scale_.cells()));
}

} // namespace tools::horactl
