// What a signal handler relies on when it logs.

#include "orv/sysloglevel.h"
#include "unit/orv/allocations.h"
#include "unit/orv/capture.h"

#include <cerrno>
#include <csignal>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

namespace {

class SysloglevelSafetyTest : public ::testing::TestWithParam<int> {
protected:
    SysloglevelSafetyTest() { ORV_Sysloglevel_set(GetParam()); }
    ~SysloglevelSafetyTest() override { ORV_Sysloglevel_set(0); }

    const ORV_Sysloglevel_Modul* module_ = ORV_Sysloglevel_registerModul("horad");
    test::CapturedStandardError captured_;
};

TEST_P(SysloglevelSafetyTest, LineCostsNoAllocation) {
    const std::string text(1023, 'x');
    const int before = test::allocations();

    ORV_Sysloglevel_info(module_, "test", 1, text.c_str());

    EXPECT_EQ(test::allocations(), before);
}

TEST_P(SysloglevelSafetyTest, ErrnoStaysAsItWas) {
    close(STDERR_FILENO); // makes write() fail, too
    errno = ENOTTY;

    ORV_Sysloglevel_info(module_, "test", 1, "text");

    EXPECT_EQ(errno, ENOTTY);
}

INSTANTIATE_TEST_SUITE_P(Targets, SysloglevelSafetyTest, ::testing::Values(0, 1));

const ORV_Sysloglevel_Modul* handlersModule = nullptr;

void logFromHandler(int) {
    ORV_Sysloglevel_warning(handlersModule, "test", 1, "Received SIGPIPE");
}

TEST(Sysloglevel, WritesAWholeLineFromASignalHandler) {
    handlersModule = ORV_Sysloglevel_registerModul("horad");
    const auto before = std::signal(SIGPIPE, logFromHandler);
    test::CapturedStandardError captured;

    std::raise(SIGPIPE);

    const std::string text = captured.text();
    std::signal(SIGPIPE, before);
    EXPECT_NE(text.find(" warning horad: Received SIGPIPE\n"), std::string::npos) << text;
}

} // namespace
