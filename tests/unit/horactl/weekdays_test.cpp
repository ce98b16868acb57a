#include "support/scriptedclock.h"
#include "tools/horactl/localtime.h"
#include "tools/horactl/weekdays.h"

#include <ctime>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace tools::horactl;
using fakes::LocalZone;
using testing::ElementsAre;

std::time_t at(const LocalTime& time) {
    const std::vector<std::time_t> moments = momentsOf(time);
    return moments.empty() ? 0 : moments.front();
}

std::vector<double> hoursOf(const std::vector<Span>& days) {
    std::vector<double> hours;
    for (const Span& day : days)
        hours.push_back(static_cast<double>(day.end - day.begin) / 3600);
    return hours;
}

std::vector<int> shownHours(const Span& day, int step) {
    std::vector<int> hours;
    for (const HourMark& mark : hourMarks(day, step))
        hours.push_back(mark.hour);
    return hours;
}

TEST(WeekDays, TheyBeginWithTheMidnightOfTheMomentsDay) {
    const LocalZone zone("Europe/Berlin");
    const std::vector<Span> days = daysFrom(at({2026, 11, 22, 15, 30, 0}), 7);
    EXPECT_EQ(days.front().begin, at({2026, 11, 22}));
    EXPECT_EQ(days.back().end, at({2026, 11, 29}));
    EXPECT_THAT(hoursOf(days), ElementsAre(24, 24, 24, 24, 24, 24, 24));
}

struct ChangeDay {
    const char* zone;
    LocalTime date;
    double hours;
    int firstHour; // as clocks show it
};

TEST(WeekDays, ADayOfAClockChangeHasTheHoursThatItHas) {
    const ChangeDay days[] = {
        {"Europe/Berlin", {2026, 3, 29}, 23, 0},
        {"Europe/Berlin", {2026, 10, 25}, 25, 0},
        {"America/New_York", {2026, 11, 1}, 25, 0},
        {"Australia/Lord_Howe", {2026, 10, 4}, 23.5, 0},
        {"Australia/Lord_Howe", {2026, 4, 5}, 24.5, 0},
        {"Asia/Beirut", {2026, 3, 29}, 23, 1},  // it has no midnight
        {"Asia/Beirut", {2026, 10, 24}, 25, 0}, // its last hour comes twice
        {"America/Havana", {2026, 11, 1}, 25, 0},
    };
    for (const ChangeDay& expected : days) {
        const LocalZone zone(expected.zone);
        LocalTime noon = expected.date;
        noon.hour = 12;
        const Span day = daysFrom(at(noon), 1).front();
        EXPECT_EQ(static_cast<double>(day.end - day.begin) / 3600, expected.hours) << expected.zone;
        EXPECT_EQ(localTimeOf(day.begin)->hour, expected.firstHour) << expected.zone;
        EXPECT_EQ(localTimeOf(day.begin)->day, expected.date.day) << expected.zone;
        EXPECT_EQ(hasClockChange(day), expected.firstHour == 0) << expected.zone; // or it lies at the begin
    }
}

TEST(WeekDays, ADateThatTheZoneLeftOutIsNoDay) {
    const LocalZone zone("Pacific/Apia");
    const std::vector<Span> days = daysFrom(at({2011, 12, 29, 12, 0, 0}), 3);
    ASSERT_EQ(days.size(), 3u);
    EXPECT_EQ(dateText(days[0]), "Thu 29 Dec");
    EXPECT_EQ(dateText(days[1]), "Sat 31 Dec");
    EXPECT_EQ(dateText(days[2]), "Sun  1 Jan");
}

TEST(WeekDays, PastTheCalendarADayLastsADayAndIsNamedByItsSeconds) {
    const LocalZone zone("Europe/Berlin");
    constexpr std::time_t pastEveryYear = 68000000000000000; // no int holds its year
    for (const std::time_t moment : {at({9999, 12, 30}), pastEveryYear}) {
        const std::vector<Span> days = daysFrom(moment, 3);
        EXPECT_EQ(days.front().begin, moment);
        EXPECT_THAT(hoursOf(days), ElementsAre(24, 24, 24));
    }
    EXPECT_EQ(dateText(daysFrom(at({9999, 12, 30}), 2).back()), "Fri 31 Dec");
    EXPECT_EQ(dateText(daysFrom(pastEveryYear, 2).back()), "@68000000000086400");
}

TEST(WeekDays, AnHourThatComesTwiceIsMarkedTwice) {
    const LocalZone zone("Europe/Berlin");
    EXPECT_THAT(shownHours(daysFrom(at({2026, 10, 24}), 1).front(), 6), ElementsAre(0, 6, 12, 18, 24));
    EXPECT_THAT(shownHours(daysFrom(at({2026, 10, 25}), 1).front(), 2),
                ElementsAre(0, 2, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24));
    EXPECT_THAT(shownHours(daysFrom(at({2026, 3, 29}), 1).front(), 2),
                ElementsAre(0, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24));
}

TEST(WeekDays, ATimeOnADayOfAClockChangeNamesTheZone) {
    const LocalZone zone("Europe/Berlin");
    const Span plain = daysFrom(at({2026, 10, 24}), 1).front();
    EXPECT_EQ(clockText(plain, at({2026, 10, 24, 2, 30, 0})), "02:30");
    EXPECT_EQ(clockText(plain, plain.end), "24:00");
    const Span change = daysFrom(at({2026, 10, 25}), 1).front();
    const std::vector<std::time_t> twice = momentsOf({2026, 10, 25, 2, 30, 0});
    EXPECT_EQ(clockText(change, twice.front()), "02:30 CEST");
    EXPECT_EQ(clockText(change, twice.back()), "02:30 CET");
}

TEST(WeekDays, ASpanUnderAMinuteIsToldWithItsSeconds) {
    const LocalZone zone("UTC");
    const Span day = {0, 86400};
    EXPECT_EQ(clockSpanText(day, {3600, 7200}, "-"), "01:00-02:00");
    EXPECT_EQ(clockSpanText(day, {3600, 3610}, "-"), "01:00:00-01:00:10");
    EXPECT_EQ(clockSpanText(day, {86390, 86400}, "-"), "23:59:50-24:00:00");
}

TEST(WeekDays, TheLongestPieceIsFoundBetweenMoments) {
    const auto longest = [](const Span& span, const std::vector<std::time_t>& moments) {
        const Span piece = longestBetween(span, moments);
        return std::pair(piece.begin, piece.end);
    };
    EXPECT_EQ(longest({0, 100}, {}), std::pair(std::time_t{0}, std::time_t{100}));
    EXPECT_EQ(longest({0, 100}, {60, 10, 500, -5}), std::pair(std::time_t{10}, std::time_t{60}));
    EXPECT_EQ(longest({0, 100}, {40}), std::pair(std::time_t{40}, std::time_t{100}));
}

} // namespace
