#pragma once

#include "store/storage/rows.h"
#include "store/storage/snapshots.h"
#include "store/storage/tablereader.h"

#include <cstdint>
#include <deque>
#include <optional>

namespace store {

// Reads all rows of a table in Id order, piece by piece. All pieces show the same moment, whatever is
// committed in between.
class TableReading {
public:
    using Result = velta::protocol::EResultCode;

    // Reads from a snapshot, which it keeps until the last row is read.
    TableReading(ConnectedTable& table, Snapshots::Lease snapshot);
    // Reads what the open transaction sees. It must be destroyed before the transaction ends.
    TableReading(ConnectedTable& table, TableReader& ownWrites);
    ~TableReading() = default;
    TableReading(const TableReading&) = delete;
    TableReading& operator=(const TableReading&) = delete;

    // Counts the rows. To be called first.
    Result begin();
    const velta::NameList& columns() const { return columns_; }
    std::uint32_t total() const { return total_; }

    // Reads the next rows: at least one, and further ones until they have that many bytes. None at the end.
    Result next(Rows& rows, std::size_t bytes);

    bool holdsSnapshot() const { return snapshot_ != nullptr; }
    // Reads the remaining rows into memory and gives the snapshot back. tooLarge if they have over `most`
    // bytes: the reading can't be continued then.
    Result keepRest(std::size_t most);
    // Bytes of memory that the remaining rows take.
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
