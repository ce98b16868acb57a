#pragma once

#include "store/storage/connections.h"
#include "store/storage/databasefile.h"
#include "store/storage/safekeeping.h"
#include "store/storage/schema.h"
#include "store/storage/tablereader.h"
#include "store/storage/tablereading.h"
#include "store/storage/transaction.h"
#include "velta/protocol/resultcode.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace store {

struct DatabaseOptions {
    std::int64_t limitOfTable = tableLimit; // bytes of cells
    std::function<Safekeeping::Clock::time_point()> now = [] { return Safekeeping::Clock::now(); };
};

// The tables of a schema in an SQLite file, with one transaction at a time.
//
// The writes of the transaction go through one connection, the last commit is read through another, and a
// long reading has a snapshot of its own.
//
// Besides requests it wants tidy() once the answer to a commit has gone out or a reading has ended, and
// filesTouched() when somebody touched one of the watched files. Where any of its functions opens the
// database anew, readings and an open transaction end with storageFailed, and all goes on with the next.
class Database {
public:
    using Result = velta::protocol::EResultCode;

    enum class View { LastCommit, OpenTransaction };

    // An empty path keeps the tables in memory. Throws StorageError.
    Database(Schema schema, const std::string& path, DatabaseOptions options = {});

    const Schema& schema() const { return schema_; }
    const Table* table(const std::string& name);
    const DatabaseFile& file() const { return file_; }

    TableReader& reader(View view) { return view == View::LastCommit ? lastCommit_ : transaction_.reader(); }
    Transaction& transaction() { return transaction_; }

    // All rows of a table if they have no more than `most` bytes of cells; else `complete` is false.
    Result readSmall(const std::string& table, View view, std::size_t most, Rows& rows, bool& complete);
    // Whether beginReading() finds a snapshot for a reading of the last commit.
    bool canBeginReading() const { return connections_.snapshots().free(); }
    Result beginReading(const std::string& table, View view, std::unique_ptr<TableReading>& reading);

    // Brings the log into the database where it has grown, and tries again what failed before. Quick where
    // there is nothing to do.
    void tidy();
    // When tidy() has something to do of itself, at most.
    Safekeeping::Clock::time_point nextDeadline() const;
    // At the end: tells of failures that were only counted so far.
    void flushLines();
    // Pages of the log that wait for that.
    std::uint64_t logPages() const { return connections_.checkpoints().pages(); }
    // Whether open snapshots hold a log back that has grown so far that no further one should begin, or that
    // they should end.
    bool logIsLong() const;
    bool logIsTooLong() const;

    // Files whose removal or replacement filesTouched() looks for. They are other files after each time that
    // the database was opened.
    std::vector<std::string> watchedFiles() const { return file_.watched(); }
    // Whether commits are refused, or their outcome unknown, for a reason that stands in the log already.
    bool isInTrouble() const { return safekeeping_.isInTrouble(); }
    void filesTouched() { (void)safekeeping_.look(); }
    std::uint64_t timesOpened() const { return connections_.timesOpened(); }
    // Tables that have changed without a commit that succeeded: what was unknown or in danger is known now.
    velta::NameList takeChanged() { return safekeeping_.takeChanged(); }

private:
    Schema schema_;
    DatabaseOptions options_;
    DatabaseFile file_;
    Connections connections_;
    TableReader lastCommit_;
    Safekeeping safekeeping_;
    Transaction transaction_;
};

} // namespace store
