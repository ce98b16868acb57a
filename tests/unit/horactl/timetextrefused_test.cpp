#include "support/scriptedclock.h"
#include "tools/errors.h"
#include "tools/horactl/timetext.h"
#include "unit/horactl/refusal.h"

#include <ctime>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace tools::horactl;
using test::RefusedCase;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

std::string refusalOfTime(const std::string& text, std::time_t present = 1795303800) {
    return test::refusal([&] { (void)parseTime(text, present); });
}

struct MissingCase {
    const char* zone;
    const char* text;
    const char* refusal;
};

const MissingCase missingCases[] = {
    {"Europe/Berlin", "2026-03-29 02:30",
     "2026-03-29 02:30:00 does not exist in Europe/Berlin: the clock goes from 01:59:59 CET to 03:00:00 "
     "CEST"},
    {"Europe/Berlin", "2026-03-29 02:00",
     "2026-03-29 02:00:00 does not exist in Europe/Berlin: the clock goes from 01:59:59 CET to 03:00:00 "
     "CEST"},
    {"Europe/Berlin", "2026-03-29T02:59:59",
     "2026-03-29 02:59:59 does not exist in Europe/Berlin: the clock goes from 01:59:59 CET to 03:00:00 "
     "CEST"},
    {"Europe/Dublin", "2026-03-29 01:15",
     "2026-03-29 01:15:00 does not exist in Europe/Dublin: the clock goes from 00:59:59 GMT to 02:00:00 IST"},
    {"Australia/Lord_Howe", "2026-10-04 02:15",
     "2026-10-04 02:15:00 does not exist in Australia/Lord_Howe: the clock goes from 01:59:59 +1030 to "
     "02:30:00 +11"},
    {"Antarctica/Troll", "2026-03-29 01:00",
     "2026-03-29 01:00:00 does not exist in Antarctica/Troll: the clock goes from 00:59:59 +00 to 03:00:00 "
     "+02"},
    {"Africa/Casablanca", "2026-03-22 02:30",
     "2026-03-22 02:30:00 does not exist in Africa/Casablanca: the clock goes from 01:59:59 +00 to 03:00:00 "
     "+01"},
    {"America/Havana", "2026-03-08 00:30",
     "2026-03-08 00:30:00 does not exist in America/Havana: the clock goes from Sat 2026-03-07 23:59:59 CST "
     "to "
     "Sun 2026-03-08 01:00:00 CDT"},
    {"Pacific/Apia", "2011-12-30 12:00",
     "2011-12-30 12:00:00 does not exist in Pacific/Apia: the clock goes from Thu 2011-12-29 23:59:59 -10 to "
     "Sat 2011-12-31 00:00:00 +14"},
};

TEST(TimeText, ATimeThatTheZoneLeavesOutIsRefusedWithBothSidesOfIt) {
    for (const MissingCase& given : missingCases) {
        const fakes::LocalZone zone(given.zone);
        EXPECT_EQ(refusalOfTime(given.text), given.refusal);
    }
}

TEST(TimeText, TheNextOneIsRefusedTooWhereTheZoneLeavesItOut) {
    const fakes::LocalZone zone("Europe/Berlin");
    for (const char* text : {"02:30", "Sun 02:30"})
        EXPECT_THAT(refusalOfTime(text, 1774746000 - 12 * 3600),
                    StartsWith("2026-03-29 02:30:00 does not exist"))
            << text;
    EXPECT_THAT(refusalOfTime("02:30", 1774746000 - 1), StartsWith("2026-03-29 02:30:00 does not exist"));
    EXPECT_THAT(refusalOfTime("02:30", 1774746000), IsEmpty());
}

const std::string garbage[] = {
    "",
    " ",
    "now",
    "tomorrow",
    "Tue",
    "Tue ",
    "Tu 23:00",
    "Tue23:00",
    "Tue  23:00",
    "Tues-day 23:00",
    "Tuesdays 23:00",
    "Tue 23:00 ",
    "Tue 23:00x",
    "Tue 2026-11-24 23:00",
    "23",
    "23:",
    "23:0",
    "23:000",
    "123:00",
    ":30",
    "23:00:",
    "23:00:0",
    "23:00:00:00",
    "23:00 ",
    " 23:00",
    "-3h",
    "23:00+0100",
    "2026-11-29",
    "2026-11-29 ",
    "2026-11-29 02",
    "2026-11-29  02:30",
    "2026-11-29t02:30",
    "2026-11-29 02:30 ",
    "2026-11-29 02:30:00 CET",
    "2026-11-29 02:30+",
    "2026-11-29 02:30+1",
    "2026-11-29 02:30+010",
    "2026-11-29 02:30+01000",
    "2026-11-29 02:30+2500",
    "2026-11-29 02:30+0160",
    "2026-11-29 02:30+01:00:00",
    "2026-1-29 02:30",
    "26-11-29 02:30",
    "12026-11-29 02:30",
    "-2026-11-29 02:30",
    "2026/11/29 02:30",
    "29.11.2026 02:30",
    "1795303800",
    "@",
    "@-",
    "@1.5",
    "@ 1",
    "@+1",
    "@1s",
    "@0x10",
    "\xff\xfe",
    "%n%s",
    std::string(100000, 'a'),
    std::string(100000, '9'),
    std::string(100000, '9') + ":00",
    "Tue " + std::string(100000, '9'),
};

TEST(TimeText, GarbageIsRefusedWithWhatWouldDo) {
    const fakes::LocalZone zone("Europe/Berlin");
    for (const std::string& text : garbage) {
        const std::string refused = refusalOfTime(text);
        EXPECT_THAT(refused, StartsWith('"' + text.substr(0, 80)));
        EXPECT_THAT(refused, EndsWith(" is no time; one is 2026-11-29 02:30[:00], Tue 23:00, 23:00, +3h or "
                                      "@SECONDS (since 1970)"));
        EXPECT_LT(refused.size(), 200u);
    }
}

TEST(TimeText, AZeroByteIsNotTheEnd) {
    const fakes::LocalZone zone("Europe/Berlin");
    using namespace std::string_literals;
    for (const std::string& text : {"\0"s, "23:00\0"s, "+3h\0"s, "@5\0"s, "2026-11-29 02:30\0"s})
        EXPECT_THROW((void)parseTime(text, 1795303800), tools::WrongUse) << text;
    EXPECT_THROW((void)parseDuration("3h\0"s), tools::WrongUse);
}

TEST(TimeText, ATimeOfDayIsRefusedWhereNoDateFollowsThePresent) {
    const fakes::LocalZone zone("Europe/Berlin");
    for (const char* text : {"23:00", "Tue 23:00"})
        EXPECT_EQ(refusalOfTime(text, 68000000000000000),
                  "there is no such time in the two weeks from @68000000000000000 on");
}

const RefusedCase refusedTimes[] = {
    {"24:00", ": a day goes from 00:00:00 to 23:59:59"},
    {"23:60", ": a day goes from 00:00:00 to 23:59:59"},
    {"Tue 23:59:60", ": a day goes from 00:00:00 to 23:59:59"},
    {"2026-11-29 99:00", ": a day goes from 00:00:00 to 23:59:59"},
    {"2026-02-29 02:30", ": the calendar has no such date"},
    {"2026-00-01 02:30", ": the calendar has no such date"},
    {"2026-13-01 02:30", ": the calendar has no such date"},
    {"2026-04-31 02:30", ": the calendar has no such date"},
    {"2026-04-00 02:30", ": the calendar has no such date"},
    {"0000-04-01 02:30", ": the calendar has no such date"},
    {"0001-01-01 00:00", " is before 1970"},
    {"1970-01-01 00:59:59", " is before 1970"},
    {"1970-01-01T00:00:00+0001", " is before 1970"},
    {"@-1", " is before 1970"},
    {"@-99999999999999999999999", " is before 1970"},
    {"9999-12-31 23:59:59", " is later than the year 9999"},
    {"@253402214401", " is later than the year 9999"},
    {"@999999999999999", " is later than the year 9999"},
    {"@9999999999999999999999999", " is later than the year 9999"},
    {"+", " is no duration; one is 90s, 45min, 3h, 14d, or several as 1h30min"},
    {"+3", " is no duration; one is 90s, 45min, 3h, 14d, or several as 1h30min"},
    {"++3h", " is no duration; one is 90s, 45min, 3h, 14d, or several as 1h30min"},
    {"+99999999999999999999999d", " is longer than 100 years"},
};

TEST(TimeText, WhatLooksLikeATimeIsRefusedWithWhatIsWrongWithIt) {
    const fakes::LocalZone zone("Europe/Berlin");
    for (const RefusedCase& given : refusedTimes)
        EXPECT_EQ(refusalOfTime(given.text), '"' + given.text + '"' + given.why);
    EXPECT_THAT(refusalOfTime('@' + std::string(1000000, '9')), EndsWith(" is later than the year 9999"));
    EXPECT_THAT(refusalOfTime("+1d", 253402214400), EndsWith(" is later than the year 9999"));
}

} // namespace
