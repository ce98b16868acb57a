#include "cfg/connecting.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

namespace orv::cfg {

using velta::protocol::EResultCode;
namespace code = velta::protocol::code;

namespace {

EResultCode failed(const std::string& what) {
    return EResultCode(code::notConnected, systemText(what));
}

// The time limit for sending is also the one for connect().
EResultCode limitWaiting(int socket, std::chrono::milliseconds patience) {
    timeval limit{};
    limit.tv_sec = static_cast<decltype(limit.tv_sec)>(patience.count() / 1000);
    limit.tv_usec = static_cast<decltype(limit.tv_usec)>(patience.count() % 1000 * 1000);
    if (setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) != 0)
        return failed("SO_SNDTIMEO");
    return {};
}

int connectOnce(int socket, const sockaddr_un& address) {
    int result = -1;
    do
        result = connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    while (result != 0 && errno == EINTR);
    return result;
}

EResultCode connectWaiting(const std::string& socketPath, const sockaddr_un& address,
                           std::chrono::milliseconds patience, int socket) {
    const EResultCode limited = limitWaiting(socket, patience);
    if (!limited.ok())
        return limited;
    if (connectOnce(socket, address) != 0) {
        if (errno == EAGAIN)
            return EResultCode(code::tooManyClients, "those who want to connect fill its queue");
        return failed(socketPath);
    }
    return fcntl(socket, F_SETFL, O_NONBLOCK) == 0 ? EResultCode() : failed("fcntl");
}

} // namespace

EResultCode connectTo(const std::string& socketPath, std::chrono::milliseconds patience, int& socket) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socketPath.empty()) // connect() would take it for an abstract name
        return EResultCode(code::notConnected, "the path of the socket is empty");
    if (socketPath.size() >= sizeof address.sun_path)
        return EResultCode(code::notConnected, socketPath + ": path is too long for a socket");
    std::copy(socketPath.begin(), socketPath.end(), address.sun_path);
    const bool waits = patience.count() > 0;
    socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | (waits ? 0 : SOCK_NONBLOCK), 0);
    if (socket < 0)
        return failed("socket");
    if (waits)
        return connectWaiting(socketPath, address, patience, socket);
    // A full queue answers EAGAIN: a refusal like any other, the caller tries again later.
    return connectOnce(socket, address) == 0 ? EResultCode() : failed(socketPath);
}

std::string systemText(const std::string& what) {
    return what + ": " + std::strerror(errno);
}

} // namespace orv::cfg
