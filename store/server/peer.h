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

    // For a person.
    std::string text() const;
};

// Nothing when the kernel can't tell.
std::optional<Peer> peerOf(int descriptor);

// Root, the server's own user, and the members of the one group may come in.
bool isPermitted(const Peer& peer, int descriptor, std::optional<gid_t> group);

} // namespace store
