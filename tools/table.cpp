#include "tools/table.h"

#include "tools/text.h"

#include <algorithm>

namespace cfgctl {

namespace {

constexpr std::size_t gap = 2;

std::vector<std::size_t> columnWidths(const std::vector<TextRow>& rows) {
    std::vector<std::size_t> widths;
    for (const TextRow& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], width(row[i]));
    }
    return widths;
}

std::string line(const TextRow& row, const std::vector<std::size_t>& widths) {
    std::string text;
    std::size_t blanks = 0; // owed before the next cell that is not empty
    for (std::size_t i = 0; i < row.size(); ++i) {
        if (!row[i].empty()) {
            text.append(blanks, ' ');
            text += row[i];
            blanks = 0;
        }
        blanks += widths[i] - width(row[i]) + gap;
    }
    return text;
}

} // namespace

std::string aligned(const std::vector<TextRow>& rows) {
    std::vector<TextRow> shown = rows;
    for (TextRow& row : shown)
        for (std::string& cell : row)
            cell = printable(cell);
    const std::vector<std::size_t> widths = columnWidths(shown);
    std::string text;
    for (const TextRow& row : shown)
        text += line(row, widths) + '\n';
    return text;
}

} // namespace cfgctl
