#pragma once

#include "store/storage/connections.h"
#include "store/storage/databasefile.h"
#include "store/storage/safekeeping.h"
#include "store/storage/schema.h"
#include "store/storage/sharedrows.h"
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
// The owner also calls tidy() after the answer to a commit was sent and after a reading has ended, and
// filesTouched() when another program touched one of the watched files. Any function may find that the
// database has to be reopened. Readings and the open transaction then fail with storageFailed, and later ones
// work again.
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
    // For the time between two transactions.
    SharedRows& sharedRows() { return sharedRows_; }

    // All rows of a table if they have no more than `most` bytes of cells; else `complete` is false.
    Result readSmall(const std::string& table, View view, std::size_t most, Rows& rows, bool& complete);
    // Whether beginReading() finds a snapshot for a reading of the last commit.
    bool canBeginReading() const { return connections_.snapshots().free(); }
    Result beginReading(const std::string& table, View view, std::unique_ptr<TableReading>& reading);

    // Moves the write-ahead log into the database if it has grown, and tries again what failed before. Quick
    // if there is nothing to do.
    void tidy();
    // No later than this, tidy() has something to do.
    Safekeeping::Clock::time_point nextDeadline() const;
    // At the end: logs the failures that were only counted so far.
    void flushLines();
    // Pages of the log that wait for tidy().
    std::uint64_t logPages() const { return connections_.checkpoints().pages(); }
    // Whether open snapshots let the log grow so long that no new snapshot should begin, or even that the
    // open ones should end.
    bool logIsLong() const;
    bool logIsTooLong() const;

    // Files whose removal or replacement filesTouched() looks for. They are different ones each time the
    // database was opened.
    std::vector<std::string> watchedFiles() const { return file_.watched(); }
    // Whether commits are refused or have an unknown outcome, for a reason that was logged already.
    bool isInTrouble() const { return safekeeping_.isInTrouble(); }
    void filesTouched() { (void)safekeeping_.look(); }
    std::uint64_t timesOpened() const { return connections_.timesOpened(); }
    // Tables that may have changed although no commit of them succeeded: one had an unknown outcome, or was
    // lost.
    velta::NameList takeChanged() { return safekeeping_.takeChanged(); }

private:
    Schema schema_;
    DatabaseOptions options_;
    DatabaseFile file_;
    Connections connections_;
    TableReader lastCommit_;
    Safekeeping safekeeping_;
    TableWriter writer_;
    ClusterMemory memory_;
    Transaction transaction_;
    SharedRows sharedRows_;
};

} // namespace store
