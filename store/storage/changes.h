#pragma once

#include "store/storage/tablereader.h"
#include "store/storage/touchedrows.h"
#include "velta/namelist.h"
#include "velta/protocol/resultcode.h"

#include <cstdint>

namespace store {

// What the open transaction has changed: it notes each row before it is written to, and compares at the end.
class Changes {
public:
    using Result = velta::protocol::EResultCode;

    // `written` reads with the transaction's writes, `lastCommit` without. Both outlive it.
    Changes(TableReader& written, TableReader& lastCommit) : written_(written), lastCommit_(lastCommit) {}

    // A row that is about to be written to.
    Result note(ConnectedTable& table, std::int64_t rowId);
    void noteNew(const ConnectedTable& table, std::int64_t rowId);
    void forget() noexcept { touched_.clear(); }

    // Adds the tables in which a cell is not as before.
    Result addChangedTables(velta::NameList& changed);

private:
    Result tableChanged(std::size_t table, const TouchedRows::OfTable& touched, bool& changed);
    Result differs(std::size_t table, std::int64_t rowId, const TouchedRows::Row& row, bool& different);

    TableReader& written_;
    TableReader& lastCommit_;
    TouchedRows touched_;
};

} // namespace store
