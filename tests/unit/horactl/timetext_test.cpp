#include "support/scriptedclock.h"
#include "timeplan/isotime.h"
#include "tools/horactl/timetext.h"
#include "unit/horactl/refusal.h"

#include <ctime>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace tools::horactl;
using orv::horad::isoTime;
using test::refusal;
using testing::HasSubstr;
using testing::IsEmpty;

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

} // namespace
