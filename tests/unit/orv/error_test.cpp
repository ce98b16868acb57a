#include "orv/error.h"
#include "unit/orv/capture.h"

#include <memory>
#include <string>

#include <gtest/gtest.h>

namespace orv::error {
namespace {

TEST(AssertionDeathTest, FailedAssertionEndsTheProcessAndSaysWhere) {
    EXPECT_EXIT(ORV_ASSERT(1 + 1 == 3), ::testing::KilledBySignal(SIGABRT),
                "assertion failed: 1 \\+ 1 == 3 \\(.*error_test.cpp:[0-9]+\\)");
}

TEST(AssertionDeathTest, FailedAssertionIsReportedThroughTheHook) {
    EXPECT_EXIT(
        {
            const DefaultAssertHook hook;
            ORV_ASSERT(false);
        },
        ::testing::KilledBySignal(SIGABRT), "assertion failed: false");
}

TEST(AssertionDeathTest, HookThatIsGoneIsNotAsked) {
    EXPECT_EXIT(
        {
            std::make_unique<DefaultAssertHook>().reset();
            ORV_ASSERT(false);
        },
        ::testing::KilledBySignal(SIGABRT), "assertion failed: false");
}

TEST(Assertion, ThatHoldsDoesNothing) {
    test::CapturedStandardError captured;

    ORV_ASSERT(1 + 1 == 2);

    EXPECT_EQ(captured.text(), "");
}

TEST(DefaultAssertHook, ReportsOnStandardErrorAlone) {
    test::CapturedStandardError captured;

    DefaultAssertHook().report("a < b", "plan.cpp", 12);

    EXPECT_EQ(captured.text(), "assertion failed: a < b (plan.cpp:12)\n");
}

TEST(DefaultAssertHook, ReportsToTheLogFacilityAsWellWhenTold) {
    DefaultAssertHook hook;
    hook.setSyslog(true);
    test::CapturedStandardError captured;

    hook.report("a < b", "plan.cpp", 12);

    // The system log is off in this process, so that the second report comes out on standard error.
    const std::string text = captured.text();
    EXPECT_NE(text.find(" error assert: assertion failed: a < b (plan.cpp:12)\n"), std::string::npos) << text;
}

TEST(DefaultAssertHook, CutsAnExpressionWithoutEnd) {
    test::CapturedStandardError captured;

    DefaultAssertHook().report(std::string(5000, 'x').c_str(), "plan.cpp", 12);

    EXPECT_EQ(captured.text().size(), 512U);
}

} // namespace
} // namespace orv::error
