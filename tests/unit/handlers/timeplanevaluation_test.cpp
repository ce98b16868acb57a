// What the pass over the plans writes, and when.

#include "timeplanfixture.h"

#include <limits>
#include <numeric>

#include <gmock/gmock.h>

namespace {

using orv::horad::Logger;
using orv::horad::TimePlanHandler;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
namespace code = velta::protocol::code;

class TimePlanEvaluation : public TimePlanFixture {};

struct WantedCase {
    int activate;
    bool inside;
    int status;
    int written; // -1: nothing
};

const WantedCase wantedCases[] = {
    {1, true, 0, 1},  {1, true, 1, -1}, {1, false, 0, -1}, {1, false, 1, 0},
    {0, true, 0, -1}, {0, true, 1, 0},  {0, false, 0, 1},  {0, false, 1, -1},
};

TEST_F(TimePlanEvaluation, AnActivatingPlanIsOnInsideItsSlotsAndADeactivatingOneOutside) {
    for (const WantedCase& given : wantedCases) {
        SCOPED_TRACE(testing::Message() << "activate " << given.activate << ", inside " << given.inside
                                        << ", status " << given.status);
        setRows("Plans", {PlanRow(1).status(given.status).activate(given.activate)});
        TimePlanHandler handler(tables_);
        read(handler);
        clock_.set(given.inside ? mondayNoon : mondayEvening);
        EXPECT_EQ(pass(handler), given.written < 0 ? Lines{} : switched("Plans", "1", given.written));
    }
}

TEST_F(TimePlanEvaluation, ThePassFollowsTheClock) {
    setRows("Plans", {PlanRow(1)});
    TimePlanHandler handler(tables_);
    read(handler);
    const std::time_t start = mondayNoon - 4 * 3600;
    const std::time_t stop = mondayNoon + 5 * 3600;

    clock_.set(start - 1);
    EXPECT_THAT(pass(handler), IsEmpty());
    clock_.set(start);
    EXPECT_EQ(pass(handler), switched("Plans", "1", 1));
    clock_.set(stop);
    EXPECT_THAT(pass(handler), IsEmpty());
    clock_.set(stop + 1);
    EXPECT_EQ(pass(handler), switched("Plans", "1", 0));
}

TEST_F(TimePlanEvaluation, ThePassFollowsTheTimeZone) {
    setRows("Plans", {PlanRow(1).slot("20:00:00", "21:00:00")});
    TimePlanHandler handler(tables_);
    read(handler);
    EXPECT_THAT(pass(handler), IsEmpty());

    zone_.set("XXX-8:30");

    EXPECT_EQ(pass(handler), switched("Plans", "1", 1));
}

TEST_F(TimePlanEvaluation, WhatIsWrittenIsInTheStore) {
    setRows("Plans", {PlanRow(1)});
    TimePlanHandler handler(tables_);
    read(handler);
    (void)pass(handler);
    EXPECT_EQ(store_.number("Plans", 0, "TimePlanStatus"), 1);
}

TEST_F(TimePlanEvaluation, NothingIsWrittenOrReadWhereNothingHasToChange) {
    setRows("Plans", {PlanRow(1).status(1)});
    TimePlanHandler handler(tables_);
    read(handler);

    handler.checkTimePlans(store_);

    EXPECT_THAT(store_.journal(), IsEmpty());
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TimePlanEvaluation, ASwitchIsMadeOnce) {
    setRows("Plans", {PlanRow(1)});
    TimePlanHandler handler(tables_);
    read(handler);
    (void)pass(handler);
    EXPECT_THAT(pass(handler), IsEmpty());
}

TEST_F(TimePlanEvaluation, TablesAreInByteOrderAndPlansInTheOrderOfTheirReading) {
    tables_ = {"beta", "alpha", "Zeta"};
    setRows("beta", {PlanRow(5)});
    setRows("alpha", {PlanRow(7), PlanRow(2)});
    setRows("Zeta", {PlanRow(9)});
    TimePlanHandler handler(tables_);
    read(handler);
    setRows("alpha",
            {PlanRow(1), PlanRow(2), PlanRow(7)}); // the new row stands in front, its plan at the end
    read(handler, "alpha");

    EXPECT_THAT(pass(handler), ElementsAre("start", update("Zeta", "9", 1), "close",  //
                                           "start", update("alpha", "7", 1), "close", //
                                           "start", update("alpha", "2", 1), "close", //
                                           "start", update("alpha", "1", 1), "close", //
                                           "start", update("beta", "5", 1), "close"));
}

TEST_F(TimePlanEvaluation, ATableNamedTwiceIsEvaluatedOnce) {
    tables_ = {"Plans", "Plans"};
    setRows("Plans", {PlanRow(1)});
    TimePlanHandler handler(tables_);
    read(handler);
    EXPECT_EQ(pass(handler), switched("Plans", "1", 1));
}

struct KeyCase {
    int id;
    const char* key;
};

const KeyCase keyCases[] = {
    {0, "0"},
    {7, "7"},
    {42, "42"},
    {999, "999"},
    {1000, "100"},
    {1234, "123"},
    {12345, "123"},
    {-1, "-1"},
    {-99, "-99"},
    {-100, "-10"},
    {-1234, "-12"},
    {std::numeric_limits<int>::max(), "214"},
    {std::numeric_limits<int>::min(), "-21"},
};

TEST_F(TimePlanEvaluation, AKeyHasThreeCharactersAtMost) {
    for (const KeyCase& given : keyCases) {
        setRows("Plans", {PlanRow(given.id)});
        TimePlanHandler handler(tables_);
        read(handler);
        EXPECT_THAT(pass(handler), Contains(StartsWith(update("Plans", given.key, 1)))) << given.id;
    }
}

TEST_F(TimePlanEvaluation, ACutKeyAddressesAnotherRow) {
    setRows("Plans", {PlanRow(123).slot("", ""), PlanRow(1234)});
    TimePlanHandler handler(tables_);
    read(handler);

    EXPECT_EQ(pass(handler), switched("Plans", "123", 1));

    EXPECT_EQ(store_.number("Plans", 0, "TimePlanStatus"), 1);
    EXPECT_EQ(store_.number("Plans", 1, "TimePlanStatus"), 0);
}

TEST_F(TimePlanEvaluation, AnActivationIsLoggedWithThePlan) {
    setRows("Plans", {PlanRow(7).name("Kids %s%n")});
    store_.set("Plans", 0, {"StartSun", "22:15"});
    store_.set("Plans", 0, {"StopSun", "6"});
    TimePlanHandler handler(tables_);
    read(handler);

    (void)pass(handler);

    EXPECT_THAT(log_.lines(), ElementsAre("debug horad: Activated timeplan: Id: 7 Name: Kids %s%n Status: 1 "
                                          "Mon: 8:0:0 - 17:0:0 Tue: 0:0:0 - 0:0:0 Wed: 0:0:0 - 0:0:0 "
                                          "Thu: 0:0:0 - 0:0:0 Fri: 0:0:0 - 0:0:0 Sat: 0:0:0 - 0:0:0 "
                                          "Sun: 22:15:0 - 6:0:0"));
}

TEST_F(TimePlanEvaluation, ADeactivationIsLoggedWithThePlan) {
    setRows("Plans", {PlanRow(7).status(1).activate(0)});
    TimePlanHandler handler(tables_);
    read(handler);

    (void)pass(handler);

    EXPECT_THAT(log_.lines(), ElementsAre("debug horad: Deactivated timeplan: Id: 7 Name: Kids Status: 0 "
                                          "Mon: 8:0:0 - 17:0:0 Tue: 0:0:0 - 0:0:0 Wed: 0:0:0 - 0:0:0 "
                                          "Thu: 0:0:0 - 0:0:0 Fri: 0:0:0 - 0:0:0 Sat: 0:0:0 - 0:0:0 "
                                          "Sun: 0:0:0 - 0:0:0"));
}

TEST_F(TimePlanEvaluation, AFailingStartIsTriedAgainByTheNextPass) {
    setRows("Plans", {PlanRow(1)});
    TimePlanHandler handler(tables_);
    read(handler);
    store_.failNth(Operation::Start, 1, code::busy);

    EXPECT_THAT(pass(handler), ElementsAre("start -> 9"));
    EXPECT_EQ(pass(handler), switched("Plans", "1", 1));
}

TEST_F(TimePlanEvaluation, AFailingStartIsLoggedWithItsCodeAndItsReason) {
    setRows("Plans", {PlanRow(1)});
    TimePlanHandler handler(tables_);
    read(handler);
    store_.fail(Operation::Start, code::busy);

    (void)pass(handler);

    EXPECT_THAT(log_.lines(),
                ElementsAre("error horad: Could start transaction: 9",
                            "debug horad: startTransaction() failed: another transaction is open"));
}

TEST_F(TimePlanEvaluation, AFailingStartOfOnePlanDoesNotKeepTheNextFromBeingSwitched) {
    setRows("Plans", {PlanRow(1), PlanRow(2)});
    TimePlanHandler handler(tables_);
    read(handler);
    store_.failNth(Operation::Start, 1, code::busy);
    EXPECT_THAT(pass(handler), ElementsAre("start -> 9", "start", update("Plans", "2", 1), "close"));
}

TEST_F(TimePlanEvaluation, AFailingUpdateIsClosedAndCountsAsDone) {
    setRows("Plans", {PlanRow(1)});
    TimePlanHandler handler(tables_);
    read(handler);
    store_.failNth(Operation::UpdateRow, 1, code::noSuchRow);

    EXPECT_THAT(pass(handler), ElementsAre("start", update("Plans", "1", 1) + " -> 15", "close"));
    EXPECT_THAT(pass(handler), IsEmpty());
}

TEST_F(TimePlanEvaluation, AFailingUpdateIsMadeUpForAfterTheNextReading) {
    setRows("Plans", {PlanRow(1)});
    TimePlanHandler handler(tables_);
    read(handler);
    store_.failNth(Operation::UpdateRow, 1, code::noSuchRow);
    (void)pass(handler);

    read(handler, "Plans");

    EXPECT_EQ(pass(handler), switched("Plans", "1", 1));
}

TEST_F(TimePlanEvaluation, AFailingUpdateIsLoggedWithItsCodeAndItsReasonBeforeTheActivation) {
    setRows("Plans", {PlanRow(1)});
    TimePlanHandler handler(tables_);
    read(handler);
    store_.fail(Operation::UpdateRow, code::noSuchRow);

    (void)pass(handler);

    EXPECT_THAT(log_.lines(), ElementsAre("error horad: Could not set status: 15",
                                          "debug horad: writing the status failed: no such row",
                                          StartsWith("debug horad: Activated timeplan: Id: 1 ")));
}

TEST_F(TimePlanEvaluation, AFailingCloseIsIgnored) {
    setRows("Plans", {PlanRow(1)});
    TimePlanHandler handler(tables_);
    read(handler);
    store_.fail(Operation::Close, code::storageFull);

    EXPECT_THAT(pass(handler), ElementsAre("start", update("Plans", "1", 1), "close -> 21"));

    EXPECT_THAT(pass(handler), IsEmpty());
    EXPECT_THAT(log_.lines(), ElementsAre(StartsWith("debug horad: Activated timeplan: ")));
}

TEST_F(TimePlanEvaluation, WithoutATimeNothingIsDone) {
    setRows("Plans", {PlanRow(1), PlanRow(2).status(1).activate(0), PlanRow(3).activate(0)});
    TimePlanHandler handler(tables_);
    read(handler);
    clock_.fail();
    EXPECT_THAT(pass(handler), IsEmpty());
}

TEST_F(TimePlanEvaluation, ATimeThatCantBeConvertedIsInNoSlot) {
    setRows("Plans", {PlanRow(1).status(1), PlanRow(2).activate(0)});
    TimePlanHandler handler(tables_);
    read(handler);
    clock_.set(std::numeric_limits<std::time_t>::max() / 32); // a year that no int holds
    EXPECT_THAT(pass(handler), ElementsAre("start", update("Plans", "1", 0), "close", //
                                           "start", update("Plans", "2", 1), "close"));
}

unsigned timeCallsOfAPass(TimePlanHandler& handler, fakes::FakeStore& store) {
    fakes::resetTimeCalls();
    handler.checkTimePlans(store);
    return fakes::timeCalls().all();
}

TEST_F(TimePlanEvaluation, TheTimeIsTakenAndConvertedOnceForAllPlans) {
    Logger::instance().setVerbose(false); // a log line takes the time too
    std::vector<PlanRow> thousand;
    for (int id = 0; id < 1000; ++id)
        thousand.push_back(PlanRow(id).status(id % 2)); // every other one is switched
    tables_ = {"One", "Thousand"};
    setRows("One", {PlanRow(1)});
    setRows("Thousand", thousand);
    TimePlanHandler one(tables_);
    read(one, "One");
    TimePlanHandler many(tables_);
    read(many);

    const unsigned callsForOne = timeCallsOfAPass(one, store_);
    const unsigned callsForMany = timeCallsOfAPass(many, store_);

    EXPECT_GE(callsForOne, 2u); // the counting counts: the time, and its conversion
    EXPECT_EQ(callsForMany, callsForOne);
}

} // namespace
