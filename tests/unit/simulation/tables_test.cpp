#include "simulation/tables.h"

#include <string>

#include <gtest/gtest.h>

namespace {

using orv::simulation::idOf;
using orv::simulation::Tables;
using velta::Value;
using velta::ValueList;
using velta::protocol::EResultCode;
namespace code = velta::protocol::code;
using Operation = Tables::Operation;

ValueList cell(const std::string& column, int number, Value::TypeCode type = Value::Integer) {
    Value value(type);
    value.setInteger(number);
    ValueList row;
    row.add(column, value);
    return row;
}

ValueList plan(int id, int status) {
    ValueList row = cell("Id", id);
    for (const auto& [name, value] : cell("Status", status, Value::Switch))
        row.add(name, value);
    return row;
}

class TablesTest : public testing::Test {
protected:
    TablesTest() {
        tables.edit("Plans", {plan(2, 0), plan(1, 0)});
        tables.edit("Settings", {cell("Enable", 0)});
        (void)tables.takeNotices();
        tables.onCommit([this](const Tables::Changes& changes) {
            ++commits;
            last = changes;
        });
    }

    EResultCode commitStatus(const std::string& key, int status) {
        const EResultCode started = tables.startTransaction();
        const EResultCode updated = tables.updateRow("Plans", "Id", key, cell("Status", status));
        const EResultCode closed = tables.closeTransaction();
        return !started.ok() ? started : !updated.ok() ? updated : closed;
    }
    void failAt(Operation broken, int result) {
        tables.onFault([=](Operation operation, const std::string&) {
            return operation == broken ? EResultCode(result) : EResultCode();
        });
    }

    Tables tables;
    int commits = 0;
    Tables::Changes last;
};

TEST_F(TablesTest, RowsStandInIdOrder) {
    ValueList row;
    ASSERT_TRUE(tables.selectRow("Plans", 0, row, {}).ok());
    EXPECT_EQ(idOf(row), 1);
    ASSERT_TRUE(tables.selectRow("Plans", 1, row, {}).ok());
    EXPECT_EQ(idOf(row), 2);
    EXPECT_EQ(tables.selectRow("Plans", 2, row, {}).code(), code::noSuchRow);
}

TEST_F(TablesTest, ASelectionHasTheNamedColumnsOnly) {
    ValueList row;
    ASSERT_TRUE(tables.selectRow("Plans", 0, row, {"Status"}).ok());
    EXPECT_EQ(row.size(), 1U);
    EXPECT_TRUE(row.hasValue("Status"));
}

TEST_F(TablesTest, ATableThatIsNotThereIsUnknownToEachOperation) {
    unsigned rows = 0;
    ValueList row;
    EXPECT_EQ(tables.size("Nope", rows).code(), code::unknownTable);
    EXPECT_EQ(tables.selectRow("Nope", 0, row, {}).code(), code::unknownTable);
    EXPECT_EQ(tables.selectRowByKey("Nope", "Id", "1", row).code(), code::unknownTable);
    ASSERT_TRUE(tables.startTransaction().ok());
    EXPECT_EQ(tables.updateRow("Nope", "Id", "1", cell("Status", 1)).code(), code::unknownTable);
    EXPECT_EQ(tables.writeSingleRow("Nope", 0, cell("Enable", 1)).code(), code::unknownTable);
    EXPECT_TRUE(tables.rows("Nope").empty());
}

TEST_F(TablesTest, ACommitIsToldWithTheCellsThatItChanged) {
    ASSERT_TRUE(commitStatus("2", 1).ok());
    ASSERT_EQ(last.size(), 1U);
    EXPECT_EQ(last[0].table, "Plans");
    EXPECT_EQ(last[0].id, 2);
    EXPECT_EQ(last[0].column, "Status");
    EXPECT_EQ(last[0].before.getInteger(), 0);
    EXPECT_EQ(last[0].after.getInteger(), 1);
    EXPECT_EQ(tables.number("Plans", "Status", 2), 1);
    EXPECT_EQ(tables.takeNotices(), (std::set<std::string>{"Plans"}));
}

TEST_F(TablesTest, ACommitIsToldInTheOrderOfItsWrites) {
    ASSERT_TRUE(tables.startTransaction().ok());
    ASSERT_TRUE(tables.writeSingleRow("Settings", 0, cell("Enable", 1)).ok());
    ASSERT_TRUE(tables.updateRow("Plans", "Id", "2", cell("Status", 1)).ok());
    ASSERT_TRUE(tables.updateRow("Plans", "Id", "1", cell("Status", 1)).ok());
    ASSERT_TRUE(tables.writeSingleRow("Settings", 0, cell("Enable", 2)).ok());
    ASSERT_TRUE(tables.closeTransaction().ok());
    ASSERT_EQ(last.size(), 3U);
    EXPECT_EQ(last[0].table, "Settings");
    EXPECT_EQ(last[0].after.getInteger(), 2);
    EXPECT_EQ(last[1].id, 2);
    EXPECT_EQ(last[2].id, 1);
}

TEST_F(TablesTest, ACommitThatChangesNothingMarksNothing) {
    const std::uint64_t version = tables.version();
    ASSERT_TRUE(commitStatus("2", 0).ok());
    EXPECT_EQ(commits, 1);
    EXPECT_TRUE(last.empty());
    EXPECT_FALSE(tables.hasNotices());
    EXPECT_EQ(tables.version(), version);
}

TEST_F(TablesTest, ACellKeepsItsType) {
    ASSERT_TRUE(commitStatus("1", 1).ok());
    EXPECT_EQ(tables.rows("Plans")[0].getValue("Status").type(), Value::Switch);
}

TEST_F(TablesTest, ATransactionReadsItsOwnWritesAndNobodyElseDoes) {
    ASSERT_TRUE(tables.startTransaction().ok());
    ASSERT_TRUE(tables.updateRow("Plans", "Id", "1", cell("Status", 1)).ok());
    ValueList row;
    ASSERT_TRUE(tables.selectRowByKey("Plans", "Id", "1", row).ok());
    EXPECT_EQ(row.getValue("Status").getInteger(), 1);
    EXPECT_EQ(tables.number("Plans", "Status", 1), 0);
    ASSERT_TRUE(tables.abortTransaction().ok());
    ASSERT_TRUE(tables.selectRowByKey("Plans", "Id", "1", row).ok());
    EXPECT_EQ(row.getValue("Status").getInteger(), 0);
    EXPECT_EQ(commits, 0);
}

TEST_F(TablesTest, AWriteNeedsATransactionAndThereIsOneAtATime) {
    EXPECT_EQ(tables.updateRow("Plans", "Id", "1", cell("Status", 1)).code(), code::noTransaction);
    EXPECT_EQ(tables.writeSingleRow("Settings", 0, cell("Enable", 1)).code(), code::noTransaction);
    EXPECT_EQ(tables.closeTransaction().code(), code::noTransaction);
    EXPECT_EQ(tables.abortTransaction().code(), code::noTransaction);
    ASSERT_TRUE(tables.startTransaction().ok());
    EXPECT_EQ(tables.startTransaction().code(), code::transactionOpen);
}

TEST_F(TablesTest, OnlyATableOfOneRowTakesASingleRow) {
    ASSERT_TRUE(tables.startTransaction().ok());
    EXPECT_EQ(tables.writeSingleRow("Plans", 0, cell("Status", 1)).code(), code::notSingleRow);
    EXPECT_EQ(tables.writeSingleRow("Settings", 1, cell("Enable", 1)).code(), code::notSingleRow);
    EXPECT_TRUE(tables.writeSingleRow("Settings", 0, cell("Enable", 1)).ok());
    ASSERT_TRUE(tables.closeTransaction().ok());
    EXPECT_EQ(tables.number("Settings", "Enable"), 1);
}

TEST_F(TablesTest, AFailedCommitKeepsNothingAndIsOver) {
    failAt(Operation::Close, code::storageFull);
    EXPECT_EQ(commitStatus("1", 1).code(), code::storageFull);
    EXPECT_FALSE(tables.isTransactionOpen());
    EXPECT_EQ(tables.number("Plans", "Status", 1), 0);
    EXPECT_FALSE(tables.hasNotices());
    EXPECT_EQ(commits, 0);
}

TEST_F(TablesTest, ACommitOfUnknownOutcomeGoesThroughAndSaysThatItFailed) {
    failAt(Operation::Close, code::outcomeUnknown);
    EXPECT_EQ(commitStatus("1", 1).code(), code::outcomeUnknown);
    EXPECT_EQ(tables.number("Plans", "Status", 1), 1);
    EXPECT_TRUE(tables.hasNotices());
    EXPECT_EQ(commits, 1);
}

TEST_F(TablesTest, EachOperationFailsAsItIsToldAndDoesNothing) {
    tables.onFault([](Operation, const std::string&) { return EResultCode(code::failure); });
    unsigned rows = 77;
    ValueList row = cell("old", 1);
    EXPECT_EQ(tables.size("Plans", rows).code(), code::failure);
    EXPECT_EQ(tables.selectRow("Plans", 0, row, {}).code(), code::failure);
    EXPECT_TRUE(row.empty());
    EXPECT_EQ(tables.selectRowByKey("Plans", "Id", "1", row).code(), code::failure);
    EXPECT_EQ(tables.startTransaction().code(), code::failure);
    EXPECT_FALSE(tables.isTransactionOpen());
    EXPECT_EQ(rows, 77U);
}

TEST_F(TablesTest, ALostConnectionRollsBackAndForgetsTheNotices) {
    tables.edit("Settings", {cell("Enable", 1)});
    ASSERT_TRUE(tables.startTransaction().ok());
    ASSERT_TRUE(tables.updateRow("Plans", "Id", "1", cell("Status", 1)).ok());
    tables.disconnect();
    EXPECT_FALSE(tables.isTransactionOpen());
    EXPECT_FALSE(tables.hasNotices());
    EXPECT_EQ(tables.number("Plans", "Status", 1), 0);
    EXPECT_EQ(tables.number("Settings", "Enable"), 1);
}

TEST_F(TablesTest, AnEditIsToldOnceAndOnlyWhereItChangesSomething) {
    const std::uint64_t version = tables.version("Plans");
    tables.edit("Plans", {plan(1, 0), plan(2, 0)});
    EXPECT_FALSE(tables.hasNotices());
    tables.edit("Plans", {plan(1, 1)});
    tables.edit("Plans", {plan(1, 0)});
    EXPECT_EQ(tables.takeNotices(), (std::set<std::string>{"Plans"}));
    EXPECT_EQ(tables.version("Plans"), version + 2);
    EXPECT_EQ(commits, 0);
}

TEST_F(TablesTest, ATableThatIsTakenAwayIsTold) {
    tables.remove("Plans");
    EXPECT_TRUE(tables.hasNotices());
    EXPECT_FALSE(tables.has("Plans"));
    (void)tables.takeNotices();
    tables.remove("Plans");
    EXPECT_FALSE(tables.hasNotices());
}

TEST_F(TablesTest, WhatSomebodyElseWritesIsSeenByAnOpenTransactionToo) {
    ASSERT_TRUE(tables.startTransaction().ok());
    ASSERT_TRUE(tables.updateRow("Plans", "Id", "1", cell("Status", 1)).ok());
    tables.edit("Plans", {plan(1, 0), plan(5, 1)});
    unsigned rows = 0;
    ValueList row;
    EXPECT_TRUE(tables.size("Plans", rows).ok());
    EXPECT_TRUE(tables.selectRowByKey("Plans", "Id", "1", row).ok());
    EXPECT_EQ(rows, 2U);
    EXPECT_EQ(row.getValue("Status").getInteger(), 0);
    tables.remove("Plans");
    EXPECT_EQ(tables.size("Plans", rows).code(), code::unknownTable);
    EXPECT_TRUE(tables.closeTransaction().ok());
    EXPECT_TRUE(last.empty());
}

TEST_F(TablesTest, AWriteOrAnAbortThatFailsChangesNothing) {
    ASSERT_TRUE(tables.startTransaction().ok());
    failAt(Operation::UpdateRow, code::storageFailed);
    EXPECT_EQ(tables.updateRow("Plans", "Id", "1", cell("Status", 1)).code(), code::storageFailed);
    failAt(Operation::Abort, code::notConnected);
    EXPECT_EQ(tables.abortTransaction().code(), code::notConnected);
    EXPECT_EQ(tables.number("Plans", "Status", 1), 0);
    tables.onFault(nullptr);
    EXPECT_EQ(tables.abortTransaction().code(), code::noTransaction); // it is over, whatever was answered
    EXPECT_EQ(tables.version("Plans"), 1U);
    EXPECT_EQ(tables.version("Nobody's"), 0U);
}

} // namespace
