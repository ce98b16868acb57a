#pragma once

#include <optional>
#include <string>

#include <sys/types.h>

namespace store {

// The process on the other end of a connection, as the kernel knows it.
struct Peer {
    pid_t process = 0;
    uid_t user = 0;
    gid_t group = 0;

    // For log lines.
    std::string text() const;
};

// None if the kernel can't tell.
std::optional<Peer> peerOf(int descriptor);

// Root, the server's own user and the members of the group may connect.
bool isPermitted(const Peer& peer, int descriptor, std::optional<gid_t> group);

} // namespace store
