// What is known of services, and how it is read from their table.

#include "handlers/servicestates.h"
#include "support/capturedlog.h"
#include "support/fakestore.h"

#include <gmock/gmock.h>

namespace {

using orv::horad::Log;
using orv::horad::ServiceState;
using orv::horad::ServiceStates;
using testing::ElementsAre;
using Operation = fakes::FakeStore::Operation;
namespace code = velta::protocol::code;

class ServiceStatesTest : public testing::Test {
protected:
    struct Row {
        int id;
        int status;
        int result;
    };

    void setRows(const std::vector<Row>& rows) {
        store_.table("FileTransfer").clear();
        for (const Row& row : rows)
            store_.table("FileTransfer")
                .push_back(fakes::row({{"Id", row.id}, {"Status", row.status}, {"Result", row.result}}));
    }

    bool load() {
        log_.clear();
        return states_.load(store_, "FileTransfer");
    }

    static Log verboseLog() {
        const Log log("timefrmhdl", "timeframehandler");
        log.setVerbose(true);
        return log;
    }

    ServiceState stateOf(int id) { return states_.get("FileTransfer", id); }

    fakes::FakeStore store_;
    fakes::CapturedLog log_;
    ServiceStates states_{verboseLog()};
};

struct StateCase {
    int status;
    int result;
    ServiceState state;
    const char* line;
};

const StateCase stateCases[] = {
    {0, 0, ServiceState::Idle, "debug timefrmhdl: updateServiceState FileTransfer   0 -> 1"},
    {0, 1, ServiceState::Idle, "debug timefrmhdl: updateServiceState FileTransfer   0 -> 1"},
    {1, 0, ServiceState::Running, "debug timefrmhdl: updateServiceState FileTransfer   0 -> 2"},
    {4, 1, ServiceState::Running, "debug timefrmhdl: updateServiceState FileTransfer   0 -> 2"},
    {6, 0, ServiceState::Running, "debug timefrmhdl: updateServiceState FileTransfer   0 -> 2"},
    {-1, 0, ServiceState::Running, "debug timefrmhdl: updateServiceState FileTransfer   0 -> 2"},
    {5, 0, ServiceState::Succeeded, "debug timefrmhdl: updateServiceState FileTransfer   0 -> 3"},
    {5, 1, ServiceState::Failed, "debug timefrmhdl: updateServiceState FileTransfer   0 -> 4"},
    {5, -1, ServiceState::Failed, "debug timefrmhdl: updateServiceState FileTransfer   0 -> 4"},
};

TEST_F(ServiceStatesTest, StatusAndResultMakeTheState) {
    for (const StateCase& given : stateCases) {
        SCOPED_TRACE(testing::Message() << "status " << given.status << ", result " << given.result);
        states_ = ServiceStates(verboseLog());
        setRows({{10, given.status, given.result}});

        EXPECT_TRUE(load());

        EXPECT_EQ(stateOf(10), given.state);
        EXPECT_EQ(orv::horad::stateOfService(given.status, given.result), given.state);
        EXPECT_THAT(
            log_.lines(),
            ElementsAre("debug timefrmhdl: Load service states from FileTransfer (size=1)", given.line));
    }
}

TEST_F(ServiceStatesTest, AServiceThatWasNeverSeenIsUnknown) {
    EXPECT_EQ(stateOf(10), ServiceState::Unknown);
}

TEST_F(ServiceStatesTest, AChangeIsLoggedWithTheOldAndTheNewState) {
    setRows({{10, 0, 0}});
    (void)load();
    setRows({{10, 5, 0}});

    EXPECT_TRUE(load());

    EXPECT_THAT(log_.lines(), ElementsAre("debug timefrmhdl: Load service states from FileTransfer (size=1)",
                                          "debug timefrmhdl: updateServiceState FileTransfer   1 -> 3"));
}

TEST_F(ServiceStatesTest, AnUnchangedStateLogsNothing) {
    setRows({{10, 1, 0}});
    (void)load();
    setRows({{10, 2, 7}}); // still running

    EXPECT_TRUE(load());

    EXPECT_THAT(log_.lines(),
                ElementsAre("debug timefrmhdl: Load service states from FileTransfer (size=1)"));
}

TEST_F(ServiceStatesTest, AnUpdatedStateIsTheOneThatIsKnown) {
    states_.update("FileTransfer", 10, ServiceState::Failed);
    setRows({{10, 5, 0}});

    (void)load();

    EXPECT_THAT(log_.lines(), ElementsAre("debug timefrmhdl: Load service states from FileTransfer (size=1)",
                                          "debug timefrmhdl: updateServiceState FileTransfer   4 -> 3"));
}

TEST_F(ServiceStatesTest, RowsAreReadInOrderAndWhole) {
    setRows({{20, 0, 0}, {10, 1, 0}});

    EXPECT_TRUE(load());

    EXPECT_THAT(store_.journal(),
                ElementsAre("size FileTransfer", "select FileTransfer 0", "select FileTransfer 1"));
    EXPECT_EQ(stateOf(20), ServiceState::Idle);
    EXPECT_EQ(stateOf(10), ServiceState::Running);
}

TEST_F(ServiceStatesTest, AServiceWhoseRowIsGoneIsForgotten) {
    setRows({{10, 5, 0}, {20, 5, 0}});
    (void)load();
    setRows({{20, 5, 0}});

    EXPECT_TRUE(load());

    EXPECT_EQ(stateOf(10), ServiceState::Unknown);
    EXPECT_EQ(stateOf(20), ServiceState::Succeeded);
    EXPECT_THAT(log_.lines(),
                ElementsAre("debug timefrmhdl: Load service states from FileTransfer (size=1)"));
}

TEST_F(ServiceStatesTest, AnEmptyTableForgetsAll) {
    setRows({{10, 5, 0}});
    (void)load();
    setRows({});

    EXPECT_TRUE(load());

    EXPECT_EQ(stateOf(10), ServiceState::Unknown);
}

TEST_F(ServiceStatesTest, TheServicesOfOtherTablesAreLeftAlone) {
    states_.update("Other", 10, ServiceState::Succeeded);
    setRows({{10, 0, 0}});

    EXPECT_TRUE(load());

    EXPECT_EQ(states_.get("Other", 10), ServiceState::Succeeded);
    EXPECT_EQ(stateOf(10), ServiceState::Idle);
}

struct MissingCase {
    velta::ValueList row;
    const char* line;
};

const MissingCase missingCases[] = {
    {fakes::row({{"Id", 10}, {"Status", 0}}),
     "warning timefrmhdl: Missing columns Status:OK; Result:Missing"},
    {fakes::row({{"Id", 10}, {"Result", 0}}),
     "warning timefrmhdl: Missing columns Status:Missing; Result:OK"},
    {fakes::row({{"Id", 10}}), "warning timefrmhdl: Missing columns Status:Missing; Result:Missing"},
};

TEST_F(ServiceStatesTest, ARowWithoutAStatusOrAResultKeepsItsState) {
    for (const MissingCase& given : missingCases) {
        SCOPED_TRACE(given.line);
        setRows({{10, 5, 0}, {20, 0, 0}});
        (void)load();
        store_.table("FileTransfer")[0] = given.row;
        store_.set("FileTransfer", 1, {"Status", 1});

        EXPECT_TRUE(load());

        EXPECT_EQ(stateOf(10), ServiceState::Succeeded);
        EXPECT_EQ(stateOf(20), ServiceState::Running); // the rows behind it are read
        EXPECT_THAT(log_.lines(),
                    ElementsAre("debug timefrmhdl: Load service states from FileTransfer (size=2)",
                                given.line, "debug timefrmhdl: updateServiceState FileTransfer   1 -> 2"));
    }
}

TEST_F(ServiceStatesTest, AFailingSizeIsLoggedAndForgetsNothing) {
    setRows({{10, 5, 0}});
    (void)load();
    setRows({});
    store_.fail(Operation::Size, code::timedOut);

    EXPECT_FALSE(load());

    EXPECT_EQ(stateOf(10), ServiceState::Succeeded);
    EXPECT_THAT(
        log_.lines(),
        ElementsAre("error timefrmhdl: size() failed: the configuration store did not answer in time"));
}

TEST_F(ServiceStatesTest, AFailingRowIsLoggedAndEndsTheReadingWithoutForgetting) {
    setRows({{10, 5, 0}, {20, 5, 0}});
    (void)load();
    setRows({{20, 0, 0}, {30, 0, 0}, {40, 0, 0}});
    store_.failNth(Operation::SelectRow, 2, code::timedOut);

    EXPECT_FALSE(load());

    EXPECT_EQ(stateOf(10), ServiceState::Succeeded);
    EXPECT_EQ(stateOf(20), ServiceState::Idle);
    EXPECT_EQ(stateOf(40), ServiceState::Unknown);
    EXPECT_THAT(
        log_.lines(),
        ElementsAre("debug timefrmhdl: Load service states from FileTransfer (size=3)",
                    "debug timefrmhdl: updateServiceState FileTransfer   3 -> 1",
                    "error timefrmhdl: selectRow() failed: the configuration store did not answer in time"));
}

} // namespace
