#include "cfg/configclient.h"
#include "cfg/requests.h"
#include "unit/cfg/support.h"
#include "velta/protocol/wire.h"

namespace orv::cfg {

using fakes::ScriptedServer;
using support::CapturedLog;
using support::row;
using velta::ValueList;
using velta::protocol::EResultCode;
using velta::protocol::Reply;
using velta::protocol::Request;
using velta::protocol::RequestKind;
namespace code = velta::protocol::code;

namespace {

class ConfigClientTest : public testing::Test {
protected:
    void SetUp() override {
        server.setTable("A", {row(1, "one"), row(2, "two"), row(3, "three")});
        server.setTable("B", {row(7, "seven")});
        connection.onClose([this](const EResultCode&) { client.connectionLost(); });
        ASSERT_TRUE(connection.open().ok());
    }

    void TearDown() override { connection.close(); } // while the client that it tells lives

    unsigned size(const std::string& table) {
        unsigned rows = 0;
        EXPECT_TRUE(client.size(table, rows).ok());
        return rows;
    }

    std::string nameIn(const std::string& table, unsigned index) {
        ValueList values;
        const EResultCode result = client.selectRow(table, index, values, {});
        return result.ok() ? values.getValue("Name").getText() : result.strerror();
    }

    ScriptedServer server;
    Connection connection{server.socketPath(), support::clientName, 1};
    ConfigClient client{connection, 321};
};

} // namespace

TEST_F(ConfigClientTest, OneReadingIsOneRequest) {
    ASSERT_EQ(size("A"), 3u);
    EXPECT_EQ(nameIn("A", 0), "one");
    EXPECT_EQ(nameIn("A", 1), "two");
    EXPECT_EQ(nameIn("A", 2), "three");
    EXPECT_EQ(server.count(RequestKind::ReadTable), 1u);
    EXPECT_EQ(server.count(RequestKind::ReadRow), 0u);
}

TEST_F(ConfigClientTest, ReadingGoesTogetherFromPieces) {
    server.setRowsPerPiece(1);
    ASSERT_EQ(size("A"), 3u);
    EXPECT_EQ(nameIn("A", 0) + nameIn("A", 1) + nameIn("A", 2), "onetwothree");
}

TEST_F(ConfigClientTest, ReadingThatFailsInTheMiddleIsAFailureOfThatRequestAlone) {
    server.answer(RequestKind::ReadTable, [](const Request& request) {
        std::string cells;
        velta::protocol::Writer(cells).value(support::integer(1));
        Reply failed = fakes::replyTo(request, velta::protocol::ReplyKind::Failed);
        failed.result = EResultCode(code::storageFailed, "disk I/O error");
        return fakes::rowsFrame(request, false, 2, 1, {"Id"}, cells) + fakes::frameOf(failed);
    });
    unsigned rows = 0;
    EXPECT_EQ(client.size("A", rows).strerror(), "storage failed: disk I/O error");
    EXPECT_TRUE(connection.isOpen());
    server.answerAsUsual(RequestKind::ReadTable);
    EXPECT_EQ(size("A"), 3u);
}

TEST_F(ConfigClientTest, RowsThatACallerKeepsStayWhatTheyAre) {
    Snapshot rows;
    ASSERT_TRUE(client.readTable("A", rows).ok());
    ASSERT_TRUE(client.writeSingleRow("A", 0, row(1, "changed")).ok());
    ASSERT_EQ(rows.rows(), 3u);
    ValueList values;
    rows.row(2, {"Name"}, values);
    EXPECT_EQ(values.getValue("Name").getText(), "three");
}

TEST_F(ConfigClientTest, ColumnsAreDescribed) {
    server.answer(RequestKind::Describe, [](const Request& request) {
        Reply reply = fakes::replyTo(request, velta::protocol::ReplyKind::Description);
        reply.descriptions = {{"Id", velta::Value::Integer, "INTEGER", support::integer(1),
                               support::integer(9), velta::Value()}};
        return fakes::frameOf(reply);
    });
    std::vector<velta::protocol::ColumnDescription> columns;
    ASSERT_TRUE(client.describe("A", columns).ok());
    EXPECT_EQ(server.last(RequestKind::Describe).table, "A");
    ASSERT_EQ(columns.size(), 1u);
    EXPECT_EQ(columns[0].kind, "INTEGER");
    EXPECT_EQ(columns[0].most, support::integer(9));
}

TEST_F(ConfigClientTest, SharedColumnsAreListed) {
    server.answer(RequestKind::SharedColumns, [](const Request& request) {
        Reply reply = fakes::replyTo(request, velta::protocol::ReplyKind::Columns);
        reply.columns = {{"Name", velta::Value::Text}};
        return fakes::frameOf(reply);
    });
    std::vector<velta::protocol::ColumnInfo> columns;
    ASSERT_TRUE(client.sharedColumns("A", columns).ok());
    EXPECT_EQ(server.last(RequestKind::SharedColumns).table, "A");
    ASSERT_EQ(columns.size(), 1u);
    EXPECT_EQ(columns[0].name, "Name");
}

TEST_F(ConfigClientTest, StoreThatDoesNotKnowDescribeClosesTheConnection) {
    server.closeWithin(RequestKind::Describe, 0);
    std::vector<velta::protocol::ColumnDescription> columns;
    EXPECT_EQ(client.describe("A", columns).code(), code::notConnected);
}

TEST_F(ConfigClientTest, EmptyTableHasNoRows) {
    server.setTable("Empty", {});
    EXPECT_EQ(size("Empty"), 0u);
}

TEST_F(ConfigClientTest, SnapshotStaysWhatItWas) {
    size("A");
    server.setTable("A", {row(1, "changed")});
    EXPECT_EQ(nameIn("A", 2), "three");
}

TEST_F(ConfigClientTest, NextSizeReadsAgain) {
    size("A");
    server.setTable("A", {row(1, "changed")});
    EXPECT_EQ(size("A"), 1u);
    EXPECT_EQ(nameIn("A", 0), "changed");
}

TEST_F(ConfigClientTest, FailedSizeLeavesNoSnapshot) {
    size("A");
    server.refuse(RequestKind::ReadTable, code::storageFailed);
    unsigned rows = 0;
    EXPECT_EQ(client.size("A", rows).code(), code::storageFailed);
    server.setTable("A", {row(1, "changed")});
    EXPECT_EQ(nameIn("A", 0), "changed");
}

TEST_F(ConfigClientTest, SnapshotGoesWithEveryKindOfOwnWrite) {
    std::uint32_t id = 0;
    const std::function<EResultCode()> writes[] = {
        [&] { return client.writeSingleRow("A", 0, row(1, "x")); },
        [&] { return client.updateRow("A", "Id", "1", row(1, "x")); },
        [&] { return client.insertRow("A", row(9, "x"), id); },
        [&] { return client.removeRow("A", "Id", "1"); },
    };
    for (const auto& write : writes) {
        server.setTable("A", {row(1, "before")});
        size("A");
        server.setTable("A", {row(1, "after")});
        ASSERT_TRUE(write().ok());
        EXPECT_EQ(nameIn("A", 0), "after");
    }
}

TEST_F(ConfigClientTest, OwnWriteToAnotherTableLeavesTheSnapshot) {
    size("A");
    size("B");
    server.setTable("A", {row(1, "changed")});
    ASSERT_TRUE(client.writeSingleRow("B", 0, row(1, "x")).ok());
    EXPECT_EQ(nameIn("A", 0), "one");
}

TEST_F(ConfigClientTest, DroppedSnapshotsAreAskedForAgain) {
    size("A");
    server.setTable("A", {row(1, "changed")});
    client.dropSnapshots();
    EXPECT_EQ(nameIn("A", 0), "changed");
    EXPECT_EQ(server.count(RequestKind::ReadRow), 1u);
}

TEST_F(ConfigClientTest, EverySnapshotGoesWithAnAbort) {
    size("A");
    size("B");
    server.setTable("A", {row(1, "before the transaction")});
    ASSERT_TRUE(client.abortTransaction().ok());
    EXPECT_EQ(nameIn("A", 0), "before the transaction");
    EXPECT_EQ(nameIn("B", 0), "seven");
    EXPECT_EQ(server.count(RequestKind::ReadRow), 2u);
}

TEST_F(ConfigClientTest, RowWithoutASnapshotComesFromTheStore) {
    EXPECT_EQ(nameIn("A", 1), "two");
    EXPECT_EQ(server.last(RequestKind::ReadRow).number, 1u);
}

TEST_F(ConfigClientTest, RowBeyondTheEndIsAnErrorThatNamesIt) {
    size("A");
    EXPECT_EQ(nameIn("A", 3), "no such row: A, row 3");
}

TEST_F(ConfigClientTest, RowBeyondTheEndLeavesNoCells) {
    size("A");
    ValueList values = row(1, "of before");
    EXPECT_FALSE(client.selectRow("A", 3, values, {}).ok());
    EXPECT_TRUE(values.empty());
}

TEST_F(ConfigClientTest, AnswerWithoutARowIsNoSuchRow) {
    server.answer(RequestKind::ReadKey,
                  [](const Request& request) { return fakes::rowsFrame(request, true, 0, 0, {"Id"}, ""); });
    ValueList values;
    EXPECT_EQ(client.selectRowByKey("A", "Id", "9", values).strerror(), "no such row: A");
}

TEST_F(ConfigClientTest, SelectedColumnsComeAlone) {
    const auto selected = [&] {
        ValueList values = row(9, "of before");
        EXPECT_TRUE(client.selectRow("A", 1, values, {"Name"}).ok());
        EXPECT_EQ(values.size(), 1u);
        return values.getValue("Name").getText();
    };
    EXPECT_EQ(selected(), "two"); // of the store
    size("A");
    EXPECT_EQ(selected(), "two"); // of the snapshot
}

TEST_F(ConfigClientTest, NoColumnsAreAllInOrder) {
    size("A");
    ValueList values;
    ASSERT_TRUE(client.selectRow("A", 1, values, {}).ok());
    EXPECT_EQ(values, row(2, "two"));
}

TEST_F(ConfigClientTest, RowIsFoundByKey) {
    ValueList values;
    ASSERT_TRUE(client.selectRowByKey("A", "Id", "2", values).ok());
    EXPECT_EQ(values, row(2, "two"));
}

TEST_F(ConfigClientTest, UnknownTableIsNamed) {
    unsigned rows = 0;
    EXPECT_EQ(client.size("C", rows).strerror(), "unknown table: C");
}

TEST_F(ConfigClientTest, UpdateCarriesKeyAndCells) {
    ValueList cells;
    cells.add("Name", support::integer(5));
    ASSERT_TRUE(client.updateRow("A", "Id", "2", cells).ok());
    const Request request = server.last(RequestKind::Update);
    EXPECT_EQ(request.table + request.keyColumn + request.key, "AId2");
    EXPECT_EQ(request.values, cells);
}

TEST_F(ConfigClientTest, InsertTellsTheId) {
    server.answer(RequestKind::Insert, [](const Request& request) {
        Reply reply = fakes::replyTo(request);
        reply.number = 42;
        return fakes::frameOf(reply);
    });
    std::uint32_t id = 0;
    ASSERT_TRUE(client.insertRow("A", row(0, "new"), id).ok());
    EXPECT_EQ(id, 42u);
}

TEST_F(ConfigClientTest, WriteOfMoreThanAFrameIsTooLargeAndTheConnectionStays) {
    const std::string text(velta::protocol::frameLimit, 'x');
    EXPECT_EQ(client.writeSingleRow("A", 0, row(1, text)).code(), code::tooLarge);
    EXPECT_EQ(server.count(RequestKind::WriteSingle), 0u);
    EXPECT_EQ(size("A"), 3u);
}

TEST_F(ConfigClientTest, WriteOfAlmostAFrameArrives) {
    const std::string text(velta::protocol::frameLimit - 1000, 'x');
    EXPECT_TRUE(client.writeSingleRow("A", 0, row(1, text)).ok());
    EXPECT_EQ(server.last(RequestKind::WriteSingle).values, row(1, text));
}

TEST_F(ConfigClientTest, TransactionIsOpenFromItsStartToItsEnd) {
    EXPECT_FALSE(client.isTransactionOpen());
    ASSERT_TRUE(client.startTransaction().ok());
    EXPECT_TRUE(client.isTransactionOpen());
    ASSERT_TRUE(client.closeTransaction().ok());
    EXPECT_FALSE(client.isTransactionOpen());
}

TEST_F(ConfigClientTest, StartWaitsItsTurnForAsLongAsItWasTold) {
    ASSERT_TRUE(client.startTransaction().ok());
    EXPECT_EQ(server.last(RequestKind::Begin).number, 321u);
}

TEST_F(ConfigClientTest, RefusedStartOpensNothing) {
    server.refuse(RequestKind::Begin, code::busy);
    EXPECT_EQ(client.startTransaction().code(), code::busy);
    EXPECT_FALSE(client.isTransactionOpen());
}

TEST_F(ConfigClientTest, StartAsksFirstWhetherItMay) {
    ConfigClient asking(connection, 0, [] { return EResultCode(code::outdated); });
    EXPECT_EQ(asking.startTransaction().code(), code::outdated);
    EXPECT_EQ(server.count(RequestKind::Begin), 0u);
}

class CommitWriteTest : public ConfigClientTest {
protected:
    int commit(const std::string& name = "other") {
        return client.commitWrite(requests::update("A", "Id", "1", row(1, name))).code();
    }
    unsigned count(RequestKind kind) { return static_cast<unsigned>(server.count(kind)); }
};

TEST_F(CommitWriteTest, BeginningWriteAndEndAreSentBeforeTheFirstAnswer) {
    std::string answers;
    for (const RequestKind kind : {RequestKind::Begin, RequestKind::Update, RequestKind::Commit})
        server.answer(kind, [&answers](const Request& request) {
            answers += fakes::frameOf(fakes::replyTo(request));
            return request.kind == RequestKind::Commit ? answers : std::string();
        });

    EXPECT_EQ(commit(), 0);
    EXPECT_EQ(server.last(RequestKind::Begin).number, 321u);
    EXPECT_EQ(server.last(RequestKind::Update).values, row(1, "other"));
    EXPECT_FALSE(client.isTransactionOpen());
}

TEST_F(CommitWriteTest, TheFirstStepThatFailsIsTold) {
    server.refuse(RequestKind::Commit, code::storageFull);
    EXPECT_EQ(commit(), code::storageFull);
    server.refuse(RequestKind::Update, code::noSuchRow);
    EXPECT_EQ(commit(), code::noSuchRow);
    server.refuse(RequestKind::Begin, code::busy);
    EXPECT_EQ(commit(), code::busy);
    EXPECT_EQ(count(RequestKind::Abort), 0u) << "the store has ended what it began";
}

// Of a large write the answer may be there before the end is sent.
TEST_F(CommitWriteTest, AWriteThatIsNotSentLeavesNoTransactionOpen) {
    EXPECT_EQ(commit(std::string(velta::protocol::frameLimit, 'x')), code::tooLarge);
    EXPECT_EQ(count(RequestKind::Update), 0u);
    EXPECT_EQ(count(RequestKind::Begin), count(RequestKind::Abort) + count(RequestKind::Commit));
}

TEST_F(CommitWriteTest, AsksFirstWhetherItMay) {
    ConfigClient asking(connection, 0, [] { return EResultCode(code::outdated); });
    EXPECT_EQ(asking.commitWrite(requests::update("A", "Id", "1", row(1, "other"))).code(), code::outdated);
    EXPECT_EQ(count(RequestKind::Begin), 0u);
}

TEST_F(ConfigClientTest, TransactionIsOverHoweverItEnds) {
    struct Case {
        const char* name;
        std::function<void()> end;
    };
    const Case cases[] = {
        {"abort", [&] { (void)client.abortTransaction(); }},
        {"failed commit",
         [&] {
             server.refuse(RequestKind::Commit, code::storageFull);
             (void)client.closeTransaction();
         }},
        {"expiry seen by a write",
         [&] {
             server.refuse(RequestKind::WriteSingle, code::transactionExpired);
             (void)client.writeSingleRow("A", 0, {});
         }},
        {"expiry seen by a reading",
         [&] {
             server.refuse(RequestKind::ReadRow, code::transactionExpired);
             (void)nameIn("A", 0);
         }},
        {"write outside of a transaction",
         [&] {
             server.refuse(RequestKind::WriteSingle, code::noTransaction);
             (void)client.writeSingleRow("A", 0, {});
         }},
        {"loss",
         [&] {
             const CapturedLog log;
             server.closeClients();
             (void)nameIn("A", 0);
         }},
    };
    for (const Case& ending : cases) {
        ASSERT_TRUE(client.startTransaction().ok()) << ending.name;
        ending.end();
        EXPECT_FALSE(client.isTransactionOpen()) << ending.name;
    }
}

TEST_F(ConfigClientTest, RefusedWriteLeavesTheTransactionOpen) {
    ASSERT_TRUE(client.startTransaction().ok());
    server.refuse(RequestKind::WriteSingle, code::wrongKind);
    EXPECT_EQ(client.writeSingleRow("A", 0, {}).code(), code::wrongKind);
    EXPECT_TRUE(client.isTransactionOpen());
}

TEST_F(ConfigClientTest, EveryOperationFailsOnALostConnection) {
    CapturedLog log;
    server.closeClients();
    connection.receive();
    unsigned rows = 0;
    std::uint32_t id = 0;
    ValueList values;
    std::vector<velta::protocol::TableInfo> tables;
    std::vector<velta::protocol::ColumnInfo> columns;
    const std::function<EResultCode()> operations[] = {
        [&] { return client.size("A", rows); },
        [&] { return client.selectRow("A", 0, values, {}); },
        [&] { return client.selectRowByKey("A", "Id", "1", values); },
        [&] { return client.writeSingleRow("A", 0, values); },
        [&] { return client.updateRow("A", "Id", "1", values); },
        [&] { return client.insertRow("A", values, id); },
        [&] { return client.removeRow("A", "Id", "1"); },
        [&] { return client.startTransaction(); },
        [&] { return client.closeTransaction(); },
        [&] { return client.abortTransaction(); },
        [&] { return client.tables(tables); },
        [&] { return client.columns("A", columns); },
    };
    for (const auto& operation : operations)
        EXPECT_EQ(operation().code(), code::notConnected);
    EXPECT_EQ(log.lines(), 1) << log.text(); // of the loss
}

} // namespace orv::cfg
