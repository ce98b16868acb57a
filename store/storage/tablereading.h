#pragma once

#include "store/storage/rows.h"
#include "store/storage/snapshots.h"
#include "store/storage/tablereader.h"

#include <cstdint>
#include <deque>
#include <optional>

namespace store {

// A reading of all rows of a table, in Id order, piece by piece. All rows are of one moment, whatever is
// committed between two pieces.
class TableReading {
public:
    using Result = velta::protocol::EResultCode;

    // Reads from a snapshot, which it keeps until the last row is read.
    TableReading(ConnectedTable& table, Snapshots::Lease snapshot);
    // Reads what the open transaction sees. It must end before the transaction does.
    TableReading(ConnectedTable& table, TableReader& ownWrites);
    ~TableReading() = default;
    TableReading(const TableReading&) = delete;
    TableReading& operator=(const TableReading&) = delete;

    // Counts the rows. Comes before all else.
    Result begin();
    const velta::NameList& columns() const { return columns_; }
    std::uint32_t total() const { return total_; }

    // The next rows: at least one, and no more when they have that many bytes. None at the end.
    Result next(Rows& rows, std::size_t bytes);

    bool holdsSnapshot() const { return snapshot_ != nullptr; }
    // Reads the rest into memory and gives the snapshot back. tooLarge where it has over `most` bytes: then
    // it can't be read on.
    Result keepRest(std::size_t most);
    // Bytes of memory that the rest takes.
    std::size_t keptBytes() const { return keptBytes_; }

private:
    Result read(Rows& rows, std::size_t bytes);
    void endRun();

    ConnectedTable& table_;
    Snapshots::Lease snapshot_;
    TableReader& reader_;
    velta::NameList columns_;
    std::optional<Statement::Run> run_;
    std::uint32_t total_ = 0;
    bool atEnd_ = false;
    std::deque<Rows> kept_;
    std::size_t keptBytes_ = 0;
};

} // namespace store
