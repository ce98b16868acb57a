#pragma once

#include "store/descriptor.h"

#include <optional>
#include <string>

namespace store {

// A listening socket that the service manager has made and passed on. It goes on listening when this process
// has ended, for the next one.
struct ActivatedSocket {
    Descriptor descriptor;
    std::string path; // absolute
};

// The socket that LISTEN_PID and LISTEN_FDS speak of, or none if they are not there or meant for another
// process. Takes the variables out of the environment. Throws std::runtime_error, which says what came, for
// anything else than one listening stream socket with a path. The manager passes it as `first`.
std::optional<ActivatedSocket> takeActivatedSocket(int first = 3);

} // namespace store
