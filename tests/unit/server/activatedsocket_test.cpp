#include "store/server/activatedsocket.h"
#include "store/server/listeningsocket.h"
#include "store/server/socketwatch.h"
#include "support/temporarydirectory.h"

#include <cstdlib>
#include <functional>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using store::takeActivatedSocket;
using testing::HasSubstr;

// A socket with that path or abstract name ('@' in front), or without a name.
int boundSocket(int type, const std::string& name = "") {
    const int made = socket(AF_UNIX, type, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path, sizeof address.sun_path);
    if (!name.empty() && name[0] == '@')
        address.sun_path[0] = '\0';
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    if (name.empty())
        return made;
    EXPECT_EQ(bind(made, reinterpret_cast<const sockaddr*>(&address), size), 0) << strerror(errno);
    return made;
}

int listeningSocket(const std::string& name, int type = SOCK_STREAM) {
    const int made = boundSocket(type, name);
    EXPECT_EQ(listen(made, 8), 0) << strerror(errno);
    return made;
}

void announce(const std::string& process, const std::string& count) {
    setenv("LISTEN_PID", process.c_str(), 1);
    setenv("LISTEN_FDS", count.c_str(), 1);
    setenv("LISTEN_FDNAMES", "cfgserver.socket", 1);
}

std::string errorOf(int first) {
    try {
        (void)takeActivatedSocket(first);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "none";
}

class ActivatedSocketTest : public testing::Test {
protected:
    ActivatedSocketTest() { announce(self, "1"); }
    ~ActivatedSocketTest() override {
        for (const char* const name : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"})
            unsetenv(name);
    }

    const std::string self = std::to_string(getpid());
    const TemporaryDirectory directory;
    const std::string path = directory.path("socket");
};

TEST_F(ActivatedSocketTest, IsTakenWithItsPath) {
    const int passed = listeningSocket(path);

    const auto taken = takeActivatedSocket(passed);

    ASSERT_TRUE(taken);
    EXPECT_EQ(taken->descriptor.get(), passed);
    EXPECT_EQ(taken->path, path);
}

TEST_F(ActivatedSocketTest, PathMayFillTheAddress) {
    const std::string longest = directory.path(std::string(108 - directory.path("").size(), 'x'));
    ASSERT_EQ(longest.size(), sizeof(sockaddr_un::sun_path));

    const auto taken = takeActivatedSocket(listeningSocket(longest));

    ASSERT_TRUE(taken);
    EXPECT_EQ(taken->path, longest);
}

TEST_F(ActivatedSocketTest, NeitherBlocksNorOutlivesTheProgram) {
    const auto taken = takeActivatedSocket(listeningSocket(path));

    ASSERT_TRUE(taken);
    EXPECT_NE(fcntl(taken->descriptor.get(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(fcntl(taken->descriptor.get(), F_GETFD), FD_CLOEXEC);
}

TEST_F(ActivatedSocketTest, VariablesAreGoneAfterwards) {
    const std::string counts[] = {"1", "x"};
    for (const std::string& count : counts) {
        announce(self, count);
        (void)errorOf(-1);

        for (const char* const name : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"})
            EXPECT_EQ(std::getenv(name), nullptr) << name;
    }
}

TEST_F(ActivatedSocketTest, WhatIsMeantForAnotherProcessIsLeftAlone) {
    const int passed = listeningSocket(path);
    const std::string others[] = {"1", "", "x", self + "0", '0' + self};
    for (const std::string& process : others) {
        announce(process, "1");

        EXPECT_FALSE(takeActivatedSocket(passed)) << process;
    }
    EXPECT_GE(fcntl(passed, F_GETFD), 0) << "still open";
    close(passed);
}

TEST_F(ActivatedSocketTest, NoneIsTakenWithoutTheVariables) {
    unsetenv("LISTEN_FDS");
    EXPECT_FALSE(takeActivatedSocket(0));
    announce(self, "1");
    unsetenv("LISTEN_PID");
    EXPECT_FALSE(takeActivatedSocket(0));
}

TEST_F(ActivatedSocketTest, AnyCountButOneIsRefused) {
    const int passed = listeningSocket(path);
    const std::string counts[] = {"x", "-1", "2", "0", "", "01", " 1", "1 ", "99999999999999999999"};
    for (const std::string& count : counts) {
        announce(self, count);

        EXPECT_EQ(errorOf(passed),
                  "the service manager has to pass one listening Unix stream socket, but LISTEN_FDS is '" +
                      count + "'");
    }
    close(passed);
}

TEST_F(ActivatedSocketTest, AnythingButAListeningSocketWithAPathIsRefused) {
    struct Case {
        std::function<int()> make;
        const char* wrong;
    };
    const Case cases[] = {
        {[] { return 999; }, "is not open"},
        {[] { return open("/dev/null", O_RDONLY); }, "is no socket"},
        {[] { return socket(AF_INET, SOCK_STREAM, 0); }, "is no Unix socket"},
        {[this] { return boundSocket(SOCK_DGRAM, path + "1"); }, "is no stream socket"},
        {[this] { return listeningSocket(path + "2", SOCK_SEQPACKET); }, "is no stream socket"},
        {[this] { return boundSocket(SOCK_STREAM, path + "3"); }, "does not listen"},
        {[] { return boundSocket(SOCK_STREAM); }, "does not listen"},
        {[this] { return listeningSocket("@horad-test-" + self); }, "is a socket without a path"},
    };
    for (const Case& given : cases) {
        announce(self, "1");
        const int passed = given.make();

        EXPECT_THAT(errorOf(passed), HasSubstr("descriptor " + std::to_string(passed) + ' ' + given.wrong));
        close(passed);
    }
}

TEST_F(ActivatedSocketTest, ServerLeavesFileAndModeAlone) {
    const int passed = listeningSocket(path);
    ASSERT_EQ(chmod(path.c_str(), 0620), 0);
    {
        const store::ListeningSocket served(*takeActivatedSocket(passed));

        EXPECT_EQ(served.descriptor(), passed);
        EXPECT_EQ(served.path(), path);
        EXPECT_EQ(served.whyUnreachable(), "");
    }
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0620U);
}

TEST_F(ActivatedSocketTest, ThatWasRemovedBeforeTheStartIsLogged) {
    const int passed = listeningSocket(path);
    std::filesystem::remove(path);
    const store::ListeningSocket served(*takeActivatedSocket(passed));
    velta::net::EventDispatcher dispatcher;
    testing::internal::CaptureStderr();
    const store::SocketWatch watch(dispatcher, served);

    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("no new client finds the socket " + path + ": it was removed or moved away"));
}

} // namespace
