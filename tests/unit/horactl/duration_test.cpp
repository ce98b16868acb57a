#include "support/scriptedclock.h"
#include "timeplan/isotime.h"
#include "tools/horactl/timetext.h"
#include "unit/horactl/refusal.h"

#include <cstdint>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace tools::horactl;
using orv::horad::isoTime;
using test::refusal;
using test::RefusedCase;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

struct DurationCase {
    const char* text;
    std::int64_t seconds;
};

const DurationCase durationCases[] = {
    {"90s", 90},
    {"45min", 2700},
    {"3h", 10800},
    {"14d", 1209600},
    {"1h30min", 5400},
    {"2d12h", 216000},
    {"1d1h1min1s", 90061},
    {"0s", 0},
    {"007s", 7},
    {"36525d", 3155760000},
    {"3155760000s", 3155760000},
};

TEST(Duration, IsANumberWithItsUnitOrSeveral) {
    for (const DurationCase& given : durationCases)
        EXPECT_EQ(parseDuration(given.text), given.seconds) << given.text;
}

const RefusedCase refusedDurations[] = {
    {"", " is no duration; one is 90s, 45min, 3h, 14d, or several as 1h30min"},
    {"s", " is no duration; one is 90s, 45min, 3h, 14d, or several as 1h30min"},
    {"90", " is no duration; one is 90s, 45min, 3h, 14d, or several as 1h30min"},
    {"90 s", " is no duration; one is 90s, 45min, 3h, 14d, or several as 1h30min"},
    {"-90s", " is no duration; one is 90s, 45min, 3h, 14d, or several as 1h30min"},
    {"1.5h", " is no duration; one is 90s, 45min, 3h, 14d, or several as 1h30min"},
    {"3H", " is no duration; one is 90s, 45min, 3h, 14d, or several as 1h30min"},
    {"3m", " is no duration; one is 90s, 45min, 3h, 14d, or several as 1h30min"},
    {"1h30", " is no duration; one is 90s, 45min, 3h, 14d, or several as 1h30min"},
    {"1h 30min", " is no duration; one is 90s, 45min, 3h, 14d, or several as 1h30min"},
    {"30min1h", ": the largest unit comes first, and each one once"},
    {"1h1h", ": the largest unit comes first, and each one once"},
    {"36526d", " is longer than 100 years"},
    {"36525d1s", " is longer than 100 years"},
    {"3155760001s", " is longer than 100 years"},
    {"999999999999999d", " is longer than 100 years"},
    {"9223372036854775807d", " is longer than 100 years"},
};

TEST(Duration, IsRefusedWithWhatIsWrongWithIt) {
    for (const RefusedCase& given : refusedDurations)
        EXPECT_EQ(refusal([&] { (void)parseDuration(given.text); }), '"' + given.text + '"' + given.why);
    EXPECT_THAT(refusal([] { (void)parseDuration(std::string(1000000, '9') + 's'); }),
                EndsWith(" is longer than 100 years"));
}

TEST(Duration, AStepHasADirection) {
    EXPECT_EQ(parseStep("+2h"), 7200);
    EXPECT_EQ(parseStep("-1h30min"), -5400);
    EXPECT_EQ(refusal([] { (void)parseStep("2h"); }), "\"2h\" has no direction; a step is +2h or -30min");
    for (const char* text : {"+", "-", "--2h", "+-2h", "-2"})
        EXPECT_THAT(refusal([&] { (void)parseStep(text); }), HasSubstr(" is no duration")) << text;
    EXPECT_THAT(refusal([] { (void)parseStep(""); }), HasSubstr(" has no direction"));
}

TEST(TimeSpan, EndsAtATimeThatCountsFromItsBegin) {
    const fakes::LocalZone zone("Europe/Berlin");
    struct Case {
        const char* text;
        const char* from;
        const char* to;
    };
    for (const Case& given : {
             Case{"23:45..00:15", "2026-11-21T23:45:00+0100", "2026-11-22T00:15:00+0100"},
             Case{"Tue 23:00..Tue 23:00", "2026-11-24T23:00:00+0100", "2026-12-01T23:00:00+0100"},
             Case{"23:45..+30min", "2026-11-21T23:45:00+0100", "2026-11-22T00:15:00+0100"},
             Case{"+1h..+1h", "2026-11-22T00:31:00+0100", "2026-11-22T01:31:00+0100"},
             Case{"2026-11-20 10:00..@1795303800", "2026-11-20T10:00:00+0100", "2026-11-22T00:30:00+0100"},
         }) {
        const ParsedSpan span = parseSpan(given.text, 1795300260); // 2026-11-21T23:31:00+0100
        EXPECT_EQ(isoTime(span.from.moment), given.from) << given.text;
        EXPECT_EQ(isoTime(span.to.moment), given.to) << given.text;
    }
}

TEST(TimeSpan, IsRefusedWithWhatIsWrongWithIt) {
    const fakes::LocalZone zone("Europe/Berlin");
    const auto refusalOf = [](const std::string& text) {
        return refusal([&] { (void)parseSpan(text, 1795300260); });
    };
    EXPECT_EQ(refusalOf("23:00"), "\"23:00\" is not FROM..TO");
    EXPECT_EQ(refusalOf("23:00.00:15"), "\"23:00.00:15\" is not FROM..TO");
    EXPECT_EQ(refusalOf("@9..@9"), "\"@9..@9\" does not end after its begin");
    EXPECT_EQ(refusalOf("@9..@8"), "\"@9..@8\" does not end after its begin");
    EXPECT_THAT(refusalOf("..23:00"), StartsWith("\"\" is no time"));
    EXPECT_THAT(refusalOf("23:00.."), StartsWith("\"\" is no time"));
    EXPECT_THAT(refusalOf("23:00..x..y"), StartsWith("\"x..y\" is no time"));
}

} // namespace
