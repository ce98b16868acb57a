#include "support/scriptedclock.h"
#include "timeplan/isotime.h"
#include "tools/errors.h"
#include "tools/horactl/timetext.h"

#include <cstdint>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace tools::horactl;
using orv::horad::isoTime;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

// What the text is refused with; empty where it is not.
std::string refusal(const std::function<void()>& parse) {
    try {
        parse();
    } catch (const tools::WrongUse& refused) {
        return refused.what();
    }
    return {};
}

std::string refusalOfTime(const std::string& text, std::time_t present = 1795303800) {
    return refusal([&] { (void)parseTime(text, present); });
}

struct TimeCase {
    const char* zone;
    const char* present; // with its offset
    const char* text;
    const char* expected;
};

const TimeCase timeCases[] = {
    // a date and a time of day
    {"Europe/Berlin", "2026-11-21T23:31:00+0100", "2026-11-29 02:30", "2026-11-29T02:30:00+0100"},
    {"Europe/Berlin", "2026-11-21T23:31:00+0100", "2026-11-29 02:30:07", "2026-11-29T02:30:07+0100"},
    {"Europe/Berlin", "2026-11-21T23:31:00+0100", "2026-11-29T02:30", "2026-11-29T02:30:00+0100"},
    {"Europe/Berlin", "2026-11-21T23:31:00+0100", "2026-07-01 2:30", "2026-07-01T02:30:00+0200"},
    {"Europe/Berlin", "2026-11-21T23:31:00+0100", "1970-01-01 01:00", "1970-01-01T01:00:00+0100"},
    {"Europe/Berlin", "2026-11-21T23:31:00+0100", "9999-12-30 23:59:59", "9999-12-30T23:59:59+0100"},
    {"Europe/Berlin", "2026-11-21T23:31:00+0100", "2028-02-29 00:00", "2028-02-29T00:00:00+0100"},
    {"Asia/Kathmandu", "2026-11-21T23:31:00+0545", "2026-11-29 02:30", "2026-11-29T02:30:00+0545"},
    {"America/St_Johns", "2026-11-21T23:31:00-0330", "2026-07-29 02:30", "2026-07-29T02:30:00-0230"},
    {"Pacific/Kiritimati", "2026-11-21T23:31:00+1400", "2026-11-29 02:30", "2026-11-29T02:30:00+1400"},
    {"Pacific/Pago_Pago", "2026-11-21T23:31:00-1100", "2026-11-29 02:30", "2026-11-29T02:30:00-1100"},
    {"Africa/Casablanca", "2026-02-01T12:00:00+0100", "2026-02-28 12:00", "2026-02-28T12:00:00+0000"},
    // on both sides of a change
    {"Europe/Berlin", "2026-11-21T23:31:00+0100", "2026-03-29 01:59:59", "2026-03-29T01:59:59+0100"},
    {"Europe/Berlin", "2026-11-21T23:31:00+0100", "2026-03-29 03:00", "2026-03-29T03:00:00+0200"},
    {"Europe/Dublin", "2026-11-21T23:31:00+0000", "2026-03-29 00:59:59", "2026-03-29T00:59:59+0000"},
    {"Europe/Dublin", "2026-11-21T23:31:00+0000", "2026-03-29 02:00", "2026-03-29T02:00:00+0100"},
    {"Australia/Lord_Howe", "2026-11-21T23:31:00+1100", "2026-10-04 02:30", "2026-10-04T02:30:00+1100"},
    {"Antarctica/Troll", "2026-11-21T23:31:00+0000", "2026-03-29 03:00", "2026-03-29T03:00:00+0200"},
    // with an offset
    {"Europe/Berlin", "2026-11-21T23:31:00+0100", "2026-10-25T02:30:00+0200", "2026-10-25T02:30:00+0200"},
    {"Europe/Berlin", "2026-11-21T23:31:00+0100", "2026-10-25T02:30:00+0100", "2026-10-25T02:30:00+0100"},
    {"Europe/Berlin", "2026-11-21T23:31:00+0100", "2026-10-25 02:30+01:00", "2026-10-25T02:30:00+0100"},
    {"Europe/Berlin", "2026-11-21T23:31:00+0100", "2026-03-29T02:30:00+0100", "2026-03-29T03:30:00+0200"},
    {"Europe/Berlin", "2026-11-21T23:31:00+0100", "2026-11-22T00:30:00-0330", "2026-11-22T05:00:00+0100"},
    // the next such time of day
    {"Europe/Berlin", "2026-11-21T23:31:00+0100", "23:32", "2026-11-21T23:32:00+0100"},
    {"Europe/Berlin", "2026-11-21T23:31:00+0100", "23:31:01", "2026-11-21T23:31:01+0100"},
    {"Europe/Berlin", "2026-11-21T23:31:00+0100", "23:31", "2026-11-22T23:31:00+0100"},
    {"Europe/Berlin", "2026-11-21T23:31:00+0100", "0:00", "2026-11-22T00:00:00+0100"},
    {"Europe/Berlin", "2026-12-31T23:31:00+0100", "07:15", "2027-01-01T07:15:00+0100"},
    {"Europe/Berlin", "2028-02-28T23:31:00+0100", "07:15", "2028-02-29T07:15:00+0100"},
    {"UTC", "1970-01-01T00:00:00+0000", "00:00", "1970-01-02T00:00:00+0000"},
    // across a change: the time that is left out is over, so the next day's is meant
    {"Europe/Berlin", "2026-03-29T03:00:00+0200", "02:30", "2026-03-30T02:30:00+0200"},
    {"Europe/Berlin", "2026-03-28T23:00:00+0100", "03:00", "2026-03-29T03:00:00+0200"},
    {"Pacific/Apia", "2011-12-29T23:59:59-1000", "00:00", nullptr},
    {"Pacific/Apia", "2011-12-31T00:00:00+1400", "12:00", "2011-12-31T12:00:00+1400"},
    {"Pacific/Apia", "2011-12-31T13:00:00+1400", "12:00", "2012-01-01T12:00:00+1400"},
    // of a time that comes twice, the first that is to come
    {"Europe/Berlin", "2026-10-25T02:29:59+0200", "02:30", "2026-10-25T02:30:00+0200"},
    {"Europe/Berlin", "2026-10-25T02:30:00+0200", "02:30", "2026-10-25T02:30:00+0100"},
    {"Europe/Berlin", "2026-10-25T02:10:00+0100", "02:30", "2026-10-25T02:30:00+0100"},
    {"Europe/Berlin", "2026-10-25T02:30:00+0100", "02:30", "2026-10-26T02:30:00+0100"},
    {"Asia/Beirut", "2026-10-24T23:30:00+0300", "23:15", "2026-10-24T23:15:00+0200"},
    {"AAA0BBB-1,J100/0,J300/0:30", "2026-10-27T00:29:00+0100", "23:45", "2026-10-26T23:45:00+0000"},
    // the next such weekday
    {"Europe/Berlin", "2026-11-21T23:31:00+0100", "Tue 23:00", "2026-11-24T23:00:00+0100"},
    {"Europe/Berlin", "2026-11-24T22:59:59+0100", "Tue 23:00", "2026-11-24T23:00:00+0100"},
    {"Europe/Berlin", "2026-11-24T23:00:00+0100", "Tue 23:00", "2026-12-01T23:00:00+0100"},
    {"Europe/Berlin", "2026-11-24T23:00:01+0100", "tuesday 23:00", "2026-12-01T23:00:00+0100"},
    {"Europe/Berlin", "2026-11-21T23:31:00+0100", "SAT 23:31:01", "2026-11-21T23:31:01+0100"},
    {"Europe/Berlin", "2026-11-21T23:31:00+0100", "Sun 00:00", "2026-11-22T00:00:00+0100"},
    {"Europe/Berlin", "2026-11-21T23:31:00+0100", "thurs 7:15", "2026-11-26T07:15:00+0100"},
    {"Europe/Berlin", "2026-03-29T12:00:00+0200", "Sun 02:30", "2026-04-05T02:30:00+0200"},
    {"Pacific/Apia", "2011-12-31T00:00:00+1400", "Fri 12:00", "2012-01-06T12:00:00+1400"},
    {"America/Havana", "2026-03-08T01:00:00-0400", "Sun 00:30", "2026-03-15T00:30:00-0400"},
    // so much later: time passes, whatever the clock does
    {"Europe/Berlin", "2026-11-21T23:31:00+0100", "+3h", "2026-11-22T02:31:00+0100"},
    {"Europe/Berlin", "2026-10-25T01:30:00+0200", "+1h30min", "2026-10-25T02:00:00+0100"},
    {"Europe/Berlin", "2026-03-28T12:00:00+0100", "+1d", "2026-03-29T13:00:00+0200"},
    {"Europe/Berlin", "2026-11-21T23:31:00+0100", "+0s", "2026-11-21T23:31:00+0100"},
    // seconds since the epoch
    {"Europe/Berlin", "2026-11-21T23:31:00+0100", "@0", "1970-01-01T01:00:00+0100"},
    {"Europe/Berlin", "2026-11-21T23:31:00+0100", "@1795303800", "2026-11-22T00:30:00+0100"},
    {"Europe/Berlin", "2026-11-21T23:31:00+0100", "@4294967296", "2106-02-07T07:28:16+0100"},
    {"Pacific/Kiritimati", "2026-11-21T23:31:00+1400", "@253402214400", "9999-12-31T14:00:00+1400"},
};

TEST(TimeText, NamesAMoment) {
    for (const TimeCase& given : timeCases) {
        SCOPED_TRACE(std::string(given.zone) + ", " + given.present + ": " + given.text);
        const fakes::LocalZone zone(given.zone);
        const std::time_t present = orv::horad::momentOf(given.present);
        ASSERT_EQ(isoTime(present), given.present);
        std::string found;
        const std::string refused = refusal([&] { found = isoTime(parseTime(given.text, present).moment); });
        if (given.expected != nullptr)
            EXPECT_EQ(found, given.expected) << refused;
        else
            EXPECT_THAT(refused, HasSubstr("does not exist"));
    }
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

struct TwiceCase {
    const char* zone;
    std::time_t present;
    const char* text;
    std::time_t moment;
    const char* note;
};

const TwiceCase twiceCases[] = {
    {"Europe/Berlin", 0, "2026-10-25 02:30", 1792888200,
     "2026-10-25 02:30:00 comes twice in Europe/Berlin: the first is taken, 02:30:00 CEST (+0200); the "
     "second is "
     "2026-10-25T02:30:00+0100"},
    {"Europe/Berlin", 1792888200, "02:30", 1792891800,
     "2026-10-25 02:30:00 comes twice in Europe/Berlin: the second is taken, 02:30:00 CET (+0100); the "
     "first, "
     "2026-10-25T02:30:00+0200, is past"},
    {"Europe/Berlin", 1792888199, "Sun 02:30", 1792888200,
     "2026-10-25 02:30:00 comes twice in Europe/Berlin: the first is taken, 02:30:00 CEST (+0200); the "
     "second is "
     "2026-10-25T02:30:00+0100"},
    {"Australia/Lord_Howe", 0, "2026-04-05 01:30", 1775313000,
     "2026-04-05 01:30:00 comes twice in Australia/Lord_Howe: the first is taken, 01:30:00 +11 (+1100); the "
     "second is 2026-04-05T01:30:00+1030"},
    {"Antarctica/Troll", 0, "2026-10-25 01:00", 1792882800,
     "2026-10-25 01:00:00 comes twice in Antarctica/Troll: the first is taken, 01:00:00 +02 (+0200); the "
     "second "
     "is 2026-10-25T01:00:00+0000"},
    {"Africa/Casablanca", 0, "2026-02-15 02:59:59", 1771120799,
     "2026-02-15 02:59:59 comes twice in Africa/Casablanca: the first is taken, 02:59:59 +01 (+0100); the "
     "second "
     "is 2026-02-15T02:59:59+0000"},
};

TEST(TimeText, OfATimeThatComesTwiceTheFirstIsTakenWithANote) {
    for (const TwiceCase& given : twiceCases) {
        const fakes::LocalZone zone(given.zone);
        const ParsedTime parsed = parseTime(given.text, given.present);
        EXPECT_EQ(parsed.moment, given.moment) << given.zone;
        EXPECT_EQ(parsed.note, given.note);
    }
}

TEST(TimeText, ATimeThatComesOnceHasNoNote) {
    const fakes::LocalZone zone("Europe/Berlin");
    for (const char* text : {"2026-10-25 01:59:59", "2026-10-25 03:00", "2026-10-25T02:30:00+0100", "12:00",
                             "Tue 23:00", "+3h", "@1792888200"})
        EXPECT_THAT(parseTime(text, 1795303800).note, IsEmpty()) << text;
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

struct RefusedCase {
    std::string text;
    const char* why;
};

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
