#pragma once

#include "store/storage/schema.h"
#include "store/storage/sqlite.h"

#include <memory>
#include <vector>

namespace store {

// The statements of one table on one connection. A row is addressed by its row id, which is the Id where the
// table has one; the single row of a table without has the row id 1.
//
// Results have the columns in the schema's order.
class TableStatements {
public:
    TableStatements(Connection& connection, const Table& table);

    Statement& count() { return count_; }
    Statement& all() { return all_; }
    Statement& byIndex() { return byIndex_; } // 1: the index from 0
    Statement& byRowId() { return byRowId_; } // 1: the row id
    // The row id of the first row with a key in that column. 1: the key
    Statement& find(std::size_t column);
    // A column's parameter counts as the column does, from 1; an unbound one leaves the cell as it is, or
    // gives a new row the default. Behind the last: the row id, which for update() must be bound.
    Statement& update() { return update_; }
    Statement& insert() { return insert_; }
    Statement& remove() { return remove_; } // 1: the row id
    Statement& highestRowId() { return highestRowId_; }

private:
    Connection& connection_;
    const Table& table_;
    Statement count_;
    Statement all_;
    Statement byIndex_;
    Statement byRowId_;
    Statement update_;
    Statement insert_;
    Statement remove_;
    Statement highestRowId_;
    std::vector<std::unique_ptr<Statement>> find_; // made when asked for
};

} // namespace store
