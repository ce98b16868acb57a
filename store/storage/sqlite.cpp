#include "store/storage/sqlite.h"

namespace store {

namespace code = velta::protocol::code;

velta::protocol::EResultCode resultOf(int sqliteCode, sqlite3* connection) {
    switch (sqliteCode & 0xff) { // the low byte is the kind, what stands above it details
    case SQLITE_OK:
    case SQLITE_ROW:
    case SQLITE_DONE:
        return {};
    case SQLITE_FULL:
        return {code::storageFull, sqlite3_errmsg(connection)};
    case SQLITE_READONLY:
        return {code::readOnly, sqlite3_errmsg(connection)};
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return {code::busy, sqlite3_errmsg(connection)};
    default:
        return {code::storageFailed, sqlite3_errmsg(connection)};
    }
}

Connection::Connection(const std::string& path, int flags) {
    sqlite3* handle = nullptr;
    const int code = sqlite3_open_v2(path.c_str(), &handle, flags, nullptr);
    handle_.reset(handle); // there is one to close even after a failure
    if (code != SQLITE_OK)
        throw StorageError(handle != nullptr ? sqlite3_errmsg(handle) : "out of memory");
    sqlite3_extended_result_codes(handle, 1);
}

void Connection::execute(const std::string& sql) {
    if (sqlite3_exec(handle(), sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
        throw StorageError(sqlite3_errmsg(handle()));
}

std::int64_t Connection::number(const std::string& sql) {
    Statement statement(handle(), sql);
    Statement::Run run(statement);
    if (run.step() != SQLITE_ROW)
        throw StorageError(sqlite3_errmsg(handle()));
    return run.number(0);
}

std::string Connection::text(const std::string& sql) {
    Statement statement(handle(), sql);
    Statement::Run run(statement);
    if (run.step() != SQLITE_ROW)
        throw StorageError(sqlite3_errmsg(handle()));
    return std::string(run.text(0));
}

Statement::Run::Run(Statement& statement) : handle_(statement.handle_.get()) {
    if (handle_ != nullptr)
        return;
    keep(sqlite3_prepare_v3(statement.connection_, statement.sql_.c_str(), -1, SQLITE_PREPARE_PERSISTENT,
                            &handle_, nullptr));
    statement.handle_.reset(handle_);
}

Statement::Run::~Run() {
    sqlite3_reset(handle_); // repeats the error of the last step, which was seen there
    sqlite3_clear_bindings(handle_);
}

void Statement::Run::bind(int parameter, std::int64_t value) {
    if (error_ == SQLITE_OK)
        keep(sqlite3_bind_int64(handle_, parameter, value));
}

void Statement::Run::bind(int parameter, std::string_view text) {
    if (error_ == SQLITE_OK)
        keep(
            sqlite3_bind_text64(handle_, parameter, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8));
}

int Statement::Run::step() {
    return error_ != SQLITE_OK ? error_ : sqlite3_step(handle_);
}

std::string_view Statement::Run::text(int column) const {
    const unsigned char* text = sqlite3_column_text(handle_, column);
    if (text == nullptr)
        return {};
    return {reinterpret_cast<const char*>(text),
            static_cast<std::size_t>(sqlite3_column_bytes(handle_, column))};
}

void Statement::Run::keep(int code) {
    if (error_ == SQLITE_OK)
        error_ = code;
}

std::string quoted(const std::string& name) {
    return '"' + name + '"';
}

} // namespace store
