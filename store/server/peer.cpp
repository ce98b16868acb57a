#include "store/server/peer.h"

#include "store/users.h"

#include <algorithm>
#include <cerrno>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

namespace store {

namespace {

std::vector<gid_t> furtherGroups(int descriptor) {
    std::vector<gid_t> groups(32);
    auto size = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
    int result = getsockopt(descriptor, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size);
    if (result != 0 && errno == ERANGE) { // the kernel has set `size` to what it needs
        groups.resize(size / sizeof(gid_t));
        result = getsockopt(descriptor, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size);
    }
    groups.resize(result == 0 ? size / sizeof(gid_t) : 0);
    return groups;
}

} // namespace

std::string Peer::text() const {
    return "process " + std::to_string(process) + ", user " + std::to_string(user);
}

std::optional<Peer> peerOf(int descriptor) {
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0)
        return std::nullopt;
    return Peer{credentials.pid, credentials.uid, credentials.gid};
}

bool isPermitted(const Peer& peer, int descriptor, std::optional<gid_t> group) {
    if (isRootOrOwn(peer.user))
        return true;
    if (!group)
        return false;
    const std::vector<gid_t> further = furtherGroups(descriptor);
    return peer.group == *group || std::find(further.begin(), further.end(), *group) != further.end();
}

} // namespace store
