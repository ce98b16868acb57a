#include "store/storage/changes.h"

#include "store/storage/rowcheck.h"

namespace store {

using Result = Changes::Result;

Result Changes::addChangedTables(velta::NameList& changed) {
    for (const auto& [table, touched] : touched_.tables()) {
        bool isChanged = false;
        if (Result result = tableChanged(table, touched, isChanged); !result.ok())
            return result;
        if (isChanged)
            changed.push_back(written_.at(table).description.name);
    }
    return {};
}

Result Changes::tableChanged(std::size_t table, const TouchedRows::OfTable& touched, bool& changed) {
    changed = touched.tooMany;
    for (const auto& [rowId, row] : touched.rows) {
        if (!row.again && row.differs) {
            changed = *row.differs;
        } else if (Result result = compare(table, rowId, changed); !result.ok()) {
            return result;
        }
        if (changed)
            break;
    }
    return {};
}

// Compares the row as the transaction sees it with the row of the last commit.
Result Changes::compare(std::size_t table, std::int64_t rowId, bool& differs) {
    RowImage now;
    if (Result result = imageOf(written_, written_.at(table), rowId, now); !result.ok())
        return result;
    RowImage before;
    Result result = imageOf(lastCommit_, lastCommit_.at(table), rowId, before);
    differs = now != before;
    return result;
}

} // namespace store
