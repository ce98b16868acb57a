// The decision alone: what the plans want of the WLAN, which of them decides, and what is done about it.

#include "handlers/wlandecision.h"

#include <optional>
#include <vector>

#include <gtest/gtest.h>

namespace {

using orv::horad::WlanAction;
using orv::horad::wlanActionOf;
using orv::horad::WlanDecision;
using orv::horad::WlanVote;
using orv::horad::wlanVoteOf;

struct Plan {
    int activate;
    int status;
};

constexpr Plan saysOn = {1, 1};
constexpr Plan saysOff = {0, 0};
constexpr Plan silentActivating = {1, 0};
constexpr Plan silentDeactivating = {0, 1};
constexpr Plan ofNoKind = {2, 1};

TEST(WlanDecision, AnActivePlanThatActivatesAndASilentOneThatDeactivatesSpeak) {
    const struct {
        Plan plan;
        WlanVote vote;
    } cases[] = {
        {saysOn, WlanVote::On},
        {saysOff, WlanVote::Off},
        {silentActivating, WlanVote::Silent},
        {silentDeactivating, WlanVote::Silent},
        {ofNoKind, WlanVote::Silent},
        {{2, 0}, WlanVote::Silent},
        {{-1, 0}, WlanVote::Silent},
        {{1, 2}, WlanVote::Silent},
        {{0, 2}, WlanVote::Silent},
        {{0, -1}, WlanVote::Silent},
    };
    for (const auto& given : cases)
        EXPECT_EQ(wlanVoteOf(given.plan.activate, given.plan.status), given.vote)
            << given.plan.activate << ", " << given.plan.status;
}

TEST(WlanDecision, TheLastPlanThatSpeaksDecidesAndElseTheKindOfTheFirst) {
    const struct {
        std::vector<Plan> plans;
        bool wanted;
        std::optional<unsigned> by;
    } cases[] = {
        {{}, false, std::nullopt},
        {{silentActivating}, false, std::nullopt},
        {{silentDeactivating}, true, std::nullopt},
        {{ofNoKind}, false, std::nullopt},
        {{silentActivating, silentDeactivating}, false, std::nullopt},
        {{silentDeactivating, silentActivating}, true, std::nullopt},
        {{saysOn}, true, 0},
        {{saysOff}, false, 0},
        {{saysOn, saysOff}, false, 1},
        {{saysOff, saysOn}, true, 1},
        {{saysOn, saysOn}, true, 1},
        {{saysOn, saysOff, silentActivating}, false, 1},
        {{silentDeactivating, saysOff, silentDeactivating, ofNoKind}, false, 1},
        {{silentActivating, silentActivating, saysOn}, true, 2},
    };
    for (const auto& given : cases) {
        testing::Message rows;
        WlanDecision decision;
        for (const Plan& plan : given.plans) {
            rows << plan.activate << "," << plan.status << " ";
            decision.hear(plan.activate, plan.status);
        }
        EXPECT_EQ(decision.wanted(), given.wanted) << rows;
        EXPECT_EQ(decision.decidedBy(), given.by) << rows;
    }
}

TEST(WlanDecision, AlwaysEnabledIsAskedFirst) {
    for (const bool enabled : {false, true})
        for (const bool wanted : {false, true}) {
            EXPECT_EQ(wlanActionOf(true, enabled, wanted), WlanAction::LeaveAlwaysEnabled);
            EXPECT_EQ(wlanActionOf(false, enabled, wanted),
                      enabled == wanted ? WlanAction::LeaveAsWanted : WlanAction::Switch);
        }
}

} // namespace
