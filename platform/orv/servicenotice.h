#pragma once

#include <string_view>

namespace orv {

// Tells the service manager that started the program how it is doing: "READY=1", "STATUS=WLAN on",
// "STOPPING=1", several of them on lines of their own. The manager says in NOTIFY_SOCKET where it listens;
// without that variable nothing is sent.
//
// Never waits and never throws. False where the manager's queue is full, or where there is no memory or
// descriptor at the moment: the caller may try again later. True also where nobody listens, since no further
// attempt would help.
bool tellServiceManager(std::string_view assignments) noexcept;

} // namespace orv
