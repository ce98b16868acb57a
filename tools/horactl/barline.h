#pragma once

#include "tools/horactl/forecast.h"
#include "tools/horactl/weekbars.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tools::horactl {

// What a cell of a bar is. Each has a character and a colour of its own.
enum class Ink { None, On, Off, Slot, Overlap, Frame, Closed, Start, Mark, Name };

// What a bar shows for a span of time.
struct BarPiece {
    Span span;
    Ink ink;
    std::vector<std::string> labels; // the first that fits stands in it
};

// The characters in which a day is drawn, all days on the same scale.
class BarScale {
public:
    // `longest`: seconds of the longest day.
    BarScale(std::time_t longest, std::size_t cells) : longest_(longest), cells_(cells) {}

    std::size_t cells() const { return cells_; }
    // How many cells a day takes.
    std::size_t cellsOf(const Span& day) const { return cellAt(day, day.end); }
    // The cell in which a moment of the day lies.
    std::size_t cellAt(const Span& day, std::time_t moment) const;

private:
    std::time_t longest_;
    std::size_t cells_;
};

// One line of a day, cell by cell.
class BarLine {
public:
    BarLine(const BarScale& scale, const Span& day, const BarStyle& style);

    // Later ones stand over earlier ones. A piece takes a cell at least.
    void draw(const BarPiece& piece);
    void mark(std::time_t moment, Ink ink);
    // In the span, where it has room for one of them: the first that fits. False where none does.
    bool label(const Span& span, const std::vector<std::string>& labels);
    // Beside that span, on the side where there is room, else cut. False where hardly a word has room.
    bool note(const Span& beside, const std::string& text);

    // Without blanks at its end.
    std::string text() const;

private:
    struct Cell {
        std::string character = " ";
        Ink ink = Ink::None;
        Ink ground = Ink::None; // what a name stands on
    };

    // The cells that a span takes: one at least.
    struct Cells {
        std::size_t from;
        std::size_t to;
    };
    Cells cellsOf(const Span& span) const;
    void fill(const Cells& cells, Ink ink);
    void write(std::size_t from, const std::string& text);

    const BarScale& scale_;
    Span day_;
    BarStyle style_;
    std::vector<Cell> cells_; // of the longest day
};

// The character of an ink, for a legend.
std::string inkSample(Ink ink, const BarStyle& style);

// The text as the terminal can show it: elsewhere than in UTF-8, what is not ASCII is a question mark.
std::string shownIn(const BarStyle& style, std::string_view text);

} // namespace tools::horactl
