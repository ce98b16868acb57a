#pragma once

#include "tools/cfgctl/commands.h"

namespace tools::cfgctl {

// Prints a line for every change of the tables until nobody reads standard output any more. Throws Refused
// where the connection is lost. Says on standard error when it has begun.
void watchCommand(const Arguments& arguments);

} // namespace tools::cfgctl
