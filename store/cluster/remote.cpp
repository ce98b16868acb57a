#include "store/cluster/remote.h"

#include "store/storage/cells.h"
#include "velta/text.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/un.h>

namespace store {

namespace {

constexpr std::string_view forms = "unix:PATH, tcp:ADDRESS:PORT or tcp:[ADDRESS]:PORT";
constexpr std::int64_t lastPort = 65535;

std::optional<Remote> refused(std::string& complaint, const std::string& text, const std::string& reason) {
    complaint = "remote \"" + shown(text) + "\": " + reason;
    return std::nullopt;
}

template <typename Address>
void setAddress(Remote& remote, const Address& address) {
    static_assert(sizeof(address) <= sizeof(remote.address));
    std::memcpy(&remote.address, &address, sizeof(address));
    remote.length = sizeof(address);
}

std::optional<Remote> unixRemote(const std::string& text, const std::string& path, std::string& complaint) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty())
        return refused(complaint, text, "it has no path");
    if (path.size() >= sizeof(address.sun_path))
        return refused(complaint, text,
                       "a socket's path has at most " + std::to_string(sizeof(address.sun_path) - 1) +
                           " bytes");
    std::copy(path.begin(), path.end(), address.sun_path);
    Remote remote;
    remote.text = text;
    setAddress(remote, address);
    return remote;
}

std::optional<std::uint16_t> portOf(const std::string& text) {
    const std::optional<std::int64_t> port = velta::wholeNumber(text);
    if (!port || *port < 1 || *port > lastPort)
        return std::nullopt;
    return static_cast<std::uint16_t>(*port);
}

std::optional<sockaddr_in> address4(const std::string& host, std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    const std::string number = host == "localhost" ? "127.0.0.1" : host;
    if (inet_pton(AF_INET, number.c_str(), &address.sin_addr) != 1)
        return std::nullopt;
    return address;
}

std::optional<sockaddr_in6> address6(const std::string& host, std::uint16_t port) {
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(port);
    if (host.size() < 2 || host.front() != '[' || host.back() != ']' ||
        inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), &address.sin6_addr) != 1)
        return std::nullopt;
    return address;
}

std::optional<Remote> tcpRemote(const std::string& text, const std::string& place, std::string& complaint) {
    const std::size_t colon = place.rfind(':');
    if (colon == std::string::npos || place.back() == ']')
        return refused(complaint, text, "it has no port");
    const std::optional<std::uint16_t> port = portOf(place.substr(colon + 1));
    if (!port)
        return refused(complaint, text, "a port is a number from 1 to " + std::to_string(lastPort));
    const std::string host = place.substr(0, colon);
    Remote remote;
    remote.text = text;
    if (const std::optional<sockaddr_in> four = address4(host, *port))
        setAddress(remote, *four);
    else if (const std::optional<sockaddr_in6> six = address6(host, *port))
        setAddress(remote, *six);
    else if (host.find(':') != std::string::npos && host.front() != '[')
        return refused(complaint, text, "an IPv6 address stands in brackets, tcp:[ADDRESS]:PORT");
    else
        return refused(complaint, text,
                       '"' + shown(host) + "\" is not an address, and names of hosts are not looked up");
    return remote;
}

} // namespace

std::optional<Remote> remoteOf(const std::string& text, std::string& complaint) {
    if (text.find('\0') != std::string::npos)
        return refused(complaint, text, "it holds a zero character");
    const std::size_t colon = text.find(':');
    const std::string method = text.substr(0, colon);
    const std::string place = colon == std::string::npos ? std::string() : text.substr(colon + 1);
    if (method == "unix")
        return unixRemote(text, place, complaint);
    if (method == "tcp")
        return tcpRemote(text, place, complaint);
    if (method == "ssl")
        return refused(complaint, text,
                       "TLS is not spoken here; a member or relay on this device does it, and is reached by "
                       "unix:PATH");
    return refused(complaint, text, "it is none of " + std::string(forms));
}

} // namespace store
