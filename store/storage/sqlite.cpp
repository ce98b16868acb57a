#include "store/storage/sqlite.h"

#include <new>

namespace store {

namespace code = velta::protocol::code;

namespace {

constexpr const char* notOpen = "the database is not open";

struct Setting {
    int option;
    int value;
};

// Triggers and views that another program put into the file are not run.
constexpr Setting settings[] = {
    {SQLITE_DBCONFIG_DEFENSIVE, 1},
    {SQLITE_DBCONFIG_ENABLE_TRIGGER, 0},
    {SQLITE_DBCONFIG_ENABLE_VIEW, 0},
    {SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0},
};

} // namespace

void expectOneThread() {
    (void)sqlite3_config(SQLITE_CONFIG_SINGLETHREAD); // an SQLite that can't do so is only slower
    (void)sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
}

Connection::Connection(std::string path, int flags, Begin begin) : path_(std::move(path)), flags_(flags) {
    if (begin == Begin::Open)
        open();
}

void Connection::open() {
    close();
    ++generation_;
    const int result = sqlite3_open_v2(path_.c_str(), &handle_, flags_, nullptr);
    if (result != SQLITE_OK) {
        const std::string reason = isOpen() ? sqlite3_errmsg(handle_) : "out of memory";
        close(); // SQLite gives a handle even after a failure
        throw StorageError(reason);
    }
    sqlite3_extended_result_codes(handle_, 1);
    for (const Setting& setting : settings)
        sqlite3_db_config(handle_, setting.option, setting.value, nullptr);
    try {
        execute("PRAGMA cell_size_check = ON"); // otherwise SQLite might read past the end of a damaged page
    } catch (const StorageError&) {
        close();
        throw;
    }
}

void Connection::close() {
    if (!isOpen())
        return;
    while (sqlite3_stmt* const statement = sqlite3_next_stmt(handle_, nullptr))
        sqlite3_finalize(statement);
    sqlite3_close(handle_);
    handle_ = nullptr;
    ++generation_;
}

void Connection::execute(const std::string& sql) {
    if (!isOpen())
        throw StorageError(notOpen);
    if (sqlite3_exec(handle_, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
        throw StorageError(sqlite3_errmsg(handle_));
}

std::int64_t Connection::number(const std::string& sql) {
    Statement statement(*this, sql);
    Statement::Run run(statement);
    if (const int step = run.step(); step != SQLITE_ROW)
        throw StorageError(step == SQLITE_DONE ? "no answer to " + sql : textOf(step));
    return run.number(0);
}

std::string Connection::text(const std::string& sql) {
    Statement statement(*this, sql);
    Statement::Run run(statement);
    if (const int step = run.step(); step != SQLITE_ROW)
        throw StorageError(step == SQLITE_DONE ? "no answer to " + sql : textOf(step));
    return std::string(run.text(0));
}

std::string Connection::textOf(int sqliteCode) const {
    if (!isOpen())
        return notOpen;
    if ((sqliteCode & 0xff) == SQLITE_ABORT)
        return "the database was opened anew meanwhile";
    const bool isLast = sqlite3_extended_errcode(handle_) == sqliteCode;
    return isLast ? sqlite3_errmsg(handle_) : sqlite3_errstr(sqliteCode);
}

velta::protocol::EResultCode Connection::resultOf(int sqliteCode) const {
    switch (sqliteCode & 0xff) { // the low byte is the kind of error, the others are details
    case SQLITE_OK:
    case SQLITE_ROW:
    case SQLITE_DONE:
        return {};
    case SQLITE_FULL:
        return {code::storageFull, textOf(sqliteCode)};
    case SQLITE_READONLY:
        return {code::readOnly, textOf(sqliteCode)};
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return {code::busy, textOf(sqliteCode)};
    case SQLITE_NOMEM:
        return {code::outOfMemory};
    default:
        return {code::storageFailed, textOf(sqliteCode)};
    }
}

Statement::~Statement() {
    if (isPrepared())
        sqlite3_finalize(handle_);
}

int Statement::prepare() {
    if (isPrepared())
        return SQLITE_OK;
    handle_ = nullptr;
    generation_ = connection_.generation();
    if (!connection_.isOpen())
        return SQLITE_CANTOPEN;
    return sqlite3_prepare_v3(connection_.handle(), sql_.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &handle_,
                              nullptr);
}

Statement::Run::Run(Statement& statement) : statement_(statement) {
    keep(statement_.prepare());
    generation_ = statement_.connection_.generation();
}

Statement::Run::~Run() {
    if (!isAlive() || !statement_.isPrepared())
        return;
    sqlite3_reset(statement_.handle_); // it only repeats the error of the last step
    sqlite3_clear_bindings(statement_.handle_);
}

void Statement::Run::bind(int parameter, std::int64_t value) {
    if (error_ == SQLITE_OK && isAlive())
        keep(sqlite3_bind_int64(statement_.handle_, parameter, value));
}

void Statement::Run::bind(int parameter, std::string_view text) {
    if (error_ == SQLITE_OK && isAlive())
        keep(sqlite3_bind_text64(statement_.handle_, parameter, text.data(), text.size(), SQLITE_TRANSIENT,
                                 SQLITE_UTF8));
}

int Statement::Run::step() {
    onRow_ = false;
    if (error_ != SQLITE_OK)
        return error_;
    if (!isAlive())
        return SQLITE_ABORT;
    const int result = sqlite3_step(statement_.handle_);
    onRow_ = result == SQLITE_ROW;
    return result;
}

std::int64_t Statement::Run::number(int column) const {
    return onRow_ && isAlive() ? sqlite3_column_int64(statement_.handle_, column) : 0;
}

std::string_view Statement::Run::text(int column) const {
    if (!onRow_ || !isAlive())
        return {};
    const unsigned char* const text = sqlite3_column_text(statement_.handle_, column);
    if (text == nullptr && sqlite3_errcode(statement_.connection_.handle()) == SQLITE_NOMEM)
        throw std::bad_alloc(); // null here does not mean an empty text
    if (text == nullptr)
        return {};
    return {reinterpret_cast<const char*>(text),
            static_cast<std::size_t>(sqlite3_column_bytes(statement_.handle_, column))};
}

void Statement::Run::keep(int code) {
    if (error_ == SQLITE_OK)
        error_ = code;
}

std::string quoted(const std::string& name) {
    return '"' + name + '"';
}

} // namespace store
