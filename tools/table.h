#pragma once

#include <string>
#include <vector>

namespace cfgctl {

using TextRow = std::vector<std::string>;

// Each row on a line, the columns below each other, two blanks between them and none at a line's end. The
// cells are made printable first.
std::string aligned(const std::vector<TextRow>& rows);

} // namespace cfgctl
