#include "store/server/session.h"
#include "support/rawclient.h"

#include <array>
#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

namespace {

using ask::RequestKind;

// A session whose other end the test has.
class SessionTest : public testing::Test {
protected:
    SessionTest() {
        std::array<int, 2> ends{};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data()), 0);
        other = std::make_unique<store::Descriptor>(ends[1]);
        session = std::make_unique<store::Session>(dispatcher, lines, store::Descriptor(ends[0]), 7,
                                                   store::Peer{1, 2, 3});
    }

    void send(const std::vector<ask::Request>& requests) {
        std::string bytes;
        for (const ask::Request& request : requests)
            encode(request, bytes);
        ASSERT_EQ(::send(other->get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }
    void dispatch() { dispatcher.handleEvents(0); }
    std::size_t receive() {
        std::size_t bytes = 0;
        std::array<char, 65536> buffer{};
        for (ssize_t size = 1; size > 0; bytes += size > 0 ? static_cast<std::size_t>(size) : 0)
            size = recv(other->get(), buffer.data(), buffer.size(), 0);
        return bytes;
    }
    void reply(std::size_t size) {
        const std::string cells(size, 'x');
        velta::protocol::Reply reply;
        reply.kind = velta::protocol::ReplyKind::Rows;
        reply.rows.cells = cells;
        session->reply(reply);
    }
    // More than a socket takes, by so much and a little.
    void leaveUnsent(std::size_t size) {
        while (session->unsent() == 0) {
            reply(16 * 1024);
            session->flush();
        }
        reply(size);
    }

    store::ClientLines lines;
    velta::net::EventDispatcher dispatcher;
    std::unique_ptr<store::Descriptor> other;
    std::unique_ptr<store::Session> session;
};

constexpr std::size_t nearly = 64 * 1024;

TEST_F(SessionTest, GivesOutRequestsOneByOneAndInOrder) {
    ask::Request first = ask::plain(RequestKind::Tables);
    first.sequence = 5;
    send({first, ask::plain(RequestKind::Abort)});
    EXPECT_FALSE(session->hasRequest());
    dispatch();

    ASSERT_TRUE(session->hasRequest());
    const ask::Request taken = session->takeRequest();
    EXPECT_EQ(taken.sequence, 5U);
    EXPECT_EQ(taken.kind, RequestKind::Tables);
    ASSERT_TRUE(session->hasRequest()) << "what is here already needs no event";
    EXPECT_EQ(session->takeRequest().kind, RequestKind::Abort);
    EXPECT_FALSE(session->hasRequest());
}

TEST_F(SessionTest, PausedItGivesOutNoneAndStillTellsOfChanges) {
    send({ask::plain(RequestKind::Tables)});
    dispatch();
    session->subscribe({"Plans"}, false);
    session->pause();

    EXPECT_FALSE(session->hasRequest());
    session->tablesChanged({"Plans"}, false);
    EXPECT_GT(receive(), 0U);

    session->resume();
    EXPECT_TRUE(session->hasRequest());
}

TEST_F(SessionTest, WithMuchUnsentItGivesOutNoneUntilThatIsTaken) {
    send({ask::plain(RequestKind::Tables)});
    dispatch();
    leaveUnsent(nearly);
    session->flush();
    EXPECT_FALSE(session->takesAnswers());
    EXPECT_FALSE(session->hasRequest());
    EXPECT_TRUE(session->stalledSince());

    while (session->unsent() > 0) {
        ASSERT_GT(receive(), 0U);
        dispatch();
    }

    EXPECT_TRUE(session->hasRequest());
    EXPECT_FALSE(session->stalledSince());
}

TEST_F(SessionTest, WithLittleUnsentItGivesOutTheNext) {
    send({ask::plain(RequestKind::Tables)});
    dispatch();
    leaveUnsent(nearly / 2);
    session->flush();

    ASSERT_GT(session->unsent(), 0U);
    EXPECT_TRUE(session->hasRequest());
    EXPECT_FALSE(session->stalledSince());
}

TEST_F(SessionTest, ClientThatGoesIsNoticedAlsoWhileItIsPaused) {
    session->pause();
    session->flush(); // waits for no input from here on
    other.reset();

    dispatch();

    EXPECT_TRUE(session->isClosed());
}

TEST_F(SessionTest, ClientThatGoesHasNoFurtherTurn) {
    send({ask::plain(RequestKind::Tables), ask::plain(RequestKind::Tables)});
    other.reset();
    dispatch();
    ASSERT_TRUE(session->hasRequest()); // it came before the end
    (void)session->takeRequest();
    (void)session->takeRequest();
    session->flush();

    dispatch();

    EXPECT_TRUE(session->isClosed());
    EXPECT_FALSE(session->hasRequest());
}

TEST_F(SessionTest, ReadsOnOnlyWhenItsRequestIsTaken) {
    send(std::vector<ask::Request>(10000, ask::plain(RequestKind::Tables)));
    dispatch();
    session->flush();
    std::size_t taken = 0;

    for (; session->hasRequest(); ++taken)
        (void)session->takeRequest();

    EXPECT_GE(taken, 1000U);
    EXPECT_LE(taken, 2000U) << "of 9 bytes, in one read of 16 KiB";
    for (int i = 0; i < 100; ++i) { // the rest comes read by read
        session->flush();
        dispatch();
        for (; session->hasRequest(); ++taken)
            (void)session->takeRequest();
    }
    EXPECT_EQ(taken, 10000U);
}

TEST_F(SessionTest, SubscriptionThatEndsTakesWhatIsOwedWithIt) {
    session->subscribe({"Plans", "Other"}, false);
    leaveUnsent(nearly);
    session->tablesChanged({"Plans", "Other"}, false);
    session->subscribe({"Other"}, false);
    (void)receive();
    session->flush();
    while (session->unsent() > 0) {
        dispatch();
        (void)receive();
    }
    (void)receive();

    session->tablesChanged({"Plans"}, false);

    EXPECT_EQ(receive(), 0U);
}

TEST_F(SessionTest, IsNamedByWhatItSaidInPrintableForm) {
    const std::string peer = session->peer().text();
    EXPECT_EQ(session->text(), "client \"?\" (" + peer + ")");
    session->setGreeted("a\nb");
    EXPECT_THAT(session->text(), testing::Not(testing::HasSubstr("\n")));
    EXPECT_THAT(session->text(), testing::HasSubstr("client \"a"));
}

} // namespace
