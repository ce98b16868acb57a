#pragma once

#include "tools/horactl/why.h"

namespace tools::horactl {

// Why the time frame of that Id, whose row is there, starts its service now or does not.
Explanation explainFrame(const Question& question, int id);

} // namespace tools::horactl
