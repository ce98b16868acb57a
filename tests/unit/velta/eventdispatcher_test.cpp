#include "velta/net/eventdispatcher.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>
#include <functional>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

namespace velta::net {
namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned longTime = 10000; // milliseconds; no test waits for its end

// Two connected sockets; what is written to the far end is readable at the near end.
class Pair {
public:
    Pair() {
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_.data()) != 0)
            throw std::system_error(errno, std::generic_category(), "socketpair");
    }
    ~Pair() {
        closeNear();
        closeFar();
    }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;

    int nearEnd() const { return ends_[0]; }
    void send() const { ASSERT_EQ(::send(ends_[1], "x", 1, MSG_NOSIGNAL), 1); }
    void closeNear() { closeEnd(ends_[0]); }
    void closeFar() { closeEnd(ends_[1]); }

private:
    static void closeEnd(int& end) {
        if (end >= 0)
            close(end);
        end = -1;
    }

    std::array<int, 2> ends_ = {-1, -1};
};

class EventDispatcherTest : public ::testing::Test {
protected:
    // A callback that counts its calls and remembers what was ready.
    EventDispatcher::Callback counting() {
        return [this](unsigned ready) {
            ++calls_;
            ready_ = ready;
        };
    }

    EventDispatcher dispatcher_;
    int calls_ = 0;
    unsigned ready_ = 0;
};

TEST_F(EventDispatcherTest, ReturnsWhenTheTimeIsUp) {
    Pair quiet;
    dispatcher_.add(quiet.nearEnd(), EventDispatcher::Readable, counting());
    const Clock::time_point begin = Clock::now();

    dispatcher_.handleEvents(20);

    EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(19));
    EXPECT_EQ(calls_, 0);
}

TEST_F(EventDispatcherTest, CallsBackWhenReadable) {
    Pair pair;
    dispatcher_.add(pair.nearEnd(), EventDispatcher::Readable, counting());
    pair.send();

    dispatcher_.handleEvents(longTime);

    EXPECT_EQ(calls_, 1);
    EXPECT_EQ(ready_, EventDispatcher::Readable);
}

TEST_F(EventDispatcherTest, CallsBackAgainWhileSomethingIsLeftToRead) {
    Pair pair;
    dispatcher_.add(pair.nearEnd(), EventDispatcher::Readable, counting());
    pair.send();

    dispatcher_.handleEvents(longTime);
    dispatcher_.handleEvents(longTime);

    EXPECT_EQ(calls_, 2);
}

TEST_F(EventDispatcherTest, CallsBackWhenWritable) {
    Pair pair;
    dispatcher_.add(pair.nearEnd(), EventDispatcher::Writable, counting());

    dispatcher_.handleEvents(longTime);

    EXPECT_EQ(ready_, EventDispatcher::Writable);
}

TEST_F(EventDispatcherTest, CallsBackOnceForBothInterests) {
    Pair pair;
    dispatcher_.add(pair.nearEnd(), EventDispatcher::Readable | EventDispatcher::Writable, counting());
    pair.send();

    dispatcher_.handleEvents(longTime);

    EXPECT_EQ(calls_, 1);
    EXPECT_EQ(ready_, EventDispatcher::Readable | EventDispatcher::Writable);
}

TEST_F(EventDispatcherTest, InterestCanChange) {
    Pair pair;
    dispatcher_.add(pair.nearEnd(), EventDispatcher::Writable, counting());

    dispatcher_.setInterest(pair.nearEnd(), EventDispatcher::Readable);
    dispatcher_.handleEvents(0);

    EXPECT_EQ(calls_, 0);
}

TEST_F(EventDispatcherTest, HangUpCountsAsReadable) {
    for (const unsigned interest : {EventDispatcher::Readable, EventDispatcher::Writable}) {
        Pair pair;
        ready_ = 0;
        dispatcher_.add(pair.nearEnd(), interest, counting());
        pair.closeFar();

        dispatcher_.handleEvents(longTime);

        EXPECT_NE(ready_ & EventDispatcher::Readable, 0U) << "interest " << interest;
        dispatcher_.remove(pair.nearEnd());
    }
}

TEST_F(EventDispatcherTest, WithoutAnInterestOnlyAHangUpIsTold) {
    Pair pair;
    dispatcher_.add(pair.nearEnd(), EventDispatcher::Readable, counting());
    dispatcher_.setInterest(pair.nearEnd(), 0);
    pair.send();

    dispatcher_.handleEvents(20);

    EXPECT_EQ(calls_, 0);
    pair.closeFar();
    dispatcher_.handleEvents(longTime);
    EXPECT_EQ(calls_, 1);
    EXPECT_EQ(ready_, EventDispatcher::Readable);
}

TEST_F(EventDispatcherTest, RemovedDescriptorIsNotCalled) {
    Pair pair;
    dispatcher_.add(pair.nearEnd(), EventDispatcher::Readable, counting());
    pair.send();

    dispatcher_.remove(pair.nearEnd());
    dispatcher_.handleEvents(0);

    EXPECT_EQ(calls_, 0);
}

TEST_F(EventDispatcherTest, RemovingAnUnknownDescriptorIsHarmless) {
    EXPECT_NO_THROW(dispatcher_.remove(12345));
    EXPECT_NO_THROW(dispatcher_.setInterest(12345, EventDispatcher::Readable));
}

TEST_F(EventDispatcherTest, CallbackMayRemoveItsOwnDescriptor) {
    Pair pair;
    const std::vector<int> captured = {1, 2, 3};
    std::vector<int> after;
    dispatcher_.add(pair.nearEnd(), EventDispatcher::Readable, [&, captured](unsigned) {
        dispatcher_.remove(pair.nearEnd());
        ++calls_;
        after = captured; // what the callback holds is still there
    });
    pair.send();

    dispatcher_.handleEvents(longTime);
    dispatcher_.handleEvents(0);

    EXPECT_EQ(calls_, 1);
    EXPECT_EQ(after, captured);
}

TEST_F(EventDispatcherTest, DescriptorRemovedByAnotherIsNotCalledInThatRound) {
    Pair first;
    Pair second;
    for (const Pair* pair : {&first, &second})
        dispatcher_.add(pair->nearEnd(), EventDispatcher::Readable, [&](unsigned) {
            ++calls_;
            dispatcher_.remove(first.nearEnd());
            dispatcher_.remove(second.nearEnd());
        });
    first.send();
    second.send();

    dispatcher_.handleEvents(longTime);

    EXPECT_EQ(calls_, 1);
}

TEST_F(EventDispatcherTest, NumberGivenOutAgainInARoundIsNotTakenForTheOldOne) {
    Pair first;
    Pair second;
    int callsOfTheNewOne = 0;
    int reused = -1;
    // Whoever is called first closes the other, and watches a quiet descriptor that gets its number.
    const auto replace = [&](Pair& other) {
        ++calls_;
        const int number = other.nearEnd();
        dispatcher_.remove(number);
        Pair quiet;
        reused = dup3(quiet.nearEnd(), number, O_CLOEXEC);
        dispatcher_.add(reused, EventDispatcher::Writable, [&](unsigned) { ++callsOfTheNewOne; });
    };
    dispatcher_.add(first.nearEnd(), EventDispatcher::Readable, [&](unsigned) { replace(second); });
    dispatcher_.add(second.nearEnd(), EventDispatcher::Readable, [&](unsigned) { replace(first); });
    first.send();
    second.send();

    dispatcher_.handleEvents(longTime);

    EXPECT_GE(reused, 0);
    EXPECT_EQ(calls_, 1);
    EXPECT_EQ(callsOfTheNewOne, 0);
}

TEST_F(EventDispatcherTest, CallbackMayAddADescriptor) {
    Pair first;
    Pair second;
    dispatcher_.add(first.nearEnd(), EventDispatcher::Readable, [&](unsigned) {
        dispatcher_.remove(first.nearEnd());
        dispatcher_.add(second.nearEnd(), EventDispatcher::Readable, counting());
    });
    first.send();
    second.send();

    dispatcher_.handleEvents(longTime);
    dispatcher_.handleEvents(longTime);

    EXPECT_EQ(calls_, 1);
}

TEST_F(EventDispatcherTest, AddingADescriptorAgainReplacesItsCallback) {
    Pair pair;
    int callsOfTheOldOne = 0;
    dispatcher_.add(pair.nearEnd(), EventDispatcher::Readable, [&](unsigned) { ++callsOfTheOldOne; });
    dispatcher_.add(pair.nearEnd(), EventDispatcher::Readable, counting());
    pair.send();

    dispatcher_.handleEvents(longTime);

    EXPECT_EQ(callsOfTheOldOne, 0);
    EXPECT_EQ(calls_, 1);
}

TEST_F(EventDispatcherTest, ADescriptorTheKernelRefusesThrows) {
    EXPECT_THROW(dispatcher_.add(-1, EventDispatcher::Readable, counting()), std::system_error);
}

TEST_F(EventDispatcherTest, WakingEndsTheNextWaitAtOnce) {
    Pair quiet;
    dispatcher_.add(quiet.nearEnd(), EventDispatcher::Readable, counting());
    const Clock::time_point begin = Clock::now();

    dispatcher_.wake();
    dispatcher_.handleEvents(longTime);

    EXPECT_LT(Clock::now() - begin, std::chrono::milliseconds(longTime));
    EXPECT_EQ(calls_, 0);
}

TEST_F(EventDispatcherTest, WakingEndsOneWaitOnly) {
    dispatcher_.wake();
    dispatcher_.wake();
    dispatcher_.handleEvents(0);
    const Clock::time_point begin = Clock::now();

    dispatcher_.handleEvents(20);

    EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(19));
}

TEST_F(EventDispatcherTest, WokenItStillCallsBackWhatIsReady) {
    Pair pair;
    dispatcher_.add(pair.nearEnd(), EventDispatcher::Readable, counting());
    pair.send();

    dispatcher_.wake();
    dispatcher_.handleEvents(longTime);

    EXPECT_EQ(calls_, 1);
}

TEST_F(EventDispatcherTest, InterestInADescriptorThatWasClosedMeanwhileIsAnError) {
    int closed = -1;
    {
        Pair pair;
        closed = pair.nearEnd();
        dispatcher_.add(closed, EventDispatcher::Readable, counting());
    }
    EXPECT_THROW(dispatcher_.setInterest(closed, EventDispatcher::Writable), std::system_error);
    dispatcher_.remove(closed);
}

void ignoreSignal(int) {}

TEST_F(EventDispatcherTest, SignalEndsTheWaitEarly) {
    // given a timer that signals again and again, so that one that fires before the wait began does no harm
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = ignoreSignal;
    action.sa_flags = SA_RESTART;
    ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
    sigevent event{};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGUSR1;
    timer_t timer{};
    ASSERT_EQ(timer_create(CLOCK_MONOTONIC, &event, &timer), 0);
    const itimerspec often = {{0, 10000000}, {0, 10000000}};
    ASSERT_EQ(timer_settime(timer, 0, &often, nullptr), 0);
    const Clock::time_point begin = Clock::now();

    dispatcher_.handleEvents(longTime);

    EXPECT_LT(Clock::now() - begin, std::chrono::milliseconds(longTime));
    timer_delete(timer);
    sigaction(SIGUSR1, &before, nullptr);
}

} // namespace
} // namespace velta::net
