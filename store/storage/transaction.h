#pragma once

#include "store/storage/databasefile.h"
#include "store/storage/sqlite.h"
#include "store/storage/tablereader.h"
#include "store/storage/touchedrows.h"
#include "velta/namelist.h"
#include "velta/protocol/resultcode.h"
#include "velta/valuelist.h"

#include <cstdint>
#include <string>

namespace store {

// The one transaction of a database, on its writing connection. It begins with its first write and ends with
// commit() or rollBack(). An error of SQLite that ended it comes back from every later write and from
// commit().
class Transaction {
public:
    using Result = velta::protocol::EResultCode;

    // `lastCommit` reads through another connection. All outlive the transaction.
    Transaction(const Schema& schema, Connection& writer, TableReader& lastCommit, const DatabaseFile& file);

    // Reads rows with what was written to them.
    TableReader& reader() { return reader_; }

    Result writeSingle(const std::string& table, std::uint32_t row, const velta::ValueList& values);
    Result update(const std::string& table, const std::string& keyColumn, const std::string& key,
                  const velta::ValueList& values);
    Result insert(const std::string& table, const velta::ValueList& values, std::uint32_t& id);
    Result remove(const std::string& table, const std::string& keyColumn, const std::string& key);

    // The transaction is over, whatever the result. `changed` gets the tables in which a cell is not as
    // before; when there is none nothing is written.
    Result commit(velta::NameList& changed);
    void rollBack();

private:
    Result begin();
    // Runs a statement that writes; remembers an error that ended the transaction.
    Result write(Statement::Run& run);
    Result writeCells(ConnectedTable& table, std::int64_t rowId, const velta::ValueList& values);
    Result nextId(ConnectedTable& table, std::int64_t& id);
    Result idFor(ConnectedTable& table, const velta::ValueList& values, std::int64_t& id);
    Result exists(ConnectedTable& table, std::int64_t rowId, bool& there);

    Result changedTables(velta::NameList& changed);
    Result tableChanged(std::size_t table, const TouchedRows::OfTable& touched, bool& changed);
    Result differs(std::size_t table, std::int64_t rowId, bool& different);
    Result commitWritten();

    Connection& writer_;
    TableReader reader_;
    TableReader& lastCommit_;
    const DatabaseFile& file_;
    Statement begin_;
    Statement commit_;
    Statement rollBack_;
    bool writing_ = false;
    Result failure_; // what ended the transaction before its owner did
    TouchedRows touched_;
};

} // namespace store
