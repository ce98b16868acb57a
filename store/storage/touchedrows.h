#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>

namespace store {

// Which rows a transaction wrote to, by the table's index in the schema. Bounded: of a table with very many
// it only keeps that there were many.
class TouchedRows {
public:
    struct Row {
        bool again = false;          // it was written to more than once
        std::optional<bool> differs; // from before, after the last write that got through
    };
    struct OfTable {
        std::map<std::int64_t, Row> rows;
        bool tooMany = false; // then there are no rows
    };

    // A row that is about to be written to.
    void note(std::size_t table, std::int64_t rowId);
    // The row that was noted is written, and that made it another one or did not.
    void settle(std::size_t table, std::int64_t rowId, bool differs) noexcept;

    void clear() noexcept { tables_.clear(); }
    const std::map<std::size_t, OfTable>& tables() const { return tables_; }

private:
    std::map<std::size_t, OfTable> tables_;
};

} // namespace store
