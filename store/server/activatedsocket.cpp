#include "store/server/activatedsocket.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace store {

namespace {

// Takes the variable out of the environment.
std::optional<std::string> takeVariable(const char* name) {
    const char* const value = std::getenv(name);
    std::optional<std::string> taken;
    if (value != nullptr)
        taken = value;
    (void)unsetenv(name); // can't fail for these names
    return taken;
}

[[noreturn]] void refuse(const std::string& what) {
    throw std::runtime_error("the service manager has to pass one listening Unix stream socket, but " + what);
}

int optionOf(int socket, int option) {
    int value = -1;
    socklen_t size = sizeof value;
    return getsockopt(socket, SOL_SOCKET, option, &value, &size) == 0 ? value : -1;
}

// What is wrong with the descriptor, for people; null where nothing is.
const char* whatIsWrongWith(int descriptor) {
    struct stat status {};
    if (fstat(descriptor, &status) != 0)
        return "is not open";
    if (!S_ISSOCK(status.st_mode))
        return "is no socket";
    if (optionOf(descriptor, SO_DOMAIN) != AF_UNIX)
        return "is no Unix socket";
    if (optionOf(descriptor, SO_TYPE) != SOCK_STREAM)
        return "is no stream socket";
    if (optionOf(descriptor, SO_ACCEPTCONN) != 1)
        return "does not listen";
    return nullptr;
}

// Empty for a socket without a path: one without a name, or with one that is no file.
std::string pathOf(int socket) {
    // A path may fill the address up to its last byte, without a zero behind it.
    std::array<char, sizeof(sockaddr_un) + 1> room{};
    auto size = static_cast<socklen_t>(room.size() - 1);
    if (getsockname(socket, reinterpret_cast<sockaddr*>(room.data()), &size) != 0)
        throw std::system_error(errno, std::generic_category(), "getsockname");
    const std::string path = room.data() + offsetof(sockaddr_un, sun_path);
    return path.empty() ? path : std::filesystem::absolute(path).string();
}

void checkCount(const std::string& count) {
    if (count != "1")
        refuse("LISTEN_FDS is '" + count + "'");
}

void prepare(int descriptor) {
    const int flags = fcntl(descriptor, F_GETFL);
    if (flags < 0 || fcntl(descriptor, F_SETFL, flags | O_NONBLOCK) != 0 ||
        fcntl(descriptor, F_SETFD, FD_CLOEXEC) != 0)
        throw std::system_error(errno, std::generic_category(), "fcntl");
}

} // namespace

std::optional<ActivatedSocket> takeActivatedSocket(int first) {
    const std::optional<std::string> process = takeVariable("LISTEN_PID");
    const std::optional<std::string> count = takeVariable("LISTEN_FDS");
    (void)takeVariable("LISTEN_FDNAMES"); // one socket needs no name
    if (!process || !count || *process != std::to_string(getpid()))
        return std::nullopt;
    checkCount(*count);
    if (const char* const wrong = whatIsWrongWith(first))
        refuse("descriptor " + std::to_string(first) + ' ' + wrong);
    std::string path = pathOf(first);
    if (path.empty())
        refuse("descriptor " + std::to_string(first) + " is a socket without a path");
    prepare(first);
    return ActivatedSocket{Descriptor(first), std::move(path)};
}

} // namespace store
