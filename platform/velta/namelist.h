#pragma once

#include <string>
#include <vector>

namespace velta {

// Names of columns or tables, in order.
using NameList = std::vector<std::string>;

} // namespace velta
