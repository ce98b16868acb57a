#include "support/capturedlog.h"
#include "support/scriptedclock.h"
#include "tools/horactl/localtime.h"
#include "tools/horactl/week.h"
#include "tools/horactl/weekframes.h"
#include "unit/horactl/weekhouse.h"

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace tools::horactl;
using namespace tools::horactl::testing;
using fakes::LocalZone;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr std::int64_t hour = 3600; // seconds
constexpr std::time_t never = 0;    // a present that lies in no week of these tests

std::time_t at(const LocalTime& time) {
    const std::vector<std::time_t> moments = momentsOf(time);
    return moments.empty() ? 0 : moments.front();
}

// In local time, to the minute: horad looks at the clock every two seconds.
std::string asText(const Span& span) {
    const auto text = [](std::time_t moment) {
        const LocalTime time = *localTimeOf(moment);
        const auto two = [](int number) { return (number < 10 ? "0" : "") + std::to_string(number); };
        return std::to_string(time.day) + " " + two(time.hour) + ":" + two(time.minute);
    };
    return text(span.begin) + " - " + text(span.end);
}

std::vector<std::string> asTexts(const std::vector<Span>& spans) {
    std::vector<std::string> texts;
    for (const Span& span : spans)
        texts.push_back(asText(span));
    return texts;
}

std::vector<std::string> wlanTexts(const WeekPicture& picture) {
    std::vector<std::string> texts;
    for (const WeekPicture::Wlan& piece : picture.wlan)
        texts.push_back(asText(piece.span) + (piece.on ? " on " : " off ") + piece.by);
    return texts;
}

std::string numberText(std::time_t number) {
    return std::to_string(number);
}

class Week : public ::testing::Test {
protected:
    WeekPicture week(const LocalTime& from, std::time_t now = never) {
        return pictureOf(house, 0, at(from), now);
    }

    LocalZone zone{"Europe/Berlin"};
    fakes::CapturedLog log; // a simulated horad tells what it does
    Household house = newHousehold();
};

TEST_F(Week, ThePiecesOfTheWlanCoverTheWholeWeekAndSayWhichRowDecides) {
    add(house, "WlanTimePlans",
        {{"TimePlanName", "Guests"}, {"Activate", "1"}, {"StartMon", "07:00:00"}, {"StopMon", "22:00:00"}});
    add(house, "WlanTimePlans",
        {{"TimePlanName", "Homework"}, {"Activate", "0"}, {"StartMon", "15:00:00"}, {"StopMon", "16:00:00"}});
    const WeekPicture picture = week({2026, 11, 23});
    EXPECT_THAT(wlanTexts(picture),
                ElementsAre("23 00:00 - 23 07:00 off default", "23 07:00 - 23 15:00 on WlanTimePlans.1",
                            "23 15:00 - 23 16:00 off WlanTimePlans.2",
                            "23 16:00 - 23 22:00 on WlanTimePlans.1", "23 22:00 - 30 00:00 off default"));
    EXPECT_EQ(picture.wlan[1].label, "Guests");
    EXPECT_EQ(picture.wlan[0].label, "");
    EXPECT_EQ(picture.wlan.front().span.begin, picture.span().begin);
    EXPECT_EQ(picture.wlan.back().span.end, picture.span().end);
    for (std::size_t i = 1; i < picture.wlan.size(); ++i)
        EXPECT_EQ(picture.wlan[i].span.begin, picture.wlan[i - 1].span.end);
}

TEST_F(Week, ASlotIsOpenWhateverItsPlanDoesInIt) {
    for (const char* activate : {"1", "0"})
        add(house, "TimePlans", {{"Activate", activate}, {"StartTue", "21:00:00"}, {"StopTue", "06:00:00"}});
    const WeekPicture picture = week({2026, 11, 23});
    ASSERT_THAT(picture.plans, SizeIs(2));
    for (const WeekPicture::Plan& plan : picture.plans)
        EXPECT_THAT(asTexts(plan.open), ElementsAre("24 21:00 - 25 06:00"));
    EXPECT_TRUE(picture.plans[0].activating);
    EXPECT_FALSE(picture.plans[1].activating);
}

TEST_F(Week, ANightInWhichTheClockGoesBackIsAnHourLonger) {
    add(house, "TimePlans", {{"Activate", "1"}, {"StartSat", "22:00:00"}, {"StopSat", "06:00:00"}});
    const WeekPicture picture = week({2026, 10, 19});
    ASSERT_THAT(picture.plans[0].open, SizeIs(1));
    EXPECT_NEAR(static_cast<double>(picture.plans[0].open[0].end - picture.plans[0].open[0].begin),
                9.0 * hour, 4);
    ASSERT_THAT(picture.clockChanges, SizeIs(1));
    EXPECT_EQ(picture.clockChanges[0].at, 1792890000); // 2026-10-25T01:00:00 UTC
    EXPECT_EQ(picture.clockChanges[0].brief, "clock 1 h back");
}

TEST_F(Week, SlotsThatOverlapAreFoundAndThoseThatTouchAreNot) {
    add(house, "TimePlans", {{"Activate", "1"}, {"StartMon", "08:00:00"}, {"StopMon", "12:00:00"}});
    add(house, "TimePlans", {{"Activate", "1"}, {"StartMon", "10:00:00"}, {"StopMon", "14:00:00"}});
    add(house, "TimePlans", {{"Activate", "1"}, {"StartMon", "14:00:00"}, {"StopMon", "15:00:00"}});
    add(house, "WlanTimePlans", {{"Activate", "1"}, {"StartMon", "08:00:00"}, {"StopMon", "12:00:00"}});
    const WeekPicture picture = week({2026, 11, 23});
    ASSERT_THAT(picture.overlaps, SizeIs(1));
    EXPECT_EQ(asText(picture.overlaps[0].span), "23 10:00 - 23 12:00");
    EXPECT_EQ(picture.overlaps[0].table, "TimePlans");
    EXPECT_EQ(picture.overlaps[0].count, 2u);
    EXPECT_EQ(picture.plans[picture.overlaps[0].plans[1]].id, 2);
}

TEST_F(Week, AnOverlapOfFortyPlansNamesTheFirstFew) {
    for (int plan = 0; plan < 40; ++plan)
        add(house, "WlanTimePlans", {{"Activate", "1"}, {"StartMon", "08:00:00"}, {"StopMon", "12:00:00"}});
    const WeekPicture picture = week({2026, 11, 23});
    ASSERT_THAT(picture.overlaps, SizeIs(1));
    EXPECT_EQ(picture.overlaps[0].count, 40u);
    EXPECT_THAT(picture.overlaps[0].plans, SizeIs(8));
    EXPECT_EQ(picture.wlan[1].by, "WlanTimePlans.40");
}

TEST_F(Week, AHouseholdWithoutAnythingHasItsWlanOff) {
    const WeekPicture picture = pictureOf(Household{}, 0, at({2026, 11, 23}), never);
    EXPECT_THAT(wlanTexts(picture), ElementsAre("23 00:00 - 30 00:00 off default"));
    EXPECT_THAT(picture.plans, IsEmpty());
    EXPECT_THAT(picture.frames, IsEmpty());
    EXPECT_THAT(picture.reboots, IsEmpty());
    EXPECT_FALSE(picture.present);
}

TEST_F(Week, AWlanThatIsAlwaysEnabledStaysAsItIs) {
    set(house, "WlanGlobals", {{"WlanEnable", "1"}, {"AlwaysEnable", "1"}});
    add(house, "WlanTimePlans", {{"Activate", "1"}, {"StartMon", "08:00:00"}, {"StopMon", "12:00:00"}});
    EXPECT_THAT(wlanTexts(week({2026, 11, 23})), ElementsAre("23 00:00 - 30 00:00 on AlwaysEnable"));
}

TEST_F(Week, ARebootIsToldAndTheWlanGoesOnBehindIt) {
    set(house, "AutoReboot",
        {{"Enable", "1"}, {"WeekDay", "3"}, {"Time", "03:30:00"}, {"MinimumRuntime", "24"}});
    add(house, "WlanTimePlans", {{"Activate", "1"}, {"StartWed", "08:00:00"}, {"StopWed", "12:00:00"}});
    const WeekPicture picture = week({2026, 11, 23});
    ASSERT_THAT(picture.reboots, SizeIs(1));
    EXPECT_NEAR(static_cast<double>(picture.reboots[0] - at({2026, 11, 25, 3, 30, 0})), 30, 30);
    EXPECT_THAT(asTexts(picture.plans[0].open), ElementsAre("25 08:00 - 25 12:00"));
}

TEST_F(Week, WhatLiesBeforeThePresentTellsOfNoRebootsAndStarts) {
    set(house, "AutoReboot",
        {{"Enable", "1"}, {"WeekDay", "3"}, {"Time", "03:30:00"}, {"MinimumRuntime", "24"}});
    add(house, "FileTransfer", {});
    add(house, "TimeFrame",
        {{"WindowMode", "1"},
         {"Servicetable", "FileTransfer"},
         {"ServicetableId", "1"},
         {"MaxRetries", "3"},
         {"TimeFrameStart", numberText(at({2026, 11, 23, 2, 0, 0}))},
         {"TimeFrameEnd", numberText(at({2026, 11, 28, 2, 0, 0}))}});
    add(house, "WlanTimePlans", {{"Activate", "1"}, {"StartWed", "08:00:00"}, {"StopWed", "12:00:00"}});
    const std::time_t now = at({2026, 11, 25, 10, 0, 0});
    const WeekPicture picture = week({2026, 11, 23}, now);
    EXPECT_EQ(picture.present, now);
    EXPECT_THAT(picture.reboots, IsEmpty());
    ASSERT_THAT(picture.frames, SizeIs(1));
    ASSERT_THAT(picture.frames[0].starts, SizeIs(1)); // the service hangs
    EXPECT_NEAR(static_cast<double>(picture.frames[0].starts[0] - now), 0, 10);
    EXPECT_THAT(asTexts(picture.plans[0].open), ElementsAre("25 08:00 - 25 12:00")); // in one piece
    EXPECT_THAT(wlanTexts(picture),
                ElementsAre("23 00:00 - 25 08:00 off default", "25 08:00 - 25 12:00 on WlanTimePlans.1",
                            "25 12:00 - 30 00:00 off default"));
}

TEST_F(Week, AFrameIsClippedToTheWeekAndOpenInsideTheUsersPlan) {
    add(house, "FileTransfer", {});
    add(house, "FirmwareUpdateTimePlan",
        {{"Enable", "1"},
         {"WeekDay", "2"},
         {"StartTimeHour", "2"},
         {"EndTimeHour", "4"},
         {"EndTimeMinute", "59"}});
    add(house, "TimeFrame",
        {{"WindowMode", "3"},
         {"Servicetable", "FileTransfer"},
         {"ServicetableId", "1"},
         {"MaxRetries", "3"},
         {"TimeFrameStart", numberText(at({2026, 11, 1}))},
         {"TimeFrameEnd", numberText(at({2026, 11, 27}))}});
    const WeekPicture picture = week({2026, 11, 23});
    ASSERT_THAT(picture.frames, SizeIs(1));
    EXPECT_EQ(asText(picture.frames[0].span), "23 00:00 - 27 00:00");
    EXPECT_TRUE(picture.frames[0].restricted);
    EXPECT_EQ(picture.frames[0].service, "FileTransfer.1");
    EXPECT_THAT(asTexts(picture.frames[0].open), ElementsAre("24 02:00 - 24 05:00"));
    ASSERT_THAT(picture.frames[0].starts, SizeIs(1));
    EXPECT_GE(picture.frames[0].starts[0], at({2026, 11, 24, 2, 0, 0}));
    EXPECT_LT(picture.frames[0].starts[0], at({2026, 11, 24, 2, 4, 0}));
}

TEST_F(Week, AFrameThatHoradLeavesOutOrThatIsOverIsNotThere) {
    const std::string begin = numberText(at({2026, 11, 23}));
    const std::string end = numberText(at({2026, 11, 24}));
    const std::string past = numberText(at({2026, 11, 22}));
    add(house, "TimeFrame", {{"WindowMode", "4"}, {"TimeFrameStart", begin}, {"TimeFrameEnd", end}});
    add(house, "TimeFrame", {{"WindowMode", "1"}, {"TimeFrameStart", end}, {"TimeFrameEnd", begin}});
    add(house, "TimeFrame", {{"WindowMode", "1"}, {"TimeFrameStart", "0"}, {"TimeFrameEnd", past}});
    add(house, "TimeFrame", {{"WindowMode", "1"}, {"TimeFrameStart", "0"}, {"TimeFrameEnd", "0"}});
    EXPECT_THAT(framesOf(house, {at({2026, 11, 23}), at({2026, 11, 30})}), IsEmpty());
}

TEST_F(Week, NamesArePrintableAndCut) {
    add(house, "TimePlans", {{"TimePlanName", "\x1b[31m" + std::string(500, 'x')}, {"Activate", "1"}});
    const WeekPicture picture = week({2026, 11, 23});
    EXPECT_EQ(picture.plans[0].name, "\\x1b[31m" + std::string(49, 'x') + "...");
}

} // namespace
