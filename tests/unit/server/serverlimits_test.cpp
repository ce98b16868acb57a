#include "unit/server/serverfixture.h"

#include <filesystem>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

namespace code = velta::protocol::code;

store::ServerOptions fewClients() {
    store::ServerOptions options;
    options.places = {2, 0, 2};
    options.greeting = std::chrono::milliseconds(30);
    return options;
}

class LimitTest : public ServerTest {
protected:
    LimitTest() : ServerTest(fewClients()) {}
};

TEST_F(LimitTest, OneClientTooManyIsTurnedAway) {
    const Client first = greeted();
    const Client second = greeted();
    const Client third = connect();

    const Answer answer = next(*third);

    EXPECT_EQ(answer.reply.result.code(), code::tooManyClients);
    EXPECT_EQ(answer.reply.sequence, 0U);
    EXPECT_TRUE(isClosed(*third));
    EXPECT_EQ(enabled(*first, "Globals"), 1);
}

TEST_F(LimitTest, ClientThatLeavesMakesRoom) {
    const Client first = greeted();
    { const Client second = greeted(); }
    server.handleEvents(1000);

    EXPECT_EQ(enabled(*greeted(), "Globals"), 1);
}

TEST_F(LimitTest, ConnectionThatDoesNotGreetIsClosed) {
    const Client silent = connect();

    EXPECT_TRUE(isClosed(*silent));
}

TEST_F(LimitTest, GreetedClientMayStaySilent) {
    const Client client = greeted();
    const Client silent = connect();
    ASSERT_TRUE(isClosed(*silent)); // so the time to greet is over for both

    EXPECT_EQ(enabled(*client, "Globals"), 1);
}

std::size_t openDescriptors() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

TEST_F(ServerTest, AllThatWaitInLineComeInInOneTurn) {
    std::vector<Client> clients;
    for (int i = 0; i < 100; ++i)
        clients.push_back(connect());
    const std::size_t before = openDescriptors();

    server.handleEvents(0);

    EXPECT_EQ(openDescriptors(), before + clients.size());
    for (const Client& client : clients)
        ASSERT_TRUE(succeeds(*client, ask::hello()));
}

// The process has no descriptor left while it lives.
class NoDescriptors {
public:
    NoDescriptors() {
        for (int descriptor = dup(0); descriptor >= 0; descriptor = dup(0))
            taken_.push_back(descriptor);
    }
    ~NoDescriptors() {
        for (const int descriptor : taken_)
            close(descriptor);
        setrlimit(RLIMIT_NOFILE, &before_);
    }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

private:
    static rlimit lower() {
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        const rlimit low{64, limit.rlim_max};
        setrlimit(RLIMIT_NOFILE, &low);
        return limit;
    }
    const rlimit before_ = lower();
    std::vector<int> taken_;
};

TEST_F(ServerTest, WithoutDescriptorsTheNewClientWaitsAndTheOthersAreServed) {
    const Client old = greeted();
    const Client late = connect();
    {
        const NoDescriptors none;
        server.handleEvents(1000);

        // Not woken again at once by the connection that stays in line.
        const auto begin = std::chrono::steady_clock::now();
        server.handleEvents(100);
        EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(90));
        EXPECT_EQ(enabled(*old, "Globals"), 1);
    }

    EXPECT_EQ(call(*late, ask::hello()).reply.number, velta::protocol::version);
}

} // namespace
