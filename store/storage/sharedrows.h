#pragma once

#include "store/descriptor.h"
#include "store/storage/clustermemory.h"
#include "store/storage/connections.h"
#include "store/storage/databasefile.h"
#include "store/storage/schema.h"
#include "store/storage/sharing.h"
#include "store/storage/tablewriter.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace store {

// The side of storage on which the cluster works: what the file remembers of it, and the commit that applies
// what came. Database::sharedRows() gives it. Between any two commits of it the process may die.
class SharedRows {
public:
    using Result = velta::protocol::EResultCode;

    // What the file remembers.
    struct Memory {
        std::string device; // this device's name among the others
        SharedPosition position;
    };
    // A row that the local schema refuses.
    struct Refusal {
        SharedUpdate update;
        std::string reason;
    };
    struct Applied {
        velta::NameList changed; // tables in which a cell differs from before
        std::vector<Refusal> refused;
        // Cells are missing: a row that changed is not known here. Nothing was applied; everything has to be
        // read again.
        bool isIncomplete = false;
    };

    // All outlive it. The writer is that of the database's transactions.
    SharedRows(const Schema& schema, const DatabaseFile& file, Connections& connections, TableWriter& writer,
               ClusterMemory& memory);

    // Makes the tables in which it is remembered, where they are missing, with `device` as the name. To be
    // called again after the database was opened anew: what it holds may be something else then.
    Result begin(const std::string& device, Memory& memory);
    // Forgets the cluster. The rows stay, as the device's own. Nothing is written where nothing is
    // remembered.
    Result forget(bool& didFollow);

    // One commit. No transaction is open. After a failure nothing is changed, but with outcomeUnknown it may
    // be; it fails until begin() is called if the database was opened anew. A row may have any Id that a
    // local one can have. Nothing is written if all is as it was, the position too. Where rows are refused,
    // everything has to be read next time: the schema may be another one then.
    Result apply(const SharedUpdates& updates, Applied& applied);
    // All rows of all shared tables.
    Result all(std::vector<SharedRow>& rows);
    // Copies the whole database as it is now into a new file, and synchronises it. `path` gets its name, none
    // for a database in memory.
    Result backUp(std::string& path);

private:
    Result applyAll(const SharedUpdates& updates, Applied& applied);
    Result follow(const SharedPosition& position);
    Result copyInto(const std::string& path);
    // One commit of what the function writes.
    Result commitAll(const std::function<Result()>& writes);
    Result write(Statement& statement);

    const Schema& schema_;
    const DatabaseFile& file_;
    Connections& connections_;
    TableWriter& writer_;
    ClusterMemory& memory_;
    std::uint64_t timesOpened_ = 0; // at begin()
};

} // namespace store
