// The daemon's main(), which is called horadMain() here. It runs in the foreground until its first attempt to
// connect throws.

#include "unit/horad/recordedlog.h"

#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>

#include <fcntl.h>
#include <getopt.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

int horadMain(int argc, char* argv[]);

namespace {

std::function<void()> whenConnecting;

} // namespace

// No store of the machine is ever reached.
extern "C" int connect(int, const sockaddr*, socklen_t) {
    whenConnecting();
    std::abort(); // there would be no end to it
}

namespace {

using testing::Contains;

int openDescriptors() {
    constexpr int enough = 256;
    int open = 0;
    for (int descriptor = 0; descriptor < enough; ++descriptor)
        if (fcntl(descriptor, F_GETFD) >= 0)
            ++open;
    return open;
}

class Main : public testing::Test {
protected:
    Main() { recordedlog::calls().clear(); }
    ~Main() override {
        whenConnecting = nullptr;
        recordedlog::onLine = nullptr;
    }

    static int run() {
        std::string arguments[] = {"horad", "-t", "Table"};
        char* argv[] = {arguments[0].data(), arguments[1].data(), arguments[2].data(), nullptr};
        optind = 0; // from the beginning, whatever was parsed before
        return horadMain(3, argv);
    }
};

TEST_F(Main, LogsTheTextOfAnExceptionAsItIsAndEndsWell) {
    whenConnecting = [] { throw std::runtime_error("the reason %s%n%%"); };
    EXPECT_EQ(run(), 0);
    EXPECT_THAT(recordedlog::calls(), Contains("error horad log 1: the reason %s%n%%"));
}

TEST_F(Main, LogsThatAnExceptionIsUnknownAndEndsWell) {
    whenConnecting = [] { throw 1; };
    EXPECT_EQ(run(), 0);
    EXPECT_THAT(recordedlog::calls(), Contains("error horad log 1: Unknown exception"));
}

// The dispatcher, built first and taken down last, holds a descriptor; so does the connection.
TEST_F(Main, LogsAnExceptionWhenAllIsTakenDown) {
    const std::function<void()> throwing[] = {[] { throw std::runtime_error("the reason"); },
                                              [] { throw 1; }};
    for (const auto& exception : throwing) {
        const int before = openDescriptors();
        int whileRunning = 0;
        int whenLogged = 0;
        whenConnecting = [&] {
            whileRunning = openDescriptors();
            recordedlog::onLine = [&] { whenLogged = openDescriptors(); };
            exception();
        };
        EXPECT_EQ(run(), 0);
        EXPECT_EQ(whileRunning, before + 2);
        EXPECT_EQ(whenLogged, before);
    }
}

} // namespace
