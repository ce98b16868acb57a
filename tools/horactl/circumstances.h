#pragma once

#include "tools/horactl/forecast.h"

#include <ctime>
#include <string>

namespace tools::horactl {

// "succeed", "fail" or "hang", with the seconds that it takes behind a comma: "fail,90". Throws WrongUse.
Service parseService(const std::string& text);

// TIME=+DURATION or TIME=-DURATION. Throws WrongUse.
ClockStep parseClockStep(const std::string& text, std::time_t present);

} // namespace tools::horactl
