#include "tools/horactl/events.h"
#include "tools/horactl/localtime.h"
#include "unit/horactl/forecasthouse.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tools::horactl::testing {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

namespace {

// "+10 wlan 1 WlanTimePlans.1": the seconds from noon on, what, to, and the rows.
std::string textOf(const Event& event) {
    std::string text = '+' + std::to_string(event.time - noon) + ' ' + nameOf(event.what) + ' ' + event.to;
    for (const std::string& row : event.rows)
        text += ' ' + row;
    return text;
}

Lines textsOf(const std::vector<Event>& events) {
    Lines texts;
    for (const Event& event : events)
        texts.push_back(textOf(event));
    return texts;
}

class EventsTest : public ::testing::Test {
protected:
    Lines next(std::int64_t seconds, std::size_t most = 100, unsigned repeatDelay = 0) {
        Forecast forecast(household, {noon, repeatDelay});
        return textsOf(nextEvents(forecast, noon, noon + seconds, most));
    }
    void addFrame(const std::string& table, int service) {
        add(household, "TimeFrame",
            {{"Servicetable", table},
             {"ServicetableId", std::to_string(service)},
             {"TimeFrameStart", std::to_string(noon)},
             {"TimeFrameEnd", std::to_string(noon + hour)},
             {"MaxRetries", "-1"}});
    }

    Household household = quietHousehold();
    fakes::LocalZone zone{"UTC"};
};

TEST_F(EventsTest, HaveNames) {
    const std::pair<Event::What, const char*> cases[] = {{Event::What::Wlan, "wlan"},
                                                         {Event::What::Status, "status"},
                                                         {Event::What::Service, "service"},
                                                         {Event::What::Reboot, "reboot"},
                                                         {Event::What::Clock, "clock"}};
    for (const auto& [what, name] : cases)
        EXPECT_STREQ(nameOf(what), name);
}

TEST_F(EventsTest, AStatusIsItsOwnRows) {
    addDaily(household, "TimePlans", 7, 1, "12:00:10", "12:00:20");
    EXPECT_THAT(next(60), ElementsAre("+10 status 1 TimePlans.7", "+22 status 0 TimePlans.7"));
}

TEST_F(EventsTest, TheWlanIsThePlansThatDecides) {
    addDaily(household, "WlanTimePlans", 1, 1, "08:00", "18:00");
    addDaily(household, "WlanTimePlans", 2, 0, "12:00:10", "12:00:20");
    // An activating plan makes it on; the status of a deactivating one is 0 within its slots.
    EXPECT_THAT(next(60), ElementsAre("+2 status 1 WlanTimePlans.1", "+2 status 1 WlanTimePlans.2",
                                      "+2 wlan 1 WlanTimePlans.1", "+10 status 0 WlanTimePlans.2",
                                      "+10 wlan 0 WlanTimePlans.2", "+22 status 1 WlanTimePlans.2",
                                      "+22 wlan 1 WlanTimePlans.1"));
}

TEST_F(EventsTest, TheWlanIsTheFirstRowsWhereTheDefaultDecides) {
    addDaily(household, "WlanTimePlans", 3, 0, "12:00:10", "12:00:20");
    addDaily(household, "WlanTimePlans", 4, 1, "01:00", "02:00");
    EXPECT_THAT(next(30), ElementsAre("+2 status 1 WlanTimePlans.3", "+2 wlan 1 WlanTimePlans.3",
                                      "+10 status 0 WlanTimePlans.3", "+10 wlan 0 WlanTimePlans.3",
                                      "+22 status 1 WlanTimePlans.3", "+22 wlan 1 WlanTimePlans.3"));
}

TEST_F(EventsTest, TheWlanIsNobodysWithoutAPlan) {
    set(household, "WlanGlobals", {{"WlanEnable", "1"}});
    EXPECT_THAT(next(30), ElementsAre("+0 wlan 0"));
}

TEST_F(EventsTest, AServiceIsItsFrames) {
    addFrame("FileTransfer", 1);
    addFrame("FileTransfer", 2);
    addFrame("FileTransfer", 1);
    add(household, "FileTransfer", {});
    add(household, "FileTransfer", {});
    EXPECT_THAT(next(30),
                UnorderedElementsAre("+4 service 1 TimeFrame.1 TimeFrame.3", "+4 service 1 TimeFrame.2"));
}

TEST_F(EventsTest, AServiceOfAnotherTableIsItsOwnFrames) {
    household.tables["Backup"] = {row("FileTransfer", 2, {})};
    addFrame("FileTransfer", 1);
    addFrame("Backup", 2);
    add(household, "FileTransfer", {});
    EXPECT_THAT(next(30), UnorderedElementsAre("+4 service 1 TimeFrame.1", "+4 service 1 TimeFrame.2"));
}

TEST_F(EventsTest, ARebootIsOneOfTheSettings) {
    set(household, "AutoReboot", {{"Enable", "1"}, {"Time", "12:01"}});
    EXPECT_THAT(next(300), ElementsAre("+100 reboot 1 AutoReboot"));
}

TEST_F(EventsTest, TheDaemonOfTheServicesIsNothingThatAnOwnerNotices) {
    set(household, "wexd", {{"Enable", "0"}});
    EXPECT_THAT(next(30), IsEmpty());
}

TEST_F(EventsTest, TellAPersonWhy) {
    velta::ValueList plan = row("WlanTimePlans", 2,
                                {{"TimePlanName", "Week\x1b"
                                                  "end"},
                                 {"StartMon", "12:00:10"},
                                 {"StopMon", "13:00"}});
    household.tables["WlanTimePlans"] = {plan};
    Forecast forecast(household, {noon});
    const std::vector<Event> events = nextEvents(forecast, noon, noon + 2 * hour, 100);
    ASSERT_EQ(events.size(), 4U);
    EXPECT_EQ(events[0].why, events[1].why);
    EXPECT_EQ(events[0].why.find("WlanTimePlans.2 Week"), 0U);
    EXPECT_EQ(events[0].why.find('\x1b'), std::string::npos);
    EXPECT_EQ(events[3].why.find("no plan speaks; the first row, WlanTimePlans.2 Week"), 0U);
}

TEST_F(EventsTest, NoMoreThanWanted) {
    addDaily(household, "WlanTimePlans", 1, 1, "12:00:10", "12:00:20");
    EXPECT_THAT(next(60, 1), ElementsAre("+10 status 1 WlanTimePlans.1"));
    EXPECT_THAT(next(60, 3), ElementsAre("+10 status 1 WlanTimePlans.1", "+10 wlan 1 WlanTimePlans.1",
                                         "+22 status 0 WlanTimePlans.1"));
}

TEST_F(EventsTest, ClockChangesStandBetweenTheOthers) {
    zone.set("Europe/Berlin");
    constexpr std::time_t change = 1774746000; // Sun 2026-03-29 02:00 CET
    addDaily(household, "TimePlans", 1, 1, "01:59:50", "03:00:10");
    Forecast forecast(household, {change - minute});
    std::vector<std::string> texts;
    for (const Event& event : nextEvents(forecast, change - minute, change + hour, 100))
        texts.push_back(std::to_string(event.time - change) + ' ' + nameOf(event.what) + ' ' + event.to);
    EXPECT_THAT(texts, ElementsAre("-10 status 1", "0 clock +0200", "12 status 0"));
}

struct ZoneCase {
    const char* zone;
    std::time_t first; // of the two changes of 2023
    const char* firstOffset;
    std::time_t second;
    const char* secondOffset;
};

constexpr ZoneCase zoneCases[] = {
    {"Europe/Berlin", 1679792400, "+0200", 1698541200, "+0100"},
    {"Europe/Dublin", 1679792400, "+0100", 1698541200, "+0000"}, // winter time is the exception there
    {"Europe/London", 1679792400, "+0100", 1698541200, "+0000"},
    {"Atlantic/Azores", 1679792400, "+0000", 1698541200, "-0100"},
    {"Africa/Casablanca", 1679191200, "+0000", 1682215200, "+0100"}, // for Ramadan
    {"Africa/Cairo", 1682632800, "+0300", 1698354000, "+0200"},
    {"America/New_York", 1678604400, "-0400", 1699164000, "-0500"},
    {"America/Los_Angeles", 1678615200, "-0700", 1699174800, "-0800"},
    {"America/St_Johns", 1678599000, "-0230", 1699158600, "-0330"},
    {"America/Havana", 1678597200, "-0400", 1699160400, "-0500"}, // at midnight
    {"America/Scoresbysund", 1679792400, "+0000", 1698541200, "-0100"},
    {"America/Asuncion", 1679799600, "-0400", 1696132800, "-0300"},
    {"America/Santiago", 1680404400, "-0400", 1693713600, "-0300"},
    {"Asia/Jerusalem", 1679616000, "+0300", 1698534000, "+0200"},
    {"Asia/Beirut", 1679781600, "+0300", 1698526800, "+0200"},
    {"Australia/Adelaide", 1680366600, "+0930", 1696091400, "+1030"},
    {"Australia/Lord_Howe", 1680361200, "+1030", 1696087800, "+1100"}, // by half an hour
    {"Pacific/Chatham", 1680357600, "+1245", 1695477600, "+1345"},
    {"Pacific/Auckland", 1680357600, "+1200", 1695477600, "+1300"},
    {"Pacific/Norfolk", 1680361200, "+1100", 1696086000, "+1200"},
    {"Antarctica/Troll", 1679792400, "+0200", 1698541200, "+0000"}, // by two hours
};
static_assert(std::size(zoneCases) >= 20);

constexpr std::time_t newYear2023 = 1672531200; // in UTC
constexpr std::time_t newYear2024 = 1704067200;

TEST_F(EventsTest, AClockChangeCountsAmongThoseThatAreAskedFor) {
    zone.set("AAA0BBB-1,J61/12:15,J300"); // a quarter of an hour behind noon the clock goes forward
    addDaily(household, "TimePlans", 1, 1, "12:10", "13:20");
    const Lines all = {"+600 status 1 TimePlans.1", "+900 clock +0100", "+1202 status 0 TimePlans.1"};
    for (std::size_t most = 0; most <= all.size(); ++most)
        EXPECT_EQ(next(1800, most), Lines(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(most)));
}

TEST_F(EventsTest, ClockChangesAreFoundToTheSecondWhereverTheSearchBegins) {
    for (const ZoneCase& one : zoneCases)
        for (const std::time_t later : {0, 1, 5, 12347}) {
            zone.set(one.zone);
            const std::vector<Event> events = clockChanges(newYear2023 + later, newYear2024);
            ASSERT_EQ(events.size(), 2U) << one.zone;
            EXPECT_EQ(events[0].time, one.first) << one.zone << ' ' << later;
            EXPECT_EQ(events[0].to, one.firstOffset) << one.zone;
            EXPECT_EQ(events[1].time, one.second) << one.zone << ' ' << later;
            EXPECT_EQ(events[1].to, one.secondOffset) << one.zone;
            EXPECT_THAT(events[0].rows, IsEmpty());
            EXPECT_EQ(events[0].what, Event::What::Clock);
        }
}

TEST_F(EventsTest, ClockChangesAreLookedForBehindTheBeginningUpToTheEnd) {
    for (const ZoneCase& one : zoneCases) {
        zone.set(one.zone);
        struct Case {
            std::time_t from;
            std::time_t to;
            std::size_t found;
        };
        const Case cases[] = {
            {one.first - 1, one.first, 1},     {one.first, one.first + 1, 0},
            {one.first - 2, one.first - 1, 0}, {one.first - 100 * hour, one.first, 1},
            {one.first, one.second, 1},        {one.first, one.first, 0},
        };
        for (const Case& span : cases)
            EXPECT_EQ(clockChanges(span.from, span.to).size(), span.found)
                << one.zone << ' ' << span.from - one.first << ' ' << span.to - one.first;
    }
}

TEST_F(EventsTest, ZonesWhoseClocksStayHaveNone) {
    for (const char* const name : {"UTC", "Asia/Tokyo", "Asia/Kathmandu", "Africa/Lagos"}) {
        zone.set(name);
        EXPECT_THAT(clockChanges(newYear2023, newYear2024), IsEmpty()) << name;
    }
}

TEST_F(EventsTest, AClockMaySkipADay) {
    constexpr std::time_t skipped = 1325239200; // 2011-12-30 is missing
    zone.set("Pacific/Apia");
    const std::vector<Event> events = clockChanges(skipped - 10 * 24 * hour, skipped + 10 * 24 * hour);
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].time, skipped);
    EXPECT_EQ(events[0].to, "+1400");
}

TEST_F(EventsTest, AClockChangeTellsBothTimes) {
    zone.set("Europe/Berlin");
    EXPECT_EQ(clockChanges(newYear2023, newYear2024).front().why,
              "the clock changes, from 01:59:59 CET to 03:00:00 CEST");
}

} // namespace

} // namespace tools::horactl::testing
