#include "store/server/peer.h"

#include <array>

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

class PeerTest : public testing::Test {
protected:
    PeerTest() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0); }
    ~PeerTest() override {
        for (const int end : ends)
            close(end);
    }
    std::array<int, 2> ends{};
};

TEST_F(PeerTest, IsKnownByTheKernel) {
    const auto peer = store::peerOf(ends[0]);

    ASSERT_TRUE(peer.has_value());
    EXPECT_EQ(peer->process, getpid());
    EXPECT_EQ(peer->user, geteuid());
    EXPECT_EQ(peer->group, getegid());
}

constexpr uid_t stranger = 54321;
constexpr gid_t strangersGroup = 54322;

TEST_F(PeerTest, RootAndTheServersUserArePermitted) {
    EXPECT_TRUE(store::isPermitted({1, 0, 0}, ends[0], std::nullopt));
    EXPECT_TRUE(store::isPermitted({1, geteuid(), strangersGroup}, ends[0], std::nullopt));
}

TEST_F(PeerTest, StrangerIsNotPermitted) {
    EXPECT_FALSE(store::isPermitted({1, stranger, strangersGroup}, ends[0], std::nullopt));
    EXPECT_FALSE(store::isPermitted({1, stranger, strangersGroup}, ends[0], gid_t{54399}));
}

TEST_F(PeerTest, MemberOfTheGroupIsPermitted) {
    EXPECT_TRUE(store::isPermitted({1, stranger, strangersGroup}, ends[0], strangersGroup));
}

TEST(PeerGroups, FurtherGroupCountsAsWell) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can join groups";
    const std::array<gid_t, 1> groups{54399};
    std::array<gid_t, 256> before{};
    const int count = getgroups(static_cast<int>(before.size()), before.data());
    ASSERT_GE(count, 0);
    ASSERT_EQ(setgroups(groups.size(), groups.data()), 0);
    std::array<int, 2> ends{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
    ASSERT_EQ(setgroups(static_cast<std::size_t>(count), before.data()), 0);

    EXPECT_TRUE(store::isPermitted({1, stranger, strangersGroup}, ends[0], gid_t{54399}));
    EXPECT_FALSE(store::isPermitted({1, stranger, strangersGroup}, ends[0], gid_t{54398}));
    for (const int end : ends)
        close(end);
}

} // namespace
