#pragma once

#include <cstddef>
#include <optional>

namespace tools {

// How many characters fit on a line of standard output; none where that is no terminal, or does not say.
std::optional<std::size_t> terminalWidth();

} // namespace tools
