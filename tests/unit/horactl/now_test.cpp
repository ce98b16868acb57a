#include "support/capturedlog.h"
#include "support/kernelfiles.h"
#include "tools/horactl/now.h"
#include "unit/horactl/forecasthouse.h"

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace tools::horactl::testing {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

class Now : public ::testing::Test {
protected:
    std::string text() const { return nowCommand(questionOf(household)); }

    // Of this machine's own tables: its line counts then.
    std::string realText() const {
        Question question = questionOf(household);
        question.real = true;
        return nowCommand(question);
    }

    void setService(int id, int status, int result) {
        household.tables["FileTransfer"].push_back(row(
            "FileTransfer", id, {{"Status", std::to_string(status)}, {"Result", std::to_string(result)}}));
        household.tables["TimeFrame"].push_back(
            row("TimeFrame", id, {{"ServicetableId", std::to_string(id)}}));
    }

    Household household = quietHousehold();
    KernelFiles kernel;
    const fakes::LocalZone zone{"UTC"};
};

TEST_F(Now, ServicesAreIdleUnderWayOrDone) {
    setService(1, 0, 0);
    setService(2, 2, 0);
    setService(3, 5, 0);
    setService(4, 5, 1);
    const std::string shown = text();
    EXPECT_THAT(shown, HasSubstr("TimeFrame.1 for FileTransfer.1 (idle)"));
    EXPECT_THAT(shown, HasSubstr("TimeFrame.2 for FileTransfer.2 (running)"));
    EXPECT_THAT(shown, HasSubstr("TimeFrame.3 for FileTransfer.3 (succeeded)"));
    EXPECT_THAT(shown, HasSubstr("TimeFrame.4 for FileTransfer.4 (failed)"));
}

TEST_F(Now, ARebootIsSwitchedOffOrNoneOrAtItsTime) {
    EXPECT_THAT(text(), ContainsRegex("Reboot +switched off"));
    set(household, "AutoReboot", {{"Enable", "1"}, {"Time", "never"}, {"MinimumRuntime", "2000000000"}});
    EXPECT_THAT(text(), ContainsRegex("Reboot +none within 8 days"));
    set(household, "AutoReboot", {{"Enable", "1"}, {"Time", "13:30"}});
    EXPECT_THAT(text(), ContainsRegex("Reboot +Mon 2026-03-02 13:30:.* UTC, to the minute"));
}

TEST_F(Now, TheLineIsTakenAsIdleWhereTheTablesAreFromElsewhere) {
    kernel.setCalls("1");
    EXPECT_THAT(text(), ContainsRegex("Line +taken as idle"));
}

TEST_F(Now, TheLineIsThisMachinesOwnOtherwise) {
    EXPECT_THAT(realText(), ContainsRegex("Line +no call, no IPTV stream\n"));
    kernel.setCalls("1");
    EXPECT_THAT(realText(), ContainsRegex("Line +a call runs, no IPTV stream\n"));
    kernel.setQuiet();
    kernel.setStream(true);
    EXPECT_THAT(realText(), ContainsRegex("Line +no call, an IPTV stream runs\n"));
}

TEST_F(Now, ALineThatCanNotBeKnownSaysWhy) {
    kernel.setCalls("x");
    EXPECT_THAT(realText(),
                HasSubstr(kernel.sipCalls.path() + ": its first line is no number; horad ends there)\n"));
    kernel.setQuiet();
    ASSERT_EQ(symlink(kernel.ip6Cache.path().c_str(), kernel.ip6Cache.path().c_str()), 0);
    EXPECT_THAT(realText(), HasSubstr("no call, no IPTV stream (" + kernel.ip6Cache.path() +
                                      ": Too many levels of symbolic links)\n"));
}

TEST_F(Now, TheLogIsShownToWhoWantsIt) {
    Question question = questionOf(household);
    question.verbose = true;
    const fakes::CapturedOutput log(STDERR_FILENO);
    const std::string shown = nowCommand(question);
    EXPECT_THAT(log.text(), HasSubstr("Initial reading of config"));
    EXPECT_THAT(shown, Not(HasSubstr("Initial reading of config")));
    EXPECT_EQ(shown, text());
}

} // namespace

} // namespace tools::horactl::testing
