#pragma once

#include "tools/horactl/question.h"

#include <ctime>
#include <optional>
#include <string>

namespace tools::horactl {

// Shows the seven days that begin with that of a moment: as bars, or in files of these names. Throws Refused
// where a file can't be written.
void weekCommand(const Question& question, std::time_t from, const std::optional<std::string>& svgFile,
                 const std::optional<std::string>& htmlFile);

} // namespace tools::horactl
