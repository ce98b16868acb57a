#include "log.h"
#include "unit/horad/recordedlog.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using orv::horad::Logger;
using testing::ElementsAre;

class LogCalls : public testing::Test {
protected:
    LogCalls() {
        Logger::instance();
        recordedlog::calls().clear();
    }
};

// In a process of its own, where there was no logger before.
TEST(LogCallsDeathTest, TheFirstUseSetsTheFacilityUpInThisOrder) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            Logger::instance();
            for (const std::string& call : recordedlog::calls())
                std::fprintf(stderr, "[%s]", call.c_str());
            std::exit(0);
        },
        testing::ExitedWithCode(0),
        "^\\[construct2 '' 'horad'\\]\\[registerModul horad\\]\\[changeTracelevel horad 113\\]\\[set 0\\]$");
}

TEST_F(LogCalls, ALaterUseSetsNothingUp) {
    Logger::instance();
    EXPECT_THAT(recordedlog::calls(), ElementsAre());
}

TEST_F(LogCalls, ALineNamesModuleAndSourceAndALineNumberOfItsLevel) {
    Logger::instance().setVerbose(true);
    recordedlog::calls().clear();
    Logger::instance().error("%s", "a");
    Logger::instance().warning("%s", "b");
    Logger::instance().info("%s", "c");
    Logger::instance().debug("%s", "d");
    EXPECT_THAT(recordedlog::calls(), ElementsAre("error horad log 1: a", "warning horad log 2: b",
                                                  "info horad log 3: c", "debug horad log 4: d"));
}

TEST_F(LogCalls, ALogOfItsOwnNamesItsModuleAndSource) {
    const orv::horad::Log log("timefrmhdl", "timeframehandler");
    log.setVerbose(true);
    log.error("%s", "a");
    log.debug("%s", "d");
    EXPECT_THAT(recordedlog::calls(),
                ElementsAre("registerModul timefrmhdl", "changeTracelevel timefrmhdl 1023",
                            "error timefrmhdl timeframehandler 1: a",
                            "debug timefrmhdl timeframehandler 4: d"));
}

TEST_F(LogCalls, ALineFromASignalHandlerLooksTheSame) {
    Logger::warningFromSignal("b");
    Logger::debugFromSignal("d");
    EXPECT_THAT(recordedlog::calls(), ElementsAre("warning horad log 2: b", "debug horad log 4: d"));
}

TEST_F(LogCalls, VerbosityIsTheTraceLevel) {
    Logger::instance().setVerbose(true);
    Logger::instance().setVerbose(false);
    EXPECT_THAT(recordedlog::calls(),
                ElementsAre("changeTracelevel horad 1023", "changeTracelevel horad 113"));
}

TEST_F(LogCalls, TheSystemLogIsSwitchedOn) {
    Logger::instance().enableSyslog();
    EXPECT_THAT(recordedlog::calls(), ElementsAre("set 1"));
}

} // namespace
