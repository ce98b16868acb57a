#include "store/storage/sqlite.h"
#include "support/temporarydirectory.h"

#include <gmock/gmock.h>

namespace {

using store::Connection;
using store::Statement;
namespace code = velta::protocol::code;

class SqliteTest : public testing::Test {
protected:
    Connection connection{":memory:", SQLITE_OPEN_READWRITE | SQLITE_OPEN_MEMORY};
};

TEST_F(SqliteTest, StatementThatCanNotBePreparedIsAnErrorAndNoMore) {
    Statement statement(connection, "SELECT a FROM Missing WHERE a = ?1");
    for (int i = 0; i < 2; ++i) {
        Statement::Run run(statement);
        run.bind(1, 5);
        run.bind(1, "text");
        const int step = run.step();
        EXPECT_EQ(connection.resultOf(step).strerror(), "storage failed: no such table: Missing");
        EXPECT_EQ(run.number(0), 0);
        EXPECT_EQ(run.text(0), "");
    }
}

TEST_F(SqliteTest, ThereIsNoRowBehindTheLast) {
    Statement statement(connection, "SELECT 5, 'text'");
    Statement::Run run(statement);
    EXPECT_EQ(run.number(0), 0);
    ASSERT_EQ(run.step(), SQLITE_ROW);
    EXPECT_EQ(run.number(0), 5);
    EXPECT_EQ(run.text(1), "text");
    ASSERT_EQ(run.step(), SQLITE_DONE);
    EXPECT_EQ(run.number(0), 0);
    EXPECT_EQ(run.text(1), "");
}

TEST_F(SqliteTest, RunEndsWhenItsConnectionIsClosed) {
    Statement statement(connection, "SELECT 1 UNION ALL SELECT 2");
    Statement::Run run(statement);
    ASSERT_EQ(run.step(), SQLITE_ROW);

    connection.close();
    EXPECT_EQ(run.number(0), 0);
    EXPECT_EQ(run.step(), SQLITE_ABORT);
    connection.open();
    {
        Statement::Run next(statement);
        EXPECT_EQ(next.step(), SQLITE_ROW);
        EXPECT_EQ(next.number(0), 1);
        EXPECT_EQ(run.step(), SQLITE_ABORT);
    }
    EXPECT_EQ(connection.resultOf(SQLITE_ABORT).strerror(),
              "storage failed: the database was opened anew meanwhile");
}

TEST_F(SqliteTest, ClosedConnectionRefusesAll) {
    Statement statement(connection, "SELECT 1");
    connection.close();

    Statement::Run run(statement);
    EXPECT_EQ(connection.resultOf(run.step()).strerror(), "storage failed: the database is not open");
    EXPECT_THROW((void)connection.number("SELECT 1"), store::StorageError);
    EXPECT_THROW(connection.execute("SELECT 1"), store::StorageError);
    EXPECT_FALSE(connection.inTransaction());
}

TEST_F(SqliteTest, QuestionWithoutAnAnswerIsAnError) {
    for (const std::string sql : {"SELECT 1 WHERE 0", "SELECT a FROM Missing"}) {
        EXPECT_THROW((void)connection.number(sql), store::StorageError) << sql;
        EXPECT_THROW((void)connection.text(sql), store::StorageError) << sql;
    }
    try {
        (void)connection.text("SELECT 1 WHERE 0");
    } catch (const store::StorageError& error) {
        EXPECT_STREQ(error.what(), "no answer to SELECT 1 WHERE 0");
    }
}

TEST_F(SqliteTest, NoValueReadsAsAnEmptyText) {
    Statement statement(connection, "SELECT NULL");
    Statement::Run run(statement);
    ASSERT_EQ(run.step(), SQLITE_ROW);
    EXPECT_EQ(run.text(0), "");
    EXPECT_EQ(run.number(0), 0);
}

TEST(SqliteFile, WriteToWhatMayOnlyBeReadHasACodeOfItsOwn) {
    const TemporaryDirectory directory;
    const std::string path = directory.path("db");
    Connection(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE).execute("CREATE TABLE T (a)");
    Connection reader(path, SQLITE_OPEN_READONLY);
    Statement statement(reader, "INSERT INTO T VALUES (1)");
    Statement::Run run(statement);
    EXPECT_EQ(reader.resultOf(run.step()).code(), code::readOnly);
}

TEST_F(SqliteTest, LackOfMemoryHasACodeOfItsOwn) {
    Statement statement(connection, "SELECT zeroblob(?1) || zeroblob(?1)");
    const sqlite3_int64 before = sqlite3_hard_heap_limit64(sqlite3_memory_used() + 1000 * 1000);
    int step = SQLITE_OK;
    {
        Statement::Run run(statement);
        run.bind(1, 50 * 1000 * 1000);
        step = run.step();
    }
    sqlite3_hard_heap_limit64(before);

    EXPECT_EQ(connection.resultOf(step).code(), code::outOfMemory);
}

TEST_F(SqliteTest, CellsOfADamagedPageAreChecked) {
    EXPECT_EQ(connection.number("PRAGMA cell_size_check"), 1);
    connection.close();
    connection.open();
    EXPECT_EQ(connection.number("PRAGMA cell_size_check"), 1);
}

} // namespace
