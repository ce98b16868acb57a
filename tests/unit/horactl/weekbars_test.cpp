#include "support/scriptedclock.h"
#include "tools/horactl/week.h"
#include "tools/horactl/weekbars.h"
#include "tools/horactl/weekdays.h"
#include "tools/text.h"
#include "velta/text.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace tools::horactl;
using fakes::LocalZone;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;

constexpr std::time_t hour = 3600;         // seconds
constexpr std::size_t twoCellsAnHour = 59; // characters on a line, for a day of 24 hours

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = text.find('\n', begin);
        lines.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return lines;
}

// Seven days from that moment on which the WLAN is off.
WeekPicture quietWeek(std::time_t from) {
    WeekPicture picture;
    picture.days = daysFrom(from, 7);
    picture.wlan = {{picture.span(), false, "default", "", "no plan speaks"}};
    return picture;
}

// The first day is on between these hours.
WeekPicture weekWithSlot(std::time_t from, std::time_t on, std::time_t off, const std::string& name) {
    WeekPicture picture = quietWeek(from);
    const Span all = picture.span();
    const Span slot = {all.begin + on * hour, all.begin + off * hour};
    picture.plans = {{"WlanTimePlans", 3, name, true, {slot}}};
    picture.wlan = {{{all.begin, slot.begin}, false, "default", "", ""},
                    {slot, true, "WlanTimePlans.3", name, "WlanTimePlans.3 " + name},
                    {{slot.end, all.end}, false, "default", "", ""}};
    return picture;
}

BarStyle ascii(std::size_t width) {
    return {width, false, false};
}

constexpr std::time_t monday = 1795392000; // 2026-11-23T00:00:00 UTC

class WeekBars : public testing::Test {
protected:
    LocalZone zone{"UTC"};
};

TEST_F(WeekBars, ADayIsALineWithTheDecidingPlansNameInItsBar) {
    const auto lines = linesOf(barsOf(weekWithSlot(monday, 7, 22, "Guests"), ascii(twoCellsAnHour)));
    EXPECT_EQ(lines[0], "Mon 23 Nov 2026 to Sun 29 Nov 2026, UTC");
    EXPECT_EQ(lines[2], "WLAN       0     3     6     9     12    15    18    21  24");
    EXPECT_EQ(lines[3], "Mon 23 Nov ..............########### Guests ###########....");
    EXPECT_EQ(lines[4], "Tue 24 Nov " + std::string(48, '.'));
    EXPECT_EQ(lines[9], "Sun 29 Nov " + std::string(48, '.'));
}

TEST_F(WeekBars, ANameThatDoesNotFitGivesWayToTheRowsNumber) {
    const auto lines = linesOf(barsOf(weekWithSlot(monday, 7, 10, "Guests"), ascii(twoCellsAnHour)));
    EXPECT_EQ(lines[3], "Mon 23 Nov ..............# 3 ##" + std::string(28, '.'));
}

TEST_F(WeekBars, TheShortestSlotTakesACell) {
    WeekPicture picture = quietWeek(monday);
    const Span all = picture.span();
    const std::time_t begin = all.begin + 12 * hour;
    picture.wlan = {{{all.begin, begin}, false, "default", "", ""},
                    {{begin, begin + 4}, true, "WlanTimePlans.1", "", ""},
                    {{begin + 4, all.end}, false, "default", "", ""}};
    const auto lines = linesOf(barsOf(picture, ascii(twoCellsAnHour)));
    EXPECT_EQ(lines[3], "Mon 23 Nov " + std::string(24, '.') + "#" + std::string(23, '.'));
}

TEST_F(WeekBars, WhatElseThereIsStandsBeneathTheDayAtItsTime) {
    WeekPicture picture = weekWithSlot(monday, 7, 22, "Guests");
    picture.present = monday + 6 * hour;
    picture.reboots = {monday + 3 * hour + 1800};
    picture.plans.push_back({"WlanTimePlans", 4, "Party", true, {{monday + 20 * hour, monday + 23 * hour}}});
    picture.overlaps = {{{monday + 20 * hour, monday + 22 * hour}, "WlanTimePlans", 2, {0, 1}}};
    picture.frames = {{1,
                       "FileTransfer.1",
                       "",
                       {monday, monday + 5 * hour},
                       false,
                       {{monday, monday + 5 * hour}},
                       {monday + hour}}};
    const std::string indent(11, ' ');
    const auto lines = linesOf(barsOf(picture, ascii(twoCellsAnHour)));
    EXPECT_EQ(lines[4], indent + std::string(12, ' ') + "^ now, 06:00");
    EXPECT_EQ(lines[5], indent + std::string(7, ' ') + "^ reboot, about 03:30");
    EXPECT_EQ(lines[6], indent + std::string(17, ' ') + "2 plans: Guests, Party %%%%");
    EXPECT_EQ(lines[7], indent + "--*------- frame 1, FileTransfer.1");
}

TEST_F(WeekBars, ATableThatHasNothingToDoWithTheWlanIsShownBehindIt) {
    WeekPicture picture = quietWeek(monday);
    picture.plans = {{"TimePlans", 1, "School", true, {{monday, monday + 6 * hour}}}};
    const auto lines = linesOf(barsOf(picture, ascii(twoCellsAnHour)));
    EXPECT_EQ(lines[11], "TimePlans  0     3     6     9     12    15    18    21  24");
    EXPECT_EQ(lines[12], "Mon 23 Nov == School ==");
    EXPECT_EQ(lines[13], "Tue 24 Nov");
    EXPECT_THAT(lines, Contains("TimePlans.1 School: active in its slots"));
}

TEST_F(WeekBars, SlotsThatOverlapElsewhereAreDrawnOverBothAndToldBeneath) {
    WeekPicture picture = quietWeek(monday);
    picture.plans = {{"TimePlans", 1, "School", true, {{monday, monday + 10 * hour}}},
                     {"TimePlans", 2, "Sport", true, {{monday + 8 * hour, monday + 18 * hour}}}};
    picture.overlaps = {{{monday + 8 * hour, monday + 10 * hour}, "TimePlans", 2, {0, 1}}};
    const auto lines = linesOf(barsOf(picture, ascii(twoCellsAnHour)));
    EXPECT_EQ(lines[3], "Mon 23 Nov " + std::string(48, '.')); // the WLAN has no part in it
    EXPECT_EQ(lines[4], "Tue 24 Nov " + std::string(48, '.'));
    EXPECT_EQ(lines[12], "Mon 23 Nov ====== School ==%%%%== Sport =======");
    EXPECT_EQ(lines[13], std::string(11 + 16, ' ') + "%%%% 2 plans: School, Sport");
    EXPECT_EQ(lines[14], "Tue 24 Nov");
}

TEST_F(WeekBars, ANarrowTerminalHasAMarkForEachQuarterOfTheDay) {
    for (const std::size_t width : {std::size_t{1}, std::size_t{40}})
        EXPECT_EQ(linesOf(barsOf(quietWeek(monday), ascii(width)))[2],
                  "WLAN       0      6      12     18    24");
}

TEST_F(WeekBars, ANoteEndsWithTheLineWhateverItsBytesAre) {
    const std::pair<const char*, const char*> cases[] = {
        {"x", "x..."},    // it is cut
        {"\x80", "\x80"}, // no character begins with it, so it seems to take no room
    };
    for (const auto& [letter, end] : cases) {
        std::string name;
        for (int i = 0; i < 300; ++i)
            name += letter;
        WeekPicture picture = quietWeek(monday);
        const Span open = {monday, monday + 3 * hour};
        picture.frames = {{1, name, "", open, false, {open}, {}}};
        const std::string line = linesOf(barsOf(picture, ascii(twoCellsAnHour)))[4];
        EXPECT_THAT(line, AllOf(HasSubstr(std::string(" frame 1, ") + letter), EndsWith(end)));
        EXPECT_EQ(line.size(), twoCellsAnHour) << line;
    }
}

TEST_F(WeekBars, ALongOrShortDayIsLongerOrShorterAndHasARulerOfItsOwn) {
    struct Case {
        const char* zone;
        std::time_t noon;  // of the day
        std::size_t cells; // of two an hour
        const char* ruler;
    };
    const Case cases[] = {
        {"Europe/Berlin", 1792926000, 50, "0     3       6     9     12    15    18    21    24"},
        {"America/New_York", 1793552400, 50, "0     3       6     9     12    15    18    21    24"},
        {"Europe/Berlin", 1774778400, 46, "0   3     6     9     12    15    18    21    24"},
        {"Australia/Lord_Howe", 1791075600, 47, "0    3     6     9     12    15    18    21    24"},
    };
    for (const Case& expected : cases) {
        const LocalZone local(expected.zone);
        const WeekPicture picture = quietWeek(expected.noon);
        const std::size_t longest = std::max<std::size_t>(expected.cells, 48);
        const auto lines = linesOf(barsOf(picture, ascii(11 + longest)));
        EXPECT_EQ(std::count(lines[3].begin(), lines[3].end(), '.'), expected.cells) << expected.zone;
        EXPECT_EQ(std::count(lines[5].begin(), lines[5].end(), '.'), 48)
            << expected.zone; // a ruler in between
    }
}

TEST_F(WeekBars, NoLineIsLongerThanTheTerminal) {
    WeekPicture picture = weekWithSlot(monday, 7, 22, std::string(60, 'x'));
    picture.present = monday + 23 * hour;
    picture.reboots = std::vector<std::time_t>(30, monday + 22 * hour);
    picture.clockChanges = {{monday + 12 * hour, std::string(100, 'y'), ""}};
    for (int plan = 0; plan < 40; ++plan)
        picture.plans.push_back({"A table with a name that is long",
                                 plan,
                                 std::string(60, 'z'),
                                 true,
                                 {{monday, monday + 24 * hour}}});
    picture.overlaps = {{{monday, monday + 24 * hour}, "WlanTimePlans", 3, {0, 1, 2}}};
    picture.frames = {{1, std::string(60, 'f'), "", {monday, monday + 24 * hour}, false, {}, {}}};
    for (const std::size_t width : {40u, 59u, 80u, 81u, 133u, 200u, 400u})
        for (const std::string& line : linesOf(barsOf(picture, {width, true, false})))
            EXPECT_LE(tools::width(line), width) << line;
    EXPECT_THAT(linesOf(barsOf(picture, ascii(3))), Each(testing::SizeIs(testing::Le(40u))));
}

TEST_F(WeekBars, OutsideUtf8EverythingIsAscii) {
    WeekPicture picture = weekWithSlot(monday, 7, 22, "G\xc3\xa4ste");
    picture.present = monday;
    const std::string text = barsOf(picture, ascii(80));
    EXPECT_TRUE(std::all_of(text.begin(), text.end(), [](char byte) { return byte > 0; }));
    EXPECT_THAT(text, HasSubstr(" G?ste "));
    EXPECT_THAT(barsOf(picture, {80, true, false}), HasSubstr(" G\xc3\xa4ste "));
}

TEST_F(WeekBars, ANameWhoseLettersTakeMoreThanAColumnStaysOutOfTheBar) {
    for (const char* name : {"\xe6\x97\xa5\xe6\x9c\xac", "\xd7\xa9\xd7\x9c\xd7\x95\xd7\x9d", "Z\xcc\x81"})
        EXPECT_THAT(linesOf(barsOf(weekWithSlot(monday, 7, 22, name), {80, true, false}))[3],
                    AllOf(HasSubstr(" 3 "), Not(HasSubstr(name))));
}

TEST_F(WeekBars, ColoursAreThereOnlyWhereTheyAreWanted) {
    const WeekPicture picture = weekWithSlot(monday, 7, 22, "Guests");
    EXPECT_THAT(barsOf(picture, {80, true, false}), Not(HasSubstr("\x1b")));
    EXPECT_THAT(barsOf(picture, {80, true, true}), HasSubstr("\x1b[30;46m Guests \x1b[0m"));
}

} // namespace
