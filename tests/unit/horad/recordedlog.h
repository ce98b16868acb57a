#pragma once

#include <functional>
#include <string>
#include <vector>

// A log facility that writes nothing and remembers its calls. It is in force wherever recordedlog.cpp is
// linked.
namespace recordedlog {

// All calls, in order: "registerModul horad", "error horad log 1: text".
std::vector<std::string>& calls();

// Called with each line that is logged, if set.
extern std::function<void()> onLine;

} // namespace recordedlog
