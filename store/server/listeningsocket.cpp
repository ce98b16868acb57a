#include "store/server/listeningsocket.h"

#include "store/server/descriptor.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace store {

namespace {

constexpr int backlog = 128;
constexpr int lockTries = 50;
constexpr int lockPause = 20; // milliseconds

[[noreturn]] void fail(const std::string& path, const std::string& reason) {
    throw std::runtime_error("socket " + path + ": " + reason);
}

[[noreturn]] void failWithErrno(const std::string& path, const char* what) {
    fail(path, std::string(what) + ": " + std::strerror(errno));
}

// Keeps a second server, which starts at the same moment, from taking the socket that this one is about to
// make for a stale one. A stranger may hold the lock of a directory like /tmp, so it is waited for only so
// long.
void lockDirectory(const Descriptor& directory) {
    for (int i = 0; i < lockTries; ++i) {
        if (flock(directory.get(), LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK)
            return;
        (void)poll(nullptr, 0, lockPause);
    }
}

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path)
        fail(path, "the path must have 1 to " + std::to_string(sizeof address.sun_path - 1) + " bytes");
    std::memcpy(address.sun_path, path.c_str(), path.size());
    return address;
}

// Returns when the path is free, or a stale socket there was removed.
void makeRoom(const std::string& path, const sockaddr_un& address) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        if (errno == ENOENT)
            return;
        failWithErrno(path, "can't be looked at");
    }
    if (!S_ISSOCK(status.st_mode))
        fail(path, "there is something else at this path, it stays as it is");
    const Descriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (probe.get() < 0)
        failWithErrno(path, "can't be made");
    if (connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ||
        errno == EAGAIN)
        fail(path, "another server holds it");
    if (errno != ECONNREFUSED)
        failWithErrno(path, "there is a socket at this path that can't be tried");
    if (unlink(path.c_str()) != 0)
        failWithErrno(path, "a stale socket can't be removed");
}

} // namespace

ListeningSocket::ListeningSocket(const std::string& path, std::optional<gid_t> group) : path_(path) {
    try {
        open(group);
    } catch (...) {
        removePath();
        if (descriptor_ >= 0)
            close(descriptor_);
        throw;
    }
}

ListeningSocket::~ListeningSocket() {
    removePath();
    close(descriptor_);
}

void ListeningSocket::open(std::optional<gid_t> group) {
    const sockaddr_un address = addressOf(path_);
    const std::string parent = std::filesystem::absolute(path_).parent_path();
    const Descriptor directory(::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory.get() >= 0)
        lockDirectory(directory);
    makeRoom(path_, address);

    descriptor_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor_ < 0)
        failWithErrno(path_, "can't be made");
    const mode_t mask = umask(0177); // from its first moment on it is the owner's alone
    const int bound = bind(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    umask(mask);
    if (bound != 0)
        failWithErrno(path_, "can't be made");
    struct stat status {};
    if (lstat(path_.c_str(), &status) != 0)
        failWithErrno(path_, "can't be looked at");
    device_ = status.st_dev;
    inode_ = status.st_ino;
    if (group &&
        (lchown(path_.c_str(), static_cast<uid_t>(-1), *group) != 0 || chmod(path_.c_str(), 0660) != 0))
        failWithErrno(path_, "can't be given to the group");
    if (listen(descriptor_, backlog) != 0)
        failWithErrno(path_, "can't be listened on");
}

void ListeningSocket::removePath() const {
    struct stat status {};
    if (inode_ != 0 && lstat(path_.c_str(), &status) == 0 && status.st_dev == device_ &&
        status.st_ino == inode_)
        (void)unlink(path_.c_str()); // what can't be removed is a stale socket for the next start
}

} // namespace store
