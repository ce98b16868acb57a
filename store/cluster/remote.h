#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <sys/socket.h>

namespace store {

// Where a member of the cluster listens.
struct Remote {
    std::string text; // as it was given
    sockaddr_storage address{};
    socklen_t length = 0;
};

// "unix:/run/ovsdb/db.sock", "tcp:192.168.1.2:6641", "tcp:[fd00::2]:6641". A host is given by its address: to
// look up a name would make the store wait. None if it is none of these; `complaint` says why.
std::optional<Remote> remoteOf(const std::string& text, std::string& complaint);

} // namespace store
