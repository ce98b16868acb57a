#include "store/storage/touchedrows.h"

#include <utility>

namespace store {

namespace {

constexpr std::size_t rowLimit = 10000;         // of one table
constexpr std::size_t imageLimit = 1024 * 1024; // bytes of all images

} // namespace

bool TouchedRows::wantsImage(std::size_t table, std::int64_t rowId) const {
    const auto touched = tables_.find(table);
    if (touched == tables_.end())
        return imageBytes_ < imageLimit;
    return imageBytes_ < imageLimit && !touched->second.tooMany && touched->second.rows.count(rowId) == 0;
}

void TouchedRows::note(std::size_t table, std::int64_t rowId, RowImage before) {
    imageBytes_ += before ? before->size() : 0;
    add(table, rowId, {true, std::move(before)});
}

void TouchedRows::noteWithoutImage(std::size_t table, std::int64_t rowId) {
    add(table, rowId, {});
}

void TouchedRows::add(std::size_t table, std::int64_t rowId, Row&& row) {
    OfTable& touched = tables_[table];
    if (touched.tooMany)
        return;
    touched.rows.try_emplace(rowId, std::move(row)); // the first one counts
    if (touched.rows.size() <= rowLimit)
        return;
    touched.tooMany = true;
    touched.rows.clear();
}

void TouchedRows::clear() noexcept {
    tables_.clear();
    imageBytes_ = 0;
}

} // namespace store
