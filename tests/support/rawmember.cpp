#include "support/rawmember.h"

#include <array>
#include <stdexcept>
#include <system_error>

#include <poll.h>
#include <sys/socket.h>

using store::Json;
using store::JsonStream;

namespace {

constexpr std::size_t messageLimit = std::size_t{16} * 1024 * 1024; // bytes

int checked(int result, const char* call) {
    if (result < 0)
        throw std::system_error(errno, std::generic_category(), call);
    return result;
}

bool isReadable(const store::Descriptor& descriptor, int milliseconds) {
    pollfd watched{descriptor.get(), POLLIN, 0};
    return ::poll(&watched, 1, milliseconds) == 1;
}

void waitFor(const store::Descriptor& descriptor, const char* what) {
    if (!isReadable(descriptor, 10000))
        throw std::runtime_error(std::string("the member waits in vain for ") + what);
}

store::Remote remoteAt(const std::string& path) {
    std::string complaint;
    const std::optional<store::Remote> remote = store::remoteOf("unix:" + path, complaint);
    if (!remote)
        throw std::runtime_error(complaint);
    return *remote;
}

} // namespace

RawMember::RawMember(const store::Remote& remote)
    : remote_(remote),
      listening_(checked(socket(remote.address.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket")),
      input_(messageLimit) {
    auto* const address = reinterpret_cast<sockaddr*>(&remote_.address);
    checked(bind(listening_.get(), address, remote_.length), "bind");
    checked(listen(listening_.get(), 8), "listen");
    if (address->sa_family != AF_UNIX)
        checked(getsockname(listening_.get(), address, &remote_.length), "getsockname");
}

RawMember::RawMember(const std::string& path) : RawMember(remoteAt(path)) {}

bool RawMember::isCalled() const {
    return isReadable(listening_, 0);
}

void RawMember::accept() {
    waitFor(listening_, "a connection");
    connection_.emplace(checked(accept4(listening_.get(), nullptr, nullptr, SOCK_CLOEXEC), "accept4"));
    input_ = JsonStream(messageLimit);
}

void RawMember::sendBytes(const std::string& bytes) const {
    if (::send(connection_->get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(bytes.size()))
        throw std::runtime_error("the member can't send");
}

void RawMember::answer(const Json& id, const Json& result, const Json& error) const {
    send({{"id", id}, {"result", result}, {"error", error}});
}

std::optional<Json> RawMember::poll() {
    while (true) {
        std::string_view message;
        const JsonStream::Next next = input_.next(message);
        if (next == JsonStream::Next::Message)
            return Json::parse(message);
        if (next == JsonStream::Next::Broken)
            throw std::runtime_error("the member was sent " + input_.complaint());
        if (!isReadable(*connection_, 0))
            return std::nullopt;
        const std::string bytes = read();
        if (bytes.empty())
            throw std::runtime_error("the member was left");
        input_.append(bytes);
    }
}

Json RawMember::receive() {
    std::optional<Json> message = poll();
    for (; !message; message = poll())
        waitFor(*connection_, "a message");
    return *message;
}

bool RawMember::isLeft() {
    while (isReadable(*connection_, 0))
        if (read().empty())
            return true;
    return false;
}

// What has arrived; empty if the other end closed the connection.
std::string RawMember::read() {
    std::array<char, 65536> bytes; // filled by recv
    const ssize_t size = recv(connection_->get(), bytes.data(), bytes.size(), 0);
    return {bytes.data(), size > 0 ? static_cast<std::size_t>(size) : 0};
}
