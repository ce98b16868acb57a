#include "unit/horactl/forecasthouse.h"

#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// What happens around a horad that lives in a forecast: calls, streams, services and reboots.
namespace tools::horactl::testing {

using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

namespace {

const char* const firstTrigger = "+100 Reboot Trigger 0 -> 1"; // with the second look at the reboot

class ForecastLine : public ::testing::Test {
protected:
    // A frame that opens at noon for ten minutes, and its service.
    void addFrame(int mode) {
        add(household, "TimeFrame",
            {{"WindowMode", std::to_string(mode)},
             {"ServicetableId", "1"},
             {"TimeFrameStart", std::to_string(noon)},
             {"TimeFrameEnd", std::to_string(noon + 10 * minute)},
             {"MaxRetries", "-1"}});
        add(household, "FileTransfer", {});
    }
    void rebootDaily(const std::string& time, std::int64_t minimum = 60) {
        set(household, "AutoReboot",
            {{"Enable", "1"}, {"Time", time}, {"MinimumRuntime", std::to_string(minimum)}});
    }
    Lines of(const std::string& part, const Lines& lines) const {
        Lines some;
        std::copy_if(lines.begin(), lines.end(), std::back_inserter(some),
                     [&](const std::string& line) { return line.find(part) != std::string::npos; });
        return some;
    }

    Household household = quietHousehold();

private:
    fakes::LocalZone zone_{"UTC"};
};

struct SpanCase {
    std::vector<Span> spans; // from noon on
    const char* first;       // of the lines that tell of the column
};

std::vector<Span> fromNoon(std::vector<Span> spans) {
    for (Span& span : spans)
        span = {noon + span.begin, noon + span.end};
    return spans;
}

TEST_F(ForecastLine, ARebootWaitsForTheEndOfCalls) {
    rebootDaily("12:01");
    const SpanCase cases[] = {
        {{}, "+100"},
        {{{90, 130}}, "+150"},
        {{{90, 150}}, "+150"}, // up to, not including, its end
        {{{100, 101}}, "+150"},
        {{{101, 149}}, "+100"},
        {{{90, 130}, {95, 180}}, "+200"},
        {{{95, 180}, {90, 130}}, "+200"},
        {{{90, 180}, {95, 130}}, "+200"},
        {{{90, 130}, {130, 180}}, "+200"},
        {{{130, 180}, {90, 130}}, "+200"},
        {{{-100, 130}}, "+150"},
        {{{-100, -50}}, "+100"},
        {{{-100, 0}}, "+100"},
    };
    for (const SpanCase& one : cases) {
        Circumstances circumstances;
        circumstances.calls = fromNoon(one.spans);
        EXPECT_THAT(of("Trigger", writesOf(household, 300, circumstances)),
                    ElementsAre(one.first + std::string(" Reboot Trigger 0 -> 1")));
    }
}

TEST_F(ForecastLine, StreamsHoldNoReboot) {
    rebootDaily("12:01");
    Circumstances circumstances;
    circumstances.streams = fromNoon({{0, 300}});
    EXPECT_THAT(writesOf(household, 300, circumstances), Contains(firstTrigger));
}

// What was due while the line was busy waits for the next execution time, ten seconds later each.
TEST_F(ForecastLine, AFrameThatWantsTheLineIdleWaitsForCallsAndStreams) {
    addFrame(3);
    const SpanCase cases[] = {
        {{}, "+4"},           {{{0, 13}}, "+22"},          {{{0, 4}}, "+4"},
        {{{-50, 13}}, "+22"}, {{{0, 13}, {5, 31}}, "+32"}, {{{0, 13}, {5, 33}}, "+42"},
        {{{5, 31}}, "+4"},
    };
    for (const SpanCase& one : cases)
        for (const bool call : {true, false}) {
            Circumstances circumstances;
            (call ? circumstances.calls : circumstances.streams) = fromNoon(one.spans);
            EXPECT_THAT(of("FileTransfer", writesOf(household, 60, circumstances, 10)),
                        ElementsAre(one.first + std::string(" FileTransfer.1 Status 0 -> 1")));
        }
}

TEST_F(ForecastLine, AServiceThatHangsIsStartedOnce) {
    addFrame(1);
    EXPECT_THAT(writesOf(household, 300, {}, 20),
                ElementsAre("+4 FileTransfer.1 Status 0 -> 1", "+4 TimeFrame.1 RunCounter 0 -> 1"));
}

TEST_F(ForecastLine, AServiceThatSucceedsIsStartedOnce) {
    addFrame(1);
    Circumstances circumstances;
    circumstances.service = {Service::Outcome::Succeeds, 30};
    EXPECT_THAT(of("FileTransfer", writesOf(household, 300, circumstances, 20)),
                ElementsAre("+4 FileTransfer.1 Status 0 -> 1"));
}

TEST_F(ForecastLine, AServiceThatFailsIsStartedAgain) {
    addFrame(1);
    struct Case {
        std::int64_t duration;
        Lines starts;
    };
    const Case cases[] = {
        {10, {"+4", "+22", "+42"}},
        {0, {"+4", "+22", "+42"}},
        {25, {"+4", "+29", "+54"}}, // a frame that fell due meanwhile starts as soon as it ends
    };
    for (const Case& one : cases) {
        Circumstances circumstances;
        circumstances.service = {Service::Outcome::Fails, one.duration};
        Lines starts;
        for (const std::string& line : of("FileTransfer", writesOf(household, 55, circumstances, 20)))
            starts.push_back(line.substr(0, line.find(' ')));
        EXPECT_EQ(starts, one.starts) << one.duration;
    }
}

TEST_F(ForecastLine, AServiceIsUnderWayUntilItIsDone) {
    addFrame(1);
    struct Case {
        Service service;
        std::int64_t seconds;
        int status;
        int result;
    };
    const Case cases[] = {
        {{Service::Outcome::Hangs, 30}, 60, 1, 0},    {{Service::Outcome::Succeeds, 30}, 8, 2, 0},
        {{Service::Outcome::Succeeds, 30}, 32, 2, 0}, {{Service::Outcome::Succeeds, 30}, 36, 5, 0},
        {{Service::Outcome::Fails, 30}, 32, 2, 0},    {{Service::Outcome::Fails, 30}, 36, 5, 1},
        {{Service::Outcome::Fails, 60}, 62, 2, 0},
    };
    for (const Case& one : cases) {
        Circumstances circumstances;
        circumstances.service = one.service;
        Forecast forecast(household, {noon}, circumstances);
        forecast.runUntil(noon + one.seconds);
        EXPECT_EQ(forecast.tables().number("FileTransfer", "Status", 1), one.status) << one.seconds;
        EXPECT_EQ(forecast.tables().number("FileTransfer", "Result", 1), one.result) << one.seconds;
    }
}

TEST_F(ForecastLine, ATriggerIsFollowedByAReboot) {
    rebootDaily("12:01");
    Forecast forecast(household, {noon});
    Lines writes;
    record(forecast, writes);
    forecast.runUntil(noon + 110);
    EXPECT_THAT(writes, UnorderedElementsAre(firstTrigger,
                                             "+100 AutoReboot LastReboot  -> 2026-03-02T12:01:40+0000"));
    EXPECT_EQ(forecast.now(), noon + 110);
    forecast.runUntil(noon + 159);
    EXPECT_EQ(forecast.now(), noon + 159);
    EXPECT_EQ(forecast.tables().number("Reboot", "Trigger"), 1);
    EXPECT_EQ(forecast.iterations(), 50U); // it is down
    forecast.runUntil(noon + 170);
    EXPECT_EQ(forecast.tables().number("Reboot", "Trigger"), 0);
    EXPECT_EQ(forecast.iterations(), 55U);
    EXPECT_EQ(forecast.now(), noon + 170);
}

// Somebody switches the WLAN off while the router is down, and a slot begins.
TEST_F(ForecastLine, ANewHoradReadsEverythingAMinuteLater) {
    rebootDaily("12:01");
    addDaily(household, "WlanTimePlans", 1, 1, "12:02", "18:00");
    EXPECT_THAT(
        of("Wlan", writesOf(household, 300)),
        ElementsAre("+162 WlanTimePlans.1 TimePlanStatus 0 -> 1", "+162 WlanGlobals WlanEnable 0 -> 1"));
}

TEST_F(ForecastLine, ANewHoradCountsItsFramesAnew) {
    rebootDaily("12:01");
    addFrame(1);
    Circumstances circumstances;
    circumstances.service = {Service::Outcome::Fails, 10};
    // The notices of the service make more iterations, so that the reboot comes earlier.
    const Lines writes = writesOf(household, 190, circumstances, 500);
    EXPECT_THAT(of("Trigger", writes), ElementsAre("+96 Reboot Trigger 0 -> 1"));
    EXPECT_THAT(of("FileTransfer", writes),
                ElementsAre("+4 FileTransfer.1 Status 0 -> 1", "+160 FileTransfer.1 Status 5 -> 1"));
}

TEST_F(ForecastLine, TheUptimeIsThatOfTheCircumstances) {
    rebootDaily("12:10", 1000);
    struct Case {
        std::int64_t uptime;
        bool reboots;
    };
    const Case cases[] = {{Circumstances().uptime, true}, {0, false}, {399, true}, {300, false}};
    for (const Case& one : cases) {
        Circumstances circumstances;
        circumstances.uptime = one.uptime;
        EXPECT_EQ(!of("Trigger", writesOf(household, 700, circumstances)).empty(), one.reboots) << one.uptime;
    }
}

// The next day's slot is met 86400 s later; the router has been up for 86350 s then at most.
TEST_F(ForecastLine, ARebootBeginsTheUptimeAnew) {
    constexpr std::int64_t twoDays = 2 * 24 * hour;
    rebootDaily("12:01", 86340);
    EXPECT_EQ(of("Trigger", writesOf(household, twoDays)).size(), 2U);
    rebootDaily("12:01", 86380);
    EXPECT_EQ(of("Trigger", writesOf(household, twoDays)).size(), 1U);
}

TEST_F(ForecastLine, ATriggerThatStandsInTheTablesIsOver) {
    rebootDaily("12:01");
    set(household, "Reboot", {{"Trigger", "1"}});
    Forecast forecast(household, {noon});
    EXPECT_EQ(forecast.tables().number("Reboot", "Trigger"), 0);
    Lines writes;
    record(forecast, writes);
    forecast.runUntil(noon + 90);
    EXPECT_THAT(writes, IsEmpty());
    forecast.runUntil(noon + 120);
    EXPECT_THAT(writes, Contains(firstTrigger));
}

TEST_F(ForecastLine, ARouterWithoutARowForTheTriggerGoesOn) {
    rebootDaily("12:01");
    household.tables["Reboot"].clear();
    Forecast forecast(household, {noon});
    forecast.runUntil(noon + 300);
    EXPECT_EQ(forecast.now(), noon + 300);
    EXPECT_EQ(forecast.iterations(), 151U); // one for the notice of its own stamp
}

class ForecastLog : public ForecastLine {
protected:
    Lines logOf(bool verbose, std::int64_t seconds, const Circumstances& circumstances = {}) const {
        Lines lines;
        Forecast forecast(household, {noon, 10, verbose}, circumstances);
        forecast.onLine([&](std::time_t time, orv::horad::LogLevel level, const std::string& module,
                            const std::string& text) {
            constexpr const char* levels[] = {"error", "warning", "info", "debug"};
            lines.push_back('+' + std::to_string(time - noon) + ' ' +
                            levels[static_cast<std::size_t>(level)] + ' ' + module + ": " + text);
        });
        forecast.runUntil(noon + seconds);
        return lines;
    }
};

TEST_F(ForecastLog, LinesCarryTheirSimulatedTime) {
    rebootDaily("12:01");
    EXPECT_THAT(logOf(false, 120), Contains(StartsWith("+0 info horad: Auto reboot enabled: true")));
    EXPECT_THAT(logOf(false, 120), Contains(StartsWith("+100 info horad: Trigger auto reboot now at "
                                                       "'2026-03-02T12:01:40+0000'")));
}

TEST_F(ForecastLog, DebugLinesComeToWhoeverIsVerbose) {
    EXPECT_THAT(logOf(true, 10), Contains("+2 debug timefrmhdl: First process: synchronise"));
    EXPECT_THAT(logOf(false, 120), Each(Not(HasSubstr(" debug horad"))));
    EXPECT_THAT(logOf(false, 10), Each(Not(HasSubstr("First process"))));
}

TEST_F(ForecastLog, LinesThatRepeatAreCounted) {
    addFrame(3);
    Circumstances circumstances;
    circumstances.streams = fromNoon({{0, 10 * minute}});
    const Lines lines = of("system not idle", logOf(false, 120, circumstances));
    EXPECT_THAT(lines, ElementsAre("+4 info timefrmhdl: system not idle, reschedule",
                                   "+12 info timefrmhdl: system not idle, reschedule",
                                   "+22 info timefrmhdl: system not idle, reschedule",
                                   "+92 info timefrmhdl: repeated 6 times: system not idle, reschedule",
                                   "+120 info timefrmhdl: repeated 3 times: system not idle, reschedule"));
}

TEST_F(ForecastLog, WhatIsCountedIsToldAMinuteLater) {
    addFrame(3);
    Circumstances circumstances;
    circumstances.streams = fromNoon({{0, 35}});
    EXPECT_THAT(of("repeated", logOf(false, 120, circumstances)),
                ElementsAre("+92 info timefrmhdl: repeated 1 time: system not idle, reschedule"));
}

} // namespace

} // namespace tools::horactl::testing
