#pragma once

#include "tools/horactl/why.h"

namespace tools::horactl {

// Why the router reboots now or does not.
Explanation explainReboot(const Question& question);

} // namespace tools::horactl
