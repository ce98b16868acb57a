#include "support/temporarydirectory.h"
#include "unit/horactl/checkedhousehold.h"

#include <cstdint>

#include <gmock/gmock.h>

namespace tools::horactl::testing {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

// The file of a zone whose clock goes an hour forward at the first of these moments, back at the next, and so
// on.
std::string zoneFile(const std::vector<std::time_t>& changes) {
    std::string file = "TZif" + std::string(16, '\0');
    const auto number = [&file](std::int64_t value) {
        for (const int shift : {24, 16, 8, 0})
            file += static_cast<char>(value >> shift & 0xff);
    };
    for (const std::size_t count : {std::size_t{0}, std::size_t{0}, std::size_t{0}, changes.size(),
                                    std::size_t{2}, std::size_t{8}}) // types, and bytes of their names
        number(static_cast<std::int64_t>(count));
    for (const std::time_t change : changes)
        number(change);
    for (std::size_t i = 0; i < changes.size(); ++i)
        file += static_cast<char>(i % 2 == 0 ? 1 : 0);
    for (const int type : {0, 1}) {
        number(type * hour);
        file += static_cast<char>(type); // summer time or not
        file += static_cast<char>(type * 4);
    }
    return file + std::string("WIN\0SUM\0", 8);
}

// In Berlin the clock goes from 2 to 3 on 2027-03-28 and from 3 to 2 on 2027-10-31, both Sundays.
class CheckClock : public CheckTest {
protected:
    void addOnSunday(const std::string& start, const std::string& stop, int activate = 1) {
        household.tables["TimePlans"].clear();
        add("TimePlans", 1, {{"Activate", activate}, {"StartSun", start}, {"StopSun", stop}});
    }
    std::vector<std::string> meanings() const {
        std::vector<std::string> meanings;
        for (const Finding& finding : findings())
            meanings.push_back(finding.column + ": " + finding.meaning);
        return meanings;
    }
};

TEST_F(CheckClock, SlotWithinTheHourIsDroppedAndDoubled) {
    for (const int activate : {0, 1}) {
        addOnSunday("02:15", "02:45", activate);
        EXPECT_THAT(
            meanings(),
            ElementsAre("StartSun: on Sun 2027-03-28 the clock goes from 02:00:00 to 03:00:00: the slot is "
                        "dropped",
                        "StartSun: on Sun 2027-10-31 the clock goes from 03:00:00 to 02:00:00: the slot is "
                        "doubled, it comes in 2 parts with 30 min between them"));
    }
}

TEST_F(CheckClock, TheWholeHourIsDroppedAndLastsTwiceAsLong) {
    addOnSunday("02:00", "03:00");
    EXPECT_THAT(meanings(),
                ElementsAre(HasSubstr("2027-03-28 the clock goes from 02:00:00 to 03:00:00: the slot is "
                                      "dropped"),
                            HasSubstr("doubled, it lasts 2 h instead of 1 h")));
}

TEST_F(CheckClock, SlotOfTwoHoursIsHalvedAndHalfAsLongAgain) {
    addOnSunday("01:30", "03:30");
    EXPECT_THAT(meanings(), ElementsAre(HasSubstr("the slot lasts 1 h instead of 2 h"),
                                        HasSubstr("the slot lasts 3 h instead of 2 h")));
}

TEST_F(CheckClock, SlotThatEndsWithinTheHourComesBack) {
    household.tables["TimePlans"].clear();
    add("TimePlans", 1, {{"StartSat", "22:00"}, {"StopSat", "02:30"}});
    EXPECT_THAT(meanings(),
                ElementsAre(AllOf(HasSubstr("StopSat: on Sat 2027-10-30"), HasSubstr("doubled"))));
}

TEST_F(CheckClock, SlotThatBeginsWithinTheHourComesTwice) {
    addOnSunday("02:30", "07:00");
    EXPECT_THAT(meanings(),
                ElementsAre(AllOf(HasSubstr("StartSun: on Sun 2027-10-31"), HasSubstr("doubled"))));
}

TEST_F(CheckClock, NightsAndDaysThatAChangeOnlyMakesAnHourShorterOrLongerAreFine) {
    addDaily("TimePlans", 1, 1, "22:00", "06:00");
    addDaily("TimePlans", 2, 0, "08:00", "20:00");
    addDaily("TimePlans", 3, 1, "00:00", "24:00");
    addDaily("TimePlans", 4, 1, "00:00", "02:00");
    addDaily("TimePlans", 5, 1, "03:00:01", "06:00");
    EXPECT_THAT(places(), ::testing::Each(HasSubstr("TimePlans.4"))) << findingsAsText(findings());
}

TEST_F(CheckClock, OtherDaysAreNotTouched) {
    add("TimePlans", 1, {{"StartMon", "02:15"}, {"StopMon", "02:45"}});
    EXPECT_THAT(places(), IsEmpty());
}

TEST_F(CheckClock, ZonesWithoutAChangeHaveNone) {
    inZone("Asia/Tokyo");
    addDaily("TimePlans", 1, 1, "02:15", "02:45");
    EXPECT_THAT(places(), IsEmpty());
}

TEST_F(CheckClock, ChangesAtMidnight) {
    inZone("America/Havana"); // from 0 to 1 on 2027-03-14, from 1 to 0 on 2027-11-07
    addDaily("TimePlans", 1, 1, "00:15", "00:45");
    EXPECT_THAT(meanings(),
                ElementsAre(AllOf(HasSubstr("on Sun 2027-03-14 the clock goes from 00:00:00 to 01:00:00"),
                                  HasSubstr("dropped")),
                            AllOf(HasSubstr("on Sun 2027-11-07 the clock goes from 01:00:00 to 00:00:00"),
                                  HasSubstr("doubled"))));
}

TEST_F(CheckClock, ChangesOfHalfAnHour) {
    inZone("Australia/Lord_Howe"); // from 2:00 to 1:30 on 2027-04-04, from 2:00 to 2:30 on 2027-10-03
    addDaily("TimePlans", 1, 1, "02:05", "02:25");
    EXPECT_THAT(meanings(),
                ElementsAre(HasSubstr("on Sun 2027-10-03 the clock goes from 02:00:00 to 02:30:00: the "
                                      "slot is dropped")));
}

TEST_F(CheckClock, DayThatIsLeftOut) {
    inZone("Pacific/Apia"); // there was no Friday, 2011-12-30
    input.now = 1324800000;
    add("TimePlans", 1, {{"StartFri", "10:00"}, {"StopFri", "12:00"}});
    EXPECT_THAT(meanings(),
                ElementsAre(AllOf(HasSubstr("StartFri: on Fri 2011-12-30"), HasSubstr("dropped"))));
}

TEST_F(CheckClock, RebootWithinTheHourIsDropped) {
    set("AutoReboot", {{"Enable", 1}, {"Time", "02:30"}});
    const Finding finding = only();
    EXPECT_EQ(finding.row, "AutoReboot");
    EXPECT_EQ(finding.column, "Time");
    EXPECT_EQ(finding.value, "02:30");
    EXPECT_THAT(finding.meaning, HasSubstr("on Sun 2027-03-28"));
    EXPECT_THAT(finding.meaning, HasSubstr("the reboot is dropped"));
}

TEST_F(CheckClock, RebootThatMayComeAgainWithinTheHourIsDoubled) {
    set("AutoReboot", {{"Enable", 1}, {"Time", "02:30"}, {"MinimumRuntime", 600}});
    EXPECT_THAT(meanings(),
                ElementsAre(HasSubstr("the reboot is dropped"), HasSubstr("the reboot is doubled")));
}

// Nothing is left to compare a change with where no week is without one.
TEST_F(CheckClock, ZonesWhoseClockNeverRestsAreLeftAlone) {
    const TemporaryDirectory directory;
    struct Case {
        int days; // from one change to the next
        int years;
        std::vector<std::string> found;
    };
    const Case cases[] = {
        {1, 3, {"TimePlans.2 StartMon", "WlanTimePlans.1 Id"}},
        {7, 3, {"TimePlans.2 StartMon", "WlanTimePlans.1 Id"}},
        {400, 2, {"TimePlans.2 StartMon", "WlanTimePlans.1 Id", "TimePlans.1 StartSun"}},
    };
    add("TimePlans", 1, {{"StartSun", "02:15"}, {"StopSun", "02:45"}});
    add("TimePlans", 2, {{"StartMon", "25:00"}, {"StopMon", "11:00"}});
    addDaily("WlanTimePlans", 1, 1, "08:00", "20:00");
    addDaily("WlanTimePlans", 2, 0, "08:00", "20:00");
    for (const Case& given : cases) {
        std::vector<std::time_t> changes;
        const std::time_t first = present - present % day + day + 2 * hour; // 02:00 on a Sunday
        for (std::time_t at = first; at < first + given.years * 365 * day; at += given.days * day)
            changes.push_back(at);
        const std::string file = directory.path("zone" + std::to_string(given.days));
        writeFile(file, zoneFile(changes));
        inZone(file.c_str());
        EXPECT_EQ(places(), given.found) << given.days << ' ' << findingsAsText(findings());
    }
}

TEST_F(CheckClock, AnOldStatusChangesNothing) {
    for (const int status : {0, 1, 2, -1}) {
        household.tables["TimePlans"].clear();
        add("TimePlans", 1,
            {{"Activate", 0}, {"TimePlanStatus", status}, {"StartSun", "02:15"}, {"StopSun", "02:45"}});
        EXPECT_THAT(meanings(), ElementsAre(HasSubstr("dropped"), HasSubstr("2 parts"))) << status;
    }
}

TEST_F(CheckClock, RowsWhoseStatusGoesElsewhereAreLeftAlone) {
    add("TimePlans", 123, {});
    add("TimePlans", 1234, {{"StartSun", "02:15"}, {"StopSun", "02:45"}});
    EXPECT_THAT(places(), ElementsAre("TimePlans.1234 Id", "TimePlans.1234 Id"));
}

// In Beirut the clock goes back at midnight. The end of Saturday is shown twice, once as Sunday's beginning.
TEST_F(CheckClock, SlotThatEndsAtMidnightIsNamedByItsOwnDay) {
    inZone("Asia/Beirut");
    for (const char* const midnight : {"24:00", "23:59:59", "00:00"}) {
        household.tables["TimePlans"].clear();
        add("TimePlans", 1, {{"Activate", 1}, {"StartSat", "22:00"}, {"StopSat", midnight}});
        EXPECT_THAT(meanings(),
                    Contains(AllOf(HasSubstr("StopSat: "), HasSubstr("the slot lasts 3 h instead of 2 h"))))
            << midnight;
        for (const std::string& meaning : meanings())
            EXPECT_THAT(meaning, ::testing::Not(HasSubstr("StopSun"))) << midnight;
    }
}

} // namespace

} // namespace tools::horactl::testing
