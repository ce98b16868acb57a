#include "store/server/listeningsocket.h"

#include "store/descriptor.h"
#include "store/server/peer.h"
#include "store/users.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <utility>

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

[[noreturn]] void failWithErrno(const std::string& path, const std::string& what) {
    const int reason = errno;
    fail(path, what + ": " + std::strerror(reason));
}

// Without the lock, a second server that starts at the same moment could mistake this one's socket for a
// stale one between bind() and listen(). Any user can hold the lock of a directory like /tmp, so the wait for
// it is short.
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

// A text that names the server at the other end of a connection, or the socket's owner if there is none.
std::string holder(const Descriptor& connection, uid_t owner) {
    const std::optional<Peer> server = peerOf(connection.get());
    if (!server || server->process == 0)
        return userText(owner);
    return "process " + std::to_string(server->process) + ", " + userText(server->user);
}

// Returns when nothing is at the path; a stale socket there is removed.
void makeRoom(const std::string& path, const sockaddr_un& address) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        if (errno == ENOENT)
            return;
        failWithErrno(path, "can't be looked at");
    }
    if (!S_ISSOCK(status.st_mode))
        fail(path,
             "there is something else at this path, of " + userText(status.st_uid) + ", it stays as it is");
    const Descriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (probe.get() < 0)
        failWithErrno(path, "can't be made");
    const int tried = connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    const int reason = tried == 0 ? 0 : errno;
    if (reason == 0 || reason == EAGAIN) // EAGAIN: the other server's queue is full
        fail(path, "another server holds it (" + holder(probe, status.st_uid) + ")");
    const std::string owner = userText(status.st_uid);
    if (reason != ECONNREFUSED)
        fail(path,
             "there is a socket of " + owner + " at this path that can't be tried: " + std::strerror(reason));
    if (unlink(path.c_str()) != 0)
        failWithErrno(path, "a stale socket of " + owner + " can't be removed");
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

ListeningSocket::ListeningSocket(ActivatedSocket socket)
    : path_(std::move(socket.path)), descriptor_(socket.descriptor.release()), removesPath_(false) {
    struct stat status {};
    if (lstat(path_.c_str(), &status) == 0)
        file_ = FileId(status); // where it is gone already, no client finds it: whyUnreachable()
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
    const mode_t mask = umask(0177); // so that from the start only the owner can connect
    const int bound = bind(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    umask(mask);
    if (bound != 0)
        failWithErrno(path_, "can't be made");
    struct stat status {};
    if (lstat(path_.c_str(), &status) != 0)
        failWithErrno(path_, "can't be looked at");
    file_ = FileId(status);
    if (group &&
        (lchown(path_.c_str(), static_cast<uid_t>(-1), *group) != 0 || chmod(path_.c_str(), 0660) != 0))
        failWithErrno(path_, "can't be given to the group");
    if (listen(descriptor_, backlog) != 0)
        failWithErrno(path_, "can't be listened on");
}

std::string ListeningSocket::whyUnreachable() const {
    struct stat status {};
    if (lstat(path_.c_str(), &status) != 0)
        return errno == ENOENT ? "it was removed or moved away" : std::strerror(errno);
    if (FileId(status) != file_)
        return "something else is in its place, of " + userText(status.st_uid);
    return "";
}

void ListeningSocket::removePath() const {
    if (removesPath_ && file_ && whyUnreachable().empty())
        (void)unlink(path_.c_str()); // if this fails, the next start finds a stale socket
}

} // namespace store
