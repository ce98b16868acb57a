#include "store/cluster/remote.h"

#include <cstring>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/un.h>

namespace {

using store::Remote;
using store::remoteOf;

// The address in plain words.
std::string described(const Remote& remote) {
    char text[INET6_ADDRSTRLEN] = {};
    if (remote.address.ss_family == AF_UNIX)
        return reinterpret_cast<const sockaddr_un*>(&remote.address)->sun_path;
    if (remote.address.ss_family == AF_INET) {
        const auto* const four = reinterpret_cast<const sockaddr_in*>(&remote.address);
        inet_ntop(AF_INET, &four->sin_addr, text, sizeof(text));
        return text + (" " + std::to_string(ntohs(four->sin_port)));
    }
    const auto* const six = reinterpret_cast<const sockaddr_in6*>(&remote.address);
    inet_ntop(AF_INET6, &six->sin6_addr, text, sizeof(text));
    return text + (" " + std::to_string(ntohs(six->sin6_port)));
}

struct Case {
    std::string text;
    std::string address;   // if it is taken
    std::string complaint; // if it is not, behind the remote's name
};

class RemoteTest : public testing::TestWithParam<Case> {};

TEST_P(RemoteTest, IsTakenOrRefusedWithAReason) {
    const Case& tested = GetParam();
    std::string complaint;
    const std::optional<Remote> remote = remoteOf(tested.text, complaint);
    if (!tested.complaint.empty()) {
        EXPECT_FALSE(remote.has_value());
        EXPECT_NE(complaint.find("\": " + tested.complaint), std::string::npos) << complaint;
        EXPECT_EQ(complaint.rfind("remote \"", 0), 0U) << complaint;
        return;
    }
    ASSERT_TRUE(remote.has_value()) << complaint;
    EXPECT_EQ(remote->text, tested.text);
    EXPECT_EQ(described(*remote), tested.address);
    EXPECT_GT(remote->length, 0U);
}

const std::string longPath(107, 'x');

const Case taken[] = {
    {"unix:/run/ovsdb/db.sock", "/run/ovsdb/db.sock", ""}, {"unix:" + longPath, longPath, ""},
    {"tcp:192.168.1.2:6641", "192.168.1.2 6641", ""},      {"tcp:localhost:1", "127.0.0.1 1", ""},
    {"tcp:[fd00::2]:65535", "fd00::2 65535", ""},
};

const Case refused[] = {
    {"", "", "it is none of unix:PATH, tcp:ADDRESS:PORT or tcp:[ADDRESS]:PORT"},
    {"/run/ovsdb/db.sock", "", "it is none of "},
    {"ptcp:6640", "", "it is none of "},
    {"ssl:192.168.1.2:6641", "", "TLS is not spoken here; a member or relay on this device does it"},
    {"unix:", "", "it has no path"},
    {"unix:" + longPath + "x", "", "a socket's path has at most 107 bytes"},
    {std::string("unix:/run\0x", 11), "", "it holds a zero character"},
    {"tcp:", "", "it has no port"},
    {"tcp:192.168.1.2", "", "it has no port"},
    {"tcp:[fd00::2]", "", "it has no port"},
    {"tcp:192.168.1.2:", "", "a port is a number from 1 to 65535"},
    {"tcp:192.168.1.2:0", "", "a port is a number from 1 to 65535"},
    {"tcp:192.168.1.2:65536", "", "a port is a number from 1 to 65535"},
    {"tcp:192.168.1.2:66x", "", "a port is a number from 1 to 65535"},
    {"tcp:192.168.1:6641", "", "\"192.168.1\" is not an address, and names of hosts are not looked up"},
    {"tcp:router:6641", "", "\"router\" is not an address, and names of hosts are not looked up"},
    {"tcp::6641", "", "\"\" is not an address"},
    {"tcp:[]:6641", "", "\"[]\" is not an address"},
    {"tcp:[fd00::x]:6641", "", "\"[fd00::x]\" is not an address"},
    {"tcp:fd00::2:6641", "", "an IPv6 address stands in brackets, tcp:[ADDRESS]:PORT"},
    {"tcp:\x1b[31m:6641", "", "\"?[31m\" is not an address"},
};

INSTANTIATE_TEST_SUITE_P(Taken, RemoteTest, testing::ValuesIn(taken));
INSTANTIATE_TEST_SUITE_P(Refused, RemoteTest, testing::ValuesIn(refused));

} // namespace
