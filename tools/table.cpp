#include "tools/table.h"

#include "tools/text.h"

#include <algorithm>

namespace tools {

namespace {

constexpr std::size_t gap = 2;
constexpr std::size_t leastCell = 8; // characters of a cut one, however narrow the line

using Columns = std::vector<std::size_t>; // by their index

std::vector<std::size_t> columnWidths(const std::vector<TextRow>& rows) {
    std::vector<std::size_t> widths;
    for (const TextRow& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], width(row[i]));
    }
    return widths;
}

std::string line(const TextRow& row, const Columns& columns, const std::vector<std::size_t>& widths) {
    std::string text;
    std::size_t blanks = 0; // owed before the next cell that is not empty
    for (const std::size_t i : columns) {
        if (i >= row.size())
            break;
        const std::string cell = cut(row[i], widths[i]);
        if (!cell.empty()) {
            text.append(blanks, ' ');
            text += cell;
            blanks = 0;
        }
        blanks += widths[i] - width(cell) + gap;
    }
    return text;
}

Columns allOf(const std::vector<std::size_t>& widths) {
    Columns columns(widths.size());
    for (std::size_t i = 0; i < columns.size(); ++i)
        columns[i] = i;
    return columns;
}

// Each begins with the first column. Widths that no line holds are made smaller.
std::vector<Columns> bandsOf(std::vector<std::size_t>& widths, std::size_t lineWidth) {
    const auto limit = [&](std::size_t taken) {
        return std::max(lineWidth > taken ? lineWidth - taken : 0, leastCell);
    };
    widths[0] = std::min(widths[0], limit(widths.size() > 1 ? gap + leastCell : 0));
    std::vector<Columns> bands = {{0}};
    std::size_t taken = widths[0];
    for (std::size_t i = 1; i < widths.size(); ++i) {
        widths[i] = std::min(widths[i], limit(widths[0] + gap));
        if (taken + gap + widths[i] > lineWidth && bands.back().size() > 1) {
            bands.push_back({0});
            taken = widths[0];
        }
        bands.back().push_back(i);
        taken += gap + widths[i];
    }
    return bands;
}

} // namespace

std::string aligned(const std::vector<TextRow>& rows, std::optional<std::size_t> lineWidth) {
    std::vector<TextRow> shown = rows;
    for (TextRow& row : shown)
        for (std::string& cell : row)
            cell = printable(cell);
    std::vector<std::size_t> widths = columnWidths(shown);
    if (widths.empty())
        return {};
    const std::vector<Columns> bands =
        lineWidth ? bandsOf(widths, *lineWidth) : std::vector<Columns>{allOf(widths)};
    std::string text;
    for (const Columns& band : bands) {
        if (!text.empty())
            text += '\n';
        for (const TextRow& row : shown)
            text += line(row, band, widths) + '\n';
    }
    return text;
}

} // namespace tools
