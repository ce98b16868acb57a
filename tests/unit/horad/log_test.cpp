#include "log.h"
#include "support/capturedlog.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

namespace {

std::vector<std::string> datagrams; // that went to the system log

} // namespace

// The system log of the machine is left alone.
extern "C" ssize_t sendto(int, const void* bytes, std::size_t size, int, const sockaddr*, socklen_t) {
    datagrams.emplace_back(static_cast<const char*>(bytes), size);
    return static_cast<ssize_t>(size);
}

namespace {

using orv::horad::Logger;
using testing::AllOf;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class Log : public testing::Test {
protected:
    ~Log() override {
        Logger::instance().setVerbose(false);
        ORV_Sysloglevel_set(0);
    }

    static void logOnEveryLevel() {
        Logger::instance().error("%s %d", "error", 1);
        Logger::instance().warning("%s %d", "warning", 2);
        Logger::instance().info("%s %d", "info", 3);
        Logger::instance().debug("%s %d", "debug", 4);
    }

    fakes::CapturedLog log_;
};

TEST_F(Log, EveryLevelIsWrittenWhenVerbose) {
    Logger::instance().setVerbose(true);
    logOnEveryLevel();
    EXPECT_THAT(log_.lines(), ElementsAre("error horad: error 1", "warning horad: warning 2",
                                          "info horad: info 3", "debug horad: debug 4"));
}

TEST_F(Log, DebugIsLeftOutWhenNotVerbose) {
    Logger::instance().setVerbose(true);
    Logger::instance().setVerbose(false);
    logOnEveryLevel();
    EXPECT_THAT(log_.lines(),
                ElementsAre("error horad: error 1", "warning horad: warning 2", "info horad: info 3"));
}

TEST_F(Log, LinesCarryTheNameOfTheirModule) {
    const orv::horad::Log other("other", "source");
    other.error("%s %d", "error", 1);
    other.warning("%s %d", "warning", 2);
    other.info("%s %d", "info", 3);
    other.debug("%s %d", "debug", 4);
    EXPECT_THAT(log_.lines(),
                ElementsAre("error other: error 1", "warning other: warning 2", "info other: info 3"));
}

TEST_F(Log, AllWhoWriteToAModuleShareItsLevel) {
    const std::string name = "horad"; // another text of the same name
    const orv::horad::Log handlers(name.c_str(), "reboothandler");
    const orv::horad::Log copy = handlers;
    Logger::instance().setVerbose(true);
    handlers.debug("first");
    copy.debug("second");
    EXPECT_TRUE(copy.debugs());
    handlers.setVerbose(false);
    Logger::instance().debug("third");
    EXPECT_FALSE(Logger::instance().debugs());
    EXPECT_THAT(log_.lines(), ElementsAre("debug horad: first", "debug horad: second"));
}

TEST_F(Log, AModuleLeavesTheLevelOfOthersAlone) {
    Logger::instance().setVerbose(true);
    const orv::horad::Log other("other", "source");
    other.debug("nothing");
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(Log, EveryLineIsWrittenWhileNobodyCounts) {
    for (int i = 0; i < 10; ++i)
        Logger::instance().info("again");
    EXPECT_THAT(log_.lines(), testing::SizeIs(10));
}

TEST_F(Log, RepeatsAreCountedAndToldAtTheEnd) {
    {
        orv::horad::CountedRepeats repeats;
        for (int i = 1; i <= 10; ++i)
            Logger::instance().info("%s", i % 2 == 0 ? "even" : "odd");
        repeats.tell();
        EXPECT_THAT(log_.lines(), testing::SizeIs(6));
        log_.clear();
    }
    Logger::instance().info("even");
    EXPECT_THAT(log_.lines(), ElementsAre("info horad: repeated 2 times: odd",
                                          "info horad: repeated 2 times: even", "info horad: even"));
}

TEST_F(Log, LinesOfSignalHandlersAreNeverCounted) {
    const orv::horad::CountedRepeats repeats;
    for (int i = 0; i < 10; ++i)
        Logger::warningFromSignal("Received SIGPIPE");
    EXPECT_THAT(log_.lines(), testing::SizeIs(10));
}

TEST_F(Log, RepeatsAreCountedByTheClockThatIsGiven) {
    orv::horad::Repeats::TimePoint now;
    orv::horad::CountedRepeats repeats([&now] { return now; });
    for (int i = 0; i < 5; ++i)
        Logger::instance().info("again");
    now += std::chrono::seconds(59);
    repeats.tell();
    EXPECT_THAT(log_.lines(), testing::SizeIs(3));
    log_.clear();
    now += std::chrono::seconds(1);
    repeats.tell();
    EXPECT_THAT(log_.lines(), ElementsAre("info horad: repeated 2 times: again"));
    log_.clear();
    Logger::instance().info("again"); // a minute later
    EXPECT_THAT(log_.lines(), ElementsAre("info horad: again"));
}

// Keeps what it takes, with the number of the level and the module.
class KeepingSink : public orv::horad::LogSink {
public:
    void take(orv::horad::LogLevel level, const std::string& module, const char* text) override {
        lines.push_back(std::to_string(static_cast<int>(level)) + " " + module + ": " + text);
    }

    std::vector<std::string> lines;
};

TEST_F(Log, ASinkTakesWhatTheLogLetsThroughAndNothingIsWritten) {
    KeepingSink sink;
    const orv::horad::Log other("other", "source");
    {
        const orv::horad::RedirectedLog redirected(sink);
        logOnEveryLevel();
        Logger::instance().setVerbose(true);
        logOnEveryLevel();
        other.warning("two\nlines");
        other.debug("nothing");
        EXPECT_THAT(log_.lines(), IsEmpty());
    }
    const std::vector<std::string> taken = sink.lines;
    EXPECT_THAT(taken, ElementsAre("0 horad: error 1", "1 horad: warning 2", "2 horad: info 3",
                                   "0 horad: error 1", "1 horad: warning 2", "2 horad: info 3",
                                   "3 horad: debug 4", "1 other: two\nlines"));
    Logger::instance().info("later");
    EXPECT_EQ(sink.lines, taken);
    EXPECT_THAT(log_.lines(), ElementsAre("info horad: later"));
}

TEST_F(Log, ASinkTakesWhatIsToldOfRepeats) {
    KeepingSink sink;
    const orv::horad::RedirectedLog redirected(sink);
    {
        const orv::horad::CountedRepeats repeats;
        for (int i = 0; i < 5; ++i)
            Logger::instance().info("again");
        EXPECT_THAT(sink.lines, testing::SizeIs(3));
    }
    EXPECT_THAT(sink.lines, testing::SizeIs(4));
    EXPECT_EQ(sink.lines.back(), "2 horad: repeated 2 times: again");
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(Log, LinesOfSignalHandlersGoToNoSink) {
    KeepingSink sink;
    const orv::horad::RedirectedLog redirected(sink);
    Logger::warningFromSignal("Received SIGPIPE");
    EXPECT_THAT(sink.lines, IsEmpty());
    EXPECT_THAT(log_.lines(), ElementsAre("warning horad: Received SIGPIPE"));
}

TEST_F(Log, ThereIsOneLogger) {
    EXPECT_EQ(&Logger::instance(), &Logger::instance());
}

TEST_F(Log, ATextIsCutAt1023Characters) {
    for (const std::size_t length : {1022u, 1023u, 1024u, 5000u}) {
        log_.clear();
        Logger::instance().info("%s", std::string(length, 'x').c_str());
        const std::size_t expected = length < 1023 ? length : 1023;
        EXPECT_THAT(log_.lines(), ElementsAre("info horad: " + std::string(expected, 'x')));
    }
}

TEST_F(Log, EveryLevelCutsItsText) {
    Logger::instance().setVerbose(true);
    const std::string text(2000, 'x');
    Logger::instance().error("%s", text.c_str());
    Logger::instance().warning("%s", text.c_str());
    Logger::instance().debug("%s", text.c_str());
    const std::string cut(1023, 'x');
    EXPECT_THAT(log_.lines(),
                ElementsAre("error horad: " + cut, "warning horad: " + cut, "debug horad: " + cut));
}

TEST_F(Log, TextFromOutsideIsNoFormat) {
    constexpr const char* text = "%s%n%d%%";
    Logger::instance().setVerbose(true);
    Logger::instance().error("%s", text);
    Logger::instance().warning("%s", text);
    Logger::instance().info("%s", text);
    Logger::instance().debug("%s", text);
    EXPECT_THAT(log_.lines(), ElementsAre("error horad: %s%n%d%%", "warning horad: %s%n%d%%",
                                          "info horad: %s%n%d%%", "debug horad: %s%n%d%%"));
}

TEST_F(Log, ALineStaysOneLine) {
    Logger::instance().info("%s", "first\nsecond");
    EXPECT_THAT(log_.lines(), ElementsAre("info horad: first second"));
}

extern "C" void logFromSignal(int) {
    Logger::warningFromSignal("%s%n as it is");
    Logger::debugFromSignal("%d%% as it is");
}

void raiseWithLog(int signal) {
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_handler = logFromSignal;
    sigaction(signal, &action, &before);
    raise(signal);
    sigaction(signal, &before, nullptr);
}

TEST_F(Log, ASignalHandlerCanWrite) {
    Logger::instance().setVerbose(true);
    raiseWithLog(SIGUSR1);
    EXPECT_THAT(log_.lines(), ElementsAre("warning horad: %s%n as it is", "debug horad: %d%% as it is"));
}

TEST_F(Log, DebugFromASignalHandlerIsLeftOutWhenNotVerbose) {
    Logger::instance().setVerbose(false);
    raiseWithLog(SIGUSR1);
    EXPECT_THAT(log_.lines(), ElementsAre("warning horad: %s%n as it is"));
}

TEST_F(Log, ASignalHandlerLeavesErrnoAlone) {
    Logger::instance().setVerbose(true);
    errno = ERANGE;
    logFromSignal(0);
    EXPECT_EQ(errno, ERANGE);
}

TEST_F(Log, TheSystemLogTakesTheLinesOnceItIsOn) {
    datagrams.clear();
    Logger::instance().enableSyslog();
    Logger::instance().info("%s", "to the system log");
    EXPECT_THAT(datagrams, ElementsAre(EndsWith(": to the system log")));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

// Whoever reads the text that such a line names dies.
TEST(LogDeathTest, ADebugLineThatDoesNotPassIsNotFormatted) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const orv::horad::Log log("silent", "source");
            log.debug("%s", reinterpret_cast<const char*>(1));
            std::exit(0);
        },
        testing::ExitedWithCode(0), "^$");
}

// In a process of its own, where nothing was logged before.
TEST(LogDeathTest, StartsOffTheSystemLogAndWithoutDebug) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            Logger::instance().debug("nothing");
            Logger::instance().info("something");
            std::exit(datagrams.empty() ? 0 : 1);
        },
        testing::ExitedWithCode(0), AllOf(HasSubstr("info horad: something\n"), Not(HasSubstr("nothing"))));
}

extern "C" void showWhatWasSent(int) {
    for (const std::string& datagram : datagrams)
        std::fprintf(stderr, "sent %s\n", datagram.c_str());
}

// With the system log on, ends the process by an assertion that fails, and shows what went to the system log.
void failAnAssertion() {
    std::signal(SIGABRT, showWhatWasSent);
    ORV_ASSERT(1 + 1 == 3);
}

TEST(LogDeathTest, AFailedAssertionGoesToTheSystemLogOnceItIsOn) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            Logger::instance().enableSyslog();
            failAnAssertion();
        },
        testing::KilledBySignal(SIGABRT), ContainsRegex("sent <27>.*assertion failed: 1 \\+ 1 == 3"));
}

TEST(LogDeathTest, AFailedAssertionStaysOffTheSystemLogBefore) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            Logger::instance();
            ORV_Sysloglevel_set(1); // the facility alone
            failAnAssertion();
        },
        testing::KilledBySignal(SIGABRT),
        AllOf(HasSubstr("assertion failed: 1 + 1 == 3"), Not(HasSubstr("sent "))));
}

} // namespace
