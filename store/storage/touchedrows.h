#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>

namespace store {

// Which rows a transaction wrote to, by the table's index in the schema. Its memory is bounded: of a table
// with very many such rows it only notes that they were too many.
class TouchedRows {
public:
    struct Row {
        bool again = false;          // it was written to more than once
        std::optional<bool> differs; // from before, after the last successful write
    };
    struct OfTable {
        std::map<std::int64_t, Row> rows;
        bool tooMany = false; // `rows` is empty then
    };

    // A row that is about to be written to.
    void note(std::size_t table, std::int64_t rowId);
    // The noted row was written; `differs` says whether that changed a cell of it.
    void settle(std::size_t table, std::int64_t rowId, bool differs) noexcept;

    void clear() noexcept { tables_.clear(); }
    const std::map<std::size_t, OfTable>& tables() const { return tables_; }

private:
    std::map<std::size_t, OfTable> tables_;
};

} // namespace store
