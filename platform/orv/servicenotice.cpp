#include "orv/servicenotice.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace orv {

namespace {

constexpr char abstractName = '@'; // stands for a zero, which a variable can't hold

bool isWorthAnotherAttempt(int error) noexcept {
    return error == EAGAIN || error == EINTR || error == ENOBUFS || error == ENOMEM || error == EMFILE ||
           error == ENFILE;
}

bool sendTo(const sockaddr_un& address, std::size_t pathLength, std::string_view text) noexcept {
    const int made = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (made < 0)
        return !isWorthAnotherAttempt(errno);
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + pathLength);
    const bool sent = sendto(made, text.data(), text.size(), MSG_NOSIGNAL,
                             reinterpret_cast<const sockaddr*>(&address), size) >= 0 ||
                      !isWorthAnotherAttempt(errno);
    close(made);
    return sent;
}

} // namespace

bool tellServiceManager(std::string_view assignments) noexcept {
    const char* const path = std::getenv("NOTIFY_SOCKET");
    if (path == nullptr || (path[0] != '/' && path[0] != abstractName))
        return true;
    sockaddr_un address{};
    const std::size_t length = strnlen(path, sizeof address.sun_path + 1);
    if (length > sizeof address.sun_path)
        return true;
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path, length);
    if (path[0] == abstractName)
        address.sun_path[0] = '\0';
    return sendTo(address, length, assignments);
}

} // namespace orv
