#include "cfg/connection.h"
#include "unit/cfg/support.h"

#include <algorithm>
#include <atomic>
#include <fstream>
#include <thread>

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace orv::cfg {

using velta::protocol::EResultCode;
namespace code = velta::protocol::code;
using namespace std::chrono_literals;

namespace {

// A store that accepts nobody of itself, and whose queue is full.
class FullQueue : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(mkdtemp(directory.data()), nullptr);
        path = directory + "/socket";
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::copy(path.begin(), path.end(), address.sun_path);
        const auto* const name = reinterpret_cast<const sockaddr*>(&address);
        listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        ASSERT_EQ(bind(listener, name, sizeof address), 0);
        ASSERT_EQ(listen(listener, 0), 0);
        const timeval limit = {5, 0}; // of a test that goes wrong
        ASSERT_EQ(setsockopt(listener, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit), 0);
        waiting = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        ASSERT_EQ(connect(waiting, name, sizeof address), 0);
    }

    void TearDown() override {
        close(waiting);
        close(listener);
        unlink(path.c_str());
        rmdir(directory.c_str());
    }

    std::string directory = "/tmp/connecting.XXXXXX";
    std::string path;
    int listener = -1;
    int waiting = -1;
};

// Whether a thread of this process waits in the system.
bool sleeps(pid_t thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string line;
    std::getline(file, line);
    const std::size_t name = line.rfind(") ");
    return name != std::string::npos && line[name + 2] == 'S';
}

// Answers a greeting as a store does.
void greet(int client) {
    char bytes[1024];
    ASSERT_GT(recv(client, bytes, sizeof bytes, 0), 0);
    velta::protocol::Reply done;
    done.sequence = 1;
    done.number = velta::protocol::version;
    const std::string answer = fakes::frameOf(done);
    ASSERT_EQ(send(client, answer.data(), answer.size(), MSG_NOSIGNAL), static_cast<ssize_t>(answer.size()));
}

} // namespace

TEST_F(FullQueue, IsAStoreThatIsNotThereForWhoeverHasNoPatience) {
    Connection connection(path, support::clientName, 1);

    const EResultCode result = connection.open();

    EXPECT_EQ(result.code(), code::notConnected);
    EXPECT_EQ(result.detail(), path + ": Resource temporarily unavailable");
}

TEST_F(FullQueue, IsToldAsWhatItIsWhenPatienceEnds) {
    Connection connection(path, support::clientName, 1);
    const auto begin = std::chrono::steady_clock::now();

    const EResultCode result = connection.open(200ms);

    EXPECT_EQ(result.strerror(), "too many clients: those who want to connect fill its queue");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 200ms);
    EXPECT_FALSE(connection.isOpen());
}

TEST_F(FullQueue, LetsTheNextOneInWhenThereIsAPlace) {
    Connection connection(path, support::clientName, 10);
    EResultCode result(code::failure);
    std::atomic<pid_t> thread = 0;
    std::thread opening([&] {
        thread = gettid();
        result = connection.open(10s);
    });
    EXPECT_TRUE(support::until([&] { return thread != 0 && sleeps(thread); }));

    close(accept(listener, nullptr, nullptr));
    const int client = accept(listener, nullptr, nullptr);
    greet(client);
    opening.join();

    EXPECT_TRUE(result.ok()) << result.strerror();
    EXPECT_TRUE(connection.isOpen());
    close(client);
}

} // namespace orv::cfg
