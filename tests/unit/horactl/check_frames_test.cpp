#include "unit/horactl/checkedhousehold.h"

#include <gmock/gmock.h>

namespace tools::horactl::testing {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

class CheckFrames : public CheckTest {
protected:
    CheckFrames() { add("FileTransfer", 1, {}); }

    // One of FileTransfer.1, from and to so many seconds from now.
    void addFrame(int id, std::time_t from, std::time_t to, const Cells& more = {}) {
        Cells cells = {{"ServicetableId", 1},
                       {"MaxRetries", 3},
                       {"TimeFrameStart", static_cast<int>(present + from)},
                       {"TimeFrameEnd", static_cast<int>(present + to)}};
        cells.insert(cells.end(), more.begin(), more.end());
        add("TimeFrame", id, cells);
    }
    void addWindow(int id, int enable, int weekDay, int from, int to) {
        add("FirmwareUpdateTimePlan", id,
            {{"Enable", enable}, {"WeekDay", weekDay}, {"StartTimeHour", from}, {"EndTimeHour", to}});
    }
    void setService(int status, int result) {
        household.tables["FileTransfer"] = {
            rowOf("FileTransfer", 1, {{"Status", status}, {"Result", result}})};
    }
};

TEST_F(CheckFrames, OrdinaryOnesAreFine) {
    addFrame(1, -hour, hour);
    addFrame(2, 2 * hour, day, {{"WindowMode", 2}, {"MaxRetries", -1}, {"RunCounter", 100}});
    addFrame(3, 2 * day, 3 * day, {{"WindowMode", 3}, {"RunCounter", 3}});
    EXPECT_THAT(places(), IsEmpty()) << findingsAsText(findings());
}

TEST_F(CheckFrames, OnesThatAreNotSetAreFine) {
    add("TimeFrame", 1, {});
    add("TimeFrame", 2, {{"ServicetableId", 1}, {"RunCounter", 7}});
    EXPECT_THAT(places(), IsEmpty()) << findingsAsText(findings());
}

TEST_F(CheckFrames, EndBeforeStart) {
    addFrame(1, day, hour);
    addFrame(2, day, day + hour, {{"TimeFrameEnd", 0}});
    EXPECT_THAT(places(), ElementsAre("TimeFrame.1 TimeFrameEnd", "TimeFrame.2 TimeFrameEnd"));
    EXPECT_THAT(findings().front().meaning, HasSubstr("ends before it begins"));
    EXPECT_EQ(findings().front().value, std::to_string(present + hour));
}

TEST_F(CheckFrames, OverWithoutSuccess) {
    addFrame(1, -day, -hour);
    const Finding finding = only();
    EXPECT_EQ(finding.column, "TimeFrameEnd");
    EXPECT_THAT(finding.meaning, HasSubstr("over since Sat 2026-11-21 23:30:00 CET"));
}

TEST_F(CheckFrames, OverWithSuccessIsDone) {
    setService(5, 0);
    addFrame(1, -day, -hour, {{"RunCounter", 4}});
    EXPECT_THAT(places(), IsEmpty());
}

TEST_F(CheckFrames, ShorterThanTheInterval) {
    addFrame(1, hour, hour + 179);
    EXPECT_THAT(places(), ElementsAre("TimeFrame.1 TimeFrameEnd"));
    input.repeatDelay = 179;
    EXPECT_THAT(places(), IsEmpty());
}

TEST_F(CheckFrames, UnknownMode) {
    addFrame(1, hour, day, {{"WindowMode", 4}});
    const Finding finding = only();
    EXPECT_EQ(finding.column, "WindowMode");
    EXPECT_EQ(finding.value, "4");
}

TEST_F(CheckFrames, UnknownServiceTable) {
    addFrame(1, hour, day, {{"Servicetable", "Filetransfer"}});
    const Finding finding = only();
    EXPECT_EQ(finding.column, "Servicetable");
    EXPECT_EQ(finding.value, "Filetransfer");
    EXPECT_EQ(finding.meant, "FileTransfer");
    EXPECT_THAT(finding.meaning, HasSubstr("no such table"));
}

TEST_F(CheckFrames, ServiceTableThatIsThereButNotFollowed) {
    addFrame(1, hour, day, {{"Servicetable", "Backup"}});
    household.tables["Backup"] = {rowOf("FileTransfer", 1, {})};
    EXPECT_THAT(only().meaning, HasSubstr("does not follow this table"));
}

TEST_F(CheckFrames, ServiceTableWithoutARow) {
    household.tables["FileTransfer"].clear();
    addFrame(1, -hour, hour);
    EXPECT_EQ(only().meant, "a row in FileTransfer, which has none");
}

TEST_F(CheckFrames, ServiceRowThatIsNotThere) {
    addFrame(1, hour, day, {{"ServicetableId", 2}});
    const Finding finding = only();
    EXPECT_EQ(finding.column, "ServicetableId");
    EXPECT_EQ(finding.value, "2");
    EXPECT_THAT(finding.meaning, HasSubstr("no row FileTransfer.2"));
    EXPECT_THAT(finding.meant, HasSubstr("FileTransfer: 1"));
}

TEST_F(CheckFrames, RetriesUsedUp) {
    addFrame(1, -hour, hour, {{"RunCounter", 4}});
    const Finding finding = only();
    EXPECT_EQ(finding.column, "RunCounter");
    EXPECT_EQ(finding.value, "4");
    setService(5, 0);
    EXPECT_THAT(places(), IsEmpty()); // by the run that succeeded
}

TEST_F(CheckFrames, WindowsThatNeverMeetTheFrame) {
    addFrame(1, hour, 2 * hour, {{"WindowMode", 3}}); // from 1:30 to 2:30
    addWindow(1, 1, 0, 3, 5);
    const Finding finding = only();
    EXPECT_EQ(finding.row, "TimeFrame.1");
    EXPECT_EQ(finding.column, "WindowMode");
    addWindow(2, 1, 7, 2, 3);
    EXPECT_THAT(places(), IsEmpty());
}

TEST_F(CheckFrames, WindowsAreAskedInModeThreeOnlyAndWhereOneIsEnabled) {
    addFrame(1, hour, 2 * hour, {{"WindowMode", 1}});
    addWindow(1, 1, 0, 3, 5);
    EXPECT_THAT(places(), IsEmpty());
    household.tables["TimeFrame"].clear();
    addFrame(1, hour, 2 * hour, {{"WindowMode", 3}});
    household.tables["FirmwareUpdateTimePlan"].clear();
    addWindow(1, 0, 0, 3, 5);
    EXPECT_THAT(places(), IsEmpty());
}

TEST_F(CheckFrames, WindowOfTheLastMinuteMeetsTheFrame) {
    addFrame(1, hour + 10, 2 * hour, {{"WindowMode", 3}}); // to 2:30:00
    add("FirmwareUpdateTimePlan", 1,
        {{"Enable", 1}, {"StartTimeHour", 2}, {"StartTimeMinute", 30}, {"EndTimeHour", 3}});
    EXPECT_THAT(places(), IsEmpty());
}

TEST_F(CheckFrames, WindowsThatNeverCome) {
    addWindow(1, 1, 0, 22, 2);
    addWindow(2, 1, 8, 2, 4);
    addWindow(3, 0, 0, 22, 2);
    addWindow(4, 1, 0, 22, 24);
    EXPECT_THAT(places(),
                ElementsAre("FirmwareUpdateTimePlan.1 EndTimeHour", "FirmwareUpdateTimePlan.2 EndTimeHour"));
}

TEST_F(CheckFrames, FramesOfOneServiceThatOverlap) {
    add("FileTransfer", 2, {});
    addFrame(1, -hour, hour);
    addFrame(2, hour, day);
    addFrame(3, -hour, day, {{"ServicetableId", 2}});
    const Finding finding = only();
    EXPECT_EQ(finding.row, "TimeFrame.2");
    EXPECT_EQ(finding.column, "TimeFrameStart");
    EXPECT_THAT(finding.meaning, HasSubstr("TimeFrame.1, which starts the same FileTransfer.1"));
}

TEST_F(CheckFrames, FramesAsLongAsTheyGetAreLookedAtWithinAMoment) {
    addFrame(1, 0, 1, {{"WindowMode", 3}, {"TimeFrameEnd", -1}}); // up to 2106
    addWindow(1, 1, 8, 2, 4);
    EXPECT_THAT(places(), ElementsAre("TimeFrame.1 WindowMode", "FirmwareUpdateTimePlan.1 EndTimeHour"));
}

} // namespace

} // namespace tools::horactl::testing
