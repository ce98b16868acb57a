#pragma once

#include <string_view>

namespace orv {

// Writes to standard error without waiting: a pipe that nobody reads fills up, and the program must not block
// on it. False where the text did not go out, or only a part of it. Up to 4096 bytes (PIPE_BUF) a pipe takes
// whole or not at all. Safe in a signal handler, but for errno.
bool writeToStandardError(std::string_view text) noexcept;

// Whether standard error leads to the journal of a service manager, as JOURNAL_STREAM says. The journal notes
// the time of each line, and takes "<3>" in front of one as its severity. Not for signal handlers.
bool isJournalOnStandardError() noexcept;

// Writes the line of a program that can't go on, with its end, like writeToStandardError(). For the journal
// it is an error. Not for signal handlers.
void writeErrorLine(std::string_view text) noexcept;

} // namespace orv
