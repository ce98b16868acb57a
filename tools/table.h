#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tools {

using TextRow = std::vector<std::string>;

// Each row on a line, the columns below each other, two blanks between them and none at a line's end. The
// cells are made printable first.
//
// Where lines have a limit, in characters, and the rows don't fit, the columns come in bands, one below the
// other with an empty line between them; each begins with the first column, which says whose cells they are.
// A cell that is longer than its line ends with "...".
std::string aligned(const std::vector<TextRow>& rows, std::optional<std::size_t> lineWidth = std::nullopt);

} // namespace tools
