#include "support/scriptedclock.h"
#include "timeplan/isotime.h"

#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using orv::horad::isoTime;
using orv::horad::momentOf;

struct Change {
    const char* zone;
    const char* rule; // the same without a zone file
    std::time_t moment;
    const char* before; // the last second
    const char* after;  // the first one
};

constexpr const char* berlin = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char* newYork = "EST5EDT,M3.2.0,M11.1.0";
constexpr const char* lordHowe = "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0";
constexpr const char* kolkata = "IST-5:30";

// Those of 2026. There is none in Kolkata.
const Change changes[] = {
    {"Europe/Berlin", berlin, 1774746000, "2026-03-29T01:59:59+0100", "2026-03-29T03:00:00+0200"},
    {"Europe/Berlin", berlin, 1792890000, "2026-10-25T02:59:59+0200", "2026-10-25T02:00:00+0100"},
    {"America/New_York", newYork, 1772953200, "2026-03-08T01:59:59-0500", "2026-03-08T03:00:00-0400"},
    {"America/New_York", newYork, 1793512800, "2026-11-01T01:59:59-0400", "2026-11-01T01:00:00-0500"},
    {"Australia/Lord_Howe", lordHowe, 1775314800, "2026-04-05T01:59:59+1100", "2026-04-05T01:30:00+1030"},
    {"Australia/Lord_Howe", lordHowe, 1791041400, "2026-10-04T01:59:59+1030", "2026-10-04T02:30:00+1100"},
    {"Asia/Kolkata", kolkata, 1774746000, "2026-03-29T06:29:59+0530", "2026-03-29T06:30:00+0530"},
    {"Asia/Kolkata", kolkata, 1792890000, "2026-10-25T06:29:59+0530", "2026-10-25T06:30:00+0530"},
};

// Every ten minutes for three hours before and after, and the seconds beside them.
std::vector<std::time_t> momentsAround(std::time_t change) {
    std::vector<std::time_t> moments;
    for (std::time_t offset = -3 * 3600; offset <= 3 * 3600; offset += 600)
        for (const std::time_t second : {-2, -1, 0, 1, 2, 299})
            moments.push_back(change + offset + second);
    return moments;
}

TEST(IsoTime, IsLocalTimeWithItsOffset) {
    for (const Change& given : changes)
        for (const char* name : {given.zone, given.rule}) {
            const fakes::LocalZone zone(name);
            EXPECT_EQ(isoTime(given.moment - 1), given.before) << name;
            EXPECT_EQ(isoTime(given.moment), given.after) << name;
        }
}

TEST(IsoTime, ATextNamesItsMomentToTheSecondAroundEveryChangeOfTheOffset) {
    for (const Change& given : changes)
        for (const char* name : {given.zone, given.rule}) {
            const fakes::LocalZone zone(name);
            const std::vector<std::time_t> moments = momentsAround(given.moment);
            for (const std::time_t moment : moments)
                ASSERT_EQ(momentOf(isoTime(moment)), moment) << name << ", " << isoTime(moment);
            // the C library may remember what it found last
            for (auto moment = moments.rbegin(); moment != moments.rend(); ++moment)
                ASSERT_EQ(momentOf(isoTime(*moment)), *moment) << name << ", " << isoTime(*moment);
        }
}

TEST(IsoTime, ATextNamesItsMomentAllTheYearRound) {
    for (const Change& given : changes) {
        const fakes::LocalZone zone(given.rule);
        for (std::time_t moment = 1767225600; moment < 1798761600; moment += 86400 + 3601) // 2026
            ASSERT_EQ(momentOf(isoTime(moment)), moment) << given.rule << ", " << isoTime(moment);
    }
}

struct TextCase {
    const char* zone;
    const char* text;
    std::time_t moment;
};

const TextCase textCases[] = {
    {"UTC", "1970-01-01T00:00:01+0000", 1},
    {"UTC", "2024-01-01T00:00:00+0000", 1704067200},
    {berlin, "2024-01-01T01:00:00+0100", 1704067200},
    {berlin, "2024-07-01T02:00:00+0200", 1719792000},
    {kolkata, "2024-01-01T05:30:00+0530", 1704067200},
    {newYork, "2024-07-01T00:00:00-0400", 1719806400},
    // the hour that comes twice
    {berlin, "2026-10-25T02:30:00+0200", 1792890000 - 1800},
    {berlin, "2026-10-25T02:30:00+0100", 1792890000 + 1800},
    {newYork, "2026-11-01T01:00:00-0400", 1793512800 - 3600},
    {newYork, "2026-11-01T01:00:00-0500", 1793512800},
    {lordHowe, "2026-04-05T01:45:00+1100", 1775314800 - 900},
    {lordHowe, "2026-04-05T01:45:00+1030", 1775314800 + 900},
    // the offset of another zone, or of the other half of the year: date and time of day are local
    {berlin, "2024-01-01T01:00:00+0000", 1704067200},
    {berlin, "2024-01-01T01:00:00-0800", 1704067200},
    {berlin, "2024-01-01T01:00:00+0200", 1704067200},
    {berlin, "2024-07-01T02:00:00+0100", 1719792000},
    {berlin, "2024-07-01T02:00:00+0530", 1719792000},
    {kolkata, "2024-01-01T05:30:00-1200", 1704067200},
    {"UTC", "2024-01-01T00:00:00+1400", 1704067200},
    // where 31 and 32 bits are too few
    {"UTC", "2038-01-19T03:14:08+0000", 2147483648},
    {"UTC", "2039-01-01T00:00:00+0000", 2177452800},
    {berlin, "2039-07-01T14:00:00+0200", 2193134400},
    {"UTC", "2106-02-07T06:28:16+0000", 4294967296},
    {"UTC", "9999-12-31T23:59:59+0000", 253402300799},
    // before 1970
    {"UTC", "1969-12-31T23:59:59+0000", -1},
    {berlin, "1970-01-01T00:00:00+0100", -3600},
};

TEST(IsoTime, ATextsDateAndTimeOfDayAreLocal) {
    for (const TextCase& given : textCases) {
        const fakes::LocalZone zone(given.zone);
        EXPECT_EQ(momentOf(given.text), given.moment) << given.zone << ", " << given.text;
    }
}

TEST(IsoTime, MomentsFarAwayComeBack) {
    for (const char* name : {"UTC", berlin, newYork, lordHowe, kolkata}) {
        const fakes::LocalZone zone(name);
        for (const std::time_t moment :
             {std::time_t{-2147483649}, std::time_t{-86400}, std::time_t{-1}, std::time_t{1},
              std::time_t{2147483647}, std::time_t{2147483648}, std::time_t{2177452800},
              std::time_t{4294967295}, std::time_t{4294967296}, std::time_t{253402300000 - 86400}})
            EXPECT_EQ(momentOf(isoTime(moment)), moment) << name << ", " << isoTime(moment);
    }
}

const char* const unreadable[] = {
    "",
    " ",
    "yesterday",
    "2026-11-21",
    "2026-11-21T03:30",
    "2026-11-21T03:30:00",
    "2026-11-21T03:30:00 CET",
    "2026-11-21T03:30:00+",
    "2026-11-21 03:30:00+0100",
    "2026-13-21T03:30:00+0100",
    "2026-00-21T03:30:00+0100",
    "2026-11-32T03:30:00+0100",
    "2026-11-21T24:30:00+0100",
    "2026-11-21T03:60:00+0100",
    "2026/11/21T03:30:00+0100",
    "21.11.2026T03:30:00+0100",
    "12026-11-21T03:30:00+0100",
    "1795228200",
    "%FT%T%z",
};

TEST(IsoTime, ATextThatCantBeReadIsTheEpoch) {
    const fakes::LocalZone zone("Europe/Berlin");
    for (const char* text : unreadable)
        EXPECT_EQ(momentOf(text), 0) << "'" << text << "'";
    EXPECT_EQ(momentOf(std::string(100000, '9')), 0);
}

struct Skipped {
    const char* zone;
    std::time_t change;
    std::vector<const char*> texts;
};

const Skipped skipped[] = {
    {berlin,
     1774746000,
     {"2026-03-29T02:00:00+0100", "2026-03-29T02:30:00+0100", "2026-03-29T02:59:59+0200"}},
    {newYork,
     1772953200,
     {"2026-03-08T02:00:00-0500", "2026-03-08T02:30:00-0400", "2026-03-08T02:59:59-0500"}},
    {lordHowe,
     1791041400,
     {"2026-10-04T02:00:00+1030", "2026-10-04T02:15:00+1100", "2026-10-04T02:29:59+0000"}},
};

TEST(IsoTime, ATimeThatWasSkippedIsWithinAnHourOfTheChange) {
    for (const Skipped& given : skipped) {
        const fakes::LocalZone zone(given.zone);
        for (const char* text : given.texts) {
            EXPECT_GE(momentOf(text), given.change - 3600) << given.zone << ", " << text;
            EXPECT_LE(momentOf(text), given.change + 3600) << given.zone << ", " << text;
        }
    }
}

TEST(IsoTime, ATimeZoneThatWasSetMeanwhileCounts) {
    const fakes::LocalZone zone("UTC");
    EXPECT_EQ(isoTime(1704067200), "2024-01-01T00:00:00+0000");
    setenv("TZ", kolkata, 1); // and nobody calls tzset()
    EXPECT_EQ(isoTime(1704067200), "2024-01-01T05:30:00+0530");
    setenv("TZ", berlin, 1);
    EXPECT_EQ(momentOf("2024-07-01T02:00:00+0200"), 1719792000);
}

TEST(IsoTime, AMomentThatCantBeConvertedIsAnEmptyText) {
    EXPECT_EQ(isoTime(std::numeric_limits<std::time_t>::max()), "");
    EXPECT_EQ(isoTime(std::numeric_limits<std::time_t>::min()), "");
}

} // namespace
