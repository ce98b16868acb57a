#include "wlanfixture.h"

#include <list>
#include <utility>

#include <gmock/gmock.h>

namespace {

using orv::horad::WlanHandler;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class Wlan : public WlanFixture {};

TEST_F(Wlan, FollowsTheGlobalsAndThePlans) {
    std::list<std::string> tables = {"Plans"};
    handler_.getTables(tables);
    EXPECT_THAT(tables, ElementsAre("Plans", "WlanGlobals", "WlanTimePlans"));
}

TEST_F(Wlan, DoesNothingBeforeItHasReadAnything) {
    EXPECT_THAT(act(), IsEmpty());
}

struct ReadingCase {
    const char* table;
    std::vector<std::string> journal;
    std::vector<std::string> log;
    bool result;
};

const ReadingCase readingCases[] = {
    {"",
     {"select WlanGlobals 0", "size WlanTimePlans", "select WlanTimePlans 0", "select WlanTimePlans 1"},
     {"debug horad: Table  was changed", "debug horad: WlanEnable: 1, AlwaysEnable: 0",
      "debug horad: Table  was changed", "debug horad: WLAN status: 0"},
     true},
    {"WlanGlobals",
     {"select WlanGlobals 0"},
     {"debug horad: Table WlanGlobals was changed", "debug horad: WlanEnable: 1, AlwaysEnable: 0"},
     false},
    {"WlanTimePlans",
     {"size WlanTimePlans", "select WlanTimePlans 0", "select WlanTimePlans 1"},
     {"debug horad: Table WlanTimePlans was changed", "debug horad: WLAN status: 0"},
     true},
    {"Plans", {}, {}, false},
};

TEST_F(Wlan, AReadingReadsWhatItsTableNameSays) {
    setGlobals(1, 0);
    setPlans({{1, 0}, {1, 0}});
    for (const ReadingCase& given : readingCases) {
        SCOPED_TRACE(given.table);
        forget();
        EXPECT_EQ(handler_.configChanged(store_, given.table), given.result);
        EXPECT_EQ(store_.journal(), given.journal);
        EXPECT_EQ(log_.lines(), given.log);
    }
}

struct WantedCase {
    WlanPlans plans;
    int wanted;
};

const WantedCase wantedCases[] = {
    {{}, 0},
    // the first plan's kind is the default
    {{{1, 0}}, 0},
    {{{0, 1}}, 1},
    {{{1, 0}, {0, 1}}, 0},
    {{{0, 1}, {1, 0}}, 1},
    {{{0, 1}, {1, 0}, {1, 0}}, 1},
    {{{1, 0}, {0, 1}, {0, 1}}, 0},
    // a plan that decides
    {{{1, 1}}, 1},
    {{{0, 0}}, 0},
    {{{1, 0}, {1, 1}}, 1},
    {{{0, 1}, {0, 0}}, 0},
    {{{0, 1}, {1, 1}}, 1},
    {{{1, 1}, {1, 0}, {0, 1}}, 1},
    // the last one that decides wins
    {{{1, 1}, {0, 0}}, 0},
    {{{0, 0}, {1, 1}}, 1},
    {{{1, 1}, {0, 0}, {1, 1}, {1, 0}}, 1},
    {{{0, 0}, {1, 1}, {0, 0}, {0, 1}}, 0},
    // numbers other than 0 and 1 decide nothing
    {{{2, 1}}, 0},
    {{{1, 2}}, 0},
    {{{0, 2}}, 1},
    {{{0, -1}}, 1},
    {{{-1, 0}, {1, 1}, {2, 0}, {0, 2}}, 1},
};

std::string textOf(const WlanPlans& plans) {
    std::string text;
    for (const WlanPlan& plan : plans)
        text += "{" + std::to_string(plan.activate) + ", " + std::to_string(plan.status) + "} ";
    return text;
}

TEST_F(Wlan, ThePlansDecideTheWantedStatus) {
    for (const WantedCase& given : wantedCases) {
        SCOPED_TRACE(textOf(given.plans));
        setPlans(given.plans);
        setGlobals(1 - given.wanted, 0);
        forget();
        EXPECT_TRUE(handler_.configChanged(store_, ""));
        EXPECT_THAT(log_.lines(), Contains("debug horad: WLAN status: " + std::to_string(given.wanted)));
        EXPECT_EQ(act(), switched(given.wanted));
    }
}

struct SwitchingCase {
    int wlanEnable;
    int alwaysEnable;
    WlanPlans plans;
    int written; // -1: nothing
};

const SwitchingCase switchingCases[] = {
    {0, 0, {{1, 1}}, 1},  {1, 0, {{1, 1}}, -1}, {2, 0, {{1, 1}}, -1}, {0, 0, {{1, 0}}, -1},
    {1, 0, {{1, 0}}, 0},  {2, 0, {{1, 0}}, 0},  {1, 0, {}, 0},        {0, 0, {}, -1},
    {0, 1, {{1, 1}}, -1}, {1, 1, {{1, 0}}, -1}, {1, 1, {}, -1},       {0, 2, {{1, 1}}, -1},
};

TEST_F(Wlan, IsSwitchedWhereItDiffersUnlessItIsAlwaysEnabled) {
    for (const SwitchingCase& given : switchingCases) {
        SCOPED_TRACE(testing::Message() << "WlanEnable " << given.wlanEnable << ", AlwaysEnable "
                                        << given.alwaysEnable << ", plans " << textOf(given.plans));
        setGlobals(given.wlanEnable, given.alwaysEnable);
        setPlans(given.plans);
        read();
        EXPECT_EQ(act(), given.written < 0 ? Lines{} : switched(given.written));
        EXPECT_EQ(store_.number("WlanGlobals", 0, "WlanEnable"),
                  given.written < 0 ? given.wlanEnable : given.written);
    }
}

struct StatusCase {
    int wlanEnable;
    int alwaysEnable;
    const char* status;
};

const StatusCase statusCases[] = {
    {0, 0, "WLAN off"},
    {1, 0, "WLAN on"},
    {2, 0, "WLAN on"},
    {0, 1, "WLAN off, AlwaysEnable"},
    {1, 2, "WLAN on, AlwaysEnable"},
};

TEST_F(Wlan, StatusIsWhatTheStoreSays) {
    setPlans({{1, 1}});
    for (const StatusCase& given : statusCases) {
        setGlobals(given.wlanEnable, given.alwaysEnable);
        read();
        EXPECT_STREQ(handler_.status(), given.status);
    }
}

TEST_F(Wlan, StatusChangesWithTheReadingAndNotWithTheWriting) {
    setPlans({{1, 1}});
    read();
    EXPECT_EQ(act(), switched(1));
    EXPECT_STREQ(handler_.status(), "WLAN off");

    read("WlanGlobals");

    EXPECT_STREQ(handler_.status(), "WLAN on");
}

TEST_F(Wlan, StatusIsUnknownUntilTheGlobalsWereRead) {
    store_.fail(Operation::SelectRow, 1);
    read("WlanGlobals");
    EXPECT_EQ(handler_.status(), nullptr);

    store_.recover();
    read("WlanGlobals");

    EXPECT_STREQ(handler_.status(), "WLAN off");
}

TEST_F(Wlan, SwitchingOnIsLogged) {
    setPlans({{1, 1}});
    read();
    (void)act();
    EXPECT_THAT(log_.lines(), ElementsAre("debug horad: Switch WLAN on"));
}

TEST_F(Wlan, SwitchingOffIsLogged) {
    setGlobals(1, 0);
    read();
    (void)act();
    EXPECT_THAT(log_.lines(), ElementsAre("debug horad: Switch WLAN off"));
}

TEST_F(Wlan, IsWrittenAgainUntilTheGlobalsAreRead) {
    setPlans({{1, 1}});
    read();
    EXPECT_EQ(act(), switched(1));
    EXPECT_EQ(act(), switched(1));

    read("WlanGlobals");

    EXPECT_THAT(act(), IsEmpty());
}

struct AlwaysCase {
    std::vector<std::pair<int, bool>> readings; // what "AlwaysEnable" is, and what the reading returns
    int shown;                                  // in the log, at last
};

const AlwaysCase alwaysCases[] = {
    {{{0, false}}, 0},
    {{{1, false}}, 1},
    {{{1, false}, {1, false}}, 1},
    {{{1, false}, {0, true}}, 0},
    {{{1, false}, {0, true}, {0, false}}, 0},
    // every number but 0 is on, and reading it again turns nothing off
    {{{2, false}}, 1},
    {{{2, false}, {2, false}}, 1},
    {{{2, false}, {0, true}}, 0},
    {{{1, false}, {2, false}, {1, false}}, 1},
    {{{-1, false}, {0, true}}, 0},
};

TEST_F(Wlan, AReadingOfTheGlobalsTellsThatAlwaysEnableWasTurnedOff) {
    for (const AlwaysCase& given : alwaysCases) {
        WlanHandler handler;
        forget();
        for (std::size_t i = 0; i < given.readings.size(); ++i) {
            setGlobals(1, given.readings[i].first);
            EXPECT_EQ(handler.configChanged(store_, "WlanGlobals"), given.readings[i].second)
                << "reading " << i << " of " << given.readings[i].first;
        }
        EXPECT_EQ(log_.lines().back(),
                  "debug horad: WlanEnable: 1, AlwaysEnable: " + std::to_string(given.shown));
    }
}

TEST_F(Wlan, IsSwitchedOnceAlwaysEnableIsTurnedOff) {
    setGlobals(1, 1);
    read();
    EXPECT_THAT(act(), IsEmpty());

    setGlobals(1, 0);
    EXPECT_TRUE(read("WlanGlobals"));

    EXPECT_EQ(act(), switched(0));
}

} // namespace
