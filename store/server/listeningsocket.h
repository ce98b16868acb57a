#pragma once

#include "store/fileid.h"
#include "store/server/activatedsocket.h"

#include <optional>
#include <string>

#include <sys/types.h>

namespace store {

// The socket that clients connect to, at a path. The file mode of one that is made here admits the owner
// alone, or the owner and one group.
class ListeningSocket {
public:
    // Replaces a socket at the path that no server listens on any more, but nothing else. Throws
    // std::runtime_error.
    ListeningSocket(const std::string& path, std::optional<gid_t> group);
    // A socket that the service manager holds: its path, owner and mode are the manager's and stay as they
    // are.
    explicit ListeningSocket(ActivatedSocket socket);
    // Removes the path if it is this object's and still this socket's.
    ~ListeningSocket();
    ListeningSocket(const ListeningSocket&) = delete;
    ListeningSocket& operator=(const ListeningSocket&) = delete;

    int descriptor() const { return descriptor_; }
    const std::string& path() const { return path_; }
    // Why clients can't reach this socket at its path, as a text for people. Empty if they can.
    std::string whyUnreachable() const;

private:
    void open(std::optional<gid_t> group);
    void removePath() const;

    std::string path_;
    int descriptor_ = -1;
    std::optional<FileId> file_; // at the path, once the socket is bound
    bool removesPath_ = true;
};

} // namespace store
