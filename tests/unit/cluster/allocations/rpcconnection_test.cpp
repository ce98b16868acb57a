// A connection of which any allocation fails while it is opened and a call is sent: it is closed and says so.
// What comes from the member has all its memory here: the library's destructor of a JSON value takes some
// itself, and ends the program if there is none.

#include "store/cluster/rpcconnection.h"
#include "support/rawmember.h"
#include "support/temporarydirectory.h"
#include "unit/server/allocations/failingmemory.h"

#include <gtest/gtest.h>

namespace {

using store::Json;
using store::RpcConnection;

// A connection and what happens on it, from its opening to an answer, a notification and an "echo". That is
// counted, since a note of it would take memory itself.
class Conversation {
public:
    explicit Conversation(RawMember& member) : member_(member) {}

    void run() {
        starved([&] { connection_.open(member_.remote()); });
        if (!connection_.isOpen())
            return;
        while (member_.isCalled()) // those that were given up before are in the queue, too
            member_.accept();
        starved(
            [&] { connection_.call("method", params_, [this](const Json&, const Json&) { ++answered_; }); });
        if (!connection_.isOpen())
            return;
        member_.answer(member_.receive()["id"], long_);
        member_.send({{"method", "notice"}, {"params", {long_}}});
        member_.send({{"method", "echo"}, {"params", {long_}}, {"id", "x"}});
        rounds();
    }

    bool isWhole() const { return opened_ == 1 && answered_ == 1 && notified_ == 1 && closed_ == 0; }
    bool isClosedForMemory() const { return closed_ == 1 && closedForMemory_ == 1 && !connection_.isOpen(); }

private:
    template <typename Work>
    void starved(Work work) {
        const failingmemory::Armed armed;
        work();
        rounds();
    }

    void rounds() {
        for (int round = 0; round < 3; ++round) {
            dispatcher_.handleEvents(0);
            connection_.settle(RpcConnection::Clock::time_point(std::chrono::hours(1)));
        }
    }

    RpcConnection::Events events() {
        return {[this] { ++opened_; }, [this](const std::string&, const Json&) { ++notified_; },
                [this](const std::string& reason) {
                    ++closed_;
                    closedForMemory_ += reason == "memory ran out" ? 1 : 0;
                }};
    }

    RawMember& member_;
    const std::string long_ = std::string(100, 'x'); // it takes memory wherever it is kept
    const Json params_ = Json::array({long_});
    int opened_ = 0;
    int notified_ = 0;
    int answered_ = 0;
    int closed_ = 0;
    int closedForMemory_ = 0;
    velta::net::EventDispatcher dispatcher_;
    RpcConnection connection_{dispatcher_, events()};
};

TEST(RpcConnectionMemoryTest, EachAllocationMayFail) {
    const TemporaryDirectory directory;
    RawMember member(directory.path("member"));
    bool failed = true;
    int ended = 0;
    for (std::int64_t number = 1; failed; ++number) {
        Conversation conversation(member);
        failingmemory::failAt(number, 1);
        ASSERT_NO_THROW(conversation.run()) << "allocation " << number;
        failed = failingmemory::counted() >= number;
        EXPECT_TRUE(failed ? conversation.isClosedForMemory() : conversation.isWhole())
            << "allocation " << number;
        ended += failed ? 1 : 0;
    }
    EXPECT_GT(ended, 10); // or nothing was tried
}

} // namespace
