#pragma once

#include "velta/protocol/resultcode.h"

#include <chrono>
#include <string>

namespace orv::cfg {

// Connects a new socket, which does not block, to the one at the path. Where the queue of those who want to
// connect is full, it waits up to `patience` for a place; tooManyClients says that there was none. Without
// any patience a full queue is a store that is not there, notConnected. `socket` is to be closed by the
// caller whatever the result, unless it is -1.
velta::protocol::EResultCode connectTo(const std::string& socketPath, std::chrono::milliseconds patience,
                                       int& socket);

// What went wrong, and the system's reason for it.
std::string systemText(const std::string& what);

} // namespace orv::cfg
