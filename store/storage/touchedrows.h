#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>

namespace store {

// Which rows a transaction wrote to, by the table's index in the schema. Bounded: of a table with very many
// it only keeps that there were many.
class TouchedRows {
public:
    struct OfTable {
        std::set<std::int64_t> rowIds;
        bool tooMany = false; // then rowIds is empty
    };

    void add(std::size_t table, std::int64_t rowId);
    void clear() { tables_.clear(); }
    const std::map<std::size_t, OfTable>& tables() const { return tables_; }

private:
    std::map<std::size_t, OfTable> tables_;
};

} // namespace store
