#pragma once

#include "tools/horactl/question.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace tools::horactl {

// The next events, within so many seconds, no more than so many: a line each.
std::string nextCommand(const Question& question, std::size_t most, std::int64_t within);

} // namespace tools::horactl
