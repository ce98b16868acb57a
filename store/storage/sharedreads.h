#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>

namespace store {

// What a transaction has read of shared tables, by their index in the schema. Its memory is bounded: many
// rows of a table count as the whole table.
class SharedReads {
public:
    struct OfTable {
        bool whole = false; // it was read as a whole, or searched
        std::set<std::int64_t> ids;
    };

    void noteWhole(std::size_t table) { tables_[table] = {true, {}}; }
    void noteRow(std::size_t table, std::int64_t id) {
        OfTable& reads = tables_[table];
        if (reads.whole)
            return;
        reads.ids.insert(id);
        if (reads.ids.size() > mostRows)
            noteWhole(table);
    }

    const std::map<std::size_t, OfTable>& tables() const { return tables_; }

private:
    static constexpr std::size_t mostRows = 1000;

    std::map<std::size_t, OfTable> tables_;
};

} // namespace store
