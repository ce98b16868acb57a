#include "store/storage/tablesizes.h"

namespace store {

namespace {

std::string countSql(const Table& table) {
    std::string texts = "0";
    for (const Column& column : table.columns)
        if (column.type == velta::Value::Text)
            texts += " + coalesce(length(CAST(" + quoted(column.name) + " AS BLOB)), 0)";
    const auto fixed = cellOverhead * static_cast<std::int64_t>(table.columns.size());
    return "SELECT coalesce(sum(" + texts + " + " + std::to_string(fixed) + "), 0) FROM " +
           quoted(table.name);
}

} // namespace

void TableSizes::count(Connection& connection, const Schema& schema) {
    std::vector<Size> sizes;
    sizes.reserve(schema.tables().size());
    for (const Table& table : schema.tables())
        sizes.push_back({connection.number(countSql(table)), 0});
    sizes_ = std::move(sizes);
}

std::string TableSizes::limitText() const {
    constexpr std::int64_t mebibyte = 1024 * 1024;
    return limit_ % mebibyte == 0 ? std::to_string(limit_ / mebibyte) + " MiB"
                                  : std::to_string(limit_) + " bytes";
}

bool TableSizes::mayGrow(std::size_t table, std::int64_t bytes) const {
    return bytes <= 0 || of(table) + bytes <= limit_;
}

void TableSizes::keep() noexcept {
    for (Size& size : sizes_)
        size = {size.committed + size.added, 0};
}

void TableSizes::forget() noexcept {
    for (Size& size : sizes_)
        size.added = 0;
}

} // namespace store
