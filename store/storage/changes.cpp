#include "store/storage/changes.h"

#include "store/storage/rowcheck.h"

#include <utility>

namespace store {

using Result = Changes::Result;

Result Changes::note(ConnectedTable& table, std::int64_t rowId) {
    if (!touched_.wantsImage(table.index, rowId)) {
        touched_.noteWithoutImage(table.index, rowId);
        return {};
    }
    RowImage before;
    if (Result result = imageOf(written_, table, rowId, before); !result.ok())
        return result;
    touched_.note(table.index, rowId, std::move(before));
    return {};
}

void Changes::noteNew(const ConnectedTable& table, std::int64_t rowId) {
    touched_.note(table.index, rowId, std::nullopt);
}

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
        Result result = differs(table, rowId, row, changed);
        if (!result.ok() || changed)
            return result;
    }
    return {};
}

// Compares the row as the transaction sees it with what it was in the last commit.
Result Changes::differs(std::size_t table, std::int64_t rowId, const TouchedRows::Row& row, bool& different) {
    RowImage now;
    if (Result result = imageOf(written_, written_.at(table), rowId, now); !result.ok())
        return result;
    if (row.imageKept) {
        different = now != row.before;
        return {};
    }
    RowImage before;
    Result result = imageOf(lastCommit_, lastCommit_.at(table), rowId, before);
    different = now != before;
    return result;
}

} // namespace store
