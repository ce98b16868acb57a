#include "sim/unit/oraclefixture.h"

namespace {

using namespace sim;

class OraclePlansWorld : public OracleWorld {
public:
    void insertPlan(const std::string& table, int id, const char* start, const char* stop, bool status,
                    bool activate = true) {
        Row plan = dailyPlan(table, id, start, stop, activate);
        set(plan, "TimePlanStatus", status ? 1 : 0);
        insert(table, plan);
    }
};

class OraclePlans : public testing::Test, public OraclePlansWorld {};

TEST_F(OraclePlans, AStatusIsWhatThePlanSays) {
    const struct {
        const char* slot;
        bool activate;
        const char* clock;
        bool expected;
    } cases[] = {
        {"8:00 17:00", true, "07:59:59", false},       {"8:00 17:00", true, "08:00:00", true},
        {"8:00 17:00", true, "17:00:00", true},        {"8:00 17:00", true, "17:00:01", false},
        {"8:00 17:00", false, "07:59:59", true},       {"8:00 17:00", false, "08:00:00", false},
        {"8:00 17:00", false, "17:00:01", true},       {"8:00:07 17:00:03", true, "08:00:06", false},
        {"8:00:07 17:00:03", true, "08:00:07", true},  {"8:00:07 17:00:03", true, "17:00:03", true},
        {"8:00:07 17:00:03", true, "17:00:04", false}, {"22:00 6:00", true, "06:00:00", true},
        {"22:00 6:00", true, "06:00:01", false},
    };
    for (const auto& one : cases)
        for (const bool status : {false, true}) {
            const std::string slot = one.slot;
            const std::size_t blank = slot.find(' ');
            OraclePlansWorld world;
            world.setClock(std::string("2026-03-03 ") + one.clock);
            world.insertPlan("TimePlans", 7, slot.substr(0, blank).c_str(), slot.substr(blank + 1).c_str(),
                             status, one.activate);
            for (int i = 0; i < 3; ++i)
                world.pass(0);
            EXPECT_EQ(world.isQuiet(), status == one.expected)
                << one.slot << ", activate " << one.activate << ", " << one.clock << ": " << world.text();
        }
}

TEST_F(OraclePlans, AnEdgeCountsInThePassThatMeetsIt) {
    setClock("2026-03-03 16:59:50");
    insertPlan("TimePlans", 7, "8:00", "17:00", true);
    settle();
    passUntil("2026-03-03 17:00:00");
    expectQuiet();
    pass(1);
    expectViolation("TimePlans 7: TimePlanStatus 0 was expected");
}

TEST_F(OraclePlans, WhoFollowsIsRight) {
    setClock("2026-03-03 16:59:50");
    insertPlan("TimePlans", 7, "8:00", "17:00:05", true);
    settle();
    passUntil("2026-03-03 17:00:05");
    pass([this] { commitCell("TimePlans", 7, "TimePlanStatus", 0); }, 1);
    settle();
    expectQuiet();
}

TEST_F(OraclePlans, NothingIsSaidUntilTwoPassesAfterADisturbance) {
    settle();
    insertPlan("TimePlans", 7, "8:00", "17:00", false);
    pass();
    pass();
    expectQuiet();
    pass();
    expectViolation("TimePlans 7");
}

TEST_F(OraclePlans, AViolationTellsTheLocalTimeAndWhatWasExpected) {
    insertPlan("TimePlans", 7, "8:00", "17:00", false);
    settle();
    EXPECT_EQ(oracle.violation(),
              "Mon 2026-03-02T12:00:06+0100: TimePlans 7: TimePlanStatus 1 was expected, as the plan has "
              "Activate 1 and it is inside its slots; it is 0");
}

TEST_F(OraclePlans, ARowIsWrittenUnderThreeCharactersOfItsId) {
    insertPlan("TimePlans", 123, "8:00", "17:00", true);
    insertPlan("TimePlans", 1234, "8:00", "17:00", false); // never written
    settle();
    expectQuiet();
    change("TimePlans", 123, "TimePlanStatus", 0); // both want a 1 here
    settle();
    expectViolation("TimePlans 123");
}

TEST_F(OraclePlans, OfRowsThatWriteToEachOtherNothingIsExpected) {
    insertPlan("TimePlans", 123, "8:00", "17:00", false);
    insertPlan("TimePlans", 1234, "8:00", "9:00", true);
    settle();
    expectQuiet();
}

TEST_F(OraclePlans, OfTwoRowsOfOneIdTheSecondSaysAndTheFirstIsWritten) {
    insertPlan("TimePlans", 5, "8:00", "9:00", true);
    insertPlan("TimePlans", 5, "8:00", "17:00", false);
    settle();
    expectQuiet();
    Rows rows = tables.rows("TimePlans");
    set(rows.front(), "TimePlanStatus", 0);
    tables.edit("TimePlans", rows);
    disturbed = true;
    settle();
    expectViolation("TimePlans 5");
}

TEST_F(OraclePlans, AnUpdateThatFailedCountsAsDoneUntilTheTableIsReadAgain) {
    setClock("2026-03-03 16:59:50");
    insertPlan("TimePlans", 7, "8:00", "17:00", true);
    insertPlan("TimePlans", 8, "8:00", "18:00", true);
    settle();
    passUntil("2026-03-03 17:00:00");
    pass([this] {
        ++view.failedOperations;
        ++view.refusedUpdates;
        disturbed = true;
    });
    settle();
    settle();
    expectQuiet();
    change("TimePlans", 8, "TimePlanName", "another one");
    settle();
    expectViolation("TimePlans 7");
}

TEST_F(OraclePlans, AFailureDoesNotExcuseWhatGoesWrongLater) {
    setClock("2026-03-03 16:59:00");
    insertPlan("TimePlans", 7, "8:00", "17:00", true);
    settle();
    pass([this] {
        ++view.failedOperations;
        ++view.refusedUpdates;
        disturbed = true;
    });
    passUntil("2026-03-03 17:00:01");
    expectViolation("TimePlans 7");
}

TEST_F(OraclePlans, AReadingThatFailedOftenRests) {
    insertPlan("TimePlans", 7, "8:00", "17:00", false);
    for (int i = 0; i < 10; ++i)
        pass([this] { ++view.failedOperations; });
    change("TimePlans", 7, "TimePlanName", "another one"); // ends all doubts about the row
    for (int i = 0; i < 31; ++i)
        pass();
    expectQuiet();
    pass();
    expectViolation("TimePlans 7");
}

TEST_F(OraclePlans, OnlyTheTablesOfTheCommandLineCount) {
    tables.edit("Lights", {dailyPlan("TimePlans", 7, "8:00", "17:00")});
    settle();
    expectQuiet();
}

class OracleWlanWorld : public OraclePlansWorld {
public:
    // Each row is "activate status". Their slots make these statuses right, at noon.
    void insertRows(const std::vector<std::string>& rows) {
        int id = 0;
        for (const std::string& row : rows) {
            const bool activate = row[0] == '1';
            const bool status = row[2] == '1';
            const bool inside = activate == status;
            insertPlan("WlanTimePlans", ++id, inside ? "8:00" : "1:00", inside ? "17:00" : "2:00", status,
                       activate);
        }
    }
};

class OracleWlan : public testing::Test, public OracleWlanWorld {};

TEST_F(OracleWlan, IsWhatTheRulesMakeOfTheRows) {
    const struct {
        std::vector<std::string> rows; // activate, status
        bool expected;
    } cases[] = {
        {{}, false},
        {{"1 0"}, false},
        {{"1 1"}, true},
        {{"0 0"}, false},
        {{"0 1"}, true},
        {{"1 0", "0 1"}, false},
        {{"1 1", "0 0"}, false},
        {{"0 0", "1 1"}, true},
        {{"1 1", "1 0"}, true},
        {{"0 1", "1 0"}, true},
    };
    for (const auto& one : cases)
        for (const bool enabled : {false, true}) {
            OracleWlanWorld world;
            world.insertRows(one.rows);
            world.change("WlanGlobals", 0, "WlanEnable", enabled ? 1 : 0);
            world.settle();
            EXPECT_EQ(world.isQuiet(), enabled == one.expected)
                << testing::PrintToString(one.rows) << ": " << world.text();
        }
}

TEST_F(OracleWlan, IsNobodysWhereItIsAlwaysEnabled) {
    change("WlanGlobals", 0, "WlanEnable", 1);
    change("WlanGlobals", 0, "AlwaysEnable", 2);
    settle();
    expectQuiet();
    change("WlanGlobals", 0, "AlwaysEnable", 0);
    settle();
    expectViolation("WlanGlobals: WlanEnable 0 was expected");
}

TEST_F(OracleWlan, IsNotSwitchedWhereItIsAlwaysEnabled) {
    change("WlanGlobals", 0, "AlwaysEnable", 1);
    settle();
    pass([this] { commitCell("WlanGlobals", 0, "WlanEnable", 1); });
    expectViolation("WlanEnable was changed to 1 while the WLAN was always enabled");
}

TEST_F(OracleWlan, FollowsTheRowsWithTheNextIteration) {
    setClock("2026-03-03 07:59:50");
    insertPlan("WlanTimePlans", 1, "8:00", "17:00", false);
    settle();
    passUntil("2026-03-03 07:59:59");
    pass([this] { commitCell("WlanTimePlans", 1, "TimePlanStatus", 1); }, 1);
    expectQuiet();
    pass([this] { commitCell("WlanGlobals", 0, "WlanEnable", 1); }, 0);
    settle();
    expectQuiet();
}

TEST_F(OracleWlan, IsLateWithTheSecond) {
    setClock("2026-03-03 07:59:50");
    insertPlan("WlanTimePlans", 1, "8:00", "17:00", false);
    settle();
    passUntil("2026-03-03 07:59:59");
    pass([this] { commitCell("WlanTimePlans", 1, "TimePlanStatus", 1); }, 1);
    pass();
    expectViolation("WlanGlobals: WlanEnable 1 was expected");
}

TEST_F(OracleWlan, StaysAsItIsWithoutATableOfPlans) {
    change("WlanGlobals", 0, "WlanEnable", 1);
    tables.remove("WlanTimePlans");
    settle();
    expectQuiet();
}

} // namespace
