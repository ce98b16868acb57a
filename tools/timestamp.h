#pragma once

#include <ctime>
#include <string>

namespace tools {

// Local time with its offset, as "2026-11-21T08:41:51+01:00".
std::string timestamp(std::time_t time);

} // namespace tools
