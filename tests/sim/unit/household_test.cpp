#include "sim/household.h"
#include "sim/scenario.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace sim;
using velta::protocol::EResultCode;
namespace code = velta::protocol::code;

constexpr std::time_t aMondayNoon = 1772449200; // 2026-03-02 12:00 in Berlin

class Looker : public Observer {
public:
    explicit Looker(const View& view) : view_(view) {}

    void booted() override { ++boots; }
    void committed(const Tables::Changes& changes) override { commits.push_back(changes); }
    void passed() override { calm.push_back(view_.passesSinceFault); }
    const std::optional<std::string>& violation() const override { return wrong; }

    int boots = 0;
    std::vector<Tables::Changes> commits;
    std::vector<unsigned> calm;
    std::optional<std::string> wrong;

private:
    const View& view_;
};

class HouseholdTest : public testing::Test {
protected:
    HouseholdTest() { household.observe(&looker); }

    Household household{"Europe/Berlin", aMondayNoon};
    Looker looker{household.view()};
};

TEST_F(HouseholdTest, AnIdleLoopTakesTwoSecondsAPass) {
    household.run(1 * minute);
    looker.calm.clear();
    household.run(1 * hour);
    EXPECT_EQ(looker.calm.size(), 1800U);
    EXPECT_EQ(household.machine().time(), aMondayNoon + 3660);
}

TEST_F(HouseholdTest, TheFirstPassEnablesTheServices) {
    household.run(10 * second);
    EXPECT_EQ(looker.boots, 1);
    EXPECT_EQ(household.tables().number("wexd", "Enable"), 1);
}

TEST_F(HouseholdTest, PassesAreCountedFromTheEndOfADisturbance) {
    household.run(1 * minute);
    const int fault = household.beginFault();
    looker.calm.clear();
    household.run(6 * second);
    EXPECT_EQ(looker.calm, (std::vector<unsigned>{0, 0, 0}));
    household.endFault(fault);
    looker.calm.clear();
    household.run(6 * second);
    EXPECT_EQ(looker.calm, (std::vector<unsigned>{0, 1, 2}));
}

TEST_F(HouseholdTest, AnAmbushIsADisturbanceWhenItIsMet) {
    household.run(1 * minute);
    household.beginAmbush([](Tables::Operation operation, const std::string&) {
        return operation == Tables::Operation::Size ? EResultCode(code::failure) : EResultCode();
    });
    household.run(10 * second);
    EXPECT_GT(looker.calm.back(), 4U);
    EXPECT_EQ(household.view().failedOperations, 0U);
    household.insert("TimePlans", dailyPlan("TimePlans", 1, "", ""));
    household.run(1 * second);
    EXPECT_EQ(looker.calm.back(), 0U);
    EXPECT_GT(household.view().failedOperations, 0U);
}

TEST_F(HouseholdTest, APowerCutEndsHoradWhereverItIs) {
    household.run(1 * minute);
    household.beginAmbush([this](Tables::Operation operation, const std::string&) {
        if (operation == Tables::Operation::Close)
            household.cutPower(Boot{1 * minute, std::time_t{0}, 0});
        return EResultCode();
    });
    household.insert("TimePlans", dailyPlan("TimePlans", 1, "8:00", "18:00"));
    household.run(30 * second);
    EXPECT_FALSE(household.isRunning());
    EXPECT_FALSE(household.isTransactionOpen());
    EXPECT_EQ(household.tables().number("TimePlans", "TimePlanStatus", 1), 0);
    EXPECT_EQ(looker.boots, 1);
}

TEST_F(HouseholdTest, ABootBeginsTheUptimeAndTheClockIsSetRightLater) {
    household.run(1 * hour);
    household.cutPower(Boot{1 * minute, std::time_t{1000}, 5 * minute});
    household.run(2 * minute);
    EXPECT_EQ(looker.boots, 2);
    EXPECT_EQ(household.machine().uptime(), 60U);
    EXPECT_EQ(household.machine().time(), 1060);
    household.run(4 * minute);
    EXPECT_EQ(household.machine().time(), aMondayNoon + 3600 + 6 * 60);
}

TEST_F(HouseholdTest, TheRouterRebootsWhenHoradAsksForIt) {
    household.change("AutoReboot", 0, "Time", std::string("15:00"));
    household.change("AutoReboot", 0, "Enable", 1);
    household.run(3 * hour + 3 * minute);
    EXPECT_EQ(household.boots(), 2U);
    EXPECT_EQ(household.reboots().size(), 1U);
    EXPECT_EQ(household.tables().number("Reboot", "Trigger"), 0);
    EXPECT_LT(household.machine().uptime(), 180U);
}

TEST_F(HouseholdTest, AnEditWaitsForTheTransaction) {
    household.run(1 * minute);
    bool openAtEdit = false;
    household.beginAmbush([&](Tables::Operation operation, const std::string&) {
        if (operation == Tables::Operation::UpdateRow) {
            household.edit("WlanGlobals", [&](Rows& rows) {
                openAtEdit = household.isTransactionOpen();
                set(rows.front(), "AlwaysEnable", 1);
            });
            household.machine().sleep(150'000);
        }
        return EResultCode();
    });
    household.insert("TimePlans", dailyPlan("TimePlans", 1, "8:00", "18:00"));
    household.run(10 * second);
    EXPECT_FALSE(openAtEdit);
    EXPECT_EQ(household.tables().number("WlanGlobals", "AlwaysEnable"), 1);
    EXPECT_EQ(household.tables().number("TimePlans", "TimePlanStatus", 1), 1);
}

TEST_F(HouseholdTest, ItStandsStillWhereSomethingIsWrong) {
    household.run(1 * minute);
    looker.wrong = "something";
    household.run(1 * day);
    EXPECT_EQ(household.machine().time(), aMondayNoon + 60);
}

TEST_F(HouseholdTest, AFailedOperationIsToldByTheJournal) {
    household.run(1 * minute);
    household.beginFault([](Tables::Operation operation, const std::string&) {
        return operation == Tables::Operation::Start ? EResultCode(code::busy) : EResultCode();
    });
    household.insert("TimePlans", dailyPlan("TimePlans", 1, "8:00", "18:00"));
    household.run(1 * second);
    EXPECT_NE(household.journal().text().find("start -> " + EResultCode(code::busy).strerror()),
              std::string::npos)
        << household.journal().text();
}

TEST_F(HouseholdTest, TheJournalKeepsTheLastThirtyEntries) {
    for (int entry = 0; entry < 100; ++entry)
        household.journal().note("entry", std::to_string(entry));
    const std::string text = household.journal().text();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 30);
    EXPECT_EQ(text.find("entry 69\n"), std::string::npos);
    EXPECT_NE(text.find("2026-03-02T12:00:00+0100  entry 70\n"), std::string::npos);
    EXPECT_NE(text.find("entry 99\n"), std::string::npos);
}

} // namespace
