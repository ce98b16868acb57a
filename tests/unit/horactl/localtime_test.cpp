#include "support/scriptedclock.h"
#include "timeplan/isotime.h"
#include "tools/horactl/localtime.h"

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace tools::horactl;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

struct Change {
    const char* zone;
    std::time_t moment; // the first one with the new offset
    LocalTime before;   // what clocks show a second earlier
    LocalTime after;    // what they show then
};

// Those of 2026, and the day that Samoa left out. 1774746000 is 2026-03-29T01:00:00 UTC, 1792890000 is
// 2026-10-25T01:00:00 UTC.
const Change changes[] = {
    {"Europe/Berlin", 1774746000, {2026, 3, 29, 1, 59, 59}, {2026, 3, 29, 3, 0, 0}},
    {"Europe/Berlin", 1792890000, {2026, 10, 25, 2, 59, 59}, {2026, 10, 25, 2, 0, 0}},
    {"Europe/Dublin", 1774746000, {2026, 3, 29, 0, 59, 59}, {2026, 3, 29, 2, 0, 0}},
    {"Europe/Dublin", 1792890000, {2026, 10, 25, 1, 59, 59}, {2026, 10, 25, 1, 0, 0}},
    {"Europe/London", 1774746000, {2026, 3, 29, 0, 59, 59}, {2026, 3, 29, 2, 0, 0}},
    {"Europe/London", 1792890000, {2026, 10, 25, 1, 59, 59}, {2026, 10, 25, 1, 0, 0}},
    {"Atlantic/Azores", 1774746000, {2026, 3, 28, 23, 59, 59}, {2026, 3, 29, 1, 0, 0}},
    {"Atlantic/Azores", 1792890000, {2026, 10, 25, 0, 59, 59}, {2026, 10, 25, 0, 0, 0}},
    {"America/Scoresbysund", 1774746000, {2026, 3, 28, 22, 59, 59}, {2026, 3, 29, 0, 0, 0}},
    {"America/Scoresbysund", 1792890000, {2026, 10, 24, 23, 59, 59}, {2026, 10, 24, 23, 0, 0}},
    {"Antarctica/Troll", 1774746000, {2026, 3, 29, 0, 59, 59}, {2026, 3, 29, 3, 0, 0}},
    {"Antarctica/Troll", 1792890000, {2026, 10, 25, 2, 59, 59}, {2026, 10, 25, 1, 0, 0}},
    {"Africa/Casablanca", 1771120800, {2026, 2, 15, 2, 59, 59}, {2026, 2, 15, 2, 0, 0}},
    {"Africa/Casablanca", 1774144800, {2026, 3, 22, 1, 59, 59}, {2026, 3, 22, 3, 0, 0}},
    {"America/New_York", 1772953200, {2026, 3, 8, 1, 59, 59}, {2026, 3, 8, 3, 0, 0}},
    {"America/New_York", 1793512800, {2026, 11, 1, 1, 59, 59}, {2026, 11, 1, 1, 0, 0}},
    {"America/Los_Angeles", 1772964000, {2026, 3, 8, 1, 59, 59}, {2026, 3, 8, 3, 0, 0}},
    {"America/Los_Angeles", 1793523600, {2026, 11, 1, 1, 59, 59}, {2026, 11, 1, 1, 0, 0}},
    {"America/St_Johns", 1772947800, {2026, 3, 8, 1, 59, 59}, {2026, 3, 8, 3, 0, 0}},
    {"America/St_Johns", 1793507400, {2026, 11, 1, 1, 59, 59}, {2026, 11, 1, 1, 0, 0}},
    {"America/Havana", 1772946000, {2026, 3, 7, 23, 59, 59}, {2026, 3, 8, 1, 0, 0}},
    {"America/Havana", 1793509200, {2026, 11, 1, 0, 59, 59}, {2026, 11, 1, 0, 0, 0}},
    {"Asia/Beirut", 1774735200, {2026, 3, 28, 23, 59, 59}, {2026, 3, 29, 1, 0, 0}},
    {"Asia/Beirut", 1792875600, {2026, 10, 24, 23, 59, 59}, {2026, 10, 24, 23, 0, 0}},
    {"Australia/Lord_Howe", 1775314800, {2026, 4, 5, 1, 59, 59}, {2026, 4, 5, 1, 30, 0}},
    {"Australia/Lord_Howe", 1791041400, {2026, 10, 4, 1, 59, 59}, {2026, 10, 4, 2, 30, 0}},
    {"Australia/Adelaide", 1775320200, {2026, 4, 5, 2, 59, 59}, {2026, 4, 5, 2, 0, 0}},
    {"Australia/Adelaide", 1791045000, {2026, 10, 4, 1, 59, 59}, {2026, 10, 4, 3, 0, 0}},
    {"Pacific/Chatham", 1775311200, {2026, 4, 5, 3, 44, 59}, {2026, 4, 5, 2, 45, 0}},
    {"Pacific/Chatham", 1790431200, {2026, 9, 27, 2, 44, 59}, {2026, 9, 27, 3, 45, 0}},
    {"Pacific/Apia", 1325239200, {2011, 12, 29, 23, 59, 59}, {2011, 12, 31, 0, 0, 0}},
    // a zone that is only a rule, with the widest offsets that there can be: a day forward, a day back
    {"AAA24BBB-24,J100/12,J300/12", 1775908800, {2026, 4, 10, 11, 59, 59}, {2026, 4, 12, 12, 0, 0}},
    // a summer of half a day: the offset is the same a day earlier and a day later
    {"AAA0BBB-1,J100/0,J100/12", 1775779200, {2026, 4, 9, 23, 59, 59}, {2026, 4, 10, 1, 0, 0}},
    {"AAA0BBB-1,J100/0,J100/12", 1775818800, {2026, 4, 10, 11, 59, 59}, {2026, 4, 10, 11, 0, 0}},
};

// Zones whose offset stays.
constexpr const char* steadyZones[] = {
    "UTC",          "Asia/Kolkata",    "Asia/Kathmandu",     "Asia/Tehran",
    "Asia/Tokyo",   "Australia/Eucla", "Pacific/Kiritimati", "Pacific/Pago_Pago",
    "Africa/Lagos", "Europe/Istanbul", "America/Sao_Paulo"};

std::string textOf(const LocalTime& time) {
    std::string text;
    for (const int field : {time.year, time.month, time.day, time.hour, time.minute, time.second})
        text += std::to_string(field) + ' ';
    return text;
}

// As if it was UTC.
std::int64_t secondsOf(const LocalTime& time) {
    std::tm fields{};
    fields.tm_year = time.year - 1900;
    fields.tm_mon = time.month - 1;
    fields.tm_mday = time.day;
    fields.tm_hour = time.hour;
    fields.tm_min = time.minute;
    fields.tm_sec = time.second;
    return timegm(&fields);
}

LocalTime timeOf(std::int64_t seconds) {
    const std::time_t moment = seconds;
    std::tm fields{};
    gmtime_r(&moment, &fields);
    return {fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday,
            fields.tm_hour,        fields.tm_min,     fields.tm_sec};
}

TEST(LocalTime, IsWhatClocksShowOnBothSidesOfAChange) {
    for (const Change& given : changes) {
        const fakes::LocalZone zone(given.zone);
        EXPECT_EQ(textOf(localTimeOf(given.moment - 1).value()), textOf(given.before)) << given.zone;
        EXPECT_EQ(textOf(localTimeOf(given.moment).value()), textOf(given.after)) << given.zone;
    }
}

TEST(MomentsOf, NoneIsInTheTimeThatAChangeLeavesOut) {
    for (const Change& given : changes) {
        const fakes::LocalZone zone(given.zone);
        const std::int64_t first = secondsOf(given.before) + 1;
        const std::int64_t behind = secondsOf(given.after);
        for (const std::int64_t left : {first, (first + behind) / 2, behind - 1})
            if (first <= left && left < behind) {
                EXPECT_THAT(momentsOf(timeOf(left)), IsEmpty()) << given.zone << ' ' << textOf(timeOf(left));
                const std::optional<Gap> gap = gapAround(timeOf(left));
                ASSERT_TRUE(gap.has_value());
                EXPECT_EQ(gap->before, given.moment - 1) << given.zone << ' ' << textOf(timeOf(left));
                EXPECT_EQ(gap->after, given.moment) << given.zone << ' ' << textOf(timeOf(left));
            }
    }
}

TEST(MomentsOf, TwoAreInTheTimeThatAChangeRepeats) {
    for (const Change& given : changes) {
        const fakes::LocalZone zone(given.zone);
        const std::int64_t repeated = secondsOf(given.before) + 1 - secondsOf(given.after);
        for (const std::int64_t left : {repeated, repeated / 2, std::int64_t{1}})
            if (0 < left && left <= repeated) {
                const LocalTime time = timeOf(secondsOf(given.before) + 1 - left);
                EXPECT_THAT(momentsOf(time), ElementsAre(given.moment - left, given.moment - left + repeated))
                    << given.zone << ' ' << textOf(time);
            }
    }
}

TEST(MomentsOf, OneIsBesideAChange) {
    for (const Change& given : changes) {
        const fakes::LocalZone zone(given.zone);
        const std::int64_t shift = secondsOf(given.after) - secondsOf(given.before) - 1;
        const std::int64_t repeated = shift < 0 ? -shift : 0;
        const std::time_t earlier = given.moment - repeated - 1;
        EXPECT_THAT(momentsOf(localTimeOf(earlier).value()), ElementsAre(earlier)) << given.zone;
        const std::time_t later = given.moment + repeated;
        EXPECT_THAT(momentsOf(localTimeOf(later).value()), ElementsAre(later)) << given.zone;
    }
}

TEST(MomentsOf, EachMomentAroundAChangeIsFoundByItsTime) {
    for (const Change& given : changes) {
        const fakes::LocalZone zone(given.zone);
        for (std::time_t distance = -30 * 3600; distance <= 30 * 3600; distance += 2699) {
            const std::time_t moment = given.moment + distance;
            const std::vector<std::time_t> found = momentsOf(localTimeOf(moment).value());
            EXPECT_THAT(found, Contains(moment)) << given.zone << ' ' << distance;
            EXPECT_LE(found.size(), 2u);
        }
    }
}

TEST(MomentsOf, OneIsAllTheYearRoundWhereNothingChanges) {
    for (const char* name : steadyZones) {
        const fakes::LocalZone zone(name);
        for (std::time_t moment = 1767225600; moment < 1798761600; moment += 86400 * 5 + 3601) // 2026
            EXPECT_THAT(momentsOf(localTimeOf(moment).value()), ElementsAre(moment)) << name;
    }
}

TEST(MomentsOf, YearsFarAwayAreFound) {
    for (const char* name : {"UTC", "Europe/Berlin", "Pacific/Apia"}) {
        const fakes::LocalZone zone(name);
        for (const std::time_t moment :
             {std::time_t{0}, std::time_t{-1}, std::time_t{-62135500000}, std::time_t{2147483648},
              std::time_t{4294967296}, std::time_t{253402200000}})
            EXPECT_THAT(momentsOf(localTimeOf(moment).value()), ElementsAre(moment)) << name;
    }
}

TEST(MomentsOf, NoneIsOnADateThatNoCalendarHas) {
    const fakes::LocalZone zone("Europe/Berlin");
    for (const LocalTime& time :
         {LocalTime{2026, 2, 29}, LocalTime{2026, 2, 0}, LocalTime{2026, 13, 1}, LocalTime{2026, 0, 1},
          LocalTime{2026, 4, 31}, LocalTime{0, 1, 1}, LocalTime{10000, 1, 1}, LocalTime{1900, 2, 29},
          LocalTime{std::numeric_limits<int>::max(), 1, 1}, LocalTime{2026, 1, 1, 24, 0, 0},
          LocalTime{2026, 1, 1, 0, 60, 0}, LocalTime{2026, 1, 1, 0, 0, 60}, LocalTime{2026, 1, 1, -1, 0, 0}})
        EXPECT_THAT(momentsOf(time), IsEmpty()) << textOf(time);
    EXPECT_FALSE(gapAround({2026, 2, 29}).has_value());
    EXPECT_THAT(momentsOf({2028, 2, 29}), SizeIs(1));
    EXPECT_THAT(momentsOf({2000, 2, 29}), SizeIs(1));
}

TEST(LocalTime, DatesFollowEachOtherWithTheirWeekdays) {
    LocalTime date = {1999, 12, 31, 4, 5, 6};
    for (std::int64_t expected = secondsOf(date); expected < 4102444800; expected += 86400) { // 2100
        ASSERT_EQ(textOf(date), textOf(timeOf(expected)));
        ASSERT_EQ(weekDayOf(date), (expected / 86400 + 4) % 7) << textOf(date);
        date = nextDay(date);
    }
    EXPECT_EQ(weekDayOf({1969, 12, 31}), 3);
    EXPECT_EQ(weekDayOf({1, 1, 1}), 1);
}

TEST(LocalTimeText, ShowsWeekdayDateTimeAndZone) {
    const fakes::LocalZone zone("Europe/Berlin");
    EXPECT_EQ(timeForPerson(1795303800), "Sun 2026-11-22 00:30:00 CET");
    EXPECT_EQ(timeForPerson(1774746000), "Sun 2026-03-29 03:00:00 CEST");
    EXPECT_EQ(timeOfDay(1774745999), "01:59:59 CET");
    EXPECT_EQ(offsetText(1774745999), "+0100");
    EXPECT_EQ(offsetText(1774746000), "+0200");
    EXPECT_EQ(orv::horad::isoTime(1795303800), "2026-11-22T00:30:00+0100");
}

TEST(LocalTimeText, ShowsAZoneWithoutAnAbbreviationByItsOffset) {
    const fakes::LocalZone zone("Australia/Lord_Howe");
    EXPECT_EQ(timeForPerson(1791041400), "Sun 2026-10-04 02:30:00 +11");
    EXPECT_EQ(offsetText(1791041399), "+1030");
}

TEST(LocalTimeText, OfAMomentThatCantBeConvertedIsItsSeconds) {
    const fakes::LocalZone zone("Europe/Berlin");
    EXPECT_EQ(timeForPerson(std::numeric_limits<std::time_t>::max()), "@9223372036854775807");
    EXPECT_EQ(offsetText(std::numeric_limits<std::time_t>::min()), "@-9223372036854775808");
    EXPECT_FALSE(localTimeOf(std::numeric_limits<std::time_t>::max()).has_value());
}

struct Distance {
    std::int64_t seconds;
    const char* text;
};

const Distance distances[] = {
    {0, "now"},
    {1, "in 1 s"},
    {12, "in 12 s"},
    {59, "in 59 s"},
    {60, "in 1 min"},
    {119, "in 1 min"},
    {59 * 60, "in 59 min"},
    {3599, "in 59 min"},
    {3600, "in 1 h"},
    {3600 + 59, "in 1 h"},
    {2 * 3600 + 15 * 60, "in 2 h 15 min"},
    {6 * 3600 + 29 * 60 + 2, "in 6 h 29 min"},
    {86399, "in 23 h 59 min"},
    {86400, "in 1 d"},
    {86400 + 3599, "in 1 d"},
    {3 * 86400 + 4 * 3600, "in 3 d 4 h"},
    {365 * 86400, "in 365 d"},
    {-1, "1 s ago"},
    {-3 * 86400 - 4 * 3600, "3 d 4 h ago"},
    {std::numeric_limits<std::int64_t>::max(), "in 106751991167300 d 15 h"},
    {std::numeric_limits<std::int64_t>::min(), "106751991167300 d 15 h ago"},
};

TEST(LocalTimeText, ADistanceIsInTheTwoLargestUnits) {
    for (const Distance& given : distances)
        EXPECT_EQ(distanceText(given.seconds), given.text) << given.seconds;
    EXPECT_EQ(spanText(0), "0 s");
    EXPECT_EQ(spanText(5400), "1 h 30 min");
}

TEST(LocalTimeText, TheZoneIsNamedAsTZNamesIt) {
    const fakes::LocalZone zone("Europe/Berlin");
    EXPECT_EQ(zoneName(), "Europe/Berlin");
    setenv("TZ", ":Asia/Tokyo", 1);
    EXPECT_EQ(zoneName(), "Asia/Tokyo");
    setenv("TZ", "", 1);
    EXPECT_EQ(zoneName(), "UTC");
    setenv("TZ", "\x1b[31m", 1);
    EXPECT_THAT(zoneName(), testing::Not(testing::HasSubstr("\x1b")));
}

TEST(LocalTimeText, TheMachinesZoneIsNamedWhereverItIsFound) {
    const fakes::LocalZone zone("Europe/Berlin");
    setenv("TZ", ":/etc/localtime", 1);
    const std::string named = zoneName();
    EXPECT_THAT(named, testing::Not(testing::HasSubstr("/etc/localtime")));
    EXPECT_FALSE(named.empty());
    unsetenv("TZ");
    EXPECT_EQ(zoneName(), named);
}

} // namespace
