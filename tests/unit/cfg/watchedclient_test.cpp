#include "cfg/watchedclient.h"
#include "support/fakestore.h"

#include <gtest/gtest.h>

namespace orv::cfg {

using fakes::FakeStore;
using velta::ValueList;
using velta::protocol::EResultCode;
namespace code = velta::protocol::code;

namespace {

using Operation = FakeStore::Operation;

struct Case {
    const char* name;
    Operation operation;
    bool namesTable;
    EResultCode (*call)(common::IConfigClient&);
};

unsigned rows = 0;
ValueList values;

const Case cases[] = {
    {"size", Operation::Size, true, [](common::IConfigClient& client) { return client.size("A", rows); }},
    {"selectRow", Operation::SelectRow, true,
     [](common::IConfigClient& client) { return client.selectRow("A", 0, values, {}); }},
    {"selectRowByKey", Operation::SelectRowByKey, true,
     [](common::IConfigClient& client) { return client.selectRowByKey("A", "Id", "1", values); }},
    {"writeSingleRow", Operation::WriteSingleRow, true,
     [](common::IConfigClient& client) {
         return client.writeSingleRow("A", 0, fakes::row({{"Id", 2}}));
     }},
    {"updateRow", Operation::UpdateRow, true,
     [](common::IConfigClient& client) {
         return client.updateRow("A", "Id", "1", fakes::row({{"Id", 2}}));
     }},
    {"startTransaction", Operation::Start, false,
     [](common::IConfigClient& client) { return client.startTransaction(); }},
    {"closeTransaction", Operation::Close, false,
     [](common::IConfigClient& client) { return client.closeTransaction(); }},
    {"abortTransaction", Operation::Abort, false,
     [](common::IConfigClient& client) { return client.abortTransaction(); }},
};

class WatchedClientTest : public testing::TestWithParam<Case> {
protected:
    // A transaction is open where the operation needs one.
    void SetUp() override {
        store.table("A") = {fakes::row({{"Id", 1}})};
        if (GetParam().operation != Operation::Start) {
            ASSERT_TRUE(client.startTransaction().ok());
        }
    }

    FakeStore store;
    WatchedClient client{store, "watched"};
};

} // namespace

TEST_P(WatchedClientTest, FailureIsSeenByTheProbeAndToldToTheCaller) {
    store.fail(GetParam().operation, code::storageFailed);
    const FailureProbe probe(client);

    EXPECT_EQ(GetParam().call(client).code(), code::storageFailed);

    EXPECT_TRUE(probe.failed());
    EXPECT_EQ(probe.failedBeyondTables(), !GetParam().namesTable);
    const std::map<std::string, int> failedTable = {{"A", code::storageFailed}};
    EXPECT_EQ(probe.failedTables(), GetParam().namesTable ? failedTable : decltype(failedTable)());
}

TEST_P(WatchedClientTest, SuccessIsNoFailure) {
    const FailureProbe probe(client);

    EXPECT_TRUE(GetParam().call(client).ok());

    EXPECT_FALSE(probe.failed());
}

TEST_P(WatchedClientTest, FailureCountsForAllProbesThatLiveAndForNoLaterOne) {
    const FailureProbe outer(client);
    {
        const FailureProbe inner(client);
        store.fail(GetParam().operation, code::storageFailed);
        (void)GetParam().call(client);
        EXPECT_TRUE(inner.failed());
    }
    EXPECT_TRUE(outer.failed());

    const FailureProbe later(client);

    EXPECT_FALSE(later.failed());
}

TEST_P(WatchedClientTest, FailureWithoutAProbeIsToldToTheCallerAlone) {
    store.fail(GetParam().operation, code::storageFailed);

    EXPECT_EQ(GetParam().call(client).code(), code::storageFailed);

    const FailureProbe probe(client);
    EXPECT_FALSE(probe.failed());
}

INSTANTIATE_TEST_SUITE_P(Operations, WatchedClientTest, testing::ValuesIn(cases),
                         [](const testing::TestParamInfo<Case>& test) { return test.param.name; });

} // namespace orv::cfg
