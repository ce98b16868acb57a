#pragma once

#include "store/storage/databasefile.h"
#include "store/storage/schema.h"
#include "store/storage/snapshots.h"
#include "store/storage/sqlite.h"
#include "store/storage/tablereader.h"
#include "store/storage/tablereading.h"
#include "store/storage/transaction.h"
#include "velta/protocol/resultcode.h"

#include <memory>
#include <string>

namespace store {

// The tables of a schema in an SQLite file, with one transaction at a time.
//
// The writes of the transaction go through one connection, the last commit is read through another, and a
// long reading has a snapshot of its own.
class Database {
public:
    using Result = velta::protocol::EResultCode;

    enum class View { LastCommit, OpenTransaction };

    // An empty path keeps the tables in memory. Throws StorageError.
    Database(Schema schema, const std::string& path);

    const Schema& schema() const { return schema_; }
    const Table* table(const std::string& name);
    const DatabaseFile& file() const { return file_; }

    TableReader& reader(View view) { return view == View::LastCommit ? lastCommit_ : transaction_.reader(); }
    Transaction& transaction() { return transaction_; }

    // All rows of a table if they have no more than `most` bytes of cells; else `complete` is false.
    Result readSmall(const std::string& table, View view, std::size_t most, Rows& rows, bool& complete);
    // Whether beginReading() finds a snapshot for a reading of the last commit.
    bool canBeginReading() const { return snapshots_.free(); }
    bool logIsTooLong() const { return false; }
    Result beginReading(const std::string& table, View view, std::unique_ptr<TableReading>& reading);

private:
    Schema schema_;
    DatabaseFile file_;
    Connection writerConnection_;
    Connection readerConnection_;
    TableReader lastCommit_;
    Transaction transaction_;
    Snapshots snapshots_;
};

} // namespace store
