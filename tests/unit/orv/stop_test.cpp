#include "orv/stop.h"
#include "support/loweredlimit.h"

#include <chrono>
#include <csignal>
#include <system_error>
#include <thread>

#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>

namespace {

using Clock = std::chrono::steady_clock;
using orv::Stop;
using orv::StoppableSystem;
using orv::System;

constexpr unsigned anHour = 3600u * 1000 * 1000; // microseconds
constexpr std::chrono::seconds soon(20);

const Stop* stopOfTheHandler = nullptr;

extern "C" void requestIt(int) {
    stopOfTheHandler->request();
}

TEST(Stop, WithoutAFreeDescriptorIsAnError) {
#ifdef HORAD_SANITIZE
    GTEST_SKIP() << "the sanitizer looks at an exception with a descriptor";
#endif
    const LoweredLimit none(RLIMIT_NOFILE, 0);
    EXPECT_THROW(Stop(), std::system_error);
}

TEST(Stop, IsRequestedOnceAndForAll) {
    const Stop stop;
    EXPECT_FALSE(stop.requested());
    stop.request();
    EXPECT_TRUE(stop.requested());
    stop.request();
    EXPECT_TRUE(stop.requested());
}

TEST(Stop, IsADescriptorThatBecomesReadable) {
    const Stop stop;
    pollfd descriptor{stop.descriptor(), POLLIN, 0};
    EXPECT_EQ(poll(&descriptor, 1, 0), 0);
    stop.request();
    EXPECT_EQ(poll(&descriptor, 1, 0), 1);
}

TEST(Stop, CanBeRequestedBySignalBeforeAWait) {
    const Stop stop;
    stopOfTheHandler = &stop;
    void (*const before)(int) = std::signal(SIGUSR2, requestIt);
    ASSERT_EQ(std::raise(SIGUSR2), 0);
    std::signal(SIGUSR2, before);
    EXPECT_TRUE(stop.requestedWithin(0));
}

TEST(Stop, EndsAWaitThatASignalInterrupts) {
    const Stop stop;
    stopOfTheHandler = &stop;
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = requestIt; // without SA_RESTART, as the daemon has it
    ASSERT_EQ(sigaction(SIGUSR2, &action, &before), 0);
    const pthread_t waiting = pthread_self();
    std::thread sender([waiting] { (void)pthread_kill(waiting, SIGUSR2); });
    EXPECT_TRUE(stop.requestedWithin(static_cast<int>(std::chrono::milliseconds(soon).count())));
    sender.join();
    (void)sigaction(SIGUSR2, &before, nullptr);
}

TEST(StoppableSystem, SleepsUntilItIsStopped) {
    const Stop stop;
    StoppableSystem system(System::real(), stop);
    EXPECT_FALSE(system.stopping());
    const Clock::time_point begin = Clock::now();
    system.sleep(1500);
    EXPECT_GE(Clock::now() - begin, std::chrono::microseconds(1500));

    std::thread stopper([&stop] { stop.request(); });
    system.sleep(anHour);
    stopper.join();
    EXPECT_TRUE(system.stopping());
    system.sleep(anHour);
    EXPECT_LT(Clock::now() - begin, soon);
}

TEST(StoppableSystem, HasTheClockAndTheUptimeOfTheOtherOne) {
    class Other : public System {
        std::time_t time() override { return 47; }
        std::int64_t now() override { return 48; }
        unsigned uptime() override { return 49; }
        void sleep(unsigned) override {}
    };
    Other other;
    const Stop stop;
    StoppableSystem system(other, stop);
    EXPECT_EQ(system.time(), 47);
    EXPECT_EQ(system.now(), 48);
    EXPECT_EQ(system.uptime(), 49u);
}

TEST(System, IsTheMachineThatTheProgramRunsOn) {
    System& system = System::real();
    EXPECT_FALSE(system.stopping());
    const std::time_t before = std::time(nullptr);
    const std::time_t seconds = system.time();
    const std::int64_t microseconds = system.now();
    const std::time_t after = std::time(nullptr);
    EXPECT_LE(before, seconds);
    EXPECT_LE(seconds, after);
    EXPECT_LE(before, microseconds / 1'000'000);
    EXPECT_LE(microseconds / 1'000'000, after + 1);
    EXPECT_GT(system.uptime(), 0u);
}

} // namespace
