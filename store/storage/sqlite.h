#pragma once

#include "velta/protocol/resultcode.h"

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include <sqlite3.h>

// A thin layer over SQLite: owners of its handles, and its errors as result codes.
namespace store {

// A database or a schema can't be used, which keeps the server from starting. The text is for people.
class StorageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// For a program with one thread, to be called before its first connection: SQLite then takes no locks against
// other threads, and does not count its memory.
void expectOneThread();

// A connection that can be closed and reopened while there are statements for it. Their current runs then end
// with an error, and the next run prepares the statement again.
class Connection {
public:
    enum class Begin { Open, Closed };

    // Throws StorageError.
    Connection(std::string path, int flags, Begin begin = Begin::Open);
    ~Connection() { close(); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Throws StorageError.
    void open();
    void close();
    bool isOpen() const { return handle_ != nullptr; }
    // A different number after each open() and close().
    std::uint64_t generation() const { return generation_; }

    sqlite3* handle() const { return handle_; }
    // Throws StorageError with SQLite's text.
    void execute(const std::string& sql);
    // The first column of the first row as a number, as a text. Throw StorageError.
    std::int64_t number(const std::string& sql);
    std::string text(const std::string& sql);
    // Makes SQLite open the files of the database now, while they have a name. Throws StorageError.
    void touchFiles() { (void)number("SELECT count(*) FROM sqlite_schema"); }
    bool inTransaction() const { return isOpen() && sqlite3_get_autocommit(handle_) == 0; }

    // The result code for one of SQLite's, with the connection's error text as detail.
    velta::protocol::EResultCode resultOf(int sqliteCode) const;

    std::string textOf(int sqliteCode) const;

private:
    std::string path_;
    int flags_;
    sqlite3* handle_ = nullptr;
    std::uint64_t generation_ = 0;
};

// SQL that is prepared when it first runs, and kept. The connection outlives it.
class Statement {
public:
    Statement(Connection& connection, std::string sql) : connection_(connection), sql_(std::move(sql)) {}
    ~Statement();
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    // SQLITE_OK, or the error that keeps it from being prepared.
    [[nodiscard]] int prepare();

    // One run, from binding the parameters to the last row. Its destructor makes the statement ready for the
    // next run.
    class Run {
    public:
        explicit Run(Statement& statement);
        ~Run();
        Run(const Run&) = delete;
        Run& operator=(const Run&) = delete;

        // Parameters count from 1; one that is not bound is NULL.
        void bind(int parameter, std::int64_t value);
        void bind(int parameter, std::string_view text);
        // SQLITE_ROW, SQLITE_DONE, or the first error of preparing, binding or stepping. SQLITE_ABORT if the
        // connection was closed meanwhile.
        [[nodiscard]] int step();

        // Columns count from 0. If the last step found no row, the results are 0 and empty.
        std::int64_t number(int column) const;
        std::string_view text(int column) const;

    private:
        bool isAlive() const { return generation_ == statement_.connection_.generation(); }
        void keep(int code);

        Statement& statement_;
        std::uint64_t generation_;
        int error_ = SQLITE_OK;
        bool onRow_ = false;
    };

private:
    // A connection that closes finalizes its statements, so the handle counts only for this generation.
    bool isPrepared() const { return handle_ != nullptr && generation_ == connection_.generation(); }

    Connection& connection_;
    std::string sql_;
    sqlite3_stmt* handle_ = nullptr;
    std::uint64_t generation_ = 0; // of the connection that it was prepared on
};

// Puts a name that the schema has checked in quotes, for use in SQL.
std::string quoted(const std::string& name);

} // namespace store
