#include "tools/errors.h"
#include "tools/horactl/why.h"
#include "unit/horactl/forecasthouse.h"
#include "unit/horactl/refusal.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tools::horactl::testing {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

class Why : public ::testing::Test {
protected:
    // "name: yes value limit" of each.
    Lines conditionsOf(const std::string& subject) const {
        Lines lines;
        for (const Condition& condition : explain(questionOf(household), subject).conditions)
            lines.push_back(condition.name + ": " + (condition.met ? "yes " : "no ") + condition.value +
                            " | " + condition.limit);
        return lines;
    }

    Household household = quietHousehold();
    fakes::LocalZone zone{"UTC"};
};

TEST_F(Why, OfTheWlanAreItsPlansAndWhatKeepsThemOut) {
    addDaily(household, "WlanTimePlans", 1, 1, "08:00", "18:00");
    addDaily(household, "WlanTimePlans", 2, 0, "11:00", "13:00");
    addDaily(household, "WlanTimePlans", 3, 1, "01:00", "02:00");
    EXPECT_THAT(conditionsOf("wlan"),
                ElementsAre("WlanTimePlans.1 speaks: yes on | activating, active",
                            "WlanTimePlans.2 speaks: yes off | deactivating, not active",
                            "WlanTimePlans.3 speaks: no silent | activating, not active",
                            "AlwaysEnable is off: yes 0 | 0", "the WLAN is not as wanted: no off | off"));
    const Explanation why = explain(questionOf(household), "wlan");
    EXPECT_EQ(why.decides, "WlanTimePlans.2");
    EXPECT_EQ(why.summary, "WLAN is OFF: WlanTimePlans.2");
    EXPECT_EQ(why.next, noon + hour + 2); // the stop's last second belongs to the slot
}

struct WlanCase {
    bool always;
    bool enabled;
    bool inside; // the slot of an activating plan
    bool acts;
    const char* decides;
};

TEST_F(Why, TheWlanIsSwitchedWhereItIsNotAsWanted) {
    const WlanCase cases[] = {
        {false, false, true, true, "WlanTimePlans.1"}, {false, true, true, false, "WlanTimePlans.1"},
        {false, true, false, true, "default"},         {false, false, false, false, "default"},
        {true, false, true, false, "AlwaysEnable"},    {true, true, false, false, "AlwaysEnable"},
    };
    for (const WlanCase& one : cases) {
        household.tables["WlanTimePlans"] = {row("WlanTimePlans", 1,
                                                 {{"TimePlanStatus", one.inside ? "1" : "0"},
                                                  {"StartMon", one.inside ? "08:00" : "13:00"},
                                                  {"StopMon", "18:00"}})};
        set(household, "WlanGlobals",
            {{"WlanEnable", one.enabled ? "1" : "0"}, {"AlwaysEnable", one.always ? "1" : "0"}});
        const Explanation why = explain(questionOf(household), "wlan");
        EXPECT_EQ(why.acts, one.acts);
        EXPECT_EQ(why.decides, one.decides);
        EXPECT_EQ(why.next.has_value(), !one.always);
        EXPECT_EQ(!writesOf(household, 10).empty(), one.acts); // as a horad that starts now
    }
}

struct PlanCase {
    int activate;
    bool inside;
    int status;
    bool active;
};

TEST_F(Why, OfAPlanIsItsSlotAndItsKind) {
    for (const int status : {0, 1}) {
        const PlanCase cases[] = {{1, true, status, true},
                                  {1, false, status, false},
                                  {0, true, status, false},
                                  {0, false, status, true}};
        for (const PlanCase& one : cases) {
            household.tables["TimePlans"] = {row("TimePlans", 2,
                                                 {{"Activate", std::to_string(one.activate)},
                                                  {"TimePlanStatus", std::to_string(one.status)},
                                                  {"StartMon", one.inside ? "08:00" : "13:00"},
                                                  {"StopMon", "18:00"}})};
            const Explanation why = explain(questionOf(household), "TimePlans.2");
            ASSERT_EQ(why.conditions.size(), 3U);
            EXPECT_EQ(why.conditions[0].name, "inside a slot");
            EXPECT_EQ(why.conditions[0].met, one.inside);
            EXPECT_EQ(why.conditions[1].name, "Activate");
            EXPECT_EQ(why.conditions[1].met, one.activate == 1);
            EXPECT_EQ(why.conditions[2].name, "the status is not as wanted");
            EXPECT_EQ(why.conditions[2].met, one.active != (one.status == 1));
            EXPECT_EQ(why.acts, one.active != (one.status == 1));
            EXPECT_THAT(why.summary, HasSubstr(one.active ? "is active" : "is not active"));
            EXPECT_EQ(why.next, noon + (one.inside ? 6 * hour + 2 : hour));
        }
    }
}

TEST_F(Why, APlanShowsTheSlotsOfTodayAndWhatGoesOnFromYesterday) {
    struct Case {
        std::vector<Cell> cells;
        const char* limit;
    };
    const Case cases[] = {
        {{}, "Mon: none"},
        {{{"StartMon", "08:00"}, {"StopMon", "18:00"}}, "Mon: 08:00 to 18:00"},
        {{{"StartSun", "08:00"}, {"StopSun", "18:00"}}, "Mon: none"},
        {{{"StartSun", "22:00"}, {"StopSun", "06:00"}}, "Sun: 22:00 to 06:00, Mon: none"},
        {{{"StartSun", "14:00"}, {"StopSun", "14:00"}}, "Sun: 14:00 to 14:00, Mon: none"}, // a whole day
        {{{"StartSun", "00:00"}, {"StopSun", "00:00"}}, "Mon: none"},
    };
    for (const Case& one : cases) {
        velta::ValueList plan = row("TimePlans", 1, {});
        for (const Cell& cell : one.cells) {
            velta::Value text(velta::Value::Text);
            text.setText(cell.content);
            velta::ValueList change;
            change.add(cell.column, text);
            plan = orv::simulation::with(plan, change);
        }
        household.tables["TimePlans"] = {plan};
        EXPECT_EQ(explain(questionOf(household), "TimePlans.1").conditions[0].limit, one.limit);
    }
}

TEST_F(Why, IsRefusedForWhatIsNoSubject) {
    addDaily(household, "TimePlans", 1, 1, "08:00", "18:00");
    const test::RefusedCase cases[] = {
        {"", "is not wlan, reboot or TABLE.ID"},
        {"WLAN", "is not wlan, reboot or TABLE.ID"},
        {"TimePlans", "is not wlan, reboot or TABLE.ID"},
        {"TimePlans.", "behind the dot is not an Id"},
        {"TimePlans.1x", "behind the dot is not an Id"},
        {"TimePlans.99999999999", "behind the dot is not an Id"},
        {"FileTransfer.1", "neither a time frame nor a plan that horad follows"},
        {".1", "neither a time frame nor a plan that horad follows"},
    };
    for (const test::RefusedCase& one : cases)
        EXPECT_THAT(test::refusal([&] { (void)explain(questionOf(household), one.text); }),
                    HasSubstr(one.why))
            << one.text;
    for (const char* const missing : {"TimePlans.2", "TimeFrame.1"})
        EXPECT_THROW((void)explain(questionOf(household), missing), Refused) << missing;
}

TEST_F(Why, TheRowOfATableWithADotIsFound) {
    household.tables["My.Plans"] = {row("TimePlans", 3, {})};
    household.planTables.emplace_back("My.Plans");
    EXPECT_EQ(explain(questionOf(household), "My.Plans.3").subject, "My.Plans.3");
}

TEST_F(Why, ForAProgramIsOneObject) {
    Question question = questionOf(household);
    question.json = true;
    EXPECT_EQ(whyCommand(question, "wlan"),
              R"({"subject":"wlan","acts":false,"decides":"default","conditions":[)"
              R"({"name":"AlwaysEnable is off","met":true,"value":"0","limit":"0"},)"
              R"({"name":"the WLAN is not as wanted","met":false,"value":"off","limit":"off"}],"next":null})"
              "\n");
    addDaily(question.household, "WlanTimePlans", 1, 1, "13:00", "18:00");
    EXPECT_THAT(whyCommand(question, "wlan"), HasSubstr(R"("next":"2026-03-02T13:00:00+0000"})"));
}

TEST_F(Why, ForAPersonSaysWhenItChanges) {
    addDaily(household, "WlanTimePlans", 1, 1, "13:00", "18:00");
    set(household, "WlanGlobals", {{"WlanEnable", "1"}});
    EXPECT_EQ(whyCommand(questionOf(household), "wlan"),
              "WLAN is OFF: no plan speaks; the first row, WlanTimePlans.1, activates.\n"
              "  WlanTimePlans.1 speaks     no   silent  activating, not active\n"
              "  AlwaysEnable is off        yes  0       0\n"
              "  the WLAN is not as wanted  yes  on      off\n"
              "Next change: Mon 2026-03-02 13:00:00 UTC (in 1 h)\n"
              "Note: the store says on: a horad that starts now switches it.\n");
}

} // namespace

} // namespace tools::horactl::testing
