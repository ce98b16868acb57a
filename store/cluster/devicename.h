#pragma once

#include <string>

namespace store {

// A name for this device among those that share tables: the host's name, and digits that tell it from other
// hosts of that name.
std::string newDeviceName();

} // namespace store
