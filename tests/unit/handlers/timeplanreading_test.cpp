// How the plans follow the rows of their tables. What the handler has in mind shows in what the next pass
// writes.

#include "timeplanfixture.h"

#include <gmock/gmock.h>

namespace {

using orv::horad::TimePlanHandler;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
namespace code = velta::protocol::code;

class TimePlanReading : public TimePlanFixture {};

TEST_F(TimePlanReading, FollowsItsTablesInOrderWithDuplicates) {
    tables_ = {"Zeta", "Alpha", "Zeta"};
    TimePlanHandler handler(tables_);
    std::list<std::string> names = {"WlanGlobals"};

    handler.getTables(names);

    EXPECT_THAT(names, ElementsAre("WlanGlobals", "Zeta", "Alpha", "Zeta"));
}

TEST_F(TimePlanReading, KeepsACopyOfTheTableNames) {
    TimePlanHandler handler(tables_);
    tables_.clear();
    std::list<std::string> names;

    handler.getTables(names);

    EXPECT_THAT(names, ElementsAre("Plans"));
}

TEST_F(TimePlanReading, TheFirstReadingReadsEveryTable) {
    tables_ = {"Zeta", "Alpha"};
    setRows("Zeta", {PlanRow(1), PlanRow(2)});
    setRows("Alpha", {});
    TimePlanHandler handler(tables_);

    EXPECT_TRUE(handler.configChanged(store_, ""));

    EXPECT_THAT(store_.journal(), ElementsAre("size Zeta", "select Zeta 0", "select Zeta 1", "size Alpha"));
    EXPECT_THAT(log_.lines(), ElementsAre("info horad: Initial reading of config"));
}

TEST_F(TimePlanReading, AChangeReadsThatTableAlone) {
    tables_ = {"Zeta", "Alpha"};
    setRows("Zeta", {PlanRow(1)});
    setRows("Alpha", {PlanRow(1)});
    TimePlanHandler handler(tables_);

    EXPECT_TRUE(handler.configChanged(store_, "Alpha"));

    EXPECT_THAT(store_.journal(), ElementsAre("size Alpha", "select Alpha 0"));
    EXPECT_THAT(log_.lines(), ElementsAre("info horad: Table Alpha was changed"));
}

TEST_F(TimePlanReading, ATableNameIsNoFormat) {
    store_.table("%s%n");
    TimePlanHandler handler(tables_);
    EXPECT_TRUE(handler.configChanged(store_, "%s%n"));
    EXPECT_THAT(log_.lines(), ElementsAre("info horad: Table %s%n was changed"));
}

TEST_F(TimePlanReading, ATableThatIsNotYetKnownIsTakenIn) {
    setRows("Other", {PlanRow(4)});
    TimePlanHandler handler(tables_);
    read(handler, "Other");
    EXPECT_EQ(pass(handler), switched("Other", "4", 1));
}

TEST_F(TimePlanReading, ProcessDoesNothing) {
    setRows("Plans", {PlanRow(1)});
    TimePlanHandler handler(tables_);
    read(handler);

    handler.process(store_);

    EXPECT_THAT(store_.journal(), IsEmpty());
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TimePlanReading, EachWeekdayHasItsColumns) {
    const char* days[] = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};
    for (int slotDay = 0; slotDay < 7; ++slotDay) {
        setRows("Plans", {PlanRow(1).slot("", "")});
        store_.set("Plans", 0, {std::string("Start") + days[slotDay], "08:00:00"});
        store_.set("Plans", 0, {std::string("Stop") + days[slotDay], "17:00"});
        for (int today = 0; today < 7; ++today) {
            TimePlanHandler handler(tables_);
            read(handler);
            clock_.set(mondayNoon + today * secondsADay);
            EXPECT_EQ(pass(handler).empty(), today != slotDay)
                << days[slotDay] << "'s slot on " << days[today];
            store_.set("Plans", 0, {"TimePlanStatus", 0});
        }
    }
}

TEST_F(TimePlanReading, ANumberThatIsNotZeroIsOn) {
    setRows("Plans", {PlanRow(1).status(2).activate(1), PlanRow(2).status(0).activate(2)});
    TimePlanHandler handler(tables_);
    read(handler);
    EXPECT_EQ(pass(handler), switched("Plans", "2", 1));
}

TEST_F(TimePlanReading, AnUnchangedRowKeepsItsPlan) {
    setRows("Plans", {PlanRow(1)});
    TimePlanHandler handler(tables_);
    read(handler);
    read(handler);
    EXPECT_EQ(pass(handler), switched("Plans", "1", 1));
}

TEST_F(TimePlanReading, AChangedRowChangesItsPlan) {
    setRows("Plans", {PlanRow(1).slot("20:00:00", "21:00:00")});
    TimePlanHandler handler(tables_);
    read(handler);
    EXPECT_THAT(pass(handler), IsEmpty());

    setRows("Plans", {PlanRow(1)});
    read(handler, "Plans");

    EXPECT_EQ(pass(handler), switched("Plans", "1", 1));
}

TEST_F(TimePlanReading, AChangedPlanIsKeptByTheNextReading) {
    setRows("Plans", {PlanRow(1).name("Kids")});
    TimePlanHandler handler(tables_);
    read(handler);
    setRows("Plans", {PlanRow(1).name("Guests")});
    read(handler, "Plans");
    read(handler, "Plans");
    EXPECT_EQ(pass(handler), switched("Plans", "1", 1));
}

TEST_F(TimePlanReading, AStatusChangedInTheStoreIsTakenOver) {
    setRows("Plans", {PlanRow(1)});
    TimePlanHandler handler(tables_);
    read(handler);
    (void)pass(handler);
    EXPECT_THAT(pass(handler), IsEmpty());

    store_.set("Plans", 0, {"TimePlanStatus", 0});
    read(handler, "Plans");

    EXPECT_EQ(pass(handler), switched("Plans", "1", 1));
}

TEST_F(TimePlanReading, OfTwoRowsWithOneIdTheSecondCounts) {
    setRows("Plans",
            {PlanRow(1).name("first"), PlanRow(1).status(1).slot("20:00:00", "21:00:00").name("second")});
    TimePlanHandler handler(tables_);
    read(handler);
    EXPECT_EQ(pass(handler), switched("Plans", "1", 0));
}

TEST_F(TimePlanReading, AVanishedRowTakesItsPlanAwayWhateverItsStatus) {
    const PlanRow toBeSwitchedOn(1);
    const PlanRow toBeSwitchedOff = PlanRow(3).status(1).slot("20:00:00", "21:00:00");
    setRows("Plans", {toBeSwitchedOn, PlanRow(2), toBeSwitchedOff});
    TimePlanHandler handler(tables_);
    read(handler);

    setRows("Plans", {PlanRow(2)});
    read(handler, "Plans");

    EXPECT_EQ(pass(handler), switched("Plans", "2", 1));
}

TEST_F(TimePlanReading, AnEmptyTableHasNoPlans) {
    setRows("Plans", {PlanRow(1), PlanRow(2)});
    TimePlanHandler handler(tables_);
    read(handler);

    setRows("Plans", {});
    read(handler, "Plans");

    EXPECT_THAT(pass(handler), IsEmpty());
}

TEST_F(TimePlanReading, RowsOfOneTableSayNothingOfAnother) {
    tables_ = {"Alpha", "Zeta"};
    setRows("Alpha", {PlanRow(1)});
    setRows("Zeta", {PlanRow(1)});
    TimePlanHandler handler(tables_);
    read(handler);

    setRows("Alpha", {});
    read(handler, "Alpha");

    EXPECT_EQ(pass(handler), switched("Zeta", "1", 1));
}

TEST_F(TimePlanReading, AFailingRowEndsTheReadingSilently) {
    setRows("Plans", {PlanRow(1), PlanRow(2), PlanRow(3)});
    TimePlanHandler handler(tables_);
    store_.failNth(Operation::SelectRow, 2, code::timedOut);

    EXPECT_TRUE(handler.configChanged(store_, "Plans"));

    EXPECT_THAT(store_.journal(), ElementsAre("size Plans", "select Plans 0", "select Plans 1 -> 3"));
    EXPECT_THAT(log_.lines(), ElementsAre("info horad: Table Plans was changed"));
}

TEST_F(TimePlanReading, AFailingRowRemovesNoPlan) {
    setRows("Plans", {PlanRow(1), PlanRow(2)});
    TimePlanHandler handler(tables_);
    read(handler);

    store_.fail(Operation::SelectRow, code::timedOut);
    read(handler, "Plans");

    EXPECT_THAT(pass(handler), ElementsAre("start", update("Plans", "1", 1), "close", //
                                           "start", update("Plans", "2", 1), "close"));
}

TEST_F(TimePlanReading, WhatWasReadBeforeAFailingRowCounts) {
    setRows("Plans", {PlanRow(1), PlanRow(2)});
    TimePlanHandler handler(tables_);
    read(handler);

    setRows("Plans", {PlanRow(1).activate(0), PlanRow(2).activate(0)});
    store_.failNth(Operation::SelectRow, 2, code::timedOut);
    read(handler, "Plans");

    EXPECT_EQ(pass(handler), switched("Plans", "2", 1)); // as it was before
}

TEST_F(TimePlanReading, AVanishedRowIsNoticedAfterAFailedReading) {
    setRows("Plans", {PlanRow(1), PlanRow(2)});
    TimePlanHandler handler(tables_);
    read(handler);
    setRows("Plans", {PlanRow(2)});
    store_.failNth(Operation::SelectRow, 1, code::timedOut);
    read(handler, "Plans");

    read(handler, "Plans");

    EXPECT_EQ(pass(handler), switched("Plans", "2", 1));
}

TEST_F(TimePlanReading, AFailingSizeIsLogged) {
    setRows("Plans", {PlanRow(1)});
    TimePlanHandler handler(tables_);
    store_.fail(Operation::Size, code::timedOut);

    EXPECT_TRUE(handler.configChanged(store_, "Plans"));

    EXPECT_THAT(store_.journal(), ElementsAre("size Plans -> 3"));
    EXPECT_THAT(log_.lines(),
                Contains("error horad: size() failed: the configuration store did not answer in time"));
}

TEST_F(TimePlanReading, AFailingSizeRemovesNoPlan) {
    setRows("Plans", {PlanRow(1)});
    TimePlanHandler handler(tables_);
    read(handler);

    store_.fail(Operation::Size, code::timedOut);
    read(handler, "Plans");

    EXPECT_EQ(pass(handler), switched("Plans", "1", 1));
}

TEST_F(TimePlanReading, ATableThatFailsDoesNotKeepTheNextFromBeingRead) {
    tables_ = {"Missing", "Plans"};
    setRows("Plans", {PlanRow(1)});
    TimePlanHandler handler(tables_);
    read(handler);
    EXPECT_EQ(pass(handler), switched("Plans", "1", 1));
}

} // namespace
