#pragma once

#include <optional>
#include <string>

#include <sys/types.h>

namespace store {

// The socket at a path that clients connect to. It is the owner's alone, or the owner's and one group's.
class ListeningSocket {
public:
    // Replaces a socket that no server listens on any more, and nothing else. Throws std::runtime_error.
    ListeningSocket(const std::string& path, std::optional<gid_t> group);
    // Removes the path if it is still this socket's.
    ~ListeningSocket();
    ListeningSocket(const ListeningSocket&) = delete;
    ListeningSocket& operator=(const ListeningSocket&) = delete;

    int descriptor() const { return descriptor_; }
    const std::string& path() const { return path_; }
    // Why a client does not find this socket at its path, for a person. Empty where it does.
    std::string whyUnreachable() const;

private:
    void open(std::optional<gid_t> group);
    void removePath() const;

    std::string path_;
    int descriptor_ = -1;
    dev_t device_ = 0;
    ino_t inode_ = 0;
};

} // namespace store
