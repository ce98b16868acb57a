#include "support/scriptedclock.h"
#include "timeplan/localclock.h"

#include <ctime>
#include <limits>
#include <string>

#include <gtest/gtest.h>

using orv::horad::LocalClock;
using orv::horad::LocalMoment;

namespace {

std::string text(const std::optional<LocalMoment>& moment) {
    if (!moment)
        return "none";
    return std::to_string(moment->weekDay()) + " " + std::to_string(moment->time().hour()) + ":" +
           std::to_string(moment->time().minute()) + ":" + std::to_string(moment->time().second());
}

struct Place {
    const char* zone;
    std::time_t change; // of the offset or the day, seconds since the epoch
};

const Place places[] = {
    {"Europe/Berlin", 1711846800},              // 2024-03-31 02:00 becomes 03:00
    {"Europe/Berlin", 1729990800},              // 2024-10-27 03:00 becomes 02:00
    {"America/New_York", 1710054000},           // 2024-03-10 02:00 becomes 03:00
    {"Australia/Lord_Howe", 1712415600 - 1800}, // 2024-04-07, half an hour back
    {"Asia/Kolkata", 1711823400},               // midnight
    {"XXX0:00:20", 1711843220},                 // an offset with seconds
};

TEST(LocalClock, SaysEachSecondWhatTheCLibrarySays) {
    for (const Place& place : places) {
        const fakes::LocalZone zone(place.zone);
        LocalClock clock;
        for (std::time_t now = place.change - 200; now < place.change + 200; ++now)
            ASSERT_EQ(text(clock.at(now)), text(LocalMoment::at(now))) << place.zone << " " << now;
    }
}

TEST(LocalClock, FollowsAClockThatIsSetBackOrForth) {
    const fakes::LocalZone zone("Europe/Berlin");
    LocalClock clock;
    for (const std::time_t now : {1711846830, 1711846829, 1711846771, 0, 1711846859, 1711846860, 1711843259})
        EXPECT_EQ(text(clock.at(now)), text(LocalMoment::at(now))) << now;
}

TEST(LocalClock, AsksTheCLibraryOnceAMinute) {
    const fakes::LocalZone zone("UTC");
    LocalClock clock;
    const std::time_t minute = 1711843200;
    fakes::resetTimeCalls();
    for (std::time_t now = minute + 3; now < minute + 60; now += 2)
        (void)clock.at(now);
    EXPECT_EQ(fakes::timeCalls().localtime, 1U);

    (void)clock.at(minute + 60);
    EXPECT_EQ(fakes::timeCalls().localtime, 2U);
}

TEST(LocalClock, TakesANewTimeZoneWithTheNextMinute) {
    const std::time_t minute = 1711843200; // 2024-03-31 00:00 UTC, a Sunday
    const fakes::LocalZone zone("UTC");
    LocalClock clock;
    EXPECT_EQ(text(clock.at(minute + 58)), "0 0:0:58");
    setenv("TZ", "UTC-5", 1); // nobody but the clock calls tzset()
    EXPECT_EQ(text(clock.at(minute + 60)), "0 5:1:0");
}

struct ZoneChange {
    const char* what;
    const char* before;
    const char* after;
    const char* moment; // local time afterwards
};

const ZoneChange zoneChanges[] = {
    {"the offset alone", "AAA0", "AAA-5", "0 5:0:11"},
    {"the name alone", "AAA0", "BBB0CCC,J1/0,J365/25", "0 1:0:11"}, // summer time all year round
};

TEST(LocalClock, TakesANewTimeZoneAtOnceWhereItWasSet) {
    const std::time_t minute = 1711843200; // 2024-03-31 00:00 UTC, a Sunday
    for (const ZoneChange& given : zoneChanges) {
        fakes::LocalZone zone(given.before);
        LocalClock clock;
        EXPECT_EQ(text(clock.at(minute + 10)), "0 0:0:10") << given.what;
        zone.set(given.after);
        EXPECT_EQ(text(clock.at(minute + 11)), given.moment) << given.what;
    }
}

TEST(LocalMoment, TakesANewTimeZoneAtOnce) {
    const std::time_t midnight = 1711843200; // 2024-03-31 00:00 UTC, a Sunday
    const fakes::LocalZone zone("UTC");
    EXPECT_EQ(text(LocalMoment::at(midnight)), "0 0:0:0");
    setenv("TZ", "UTC-5", 1); // nobody but itself calls tzset()
    EXPECT_EQ(text(LocalMoment::at(midnight)), "0 5:0:0");
}

TEST(LocalClock, AMomentThatCantBeConvertedIsNone) {
    LocalClock clock;
    const std::time_t far = std::numeric_limits<std::time_t>::max();
    EXPECT_EQ(text(clock.at(far)), "none");
    EXPECT_EQ(text(clock.at(far)), "none");
}

} // namespace
