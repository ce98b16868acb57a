#pragma once

#include <cstdint>

// Memory that runs out when a test says so: for operator new, and for SQLite's own allocations.
namespace failingmemory {

// While one lives, allocations count, and those from the given number on fail, so many of them. The count
// goes on in the next one, so that a session of many rounds has one count.
class Armed {
public:
    Armed();
    ~Armed();
    Armed(const Armed&) = delete;
    Armed& operator=(const Armed&) = delete;
};

// From here on the n-th armed allocation fails, counted from 1, and so do those behind it up to the length. 0
// lets none fail.
void failAt(std::int64_t number, std::int64_t length);
// That number.
std::int64_t failing();
// Armed allocations since then.
std::int64_t counted();

} // namespace failingmemory
