#pragma once

#include "store/storage/tablereader.h"
#include "store/storage/touchedrows.h"
#include "velta/namelist.h"
#include "velta/protocol/resultcode.h"

#include <cstdint>

namespace store {

// What the open transaction has changed. A write to a row tells by itself whether the row differs; one that
// was written to again is compared at the end, since the writes may cancel out.
class Changes {
public:
    using Result = velta::protocol::EResultCode;

    // `written` reads with the transaction's writes, `lastCommit` without. Both outlive it.
    Changes(TableReader& written, TableReader& lastCommit) : written_(written), lastCommit_(lastCommit) {}

    // A row that is about to be written to.
    void note(const ConnectedTable& table, std::int64_t rowId) { touched_.note(table.index, rowId); }
    // The row that was noted is written, and that made it another one or did not.
    void settle(const ConnectedTable& table, std::int64_t rowId, bool differs) noexcept {
        touched_.settle(table.index, rowId, differs);
    }
    void forget() noexcept { touched_.clear(); }

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
