#pragma once

#include "store/storage/changes.h"
#include "store/storage/safekeeping.h"
#include "store/storage/sqlite.h"
#include "store/storage/tablereader.h"
#include "store/storage/tablesizes.h"
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
    Transaction(const Schema& schema, Connection& writer, TableReader& lastCommit, TableSizes& sizes,
                Safekeeping& safekeeping);

    // Reads rows including the transaction's own writes.
    TableReader& reader() { return reader_; }

    Result writeSingle(const std::string& table, std::uint32_t row, const velta::ValueList& values);
    Result update(const std::string& table, const std::string& keyColumn, const std::string& key,
                  const velta::ValueList& values);
    Result insert(const std::string& table, const velta::ValueList& values, std::uint32_t& id);
    Result remove(const std::string& table, const std::string& keyColumn, const std::string& key);

    // The transaction is over, whatever the result. `changed` gets the tables in which a cell differs from
    // before; if there is none, nothing is written. With the code outcomeUnknown it can't be told whether the
    // commit is kept; after any other failure nothing of it is.
    Result commit(velta::NameList& changed);
    void rollBack() noexcept;

private:
    Result begin();
    // Success, or what has ended the transaction before its owner did.
    Result standing();
    // Runs a statement that writes; remembers an error that ended the transaction.
    Result write(Statement::Run& run);
    Result writeCells(ConnectedTable& table, std::int64_t rowId, const velta::ValueList& values);
    Result findRow(ConnectedTable& table, const std::string& keyColumn, const std::string& key,
                   std::int64_t& rowId);
    // Keeps a table within its limit, with what a write adds to it.
    Result mayGrow(const ConnectedTable& table, std::int64_t bytes) const;
    Result nextId(ConnectedTable& table, std::int64_t& id);
    Result idFor(ConnectedTable& table, const velta::ValueList& values, std::int64_t& id);
    Result exists(ConnectedTable& table, std::int64_t rowId, bool& there);

    Result commitChanges(velta::NameList& changed);
    Result committed() noexcept;
    Result notCommitted(int step) noexcept;

    Connection& writer_;
    TableReader reader_;
    Changes changes_;
    TableSizes& sizes_;
    Safekeeping& safekeeping_;
    Statement begin_;
    Statement commit_;
    Statement rollBack_;
    bool writing_ = false;
    std::uint64_t generation_ = 0; // of the connection when the transaction began
    Result failure_;
};

} // namespace store
