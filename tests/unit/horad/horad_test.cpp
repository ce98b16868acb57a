// What one iteration of the loop does, and how often the reboot's turn comes.

#include "horad.h"
#include "support/capturedlog.h"
#include "support/fakestore.h"

#include <functional>
#include <list>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using orv::horad::Horad;
using testing::ElementsAre;
using Client = orv::cfg::common::IConfigClient;

// Writes down what an iteration asks of it.
class Link : public orv::horad::StoreLink {
public:
    void wait(unsigned milliseconds) override { calls.push_back("wait " + std::to_string(milliseconds)); }
    void deliver() override { calls.emplace_back("deliver"); }
    void pass(const std::function<void(Client&)>& run) override {
        run(store);
        calls.emplace_back("pass");
    }
    // Asked for by the reboot alone, whose commit counts whether it succeeds or not.
    Client& client() override {
        calls.emplace_back("reboot");
        return store;
    }

    fakes::FakeStore store;
    std::vector<std::string> calls;
};

class Iterations : public testing::Test {
protected:
    Iterations() { link_.store.table("wexd") = {fakes::row({{"Enable", 0}})}; }

    // Those of so many iterations, counted on from 1, in which the reboot had its turn.
    std::vector<int> turnsOfTheReboot(int iterations) {
        std::vector<int> turns;
        for (int iteration = 1; iteration <= iterations; ++iteration) {
            link_.calls.clear();
            horad_.iterate(link_);
            if (link_.calls.back() == "reboot")
                turns.push_back(iteration);
        }
        return turns;
    }

    fakes::CapturedLog log_;
    Link link_;
    std::list<std::string> tables_{"TimePlans"};
    std::vector<orv::cfg::IConfigHandler*> registered_;
    Horad horad_{tables_, 0, true,
                 [this](orv::cfg::IConfigHandler* handler) { registered_.push_back(handler); }};
};

TEST_F(Iterations, WaitForTwoSecondsThenDeliverThenPass) {
    horad_.iterate(link_);
    EXPECT_THAT(link_.calls, ElementsAre("wait 2000", "deliver", "pass", "pass"));
}

TEST_F(Iterations, TheRebootsTurnIsEachTwentyFifth) {
    EXPECT_THAT(turnsOfTheReboot(100), ElementsAre(25, 50, 75, 100));
}

TEST_F(Iterations, TheRebootsTurnIsTheLastOfItsIteration) {
    (void)turnsOfTheReboot(25);
    EXPECT_THAT(link_.calls, ElementsAre("wait 2000", "deliver", "pass", "pass", "reboot"));
}

TEST_F(Iterations, TheSecondPassIsThatOfTheTimeFrames) {
    horad_.iterate(link_);
    EXPECT_THAT(link_.store.writes(), ElementsAre("start", "write wexd 0 Enable=1(type 2)", "close"));
}

// Each tells which tables it follows.
TEST_F(Iterations, FourHandlersAreRegisteredInTheOrderOfTheirDeliveries) {
    std::vector<std::list<std::string>> followed;
    for (orv::cfg::IConfigHandler* const handler : registered_)
        handler->getTables(followed.emplace_back());
    EXPECT_THAT(followed, ElementsAre(ElementsAre("WlanGlobals", "WlanTimePlans"), ElementsAre("TimePlans"),
                                      ElementsAre("TimeFrame", "FileTransfer"), ElementsAre("AutoReboot")));
}

TEST(Status, IsThatOfTheWlanWhereItsPlansAreAmongTheTables) {
    struct Case {
        std::list<std::string> tables;
        const char* status;
    };
    Case cases[] = {{{"TimePlans"}, nullptr}, {{"TimePlans", "WlanTimePlans"}, "WLAN on"}};
    fakes::CapturedLog log;
    fakes::FakeStore store;
    store.table("WlanGlobals") = {fakes::row({{"WlanEnable", 1}, {"AlwaysEnable", 0}})};
    for (Case& given : cases) {
        std::vector<orv::cfg::IConfigHandler*> handlers;
        const Horad horad(given.tables, 0, false,
                          [&](orv::cfg::IConfigHandler* handler) { handlers.push_back(handler); });
        EXPECT_EQ(horad.status(), nullptr) << "nothing was read yet";

        (void)handlers.front()->configChanged(store, "WlanGlobals");

        EXPECT_STREQ(horad.status(), given.status);
    }
}

} // namespace
