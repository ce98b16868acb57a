#pragma once

#include "tools/horactl/question.h"

#include <cstdint>
#include <ctime>

namespace tools::horactl {

// Prints every write of a horad that lives for so many seconds from a moment on, with its log lines where the
// question is verbose.
void simulateCommand(const Question& question, std::time_t from, std::int64_t seconds,
                     const Circumstances& circumstances);

} // namespace tools::horactl
