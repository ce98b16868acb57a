#include "support/scriptedclock.h"
#include "tools/horactl/circumstances.h"
#include "unit/horactl/refusal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tools::horactl {

using ::testing::HasSubstr;

namespace {

constexpr std::time_t noon = 1772452800; // Mon 2026-03-02 12:00:00 UTC

TEST(Circumstances, AreAnIdleHouseThatIsLongUp) {
    const Circumstances circumstances;
    EXPECT_EQ(circumstances.uptime, 100 * 86400);
    EXPECT_TRUE(circumstances.calls.empty());
    EXPECT_TRUE(circumstances.streams.empty());
    EXPECT_TRUE(circumstances.clockSteps.empty());
    EXPECT_EQ(circumstances.service.outcome, Service::Outcome::Hangs);
}

TEST(ServiceText, SaysWhatComesOfItAndWhen) {
    struct Case {
        const char* text;
        Service::Outcome outcome;
        std::int64_t duration;
    };
    const Case cases[] = {
        {"hang", Service::Outcome::Hangs, 60},
        {"succeed", Service::Outcome::Succeeds, 60},
        {"fail", Service::Outcome::Fails, 60},
        {"succeed,0", Service::Outcome::Succeeds, 0},
        {"fail,90", Service::Outcome::Fails, 90},
        {"hang,5", Service::Outcome::Hangs, 5},
        {"fail,315360000", Service::Outcome::Fails, 315360000},
    };
    for (const Case& one : cases) {
        const Service service = parseService(one.text);
        EXPECT_EQ(service.outcome, one.outcome) << one.text;
        EXPECT_EQ(service.duration, one.duration) << one.text;
    }
}

TEST(ServiceText, IsRefusedWhereItSaysNothing) {
    const test::RefusedCase cases[] = {
        {"", "is not succeed, fail or hang"},
        {"succeeds", "is not succeed, fail or hang"},
        {"Fail", "is not succeed, fail or hang"},
        {",60", "is not succeed, fail or hang"},
        {"fail,", "is no number of seconds"},
        {"fail,-1", "is no number of seconds"},
        {"fail,1.5", "is no number of seconds"},
        {"fail,60s", "is no number of seconds"},
        {"fail,60,60", "is no number of seconds"},
        {"fail,315360001", "is no number of seconds"},
        {"fail,99999999999999999999", "is no number of seconds"},
    };
    for (const test::RefusedCase& one : cases)
        EXPECT_THAT(test::refusal([&] { (void)parseService(one.text); }),
                    AllOf(HasSubstr("--service \"" + one.text + '"'), HasSubstr(one.why)));
}

TEST(ClockStepText, SaysWhenAndHowFar) {
    const fakes::LocalZone zone("UTC");
    struct Case {
        const char* text;
        std::time_t at; // from noon on
        std::int64_t by;
    };
    const Case cases[] = {
        {"12:30=+2h", 1800, 7200},
        {"12:30=-30min", 1800, -1800},
        {"+10min=+1d", 600, 86400},
        {"@1772452800=+90s", 0, 90},
        {"2026-03-03 12:00=-1h30min", 86400, -5400},
    };
    for (const Case& one : cases) {
        const ClockStep step = parseClockStep(one.text, noon);
        EXPECT_EQ(step.at - noon, one.at) << one.text;
        EXPECT_EQ(step.by, one.by) << one.text;
    }
}

TEST(ClockStepText, IsRefusedWhereItSaysNothing) {
    const fakes::LocalZone zone("UTC");
    for (const char* const text :
         {"", "12:30", "12:30+2h", "=+2h", "12:30=", "12:30=2h", "25:30=+2h", "12:30=+2"})
        EXPECT_NE(test::refusal([&] { (void)parseClockStep(text, noon); }), "") << text;
}

} // namespace

} // namespace tools::horactl
