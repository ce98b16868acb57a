// What the WLAN's handler does where the store fails.

#include "wlanfixture.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
namespace code = velta::protocol::code;

class WlanFailures : public WlanFixture {};

TEST_F(WlanFailures, TheFirstReadingReturnsWhatThePlansReturn) {
    setGlobals(1, 1);
    read();
    setGlobals(1, 0);
    store_.fail(Operation::Size, code::timedOut);
    EXPECT_FALSE(read()); // though "AlwaysEnable" was turned off
}

TEST_F(WlanFailures, FailingGlobalsAreLoggedAndThePlansReadAllTheSame) {
    store_.failNth(Operation::SelectRow, 1, code::timedOut);

    EXPECT_TRUE(handler_.configChanged(store_, ""));

    EXPECT_THAT(store_.journal(), ElementsAre("select WlanGlobals 0 -> 3", "size WlanTimePlans"));
    EXPECT_THAT(log_.lines(),
                ElementsAre("debug horad: Table  was changed",
                            "error horad: selectRow() failed: the configuration store did not answer in time",
                            "debug horad: Table  was changed", "debug horad: WLAN status: 0"));
}

TEST_F(WlanFailures, FailingGlobalsReturnFalseAndKeepTheFlags) {
    setGlobals(1, 1);
    read();
    setGlobals(1, 0);
    store_.failNth(Operation::SelectRow, 1, code::timedOut);

    EXPECT_FALSE(read("WlanGlobals"));

    EXPECT_THAT(act(), IsEmpty()); // always enabled, as before
}

TEST_F(WlanFailures, AFailingSizeIsLoggedAndKeepsTheWantedStatus) {
    setPlans({{1, 1}});
    read();
    setPlans({});
    store_.fail(Operation::Size, code::timedOut);

    EXPECT_FALSE(handler_.configChanged(store_, "WlanTimePlans"));

    EXPECT_THAT(log_.lines(),
                ElementsAre("debug horad: Table WlanTimePlans was changed",
                            "error horad: size() failed: the configuration store did not answer in time"));
    EXPECT_EQ(act(), switched(1));
}

TEST_F(WlanFailures, AFailingPlanIsLoggedAsAFailingSizeAndKeepsTheWantedStatus) {
    setPlans({{1, 1}});
    read();
    setPlans({{1, 0}, {0, 0}});
    store_.failNth(Operation::SelectRow, 2, code::timedOut);

    EXPECT_FALSE(handler_.configChanged(store_, "WlanTimePlans"));

    EXPECT_THAT(log_.lines(),
                ElementsAre("debug horad: Table WlanTimePlans was changed",
                            "error horad: size() failed: the configuration store did not answer in time"));
    EXPECT_EQ(act(), switched(1));
}

TEST_F(WlanFailures, AFailingStartWritesNothing) {
    setPlans({{1, 1}});
    read();
    store_.fail(Operation::Start, code::busy);

    EXPECT_THAT(act(), ElementsAre("start -> 9"));

    EXPECT_THAT(log_.lines(),
                ElementsAre("debug horad: Switch WLAN on", "error horad: Could start transaction: 9",
                            "debug horad: startTransaction() failed: another transaction is open"));
}

TEST_F(WlanFailures, AFailingWriteIsLoggedAndClosed) {
    setPlans({{1, 1}});
    read();
    store_.fail(Operation::WriteSingleRow, code::readOnly);

    EXPECT_THAT(act(), ElementsAre("start", "write WlanGlobals 0 WlanEnable=1(type 1) -> 22", "close"));

    EXPECT_THAT(log_.lines(),
                ElementsAre("debug horad: Switch WLAN on", "error horad: Could not set status: 22",
                            "debug horad: writing the status failed: storage is read-only"));
}

TEST_F(WlanFailures, AFailingCloseIsIgnored) {
    setPlans({{1, 1}});
    read();
    store_.fail(Operation::Close, code::storageFull);

    EXPECT_THAT(act(), ElementsAre("start", "write WlanGlobals 0 WlanEnable=1(type 1)", "close -> 21"));

    EXPECT_THAT(log_.lines(), ElementsAre("debug horad: Switch WLAN on"));
}

} // namespace
