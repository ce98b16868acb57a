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

namespace store {

// Writes rows by their row ids, in one transaction at a time, on the writing connection of a database. The
// values have passed checkCells(). An error of SQLite that ended the transaction comes back from every later
// write and from commit().
class TableWriter {
public:
    using Result = velta::protocol::EResultCode;

    // `lastCommit` reads through another connection. All outlive it.
    TableWriter(const Schema& schema, Connection& writer, TableReader& lastCommit, TableSizes& sizes,
                Safekeeping& safekeeping);

    // Reads rows including those that were written.
    TableReader& reader() { return reader_; }
    TableReader& lastCommit() { return lastCommit_; }
    Connection& connection() { return writer_; }
    const TouchedRows& touched() const { return changes_.touched(); }

    // Begins the transaction, if it has not begun.
    Result begin();
    // Whether a new row fits its columns' kinds and the table.
    Result mayInsert(ConnectedTable& table, const velta::ValueList& values);
    // These three are called after begin(). A new row has passed mayInsert(), and its id is free.
    Result insert(ConnectedTable& table, std::int64_t rowId, const velta::ValueList& values);
    Result update(ConnectedTable& table, std::int64_t rowId, const velta::ValueList& values);
    Result remove(ConnectedTable& table, std::int64_t rowId);
    // Runs a statement that writes what is no cell. The commit keeps it even if no cell has changed.
    Result writeOther(Statement::Run& run);

    // Whether the row exists.
    Result exists(ConnectedTable& table, std::int64_t rowId, bool& there);

    // The transaction is over, whatever the result. `changed` gets the tables in which a cell differs from
    // before; if there is none, and nothing else was written, nothing is. With the code outcomeUnknown it
    // can't be told whether the commit is kept; after any other failure nothing of it is.
    Result commit(velta::NameList& changed);
    void rollBack() noexcept;

private:
    // Success, or what has ended the transaction before its owner did.
    Result standing();
    // Runs a statement that writes; remembers an error that ended the transaction.
    Result write(Statement::Run& run);
    // Keeps a table within its limit, with what a write adds to it.
    Result mayGrow(const ConnectedTable& table, std::int64_t bytes) const;

    Result commitChanges(velta::NameList& changed);
    Result committed() noexcept;
    Result notCommitted(int step) noexcept;

    Connection& writer_;
    TableReader reader_;
    TableReader& lastCommit_;
    Changes changes_;
    TableSizes& sizes_;
    Safekeeping& safekeeping_;
    Statement begin_;
    Statement commit_;
    Statement rollBack_;
    bool writing_ = false;
    bool wroteOther_ = false;
    std::uint64_t generation_ = 0; // of the connection when the transaction began
    Result failure_;
};

} // namespace store
