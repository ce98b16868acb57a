#pragma once

#include "velta/protocol/resultcode.h"

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include <sqlite3.h>

// A thin layer over SQLite: who owns what, and errors as result codes.
namespace store {

// What keeps the server from starting: a database or a schema that can't be used. The text is for a person.
class StorageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The result code for one of SQLite's, with the connection's error text as detail.
velta::protocol::EResultCode resultOf(int sqliteCode, sqlite3* connection);

class Connection {
public:
    // Throws StorageError.
    Connection(const std::string& path, int flags);

    sqlite3* handle() const { return handle_.get(); }
    // Throws StorageError with SQLite's text.
    void execute(const std::string& sql);
    // The first column of the first row as a number, as a text. Throw StorageError.
    std::int64_t number(const std::string& sql);
    std::string text(const std::string& sql);
    // Opens the files of the database, while they have a name. Throws StorageError.
    void touchFiles() { (void)number("SELECT count(*) FROM sqlite_schema"); }
    bool inTransaction() const { return sqlite3_get_autocommit(handle()) == 0; }

private:
    struct Close {
        void operator()(sqlite3* handle) const { sqlite3_close(handle); }
    };
    std::unique_ptr<sqlite3, Close> handle_;
};

// SQL that is prepared when it runs for the first time and then kept. It ends before its connection.
class Statement {
public:
    Statement(sqlite3* connection, std::string sql) : connection_(connection), sql_(std::move(sql)) {}

    // One run from the binding to the last row; its end makes the statement ready for the next.
    class Run {
    public:
        explicit Run(Statement& statement);
        ~Run();
        Run(const Run&) = delete;
        Run& operator=(const Run&) = delete;

        // Parameters count from 1; one that is not bound is NULL.
        void bind(int parameter, std::int64_t value);
        void bind(int parameter, std::string_view text);
        // SQLITE_ROW, SQLITE_DONE, or the first error of preparing, binding or stepping.
        [[nodiscard]] int step();

        // Columns count from 0.
        std::int64_t number(int column) const { return sqlite3_column_int64(handle_, column); }
        std::string_view text(int column) const;

    private:
        void keep(int code);

        sqlite3_stmt* handle_;
        int error_ = SQLITE_OK;
    };

private:
    struct Finalize {
        void operator()(sqlite3_stmt* handle) const { sqlite3_finalize(handle); }
    };

    sqlite3* connection_;
    std::string sql_;
    std::unique_ptr<sqlite3_stmt, Finalize> handle_;
};

// A name that the schema has checked, for use in SQL.
std::string quoted(const std::string& name);

} // namespace store
