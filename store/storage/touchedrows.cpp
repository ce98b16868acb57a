#include "store/storage/touchedrows.h"

namespace store {

namespace {

constexpr std::size_t rowLimit = 10000; // of one table

} // namespace

void TouchedRows::add(std::size_t table, std::int64_t rowId) {
    OfTable& touched = tables_[table];
    if (touched.tooMany)
        return;
    touched.rowIds.insert(rowId);
    if (touched.rowIds.size() <= rowLimit)
        return;
    touched.tooMany = true;
    touched.rowIds.clear();
}

} // namespace store
