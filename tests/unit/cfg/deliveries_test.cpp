// What is due to the handlers, on tables in memory: no connection is needed for it.

#include "cfg/deliveries.h"
#include "support/fakestore.h"
#include "unit/cfg/support.h"

#include <utility>

namespace orv::cfg {

using fakes::FakeStore;
using support::Calls;
using support::RecordingHandler;
using velta::protocol::EResultCode;
namespace code = velta::protocol::code;

namespace {

using Operation = FakeStore::Operation;

class DeliveriesTest : public testing::Test {
protected:
    void SetUp() override {
        store.table("A") = {fakes::row({{"Id", 1}, {"Status", 0}})};
        store.table("B") = {fakes::row({{"Id", 1}, {"Status", 0}})};
        for (RecordingHandler* handler : {&first, &second})
            deliveries.add(handler);
        EXPECT_EQ(deliveries.tables(), (velta::NameList{"A", "B"}));
        deliveries.everythingChanged();
        deliveries.deliver();
        calls.clear();
    }

    Calls delivered() {
        calls.clear();
        deliveries.deliver();
        return calls;
    }

    // The next reading of the first handler asks for these tables and fails so for each.
    struct Failure {
        std::string table;
        int code;
    };
    void failFirstReading(const std::vector<Failure>& failures) {
        failuresDue = failures;
        first.onChange = [this](RecordingHandler::Client& client, const std::string&) {
            for (const Failure& failure : std::exchange(failuresDue, {})) {
                store.failNth(failure.table.empty() ? Operation::Start : Operation::Size, 1, failure.code);
                unsigned rows = 0;
                const EResultCode result =
                    failure.table.empty() ? client.startTransaction() : client.size(failure.table, rows);
                EXPECT_EQ(result.code(), failure.code);
            }
        };
    }

    // Writes a row of each table in one transaction, and tells how the commit went.
    EResultCode write(common::IConfigClient& client, const std::vector<std::string>& tables) {
        EXPECT_TRUE(client.startTransaction().ok());
        for (const std::string& table : tables)
            (void)client.updateRow(table, "Id", "1", fakes::row({{"Status", ++lastStatus}}));
        return client.closeTransaction();
    }

    void pass(const std::vector<std::string>& tables) {
        deliveries.pass([&](common::IConfigClient& client) { (void)write(client, tables); });
    }

    FakeStore store;
    Calls calls;
    RecordingHandler first{calls, "first", {"A", "B"}};
    RecordingHandler second{calls, "second", {"A"}};
    Deliveries deliveries{store, true, support::clientName};
    int lastStatus = 0;
    std::vector<Failure> failuresDue;
};

const Calls nothing;

} // namespace

TEST_F(DeliveriesTest, PassWhoseCommitFailedMakesItsTablesDueForReading) {
    store.failNth(Operation::Close, 1, code::storageFull);
    pass({"B"});
    EXPECT_EQ(delivered(), (Calls{"first reads B", "first acts"}));
    EXPECT_EQ(delivered(), nothing);
}

TEST_F(DeliveriesTest, OnlyTheTablesOfTheFailedTransactionAreDue) {
    store.failNth(Operation::Close, 2, code::storageFull);
    deliveries.pass([this](common::IConfigClient& client) {
        (void)write(client, {"A"});
        (void)write(client, {"B"});
    });
    EXPECT_EQ(delivered(), (Calls{"first reads B", "first acts"}));
}

TEST_F(DeliveriesTest, RefusedWriteOfATransactionWhoseCommitFailedIsReadAgainToo) {
    store.fail(Operation::UpdateRow, code::storageFailed);
    store.failNth(Operation::Close, 1, code::storageFailed);
    pass({"B"});
    EXPECT_EQ(delivered(), (Calls{"first reads B", "first acts"}));
}

TEST_F(DeliveriesTest, PassMakesNothingDueWhereItsCommitWentThrough) {
    struct Case {
        const char* name;
        std::function<void(common::IConfigClient&)> run;
    };
    const Case cases[] = {
        {"written",
         [&](common::IConfigClient& client) {
             EXPECT_TRUE(write(client, {"A", "B"}).ok());
         }},
        {"a refused write",
         [&](common::IConfigClient& client) {
             store.failNth(Operation::UpdateRow, 1, code::noSuchRow);
             EXPECT_TRUE(write(client, {"A"}).ok());
         }},
        {"no transaction",
         [&](common::IConfigClient& client) {
             store.failNth(Operation::Start, 1, code::busy);
             EXPECT_FALSE(client.startTransaction().ok());
         }},
        {"a failed commit of nothing",
         [&](common::IConfigClient& client) {
             store.failNth(Operation::Close, 1, code::storageFull);
             EXPECT_FALSE(write(client, {}).ok());
         }},
        {"aborted",
         [&](common::IConfigClient& client) {
             EXPECT_TRUE(client.startTransaction().ok());
             EXPECT_TRUE(client.updateRow("A", "Id", "1", fakes::row({{"Status", 7}})).ok());
             EXPECT_TRUE(client.abortTransaction().ok());
             EXPECT_FALSE(client.closeTransaction().ok());
         }},
    };
    for (const Case& pass : cases) {
        deliveries.pass(pass.run);
        EXPECT_EQ(delivered(), nothing) << pass.name;
    }
}

TEST_F(DeliveriesTest, FailedCommitOutsideOfAPassCountsAsDone) {
    store.failNth(Operation::Close, 1, code::storageFull);
    EXPECT_FALSE(write(deliveries.client(), {"A"}).ok());
    EXPECT_EQ(delivered(), nothing);
}

TEST_F(DeliveriesTest, CommitsThatFailAreToldWhenTheyBeginToAndWhenTheyGoThroughAgain) {
    const support::CapturedLog log;
    for (int round = 0; round < 2; ++round) {
        store.fail(Operation::Close, code::storageFull);
        for (int i = 0; i < 5; ++i)
            pass({"A", "B"});
        store.recover();
        for (int i = 0; i < 5; ++i)
            pass({"A", "B"});
    }
    EXPECT_EQ(log.count(" error client: Could not commit changes of A, B: storage is full"), 2) << log.text();
    EXPECT_EQ(log.count(" info client: Changes of A, B are committed again"), 2) << log.text();
    EXPECT_EQ(log.lines(), 4) << log.text();
}

TEST_F(DeliveriesTest, CommitsOfOneTableThatFailAreNoNewsOfAnother) {
    const support::CapturedLog log;
    store.fail(Operation::Close, code::storageFull);
    pass({"A"});
    pass({"A", "B"});
    store.recover();
    pass({"B"});
    pass({"A"});
    EXPECT_EQ(log.count("Could not commit changes of A: "), 1) << log.text();
    EXPECT_EQ(log.count("Could not commit changes of B: "), 1) << log.text();
    EXPECT_EQ(log.count("Changes of A are committed again"), 1) << log.text();
    EXPECT_EQ(log.count("Changes of B are committed again"), 1) << log.text();
    EXPECT_EQ(log.lines(), 4) << log.text();
}

// A full disk takes a commit of nothing.
TEST_F(DeliveriesTest, CommitWithoutAWriteThatWentThroughSaysNothingOfTheDisk) {
    store.failNth(Operation::Close, 1, code::storageFull);
    pass({"A"});
    const support::CapturedLog log;
    pass({});
    store.failNth(Operation::UpdateRow, 1, code::storageFull);
    pass({"A"});
    EXPECT_EQ(log.lines(), 0) << log.text();
}

TEST_F(DeliveriesTest, OfAReadingOfEverythingOnlyWhatFailedIsReadAgain) {
    constexpr bool awaited = true;
    struct Case {
        const char* name;
        std::vector<Failure> failures;
        Calls again;
        bool isAwaited;
    };
    const Calls everything = {"first reads everything", "first acts"};
    const Case cases[] = {
        {"one table", {{"B", code::storageFailed}}, {"first reads B", "first acts"}, awaited},
        {"two tables",
         {{"B", code::storageFailed}, {"A", code::busy}},
         {"first reads A", "first reads B", "first acts"},
         awaited},
        {"a table that is not there", {{"B", code::unknownTable}}, {"first reads B", "first acts"}, false},
        {"a row that is not there", {{"A", code::noSuchRow}}, {"first reads A", "first acts"}, false},
        {"one that is there and one that is not",
         {{"A", code::unknownTable}, {"B", code::timedOut}},
         {"first reads A", "first reads B", "first acts"},
         awaited},
        {"a table that it does not follow", {{"C", code::storageFailed}}, everything, awaited},
        {"one that it follows and one that it does not",
         {{"A", code::storageFailed}, {"C", code::unknownTable}},
         everything,
         awaited},
        {"an absent table that it does not follow", {{"C", code::unknownTable}}, everything, false},
        {"no table", {{"", code::busy}}, everything, awaited},
        {"no table and one that it follows",
         {{"", code::busy}, {"A", code::unknownTable}},
         everything,
         awaited},
    };
    for (const Case& reading : cases) {
        SCOPED_TRACE(reading.name);
        deliveries.everythingChanged();
        EXPECT_TRUE(deliveries.readingOfEverythingIsDue());
        failFirstReading(reading.failures);
        EXPECT_EQ(delivered(), (Calls{"first reads everything", "second reads everything", "second acts"}));
        EXPECT_EQ(deliveries.readingOfEverythingIsDue(), reading.isAwaited);
        EXPECT_EQ(delivered(), reading.again);
        EXPECT_FALSE(deliveries.readingOfEverythingIsDue());
        EXPECT_EQ(delivered(), nothing);
    }
}

TEST_F(DeliveriesTest, ChangeOfATableIsNoReadingOfEverythingWhileAnotherFails) {
    failFirstReading({{"B", code::unknownTable}});
    deliveries.everythingChanged();
    deliveries.deliver();
    failFirstReading({{"B", code::unknownTable}});
    deliveries.changed("A");
    EXPECT_EQ(delivered(), (Calls{"first reads B", "first reads A", "second reads A", "second acts"}));
}

TEST_F(DeliveriesTest, FailedReadingOfATableIsRepeatedWithItsNameWhateverFailedInIt) {
    failFirstReading({{"B", code::storageFailed}});
    deliveries.changed("A");
    EXPECT_EQ(delivered(), (Calls{"first reads A", "second reads A", "second acts"}));
    EXPECT_EQ(delivered(), (Calls{"first reads A", "first acts"}));
}

TEST_F(DeliveriesTest, TablesThatAHandlerNoLongerNamesAreNotFollowed) {
    second.tables = {"B"};
    EXPECT_EQ(deliveries.tables(), (velta::NameList{"A", "B"}));
    deliveries.changed("A");
    EXPECT_EQ(delivered(), (Calls{"first reads A", "first acts"}));
}

// --- pace ---

TEST_F(DeliveriesTest, OwnCommitsThatComeBackAsNoticesUseUpTheWakeUps) {
    int iterations = 0;
    for (; deliveries.mayWake() && iterations < 1000; ++iterations) {
        pass({"A"});
        deliveries.changed("A");
        deliveries.deliver();
    }
    EXPECT_EQ(iterations, 50);
    for (int i = 0; i < 5; ++i)
        deliveries.deliver();
    EXPECT_TRUE(deliveries.mayWake());
}

TEST_F(DeliveriesTest, WhatUsesUpNoWakeUps) {
    struct Case {
        const char* name;
        std::function<void()> iterate;
    };
    const Case cases[] = {
        {"changes of others", [&] { deliveries.changed("A"); }},
        {"changes of others and a commit of nothing",
         [&] {
             pass({});
             deliveries.changed("A");
         }},
        {"changes of others and a commit that fails",
         [&] {
             store.failNth(Operation::Close, 1, code::storageFull);
             pass({"A"});
             deliveries.changed("A");
         }},
        {"commits without a notice", [&] { pass({"A"}); }},
        {"a commit that fails, which makes something due",
         [&] {
             store.failNth(Operation::Close, 1, code::storageFull);
             pass({"A"});
             pass({"B"});
         }},
        {"a new connection",
         [&] {
             pass({"A"});
             deliveries.everythingChanged();
         }},
    };
    for (const Case& pace : cases) {
        for (int i = 0; i < 200; ++i) {
            pace.iterate();
            deliveries.deliver();
        }
        EXPECT_TRUE(deliveries.mayWake()) << pace.name;
    }
}

} // namespace orv::cfg
