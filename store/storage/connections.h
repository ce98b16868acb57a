#pragma once

#include "store/storage/checkpoints.h"
#include "store/storage/databasefile.h"
#include "store/storage/schema.h"
#include "store/storage/snapshots.h"
#include "store/storage/sqlite.h"
#include "store/storage/tablesizes.h"

#include <cstdint>

namespace store {

// All connections to a database's files. They are opened and closed together, because SQLite shares the open
// files between the connections of a process.
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

    // Makes missing tables and columns, logs what a damaged write-ahead log has lost, and moves the log into
    // the database. Returns whether the whole log was moved. Throws StorageError; what is open then can't be
    // used.
    bool open();
    // Leaves the log as it is. A statement that is running ends with an error.
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
