#include "orv/servicenotice.h"
#include "support/loweredlimit.h"
#include "support/temporarydirectory.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using orv::tellServiceManager;

// Listens as a service manager does. An '@' in front makes the name an abstract one.
class Manager {
public:
    explicit Manager(const std::string& name) : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        name.copy(address.sun_path, sizeof address.sun_path);
        if (name[0] == '@')
            address.sun_path[0] = '\0';
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
        EXPECT_EQ(bind(socket_, reinterpret_cast<const sockaddr*>(&address), size), 0) << strerror(errno);
        setenv("NOTIFY_SOCKET", name.c_str(), 1);
    }
    ~Manager() { close(socket_); }
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

    // The next datagram that is there; "nothing" where there is none.
    std::string heard() const {
        char text[256];
        const ssize_t size = recv(socket_, text, sizeof text, 0);
        return size < 0 ? "nothing" : std::string(text, static_cast<std::size_t>(size));
    }

private:
    int socket_;
};

class ServiceNoticeTest : public ::testing::Test {
protected:
    ~ServiceNoticeTest() override { unsetenv("NOTIFY_SOCKET"); }

    const TemporaryDirectory directory;
    const std::string path = directory.path("notify");
};

int openDescriptors() {
    int found = 0;
    for (int descriptor = 0; descriptor < 256; ++descriptor)
        if (fcntl(descriptor, F_GETFD) >= 0)
            ++found;
    return found;
}

TEST_F(ServiceNoticeTest, ArrivesAtThePathAsOneDatagram) {
    const Manager manager(path);

    EXPECT_TRUE(tellServiceManager("READY=1\nSTATUS=WLAN on"));

    EXPECT_EQ(manager.heard(), "READY=1\nSTATUS=WLAN on");
    EXPECT_EQ(manager.heard(), "nothing");
}

TEST_F(ServiceNoticeTest, ArrivesAtAnAbstractName) {
    const Manager manager("@horad-test-" + std::to_string(getpid()));

    EXPECT_TRUE(tellServiceManager("STOPPING=1"));

    EXPECT_EQ(manager.heard(), "STOPPING=1");
}

TEST_F(ServiceNoticeTest, ArrivesAtANameThatFillsAnAddress) {
    const std::string start = "@horad-test-" + std::to_string(getpid()) + '-';
    const Manager manager(start + std::string(sizeof(sockaddr_un::sun_path) - start.size(), 'x'));

    EXPECT_TRUE(tellServiceManager("READY=1"));

    EXPECT_EQ(manager.heard(), "READY=1");
}

TEST_F(ServiceNoticeTest, NothingIsSentWithoutTheVariable) {
    const Manager manager(path);
    unsetenv("NOTIFY_SOCKET");

    EXPECT_TRUE(tellServiceManager("READY=1"));

    EXPECT_EQ(manager.heard(), "nothing");
}

TEST_F(ServiceNoticeTest, NothingIsTriedAgainWhereNobodyCanListen) {
    const std::string tooLong(sizeof(sockaddr_un::sun_path), 'x');
    for (const std::string& name : {std::string(), path, std::string("@"), std::string("vsock:2:1"),
                                    std::string("relative"), '/' + tooLong, '@' + tooLong}) {
        setenv("NOTIFY_SOCKET", name.c_str(), 1);

        EXPECT_TRUE(tellServiceManager("READY=1")) << name;
    }
}

TEST_F(ServiceNoticeTest, FullQueueHoldsNobodyUpAndIsWorthAnotherAttempt) {
    const Manager manager(path);
    int sent = 0;
    while (sent < 100000 && tellServiceManager("STATUS=ballast"))
        ++sent;
    ASSERT_LT(sent, 100000) << "no queue is that long";
    EXPECT_EQ(manager.heard(), "STATUS=ballast");

    EXPECT_TRUE(tellServiceManager("STATUS=WLAN on"));
}

TEST_F(ServiceNoticeTest, LackOfDescriptorsIsWorthAnotherAttempt) {
    const Manager manager(path);
    const LoweredLimit none(RLIMIT_NOFILE, 0);
    EXPECT_FALSE(tellServiceManager("READY=1"));
}

TEST_F(ServiceNoticeTest, NoDescriptorStaysOpen) {
    const Manager manager(path);
    const int before = openDescriptors();

    (void)tellServiceManager("STATUS=WLAN on");
    setenv("NOTIFY_SOCKET", directory.path("nobody").c_str(), 1);
    (void)tellServiceManager("STATUS=WLAN on");

    EXPECT_EQ(openDescriptors(), before);
}

} // namespace
