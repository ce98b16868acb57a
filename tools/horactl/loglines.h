#pragma once

#include "log.h"
#include "tools/horactl/forecast.h"

#include <ctime>
#include <string>

namespace tools::horactl {

// "error" to "debug".
const char* nameOf(orv::horad::LogLevel level);
// A line of a simulated horad's log for a person, at its own time.
std::string logLine(std::time_t time, orv::horad::LogLevel level, const std::string& module,
                    const std::string& text);
// Shows the forecast's log on standard error.
void showLog(Forecast& forecast);

} // namespace tools::horactl
