#include "tools/horactl/barline.h"

#include "tools/text.h"
#include "velta/text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>

namespace tools::horactl {

namespace {

// How an ink looks: in UTF-8, in ASCII, and its colour, of its own and behind a name.
struct Look {
    const char* block;
    const char* ascii;
    const char* colour;
    const char* behindName;
};

constexpr Look looks[] = {
    {" ", " ", "", ""},        // None
    {"█", "#", "36", "30;46"}, // On
    {"·", ".", "2", ""},       // Off
    {"▒", "=", "34", "1;34"},  // Slot
    {"▓", "%", "35", "1;35"},  // Overlap
    {"─", "-", "33", ""},      // Frame
    {"┄", "'", "2;33", ""},    // Closed
    {"◆", "*", "1;33", ""},    // Start
    {"▲", "^", "1;31", ""},    // Mark
    {" ", " ", "", ""},        // Name
};

const Look& lookOf(Ink ink) {
    return looks[static_cast<std::size_t>(ink)];
}

// Whether the text takes one column a character and is written from left to right, so that a bar around it
// keeps its place.
bool isPlain(std::string_view text) {
    struct Range {
        char32_t first, last;
    };
    constexpr Range plain[] = {
        {0x20, 0x2ff}, {0x370, 0x482}, {0x48a, 0x58f}, {0x1e00, 0x1fff}, {0x2010, 0x2027}};
    while (!text.empty()) {
        const std::optional<velta::Character> next = velta::firstCharacter(text);
        if (!next || std::none_of(std::begin(plain), std::end(plain), [&](const Range& range) {
                return next->code >= range.first && next->code <= range.last;
            }))
            return false;
        text.remove_prefix(next->bytes);
    }
    return true;
}

std::vector<std::string> charactersOf(std::string_view text) {
    std::vector<std::string> characters;
    while (!text.empty()) {
        const std::size_t bytes = velta::firstCharacter(text).value_or(velta::Character{0, 1}).bytes;
        characters.emplace_back(text.substr(0, bytes));
        text.remove_prefix(bytes);
    }
    return characters;
}

std::string characterOf(Ink ink, const BarStyle& style) {
    return style.utf8 ? lookOf(ink).block : lookOf(ink).ascii;
}

std::string coloured(const std::string& text, std::string_view colour) {
    return colour.empty() ? text : "\x1b[" + std::string(colour) + "m" + text + "\x1b[0m";
}

} // namespace

std::size_t BarScale::cellAt(const Span& day, std::time_t moment) const {
    const std::int64_t passed = std::clamp<std::int64_t>(moment - day.begin, 0, day.end - day.begin);
    return static_cast<std::size_t>(passed * static_cast<std::int64_t>(cells_) / longest_);
}

BarLine::BarLine(const BarScale& scale, const Span& day, const BarStyle& style)
    : scale_(scale), day_(day), style_(style), cells_(scale.cells()) {}

BarLine::Cells BarLine::cellsOf(const Span& span) const {
    const std::size_t from = std::min(scale_.cellAt(day_, span.begin), scale_.cellsOf(day_) - 1);
    return {from, std::max(scale_.cellAt(day_, span.end), from + 1)};
}

void BarLine::draw(const BarPiece& piece) {
    fill(cellsOf(piece.span), piece.ink);
    (void)label(piece.span, piece.labels);
}

void BarLine::mark(std::time_t moment, Ink ink) {
    fill(cellsOf({moment, moment}), ink);
}

void BarLine::fill(const Cells& cells, Ink ink) {
    for (std::size_t cell = cells.from; cell < cells.to; ++cell)
        cells_[cell] = {characterOf(ink, style_), ink, Ink::None};
}

// A blank on either side, so that the name stands out of the bar.
bool BarLine::label(const Span& span, const std::vector<std::string>& labels) {
    const Cells cells = cellsOf(span);
    constexpr std::size_t blanks = 2;
    for (const std::string& text : labels) {
        if (text.empty() || !isPlain(text) || width(text) + blanks > cells.to - cells.from)
            continue;
        const Ink ground = cells_[cells.from].ink;
        const std::string shown = " " + shownIn(style_, text) + " ";
        const std::size_t begin = cells.from + (cells.to - cells.from - width(shown)) / 2;
        write(begin, shown);
        for (std::size_t cell = begin; cell < begin + width(shown); ++cell)
            cells_[cell].ground = ground;
        return true;
    }
    return false;
}

void BarLine::write(std::size_t from, const std::string& text) {
    std::size_t cell = from;
    for (std::string& character : charactersOf(text)) {
        if (cell == cells_.size())
            return;
        cells_[cell++] = {std::move(character), Ink::Name, Ink::None};
    }
}

bool BarLine::note(const Span& beside, const std::string& text) {
    constexpr std::size_t aWord = 12;
    const Cells cells = cellsOf(beside);
    const std::string shown = shownIn(style_, text);
    const std::size_t before = cells.from > 0 ? cells.from - 1 : 0;
    const std::size_t behind = cells.to + 1 < cells_.size() ? cells_.size() - cells.to - 1 : 0;
    if (std::max(before, behind) < std::min(width(shown), aWord))
        return false;
    if (width(shown) <= behind || behind >= before) {
        write(cells.to + 1, cut(shown, behind));
    } else {
        const std::string fitting = cut(shown, before);
        write(before - width(fitting), fitting);
    }
    return true;
}

std::string BarLine::text() const {
    std::size_t used = cells_.size();
    while (used > 0 && cells_[used - 1].character == " " && cells_[used - 1].ground == Ink::None)
        --used;
    std::string line;
    for (std::size_t cell = 0; cell < used;) {
        const Cell& first = cells_[cell];
        std::string run;
        for (; cell < used && cells_[cell].ink == first.ink && cells_[cell].ground == first.ground; ++cell)
            run += cells_[cell].character;
        const char* const colour =
            first.ink == Ink::Name ? lookOf(first.ground).behindName : lookOf(first.ink).colour;
        line += style_.colours ? coloured(run, colour) : run;
    }
    return line;
}

std::string inkSample(Ink ink, const BarStyle& style) {
    const std::string character = characterOf(ink, style);
    return style.colours ? coloured(character, lookOf(ink).colour) : character;
}

std::string shownIn(const BarStyle& style, std::string_view text) {
    if (style.utf8)
        return std::string(text);
    std::string shown;
    for (const std::string& character : charactersOf(text))
        shown += character.size() == 1 ? character : "?";
    return shown;
}

} // namespace tools::horactl
