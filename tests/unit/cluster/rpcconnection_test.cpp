#include "unit/cluster/rpcfixture.h"

#include <memory>
#include <new>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/stat.h>

namespace {

using store::Json;
using store::RpcConnection;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

store::Remote remoteFrom(const std::string& text) {
    std::string complaint;
    return store::remoteOf(text, complaint).value();
}

// An address where the kernel chooses the port.
store::Remote anyPortOf(const std::string& host) {
    store::Remote remote = remoteFrom("tcp:" + host + ":1");
    if (remote.address.ss_family == AF_INET)
        reinterpret_cast<sockaddr_in*>(&remote.address)->sin_port = 0;
    else
        reinterpret_cast<sockaddr_in6*>(&remote.address)->sin6_port = 0;
    return remote;
}

TEST_F(RpcConnectionTest, OpensInARoundNotWithinTheCall) {
    connection.open(member.remote());
    EXPECT_THAT(happened, ElementsAre());
    EXPECT_FALSE(connection.isOpen());

    EXPECT_EQ(next(), "opened");
    EXPECT_TRUE(connection.isOpen());
}

TEST_F(RpcConnectionTest, OpensByTcp) {
    for (const char* const host : {"127.0.0.1", "[::1]"}) {
        RawMember other(anyPortOf(host));
        connection.open(other.remote());
        EXPECT_EQ(next(), "opened");
        other.accept();
        connection.call("m", Json::array(), notingAnswer("answer"));
        other.answer(other.receive()["id"], "yes");
        EXPECT_EQ(next(), "answer \"yes\" null");
    }
}

TEST_F(RpcConnectionTest, AnswersFindTheirCalls) {
    ASSERT_NO_FATAL_FAILURE(connect());
    connection.call("first", {1}, notingAnswer("first"));
    connection.call("second", Json::array(), notingAnswer("second"));
    const Json first = member.receive();
    const Json second = member.receive();
    EXPECT_EQ(first["method"], "first");
    EXPECT_EQ(first["params"], Json({1}));

    member.answer(second["id"], {{"a", 1}});
    EXPECT_EQ(next(), R"(second {"a":1} null)");
    member.answer(first["id"], nullptr, "no");
    EXPECT_EQ(next(), R"(first null "no")");
}

TEST_F(RpcConnectionTest, NotificationsAreToldInTheirOrder) {
    ASSERT_NO_FATAL_FAILURE(connect());
    member.sendBytes(R"({"id":null,"method":"a","params":[1]}{"method":"b","params":[{}]})");
    waitFor(2);
    EXPECT_THAT(happened, ElementsAre("notified a [1]", "notified b [{}]"));
}

TEST_F(RpcConnectionTest, MessageMayComeByteByByte) {
    ASSERT_NO_FATAL_FAILURE(connect());
    for (const char byte : std::string(R"({"method":"a","params":["}{"]})")) {
        EXPECT_THAT(happened, ElementsAre());
        member.sendBytes(std::string(1, byte));
        round();
    }
    EXPECT_EQ(next(), R"(notified a ["}{"])");
}

TEST_F(RpcConnectionTest, MembersEchoIsAnswered) {
    ASSERT_NO_FATAL_FAILURE(connect());
    member.send({{"id", "echo"}, {"method", "echo"}, {"params", {"x", 1}}});
    round(1000);
    EXPECT_EQ(member.receive(), Json({{"id", "echo"}, {"result", {"x", 1}}, {"error", nullptr}}));
    EXPECT_THAT(happened, ElementsAre());
}

TEST_F(RpcConnectionTest, OtherRequestsOfTheMemberGetAnError) {
    ASSERT_NO_FATAL_FAILURE(connect());
    member.send({{"id", 5}, {"method", "steal"}, {"params", Json::array()}});
    round(1000);
    EXPECT_EQ(member.receive(), Json({{"id", 5}, {"result", nullptr}, {"error", "unknown method"}}));
    EXPECT_TRUE(connection.isOpen());
}

TEST_F(RpcConnectionTest, WhatMakesNoSenseClosesIt) {
    const char* const cases[][2] = {
        {"x", "closed: it sent a malformed message: \"x\" where an object should begin"},
        {"{]", "closed: it sent a malformed message: not JSON at its byte 2"},
        {R"({"method":5,"params":[]})", "closed: it sent a malformed message: \"method\" is not a text"},
        {R"({"id":99,"result":{}})", "closed: it answered the call 99, which waits for no answer"},
        {R"({"id":1e300,"result":{}})", "closed: it sent a malformed message: an answer to a call"},
    };
    for (const auto& [bytes, reason] : cases) {
        ASSERT_NO_FATAL_FAILURE(connect());
        member.sendBytes(bytes);
        EXPECT_THAT(next(), StartsWith(reason));
        EXPECT_TRUE(member.isLeft());
        EXPECT_FALSE(connection.isOpen());
    }
}

TEST_F(RpcConnectionTest, SecondAnswerToOneCallClosesIt) {
    ASSERT_NO_FATAL_FAILURE(connect());
    connection.call("m", Json::array(), notingAnswer("answer"));
    const Json id = member.receive()["id"];
    member.answer(id, 1);
    member.answer(id, 2);
    waitFor(2);
    EXPECT_THAT(happened, ElementsAre("answer 1 null", HasSubstr("which waits for no answer")));
}

TEST_F(RpcConnectionTest, CallsWithoutAnAnswerAreDroppedBeforeTheEndIsTold) {
    ASSERT_NO_FATAL_FAILURE(connect());
    std::shared_ptr<int> held(new int(0), [this](const int* last) {
        delete last;
        happened.emplace_back("dropped");
    });
    connection.call("m", Json::array(), [answer = std::move(held)](const Json&, const Json&) {});
    (void)member.receive();

    member.disconnect();
    waitFor(2);
    EXPECT_THAT(happened, ElementsAre("dropped", "closed: it closed the connection"));
}

TEST_F(RpcConnectionTest, CallToAMemberThatHasGoneEndsNothingButTheConnection) {
    ASSERT_NO_FATAL_FAILURE(connect());
    member.disconnect();
    connection.call("m", Json::array(), notingAnswer("answer"));
    EXPECT_FALSE(connection.isOpen());
    EXPECT_THAT(happened, ElementsAre());
    EXPECT_EQ(next(), "closed: it broke the connection: Broken pipe");
}

TEST_F(RpcConnectionTest, RefusedConnectionIsToldInARound) {
    const std::string nobody = directory.path("nobody");
    { const RawMember gone(nobody); } // its socket stays and nobody listens
    for (const std::string& text : {"unix:" + directory.path("missing"), "unix:" + nobody}) {
        connection.open(remoteFrom(text));
        EXPECT_THAT(happened, ElementsAre());
        EXPECT_EQ(connection.nextDeadline(), RpcConnection::Clock::time_point());
        EXPECT_THAT(next(), StartsWith("closed: it can't be reached: "));
    }
}

TEST_F(RpcConnectionTest, TcpPortWhereNobodyListensIsRefused) {
    const store::Remote left = RawMember(anyPortOf("127.0.0.1")).remote();
    connection.open(left);
    EXPECT_EQ(next(), "closed: it can't be reached: Connection refused");
}

TEST_F(RpcConnectionTest, WhatIsClosedTellsNothingMore) {
    connection.open(remoteFrom("unix:" + directory.path("missing")));
    connection.close();
    round();
    EXPECT_THAT(happened, ElementsAre());

    ASSERT_NO_FATAL_FAILURE(connect());
    connection.call("m", Json::array(), notingAnswer("answer"));
    member.answer(member.receive()["id"], 1);
    connection.close();
    connection.call("m", Json::array(), notingAnswer("answer"));
    round();
    EXPECT_THAT(happened, ElementsAre());
    EXPECT_TRUE(member.isLeft());
    EXPECT_EQ(connection.nextDeadline(), RpcConnection::Clock::time_point::max());
}

TEST_F(RpcConnectionTest, NewConnectionEndsTheOldOneWithoutTelling) {
    ASSERT_NO_FATAL_FAILURE(connect());
    member.sendBytes(R"({"method":"old","par)");
    round(1000);
    connection.open(member.remote());
    EXPECT_EQ(next(), "opened");
    EXPECT_TRUE(member.isLeft());
    member.accept();
    member.send({{"method", "new"}, {"params", Json::array()}});
    EXPECT_EQ(next(), "notified new []");
}

TEST_F(RpcConnectionTest, MemberThatReadsSlowlyGetsAllOfIt) {
    ASSERT_NO_FATAL_FAILURE(connect());
    const std::string text(1'000'000, 'x'); // more than a socket holds
    for (int call = 0; call < 3; ++call)
        connection.call("m", {text}, notingAnswer("answer"));
    EXPECT_FALSE(member.poll());
    for (int call = 0; call < 3; ++call) {
        std::optional<Json> message = member.poll();
        for (int rounds = 0; !message && rounds < 1000; ++rounds) {
            round(1000);
            message = member.poll();
        }
        ASSERT_TRUE(message);
        EXPECT_EQ((*message)["params"], Json({text}));
    }
}

TEST_F(RpcConnectionTest, MemberThatReadsNothingIsGivenUpAtTheLimit) {
    ASSERT_NO_FATAL_FAILURE(connect());
    const std::string text(1'000'000, 'x');
    for (int call = 0; call < 6; ++call)
        connection.call("m", {text}, notingAnswer("answer"));
    EXPECT_FALSE(connection.isOpen());
    EXPECT_THAT(happened, ElementsAre());
    EXPECT_EQ(next(), "closed: it doesn't take what is sent to it: more than 4194304 bytes wait");
}

TEST_F(RpcConnectionTest, AnswerMayCloseIt) {
    ASSERT_NO_FATAL_FAILURE(connect());
    connection.call("m", Json::array(), [this](const Json&, const Json&) {
        happened.emplace_back("answer");
        connection.close();
    });
    const Json id = member.receive()["id"];
    member.sendBytes(Json({{"id", id}, {"result", 1}}).dump() + R"({"method":"late","params":[]})");
    EXPECT_EQ(next(), "answer");
    EXPECT_TRUE(member.isLeft());
}

TEST_F(RpcConnectionTest, AnswerMayCallAgain) {
    ASSERT_NO_FATAL_FAILURE(connect());
    connection.call("first", Json::array(), [this](const Json&, const Json&) {
        connection.call("second", Json::array(), notingAnswer("second"));
    });
    member.answer(member.receive()["id"], 1);
    round(1000);
    const Json second = member.receive();
    EXPECT_EQ(second["method"], "second");
    member.answer(second["id"], 2);
    EXPECT_EQ(next(), "second 2 null");
}

TEST_F(RpcConnectionTest, EventsMayOpenItAgain) {
    int left = 2;
    RpcConnection* itself = nullptr;
    RpcConnection::Events again = events();
    again.notified = [&](const std::string& method, const Json&) {
        happened.push_back("notified " + method);
        itself->open(member.remote());
    };
    again.closed = [&](const std::string&) {
        happened.emplace_back("closed");
        if (--left > 0)
            itself->open(member.remote());
    };
    RpcConnection other(dispatcher, again);
    itself = &other;
    const auto waitForMore = [&](std::size_t count) {
        for (int rounds = 0; happened.size() < count && rounds < 1000; ++rounds) {
            dispatcher.handleEvents(100);
            other.settle(now);
        }
    };

    other.open(member.remote());
    waitForMore(1);
    member.accept();
    member.sendBytes(
        R"({"method":"one","params":[]}{"method":"of a connection that has ended","params":[]})");
    waitForMore(3);
    EXPECT_THAT(happened, ElementsAre("opened", "notified one", "opened"));

    member.accept();
    member.disconnect();
    waitForMore(5);
    member.accept();
    member.disconnect();
    waitForMore(6);
    EXPECT_THAT(happened, ElementsAre("opened", "notified one", "opened", "closed", "opened", "closed"));
}

TEST_F(RpcConnectionTest, EventMayOpenItAgainWhileMuchWaitsToBeSent) {
    ASSERT_NO_FATAL_FAILURE(connect());
    connection.call("m", {std::string(3'000'000, 'x')}, [](const Json&, const Json&) {});
    connection.call("n", Json::array(),
                    [this](const Json&, const Json&) { connection.open(member.remote()); });
    EXPECT_FALSE(member.poll()); // what it read makes room for more
    member.answer(2, nullptr);
    EXPECT_EQ(next(), "opened");
}

TEST_F(RpcConnectionTest, EventThatClosesItAndFailsIsNotToldOfTheEnd) {
    ASSERT_NO_FATAL_FAILURE(connect());
    connection.call("m", Json::array(), [this](const Json&, const Json&) {
        connection.close();
        happened.emplace_back("answer");
        throw std::bad_alloc();
    });
    member.answer(member.receive()["id"], 1);
    EXPECT_EQ(next(), "answer");
}

TEST_F(RpcConnectionTest, ConfusedOrStarvedEventClosesIt) {
    struct Case {
        std::function<void()> fails;
        const char* reason;
    };
    const Case cases[] = {
        {[] { (void)Json(5).get<std::string>(); },
         "closed: it sent what is not expected of it: [json.exception"},
        {[] { throw std::bad_alloc(); }, "closed: memory ran out"},
    };
    for (const Case& tested : cases) {
        ASSERT_NO_FATAL_FAILURE(connect());
        connection.call("m", Json::array(), [&](const Json&, const Json&) { tested.fails(); });
        member.answer(member.receive()["id"], 1);
        EXPECT_THAT(next(), StartsWith(tested.reason));
    }
}

TEST_F(RpcConnectionTest, TooLargeAMessageClosesIt) {
    RpcConnection::Limits limits;
    limits.message = 50;
    RpcConnection other(dispatcher, events(), limits);
    other.open(member.remote());
    waitFor(1);
    member.accept();
    member.sendBytes(R"({"method":"fits","params":[]}{"method":")" + std::string(100, 'x'));
    waitFor(3);
    EXPECT_THAT(happened,
                ElementsAre("opened", "notified fits []",
                            "closed: it sent a malformed message: an object of more than 50 bytes, at "
                            "byte 79 of the stream"));
}

TEST_F(RpcConnectionTest, NoProgramThatIsStartedGetsItsSocket) {
    ASSERT_NO_FATAL_FAILURE(connect());
    int sockets = 0;
    for (int descriptor = 3; descriptor < 256; ++descriptor) {
        struct stat status {};
        if (fstat(descriptor, &status) != 0 || !S_ISSOCK(status.st_mode))
            continue;
        ++sockets;
        EXPECT_NE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0) << descriptor;
    }
    EXPECT_EQ(sockets, 3); // two of them the member's
}

} // namespace
