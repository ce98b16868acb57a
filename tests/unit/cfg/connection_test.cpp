#include "cfg/connection.h"
#include "unit/cfg/support.h"

#include <csignal>
#include <fstream>
#include <future>
#include <thread>

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace orv::cfg {

using fakes::replyTo;
using fakes::ScriptedServer;
using support::CapturedLog;
using velta::protocol::EResultCode;
using velta::protocol::Reply;
using velta::protocol::ReplyKind;
using velta::protocol::Request;
using velta::protocol::RequestKind;
namespace code = velta::protocol::code;

namespace {

Request commitRequest() {
    Request request;
    request.kind = RequestKind::Commit;
    return request;
}

EResultCode commit(Connection& connection) {
    Request request = commitRequest();
    Reply reply;
    return connection.exchange(request, reply);
}

class ConnectionTest : public testing::Test {
protected:
    ScriptedServer server;
    Connection connection{server.socketPath(), support::clientName, 1};
};

std::string turnedAway(int code) {
    Reply reply;
    reply.kind = ReplyKind::Failed;
    reply.result = EResultCode(code);
    return fakes::frameOf(reply);
}

} // namespace

TEST_F(ConnectionTest, GreetsWithItsVersionAndName) {
    ASSERT_TRUE(connection.open().ok());
    const Request hello = server.last(RequestKind::Hello);
    EXPECT_EQ(hello.number, velta::protocol::version);
    EXPECT_EQ(hello.key, support::clientName);
}

TEST_F(ConnectionTest, ServerOfAnotherVersionIsRefusedWithOneWarningHoweverOftenItIsTried) {
    server.answer(RequestKind::Hello, [](const Request& request) {
        Reply reply = replyTo(request);
        reply.number = velta::protocol::version + 1;
        return fakes::frameOf(reply);
    });
    CapturedLog log;
    EXPECT_EQ(connection.open().code(), code::wrongVersion);
    EXPECT_EQ(connection.open().code(), code::wrongVersion);
    EXPECT_FALSE(connection.isOpen());
    EXPECT_EQ(log.warnings(), 1) << log.text();
}

TEST_F(ConnectionTest, ReasonForBeingTurnedAwayIsToldEvenIfTheServerClosedAlready) {
    server.turnAway(turnedAway(code::tooManyClients));
    const CapturedLog log;
    for (int attempt = 0; attempt < 200; ++attempt)
        EXPECT_EQ(connection.open().code(), code::tooManyClients);
}

TEST_F(ConnectionTest, ComplaintIsLoggedAgainAfterItWasForgotten) {
    server.turnAway(turnedAway(code::tooManyClients));
    CapturedLog log;
    (void)connection.open(); // the log is what counts here
    connection.forgetComplaint();
    (void)connection.open();
    EXPECT_EQ(log.count("too many clients"), 2) << log.text();
}

TEST_F(ConnectionTest, ServerThatIsNotThereIsSilent) {
    server.stopListening();
    CapturedLog log;
    const EResultCode result = connection.open();
    EXPECT_EQ(result.code(), code::notConnected);
    EXPECT_NE(result.strerror().find(server.socketPath()), std::string::npos) << result.strerror();
    EXPECT_EQ(log.text(), "");
}

TEST_F(ConnectionTest, ServerThatClosesDuringTheGreetingIsSilent) {
    server.closeWithin(RequestKind::Hello, 0);
    CapturedLog log;
    EXPECT_EQ(connection.open().code(), code::notConnected);
    EXPECT_EQ(log.text(), "");
}

TEST_F(ConnectionTest, WhatIsNoSocketIsNotConnectedTo) {
    const std::string file = server.directory() + "/file";
    const std::string link = server.directory() + "/link";
    std::ofstream(file) << "content";
    ASSERT_EQ(symlink("nowhere", link.c_str()), 0);
    const std::string paths[] = {file, link, server.directory(), "", std::string(200, 'x')};
    for (const std::string& path : paths) {
        Connection toNothing(path, support::clientName, 1);
        EXPECT_EQ(toNothing.open().code(), code::notConnected) << path;
        EXPECT_FALSE(toNothing.isOpen());
    }
    unlink(file.c_str());
    unlink(link.c_str());
}

TEST_F(ConnectionTest, PathTooLongSaysSo) {
    Connection tooLong(std::string(108, 'x'), support::clientName, 1);
    EXPECT_NE(tooLong.open().strerror().find("too long"), std::string::npos);
}

// A server of another user is none to trust; only root can start one.
TEST(ConnectionPeer, ServerOfAnotherUserIsRefusedWithAWarning) {
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root";
    char directory[] = "/tmp/othersserver.XXXXXX";
    ASSERT_NE(mkdtemp(directory), nullptr);
    ASSERT_EQ(chmod(directory, 0777), 0);
    const std::string path = std::string(directory) + "/socket";
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
        const bool ready = setuid(65534) == 0 &&
                           bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                           chmod(path.c_str(), 0777) == 0 && listen(listener, 1) == 0;
        char byte = ready ? 'y' : 'n';
        close(pair[0]);
        if (write(pair[1], &byte, 1) == 1)
            (void)!read(pair[1], &byte, 1); // until the test has seen enough
        _exit(0);
    }
    close(pair[1]);
    pollfd ready = {pair[0], POLLIN, 0};
    char answer = 0;
    ASSERT_EQ(poll(&ready, 1, 5000), 1);
    ASSERT_EQ(read(pair[0], &answer, 1), 1);
    ASSERT_EQ(answer, 'y');

    CapturedLog log;
    Connection connection(path, support::clientName, 1);
    EXPECT_EQ(connection.open().code(), code::notPermitted);
    EXPECT_FALSE(connection.isOpen());
    EXPECT_EQ(log.count("user 65534"), 1) << log.text();

    close(pair[0]);
    waitpid(child, nullptr, 0);
    unlink(path.c_str());
    rmdir(directory);
}

TEST_F(ConnectionTest, OperationOnAClosedConnectionSaysNotConnected) {
    EXPECT_EQ(commit(connection).code(), code::notConnected);
}

TEST_F(ConnectionTest, FailureThatTheStoreAnsweredLeavesTheConnectionOpen) {
    ASSERT_TRUE(connection.open().ok());
    server.refuse(RequestKind::Commit, code::storageFull);
    EXPECT_EQ(commit(connection).code(), code::storageFull);
    EXPECT_TRUE(connection.isOpen());
}

TEST_F(ConnectionTest, ClosingIsToldOnceWhileTheDescriptorIsOne) {
    ASSERT_TRUE(connection.open().ok());
    std::vector<int> descriptors;
    connection.onClose([&](const EResultCode&) { descriptors.push_back(connection.descriptor()); });
    const int descriptor = connection.descriptor();
    connection.close();
    connection.close();
    EXPECT_EQ(descriptors, std::vector<int>{descriptor});
    EXPECT_EQ(connection.descriptor(), -1);
}

namespace {

volatile std::sig_atomic_t ticks = 0;

// Interrupts every system call of the thread, as often as it can.
class Ticking {
public:
    Ticking() {
        struct sigaction action {};
        action.sa_handler = [](int) { ticks = ticks + 1; };
        sigaction(SIGALRM, &action, &before_);
        const itimerval often = {{0, 5000}, {0, 5000}};
        setitimer(ITIMER_REAL, &often, nullptr);
    }
    ~Ticking() {
        const itimerval never = {};
        setitimer(ITIMER_REAL, &never, nullptr);
        sigaction(SIGALRM, &before_, nullptr);
    }
    Ticking(const Ticking&) = delete;
    Ticking& operator=(const Ticking&) = delete;

private:
    struct sigaction before_ {};
};

} // namespace

TEST_F(ConnectionTest, UnansweredOperationFailsAfterTheTimeOutWhateverSignalsArrive) {
    ASSERT_TRUE(connection.open().ok());
    server.neverAnswer(RequestKind::Commit);
    CapturedLog log;
    const Ticking ticking;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(commit(connection).code(), code::timedOut);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
    EXPECT_GT(ticks, 1);
    EXPECT_FALSE(connection.isOpen());
    EXPECT_EQ(log.warnings(), 1) << log.text();
}

TEST_F(ConnectionTest, UnansweredGreetingFailsSilentlyAfterTheTimeOut) {
    server.neverAnswer(RequestKind::Hello);
    CapturedLog log;
    EXPECT_EQ(connection.open().code(), code::timedOut);
    EXPECT_EQ(log.text(), "");
}

// The store is busy with another client, and the request is larger than what the socket holds.
TEST_F(ConnectionTest, RequestThatTheStoreDoesNotTakeFailsAfterTheTimeOut) {
    ASSERT_TRUE(connection.open().ok());
    std::promise<void> isBusy;
    std::promise<void> mayGoOn;
    server.answer(RequestKind::Begin, [&](const Request& request) {
        isBusy.set_value();
        mayGoOn.get_future().wait();
        return fakes::frameOf(replyTo(request));
    });
    std::thread other([this] {
        Connection busy(server.socketPath(), "other", 60);
        Request begin;
        begin.kind = RequestKind::Begin;
        Reply reply;
        EXPECT_TRUE(busy.open().ok());
        EXPECT_TRUE(busy.exchange(begin, reply).ok());
    });
    isBusy.get_future().wait();

    const CapturedLog log;
    Request large;
    large.kind = RequestKind::Insert;
    large.values = support::row(1, std::string(velta::protocol::frameLimit / 2, 'x'));
    Reply reply;
    const EResultCode result = connection.exchange(large, reply);
    mayGoOn.set_value();
    other.join();

    EXPECT_EQ(result.code(), code::timedOut);
    EXPECT_FALSE(connection.isOpen());
    EXPECT_EQ(log.warnings(), 1) << log.text();
}

TEST_F(ConnectionTest, NoticesWithoutEndDoNotStretchTheTimeOut) {
    ASSERT_TRUE(connection.open().ok());
    Reply notice;
    notice.kind = ReplyKind::Notice;
    notice.names = {"A"};
    std::string flood;
    for (int i = 0; i < 100000; ++i)
        flood += fakes::frameOf(notice);
    server.answer(RequestKind::Commit,
                  [flood](const Request&) { // the server may still be at it when the test is over
                      std::string bytes;
                      for (int i = 0; i < 40; ++i)
                          bytes += flood;
                      return bytes;
                  });
    const CapturedLog log;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(commit(connection).code(), code::timedOut);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
}

TEST_F(ConnectionTest, NoticeBehindAnAnswerIsTakenThoughNothingFollows) {
    ASSERT_TRUE(connection.open().ok());
    server.answer(RequestKind::Commit, [](const Request& request) {
        Reply notice;
        notice.kind = ReplyKind::Notice;
        notice.names = {"A", "B"};
        return fakes::frameOf(replyTo(request)) + fakes::frameOf(notice);
    });
    ASSERT_TRUE(commit(connection).ok());
    connection.receive();
    EXPECT_EQ(connection.takeNotices(), (velta::NameList{"A", "B"}));
}

TEST_F(ConnectionTest, ServerThatClosesBehindANoticeDidNotCloseWithinAFrame) {
    ASSERT_TRUE(connection.open().ok());
    server.answer(RequestKind::Commit, [](const Request& request) {
        Reply notice;
        notice.kind = ReplyKind::Notice;
        notice.names = {"A"};
        return fakes::frameOf(replyTo(request)) + fakes::frameOf(notice);
    });
    ASSERT_TRUE(commit(connection).ok());
    server.closeClients();
    CapturedLog log;
    connection.receive();
    EXPECT_FALSE(connection.isOpen());
    EXPECT_EQ(log.count("closed by the store"), 1) << log.text();
}

TEST_F(ConnectionTest, ClosingForgetsTheNotices) {
    ASSERT_TRUE(connection.open().ok());
    server.notify({"A"});
    connection.receive();
    connection.close();
    EXPECT_EQ(connection.takeNotices(), velta::NameList());
}

TEST_F(ConnectionTest, TableThatIsNotifiedWithoutEndIsMerged) {
    ASSERT_TRUE(connection.open().ok());
    for (int i = 0; i < 10; ++i) {
        server.notify(velta::NameList(1000, "A"));
        connection.receive();
    }
    EXPECT_TRUE(connection.isOpen());
    EXPECT_EQ(connection.takeNotices().size(), 1000u);
}

TEST_F(ConnectionTest, HalfAFrameIsForgottenWithItsConnection) {
    const CapturedLog log;
    ASSERT_TRUE(connection.open().ok());
    server.send(std::string("\0\0\0\x20\x84", 5));
    ASSERT_TRUE(support::until([this] {
        pollfd ready{connection.descriptor(), POLLIN, 0};
        return poll(&ready, 1, 1000) == 1;
    }));
    connection.receive();
    connection.close();
    ASSERT_TRUE(connection.open().ok());
    EXPECT_TRUE(commit(connection).ok());
    EXPECT_EQ(log.lines(), 0) << log.text();
}

} // namespace orv::cfg
