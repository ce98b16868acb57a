#pragma once

#include "store/storage/checkpoints.h"
#include "store/storage/databasefile.h"
#include "store/storage/schema.h"
#include "store/storage/snapshots.h"
#include "store/storage/sqlite.h"
#include "store/storage/tablesizes.h"

#include <cstdint>

namespace store {

// All that is open on a database's files. It is opened and closed as a whole: SQLite shares the files between
// the connections of a process.
class Connections {
public:
    // Opens all. Throws StorageError. Schema and file outlive it.
    Connections(const Schema& schema, DatabaseFile& file, std::int64_t limitOfTable);

    Connection& writer() { return writer_; }
    Connection& lastCommit() { return lastCommit_; }
    Snapshots& snapshots() { return snapshots_; }
    const Snapshots& snapshots() const { return snapshots_; }
    Checkpoints& checkpoints() { return checkpoints_; }
    const Checkpoints& checkpoints() const { return checkpoints_; }
    TableSizes& sizes() { return sizes_; }

    // Brings the tables in order, says what a damaged log has lost, and brings the log into the database.
    // Throws StorageError; what is open then is of no use. Returns whether the whole log is in the database.
    bool open();
    // Leaves the log as it is. What runs on a connection ends with an error.
    void close();
    // How often it was opened.
    std::uint64_t timesOpened() const { return timesOpened_; }

private:
    const Schema& schema_;
    DatabaseFile& file_;
    Connection writer_;
    Connection lastCommit_;
    Snapshots snapshots_;
    Checkpoints checkpoints_;
    TableSizes sizes_;
    std::uint64_t timesOpened_ = 0;
};

} // namespace store
