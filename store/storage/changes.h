#pragma once

#include "store/storage/tablereader.h"
#include "store/storage/touchedrows.h"
#include "velta/namelist.h"
#include "velta/protocol/resultcode.h"

#include <cstdint>

namespace store {

// Keeps track of what the open transaction has changed. One write to a row shows by itself whether the row
// differs. A row that was written more than once is compared with the last commit at the end, since the
// writes may cancel out.
class Changes {
public:
    using Result = velta::protocol::EResultCode;

    // `written` reads with the transaction's writes, `lastCommit` without. Both outlive it.
    Changes(TableReader& written, TableReader& lastCommit) : written_(written), lastCommit_(lastCommit) {}

    // A row that is about to be written to.
    void note(const ConnectedTable& table, std::int64_t rowId) { touched_.note(table.index, rowId); }
    // The noted row was written; `differs` says whether that changed a cell of it.
    void settle(const ConnectedTable& table, std::int64_t rowId, bool differs) noexcept {
        touched_.settle(table.index, rowId, differs);
    }
    void forget() noexcept { touched_.clear(); }
    const TouchedRows& touched() const { return touched_; }

    // Adds the tables in which a cell is not as before.
    Result addChangedTables(velta::NameList& changed);

private:
    Result tableChanged(std::size_t table, const TouchedRows::OfTable& touched, bool& changed);
    Result compare(std::size_t table, std::int64_t rowId, bool& differs);

    TableReader& written_;
    TableReader& lastCommit_;
    TouchedRows touched_;
};

} // namespace store
