// The daemon's main(), which is called horadMain() here. It runs in the foreground until an attempt to
// connect or a line that it logs throws.

#include "support/fakestore.h"
#include "support/scriptedserver.h"
#include "unit/horad/recordedlog.h"

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <getopt.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

int horadMain(int argc, char* argv[]);

namespace {

std::function<void()> whenConnecting;
std::string storeOfTheTest; // the socket that is connected to in place of the machine's

} // namespace

// No store of the machine is ever reached.
extern "C" int connect(int socket, const sockaddr*, socklen_t) {
    if (whenConnecting)
        whenConnecting();
    if (storeOfTheTest.empty())
        std::abort(); // there would be no end to it
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    storeOfTheTest.copy(address.sun_path, sizeof address.sun_path - 1);
    static auto* const real =
        reinterpret_cast<int (*)(int, const sockaddr*, socklen_t)>(dlsym(RTLD_NEXT, "connect"));
    return real(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
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
        storeOfTheTest.clear();
        recordedlog::onLine = nullptr;
    }

    static int run(std::vector<std::string> arguments = {}) {
        arguments.insert(arguments.begin(), {"horad", "-t", "Table"});
        std::vector<char*> argv;
        for (std::string& argument : arguments)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        optind = 0; // from the beginning, whatever was parsed before
        return horadMain(static_cast<int>(arguments.size()), argv.data());
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

// The request to stop, built first and taken down last, holds a descriptor; so do dispatcher and connection.
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
        EXPECT_EQ(whileRunning, before + 3);
        EXPECT_EQ(whenLogged, before);
    }
}

TEST_F(Main, AVerboseDaemonLogsTheDebugLinesOfTheTimeFrames) {
    whenConnecting = [] { throw 1; };
    EXPECT_EQ(run({"-v"}), 0);
    EXPECT_THAT(recordedlog::calls(), Contains("changeTracelevel timefrmhdl 1023"));
}

// The number of the first call with that text in it; that of all calls where there is none.
std::size_t firstCall(const std::string& text) {
    const std::vector<std::string>& calls = recordedlog::calls();
    const auto found = std::find_if(calls.begin(), calls.end(), [&text](const std::string& call) {
        return call.find(text) != std::string::npos;
    });
    return static_cast<std::size_t>(found - calls.begin());
}

// A store with a plan that has to be switched on. It gives a notice as soon as everything was read, so that
// the first iteration does not wait.
class MainWithAStore : public Main {
protected:
    MainWithAStore() {
        server_.setTable("WlanGlobals", {fakes::row({{"WlanEnable", 0}, {"AlwaysEnable", 0}})});
        server_.setTable("WlanTimePlans", {});
        server_.setTable("Table", {fakes::row({{"Id", 1}, {"TimePlanStatus", 0}, {"Activate", 0}})});
        server_.setTable("TimeFrame", {});
        server_.setTable("FileTransfer", {});
        server_.setTable("AutoReboot", {fakes::row({{"Enable", 0}})});
        storeOfTheTest = server_.socketPath();
    }

    // Runs until the line behind one with that text.
    void runUntil(const std::string& text) {
        bool over = false;
        recordedlog::onLine = [&] {
            const std::string& before = recordedlog::calls().back();
            if (before.find("Load service states") != std::string::npos)
                server_.notify({"WlanGlobals"});
            if (over || before.find(text) == std::string::npos)
                return;
            over = true;
            throw std::runtime_error("over");
        };
        EXPECT_EQ(run({"-v"}), 0);
        EXPECT_TRUE(over);
    }

    fakes::ScriptedServer server_;
};

TEST_F(MainWithAStore, TheLinesOfTheLaterHandlersNameTheirSource) {
    runUntil("First process: synchronise");
    EXPECT_LT(firstCall("debug timefrmhdl timeframehandler "), recordedlog::calls().size());
    EXPECT_LT(firstCall("debug horad reboothandler "), recordedlog::calls().size());
}

TEST_F(MainWithAStore, TheHandlersReadAndThenPassInTheirOrder) {
    runUntil("First process: synchronise");

    const char* const inOrder[] = {
        "debug horad log 4: Table  was changed",        // the WLAN's handler
        "info horad log 3: Initial reading of config",  // that of the time plans
        "load 0 entries from TimeFrame",                // that of the time frames
        "Auto reboot disabled",                         // that of the reboot
        "debug horad log 4: Activated timeplan: Id: 1", // the pass over the time plans
        "First process: synchronise",                   // that over the time frames
    };
    std::vector<std::size_t> calls;
    for (const char* text : inOrder)
        calls.push_back(firstCall(text));
    EXPECT_LT(calls.back(), recordedlog::calls().size());
    EXPECT_TRUE(std::is_sorted(calls.begin(), calls.end())) << testing::PrintToString(recordedlog::calls());
}

} // namespace
