#pragma once

#include <cstdint>
#include <functional>
#include <vector>

// An operator new that can fail. What other threads than the caller's allocate is not counted, and does not
// fail.
namespace failingplaces {

using Work = std::function<void()>;

// One allocation of each place at which the work allocates, by its number: 1 is the first allocation. Two
// calls of the same function, or of what calls it, are two places.
std::vector<std::int64_t> placesOf(const Work& work);

// Does the work, in which the allocation with that number throws std::bad_alloc, and no other.
void runFailing(std::int64_t number, const Work& work);

// How many blocks this thread has allocated and not given back.
std::int64_t blocks();

} // namespace failingplaces
