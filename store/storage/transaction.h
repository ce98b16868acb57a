#pragma once

#include "store/storage/clustermemory.h"
#include "store/storage/sharedreads.h"
#include "store/storage/sharing.h"
#include "store/storage/tablewriter.h"
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

    // Both outlive it.
    Transaction(TableWriter& writer, ClusterMemory& memory) : writer_(writer), memory_(memory) {}

    // Reads rows including the transaction's own writes.
    TableReader& reader() { return writer_.reader(); }

    Result writeSingle(const std::string& table, std::uint32_t row, const velta::ValueList& values);
    Result update(const std::string& table, const std::string& keyColumn, const std::string& key,
                  const velta::ValueList& values);
    Result insert(const std::string& table, const velta::ValueList& values, std::uint32_t& id);
    Result remove(const std::string& table, const std::string& keyColumn, const std::string& key);

    // Whether insert() would take these cells, but for its Id.
    Result mayInsert(const std::string& table, const velta::ValueList& values);
    // What it changes of cells that are shared with other devices; nothing where it changes others only.
    // tooLarge if it wrote too many rows of a shared table, mixedChange if it changes both kinds.
    Result sharedChange(const SharedReads& reads, SharedChange& change);

    // The transaction is over, whatever the result. `changed` gets the tables in which a cell differs from
    // before; if there is none, nothing is written. With the code outcomeUnknown it can't be told whether the
    // commit is kept; after any other failure nothing of it is.
    Result commit(velta::NameList& changed) { return writer_.commit(changed); }
    void rollBack() noexcept { writer_.rollBack(); }

private:
    Result mayInsert(const std::string& table, const velta::ValueList& values, ConnectedTable*& found);
    Result writeCells(ConnectedTable& table, std::int64_t rowId, const velta::ValueList& values);
    Result findRow(ConnectedTable& table, const std::string& keyColumn, const std::string& key,
                   std::int64_t& rowId);
    Result nextId(ConnectedTable& table, std::int64_t& id);
    Result idFor(ConnectedTable& table, const velta::ValueList& values, std::int64_t& id);

    TableWriter& writer_;
    ClusterMemory& memory_;
};

} // namespace store
