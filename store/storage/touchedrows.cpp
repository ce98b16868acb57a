#include "store/storage/touchedrows.h"

namespace store {

namespace {

constexpr std::size_t rowLimit = 10000; // of one table

} // namespace

void TouchedRows::note(std::size_t table, std::int64_t rowId) {
    OfTable& touched = tables_[table];
    if (touched.tooMany)
        return;
    const auto [row, isNew] = touched.rows.try_emplace(rowId);
    row->second.again = !isNew;
    if (touched.rows.size() <= rowLimit)
        return;
    touched.tooMany = true;
    touched.rows.clear();
}

void TouchedRows::settle(std::size_t table, std::int64_t rowId, bool differs) noexcept {
    OfTable& touched = tables_.at(table);
    if (const auto row = touched.rows.find(rowId); row != touched.rows.end())
        row->second.differs = differs;
}

} // namespace store
