#include "support/scriptedclock.h"
#include "tools/horactl/markup.h"
#include "tools/horactl/week.h"
#include "tools/horactl/weekdays.h"
#include "tools/horactl/weekhtml.h"
#include "tools/horactl/weeksvg.h"
#include "tools/text.h"

#include <cctype>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace tools::horactl;
using fakes::LocalZone;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr std::time_t hour = 3600;         // seconds
constexpr std::time_t monday = 1795392000; // 2026-11-23T00:00:00 UTC

// Names as somebody would choose them who wants to get out of their place.
const std::string hostileNames[] = {
    "<script>alert(1)</script>",
    "\"><img src=x onerror=alert(1)>",
    "'--><svg onload=alert(1)>",
    "]]></style></svg><script>",
    "a&b &lt;",
    "\xe2\x80\xae"
    "esrever",
    std::string("\x01\x1b[31m\x7f\0", 9),
    "\xff\xfe not UTF-8",
    "\xef\xbf\xbf",
    std::string(60, 'W'),
    "",
};

WeekPicture hostileWeek() {
    WeekPicture picture;
    picture.days = daysFrom(monday, 7);
    picture.present = monday + 30 * hour;
    int id = 0;
    for (const std::string& raw : hostileNames) {
        const std::string name = tools::printable(raw);
        const Span slot = {monday + id * 2 * hour, monday + (id * 2 + 5) * hour};
        picture.plans.push_back({id % 2 == 0 ? "WlanTimePlans" : name, id, name, id % 3 != 0, {slot}});
        picture.wlan.push_back({{monday + id * 10 * hour, monday + (id + 1) * 10 * hour},
                                id % 2 == 0,
                                "WlanTimePlans.1",
                                name,
                                name});
        picture.frames.push_back({id, name, name, slot, true, {slot}, {slot.begin}});
        ++id;
    }
    picture.wlan.back().span.end = picture.span().end;
    picture.overlaps = {{{monday, monday + hour}, "WlanTimePlans", 2, {0, 2}}};
    picture.reboots = {monday + 3 * hour};
    picture.clockChanges = {{monday + 4 * hour, "the clock changes", "clock 1 h back"}};
    return picture;
}

// The names of the elements that stand open at the end, or where one is closed that is not the last: a text
// that is well-formed leaves none. Elements of HTML that have no end are passed over.
std::vector<std::string> openElements(const std::string& text) {
    std::vector<std::string> open;
    for (std::size_t begin = text.find('<'); begin != std::string::npos; begin = text.find('<', begin + 1)) {
        const std::size_t end = text.find('>', begin);
        const std::string tag = text.substr(begin + 1, end - begin - 1);
        const std::string name = tag.substr(0, tag.find_first_of(" /\n", 1));
        if (tag[0] == '?' || tag[0] == '!' || name == "meta" || tag.back() == '/')
            continue;
        if (tag[0] != '/') {
            open.push_back(name);
            continue;
        }
        if (open.empty() || "/" + open.back() != tag)
            return {tag};
        open.pop_back();
    }
    return open;
}

TEST(Markup, WhatCouldEndAnElementOrAnAttributeIsSpelledOut) {
    EXPECT_EQ(escaped("<a href=\"x\" id='y'>&"), "&lt;a href=&quot;x&quot; id=&#39;y&#39;&gt;&amp;");
}

TEST(Markup, WhatXmlMayNotHoldIsReplaced) {
    EXPECT_EQ(escaped("a\x01\xffz\xef\xbf\xbe"), "a\xef\xbf\xbd\xef\xbf\xbdz\xef\xbf\xbd");
}

TEST(Markup, NumbersAreShort) {
    EXPECT_EQ(shortNumber(12), "12");
    EXPECT_EQ(shortNumber(12.34), "12.3");
    EXPECT_EQ(shortNumber(-0.26), "-0.3");
    EXPECT_EQ(shortNumber(0.04), "0");
}

TEST(WeekPage, NamesStayTextsWhateverTheyHold) {
    const LocalZone zone("UTC");
    for (const std::string& text : {htmlOf(hostileWeek()), svgOf(hostileWeek())}) {
        EXPECT_THAT(openElements(text), testing::IsEmpty());
        EXPECT_THAT(text, AllOf(Not(HasSubstr("<script")), Not(HasSubstr("<img")), Not(HasSubstr("\x1b")),
                                Not(HasSubstr("\xe2\x80\xae")), Not(HasSubstr("<svg onload"))));
        EXPECT_THAT(text, AllOf(HasSubstr("&lt;script&gt;alert(1)&lt;/script&gt;"),
                                HasSubstr("\\u202eesrever"), HasSubstr("\\x01\\x1b[31m")));
    }
}

TEST(WeekPage, NothingComesFromElsewhereAndNothingRuns) {
    const LocalZone zone("UTC");
    const std::string page = htmlOf(hostileWeek());
    for (std::size_t begin = page.find('<'); begin != std::string::npos; begin = page.find('<', begin + 1))
        EXPECT_THAT(page.substr(begin, page.find('>', begin) - begin),
                    AllOf(Not(HasSubstr(" src=")), Not(HasSubstr(" href=")), Not(HasSubstr(" onload=")),
                          Not(HasSubstr(" onerror="))));
    EXPECT_THAT(page, AllOf(Not(HasSubstr("url(")), Not(HasSubstr("@import"))));
    EXPECT_THAT(page, HasSubstr("default-src 'none'"));
}

TEST(WeekPage, TheTableSaysWhatThePictureShows) {
    const LocalZone zone("UTC");
    WeekPicture picture;
    picture.days = daysFrom(monday, 7);
    const Span slot = {monday + 21 * hour, monday + 30 * hour};
    picture.plans = {{"WlanTimePlans", 2, "Night", false, {slot}}};
    picture.wlan = {{{monday, slot.begin}, true, "default", "", "no plan speaks"},
                    {slot, false, "WlanTimePlans.2", "Night", "WlanTimePlans.2 Night"},
                    {{slot.end, picture.span().end}, true, "default", "", "no plan speaks"}};
    picture.reboots = {monday + 3 * hour};
    picture.present = monday + 22 * hour;
    const std::string page = htmlOf(picture);
    EXPECT_THAT(page, HasSubstr("<td class=\"time\">21:00\xe2\x80\x93"
                                "24:00</td><td><bdi>WLAN off</bdi></td>"
                                "<td><bdi>WlanTimePlans.2 Night</bdi></td>"));
    EXPECT_THAT(page, HasSubstr("<td class=\"time\">00:00\xe2\x80\x93"
                                "06:00</td><td><bdi>WLAN off</bdi></td>"));
    EXPECT_THAT(page, HasSubstr("<td class=\"time\">about 03:00</td><td><bdi>reboot</bdi></td>"));
    EXPECT_THAT(page, HasSubstr("<bdi>WlanTimePlans.2 Night: WLAN off in its slots</bdi>"));
    EXPECT_THAT(page, HasSubstr("Now, Mon 2026-11-23 22:00:00 UTC, the WLAN is <strong>off</strong> until "
                                "Tue 2026-11-24 06:00:00 UTC"));
}

TEST(WeekPage, AWeekWithoutThePresentSaysNothingOfNow) {
    const LocalZone zone("UTC");
    WeekPicture picture;
    picture.days = daysFrom(monday, 7);
    picture.wlan = {{picture.span(), true, "default", "", "no plan speaks"}};
    EXPECT_THAT(htmlOf(picture), AllOf(Not(HasSubstr("Now, ")), Not(HasSubstr("<p class=\"present\">"))));
    picture.present = monday;
    EXPECT_THAT(htmlOf(picture), HasSubstr("Now, Mon 2026-11-23 00:00:00 UTC, the WLAN is "
                                           "<strong>on</strong> for the rest of this week: "));
}

TEST(WeekPage, ADayOfAnotherLengthHasItsOwnHours) {
    const LocalZone zone("Europe/Berlin");
    WeekPicture picture;
    picture.days = daysFrom(1792926000, 7); // 2026-10-25, noon
    picture.wlan = {{picture.span(), true, "AlwaysEnable", "", "AlwaysEnable is set"}};
    const std::string svg = svgOf(picture);
    EXPECT_THAT(openElements(svg), testing::IsEmpty());
    EXPECT_THAT(svg, HasSubstr("Sun 25 Oct"));
    // The long day reaches the right edge, the others end an hour before it: 916 of 25 hours.
    EXPECT_THAT(svg, HasSubstr("class=\"on\" x=\"112\" y=\"56\" width=\"916\""));
    EXPECT_THAT(svg, HasSubstr("width=\"879.4\""));
}

} // namespace
