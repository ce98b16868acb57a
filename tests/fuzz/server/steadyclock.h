#pragma once

#include <chrono>

namespace fuzz {

// The program's steady clock stands still but for this.
void passTime(std::chrono::milliseconds time);

} // namespace fuzz
