#pragma once

#include <string_view>

namespace orv {

// Writes to standard error without waiting: a pipe that nobody reads fills up, and the program must not block
// on it. False where the text did not go out, or only a part of it. Up to 4096 bytes (PIPE_BUF) a pipe takes
// whole or not at all. Safe in a signal handler, but for errno.
bool writeToStandardError(std::string_view text) noexcept;

} // namespace orv
