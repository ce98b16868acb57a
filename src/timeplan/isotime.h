#pragma once

#include <ctime>
#include <string>

namespace orv::horad {

// A moment (seconds since the epoch) as a text in local time with its offset from UTC, as strftime's
// "%FT%T%z" writes it: 2026-11-21T03:30:14+0100. Empty where the C library can't convert it.
std::string isoTime(std::time_t moment);

// The moment that such a text names; 0, the epoch, if it can't be read. The text's date and time of day are
// read as local time, whatever offset they were written with. Only in the hour that comes twice the offset
// tells which one is meant.
std::time_t momentOf(const std::string& text);

} // namespace orv::horad
