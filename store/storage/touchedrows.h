#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace store {

// A row's cells as SQLite has them, one behind the other; nothing where there is no such row.
using RowImage = std::optional<std::string>;

// Which rows a transaction wrote to, by the table's index in the schema, and what they held before. Bounded:
// of a table with very many it only keeps that there were many, and only so many bytes of what was before.
class TouchedRows {
public:
    struct Row {
        bool imageKept = false; // else the row of the last commit has to be read
        RowImage before;
    };
    struct OfTable {
        std::map<std::int64_t, Row> rows;
        bool tooMany = false; // then there are no rows
    };

    // Whether note() wants to know what the row holds: it is new, and there is room for its image.
    bool wantsImage(std::size_t table, std::int64_t rowId) const;
    // A row that is about to be written to.
    void note(std::size_t table, std::int64_t rowId, RowImage before);
    void noteWithoutImage(std::size_t table, std::int64_t rowId);

    void clear() noexcept;
    const std::map<std::size_t, OfTable>& tables() const { return tables_; }

private:
    void add(std::size_t table, std::int64_t rowId, Row&& row);

    std::map<std::size_t, OfTable> tables_;
    std::size_t imageBytes_ = 0;
};

} // namespace store
