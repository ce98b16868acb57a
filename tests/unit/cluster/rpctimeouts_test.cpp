#include "unit/cluster/rpcfixture.h"

#include <gmock/gmock.h>
#include <netinet/in.h>

namespace {

using std::chrono::seconds;
using store::Descriptor;
using store::Json;
using store::RpcConnection;
using testing::ElementsAre;

class RpcTimeoutsTest : public RpcConnectionTest {
protected:
    void pass(RpcConnection::Clock::duration time) {
        round(); // what is there is read
        now += time;
        round();
    }

    // The member's answer to the echo that it was sent.
    void answerEcho() {
        const Json echo = member.receive();
        EXPECT_EQ(echo["method"], "echo");
        member.answer(echo["id"], echo["params"]);
        round(1000);
    }
};

// It listens, and takes no more connections.
class Deaf {
public:
    Deaf() : listening_(socket(AF_INET, SOCK_STREAM, 0)) {
        std::string complaint;
        remote_ = store::remoteOf("tcp:127.0.0.1:1", complaint).value();
        auto* const address = reinterpret_cast<sockaddr*>(&remote_.address);
        reinterpret_cast<sockaddr_in*>(&remote_.address)->sin_port = 0;
        EXPECT_EQ(bind(listening_.get(), address, remote_.length), 0);
        EXPECT_EQ(getsockname(listening_.get(), address, &remote_.length), 0);
        EXPECT_EQ(listen(listening_.get(), 0), 0);
        for (int i = 0; i < 4; ++i) {
            waiting_.emplace_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
            (void)::connect(waiting_.back().get(), address, remote_.length); // some are taken
        }
    }

    const store::Remote& remote() const { return remote_; }

private:
    Descriptor listening_;
    store::Remote remote_;
    std::vector<Descriptor> waiting_;
};

TEST_F(RpcTimeoutsTest, MemberThatTakesNoConnectionIsGivenUp) {
    const Deaf deaf;
    connection.open(deaf.remote());
    round();
    EXPECT_EQ(connection.nextDeadline(), now + seconds(5));
    pass(seconds(4));
    EXPECT_THAT(happened, ElementsAre());
    pass(seconds(1));
    EXPECT_THAT(happened, ElementsAre("closed: it can't be reached: no answer in 5 s"));
}

TEST_F(RpcTimeoutsTest, QuietMemberIsAskedOnceAndMayBeQuietAgain) {
    ASSERT_NO_FATAL_FAILURE(connect());
    for (int times = 0; times < 3; ++times) {
        round();
        EXPECT_EQ(connection.nextDeadline(), now + seconds(15));
        pass(seconds(14));
        EXPECT_FALSE(member.poll());
        pass(seconds(1));
        EXPECT_EQ(connection.nextDeadline(), now + seconds(10));
        pass(seconds(9));
        answerEcho();
        EXPECT_FALSE(member.poll());
    }
    EXPECT_THAT(happened, ElementsAre());
}

TEST_F(RpcTimeoutsTest, SilentMemberIsGivenUp) {
    ASSERT_NO_FATAL_FAILURE(connect());
    pass(seconds(15));
    pass(seconds(9));
    EXPECT_THAT(happened, ElementsAre());
    pass(seconds(1));
    EXPECT_THAT(happened, ElementsAre("closed: it has sent nothing for 25 s"));
    EXPECT_EQ(connection.nextDeadline(), RpcConnection::Clock::time_point::max());
}

TEST_F(RpcTimeoutsTest, MemberThatSaysAnythingIsNotAsked) {
    ASSERT_NO_FATAL_FAILURE(connect());
    for (int times = 0; times < 5; ++times) {
        member.send({{"method", "m"}, {"params", Json::array()}});
        pass(seconds(14));
    }
    EXPECT_FALSE(member.poll());
    EXPECT_EQ(happened.size(), 5U);
}

// This program was stopped, or the device slept.
TEST_F(RpcTimeoutsTest, LongPauseOfOursIsNotTheMembersSilence) {
    ASSERT_NO_FATAL_FAILURE(connect());
    round();
    now += std::chrono::hours(1);
    connection.settle(now);
    connection.settle(now + seconds(1));
    EXPECT_THAT(happened, ElementsAre());
    answerEcho();
    pass(seconds(14));
    EXPECT_TRUE(connection.isOpen());
}

TEST_F(RpcTimeoutsTest, NewConnectionHasItsOwnTime) {
    const Deaf deaf;
    connection.open(deaf.remote());
    round();
    pass(seconds(4));
    connection.open(deaf.remote());
    EXPECT_EQ(connection.nextDeadline(), RpcConnection::Clock::time_point());
    round();
    EXPECT_EQ(connection.nextDeadline(), now + seconds(5));
    pass(seconds(4));
    EXPECT_THAT(happened, ElementsAre());
}

} // namespace
