#pragma once

#include "velta/protocol/resultcode.h"

#include <chrono>
#include <string>

namespace orv::cfg {

// Connects a new non-blocking socket to the one at the path. If the store's listen queue is full, it waits up
// to `patience` for a place in it; tooManyClients says that there was none. With no patience a full queue
// counts as a missing store, notConnected. Whatever the result, the caller closes `socket`, unless it is -1.
velta::protocol::EResultCode connectTo(const std::string& socketPath, std::chrono::milliseconds patience,
                                       int& socket);

// `what` went wrong, followed by the system's text for errno.
std::string systemText(const std::string& what);

} // namespace orv::cfg
