#include "tools/timestamp.h"

#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>

#include <gtest/gtest.h>

namespace tools {
namespace {

class Timestamps : public ::testing::Test {
protected:
    void TearDown() override { in("UTC"); }

    static void in(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }
};

TEST_F(Timestamps, AreLocalTimeWithItsOffset) {
    constexpr std::time_t moment = 1795250511; // 2026-11-21 08:41:51 UTC
    in("UTC");
    EXPECT_EQ(timestamp(moment), "2026-11-21T08:41:51+00:00");
    in("CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_EQ(timestamp(moment), "2026-11-21T09:41:51+01:00");
    in("NST3:30");
    EXPECT_EQ(timestamp(moment), "2026-11-21T05:11:51-03:30");
}

TEST_F(Timestamps, AreSecondsWhereTheCalendarEnds) {
    constexpr std::time_t last = std::numeric_limits<std::time_t>::max();
    EXPECT_EQ(timestamp(last), std::to_string(last));
}

} // namespace
} // namespace tools
